// Which device profile is in force: the start-up one ($ZYNCAM_GRALLOC_PROFILE or the built-in
// default), or the one loaded last.
#include <zyncam_host/SimGralloc.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "Profile.h"
#include "SimBuffer.h"

namespace zyncam::sim {

namespace {

struct State {
    std::mutex lock;
    std::shared_ptr<const Profile> profile;  // null until first needed
};

State& state() {
    static auto* s = new State;  // used until the very end of the process
    return *s;
}

std::shared_ptr<const Profile> readProfileFile(const std::string& path, std::string* error) {
    std::optional<std::string> text = readTextFile(path);
    if (!text) {
        if (error != nullptr) *error = path + ": cannot be read";
        return nullptr;
    }
    return parseProfile(*text, path, error);
}

// A profile that does not load must not leave the simulator half set up: the process ends.
std::shared_ptr<const Profile> startupProfile() {
    std::string error;
    std::shared_ptr<const Profile> p;
    const char* path = getenv(kProfileVariable);
    if (path != nullptr && *path != '\0') {
        p = readProfileFile(path, &error);
    } else {
        p = std::make_shared<const Profile>(builtInProfileRules());
    }
    if (p == nullptr) {
        fprintf(stderr, "simulated gralloc: %s\n", error.c_str());
        _Exit(EXIT_FAILURE);
    }
    return p;
}

bool put(std::shared_ptr<const Profile> p) {
    if (p == nullptr) return false;
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.profile = std::move(p);
    return true;
}

}  // namespace

std::shared_ptr<const Profile> currentProfile() {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (s.profile == nullptr) s.profile = startupProfile();
    return s.profile;
}

bool loadProfile(const std::string& path, std::string* error) {
    return put(readProfileFile(path, error));
}

bool loadProfileText(const std::string& text, const std::string& source, std::string* error) {
    return put(parseProfile(text, source, error));
}

void resetProfile() {
    put(startupProfile());
}

std::shared_ptr<const Profile> activeProfile() {
    return currentProfile();
}

void activateProfile(std::shared_ptr<const Profile> profile) {
    if (profile == nullptr) {
        resetProfile();
    } else {
        put(std::move(profile));
    }
}

std::string builtInProfileJson() {
    return kBuiltInProfile;
}

std::string profileName() {
    return currentProfile()->name;
}

std::string profileSource() {
    return currentProfile()->source;
}

bool profileIsBuiltIn() {
    return currentProfile()->source == kBuiltInProfileSource;
}

size_t profileExactAnswerCount() {
    return currentProfile()->exact.size();
}

std::shared_ptr<const profile::ExactAnswer> exactAnswerFor(
        const profile::AllocationRequest& request) {
    const std::shared_ptr<const Profile> p = currentProfile();
    auto it = p->exact.find(request);
    return it == p->exact.end() ? nullptr : it->second;
}

bool answeredFromExactTable(const native_handle_t* buffer) {
    std::optional<BufferDesc> d = decodeHandle(buffer);
    return d && d->exactAnswer;
}

}  // namespace zyncam::sim
