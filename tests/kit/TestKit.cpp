#include "TestKit.h"

#include <cutils/properties.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include <zyncam_host/Platform.h>

namespace testkit {

using NSCam::Utils::ULog::ULogger;

LogCapture::LogCapture(uint32_t mode, uint32_t detailsLevel, uint32_t normalMask)
    : mSavedMode(ULogger::sMode),
      mSavedLevel(ULogger::sDetailsLevel),
      mSavedMask(ULogger::sNormalDetailsMask),
      mSavedSink(ULogger::sULogger) {
    zyncam::host::setLogObserver(&LogCapture::observe, this);
    ULogger::sULogger = this;
    ULogger::sMode = mode;
    ULogger::sDetailsLevel = detailsLevel;
    ULogger::sNormalDetailsMask = normalMask;
}

LogCapture::~LogCapture() {
    zyncam::host::setLogObserver(nullptr, nullptr);
    ULogger::sULogger = mSavedSink;
    ULogger::sMode = mSavedMode;
    ULogger::sDetailsLevel = mSavedLevel;
    ULogger::sNormalDetailsMask = mSavedMask;
}

void LogCapture::observe(void* self, int prio, const char* tag, const char* text) {
    auto* capture = static_cast<LogCapture*>(self);
    std::lock_guard<std::mutex> lock(capture->mLock);
    capture->mAndroid.push_back({prio, tag, text});
}

void LogCapture::write(uint32_t moduleId, const char* tag, int32_t level, const char* message,
                       uint32_t length) {
    std::lock_guard<std::mutex> lock(mLock);
    mSink.push_back({moduleId, tag, level, message, length});
}

void LogCapture::flush(int32_t /*flag*/) {
    std::lock_guard<std::mutex> lock(mLock);
    ++mFlushes;
}

std::vector<AndroidLine> LogCapture::android() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mAndroid;
}

std::vector<SinkLine> LogCapture::sink() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mSink;
}

int LogCapture::flushes() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mFlushes;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(mLock);
    mAndroid.clear();
    mSink.clear();
    mFlushes = 0;
}

size_t LogCapture::count(const std::string& needle) const {
    std::lock_guard<std::mutex> lock(mLock);
    size_t n = 0;
    for (const auto& line : mAndroid) n += line.text.find(needle) != std::string::npos;
    return n;
}

std::optional<AndroidLine> LogCapture::find(const std::string& needle) const {
    std::lock_guard<std::mutex> lock(mLock);
    for (const auto& line : mAndroid) {
        if (line.text.find(needle) != std::string::npos) return line;
    }
    return std::nullopt;
}

ScopedProperty::ScopedProperty(const char* key, const char* value) : mKey(key) {
    char previous[PROPERTY_VALUE_MAX];
    // An empty value reads like an absent one; both restore to absent.
    if (property_get(key, previous, "") > 0) mPrevious = previous;
    if (value != nullptr) {
        property_set(key, value);
    } else {
        zyncam::host::propertyClear(key);
    }
}

ScopedProperty::~ScopedProperty() {
    if (mPrevious) {
        property_set(mKey.c_str(), mPrevious->c_str());
    } else {
        zyncam::host::propertyClear(mKey.c_str());
    }
}

namespace {

int highestOpenFd() {
    int highest = -1;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(dir)) {
            if (entry->d_name[0] != '.') highest = std::max(highest, atoi(entry->d_name));
        }
        closedir(dir);  // its own descriptor was counted, and is free again
    }
    return highest;
}

}  // namespace

NoFreeDescriptors::NoFreeDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    mSavedLimit = limit.rlim_cur;
    limit.rlim_cur = static_cast<rlim_t>(highestOpenFd() + 1);
    setrlimit(RLIMIT_NOFILE, &limit);
    for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) mFillers.push_back(fd);
}

NoFreeDescriptors::~NoFreeDescriptors() {
    for (int fd : mFillers) close(fd);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(mSavedLimit);
    setrlimit(RLIMIT_NOFILE, &limit);
}

ScratchFolder::ScratchFolder() {
    std::string pattern = ::testing::TempDir();
    if (pattern.empty() || pattern.back() != '/') pattern += '/';
    pattern += "zyncam-test.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        fprintf(stderr, "testkit: no scratch folder from %s: %s\n", pattern.c_str(),
                strerror(errno));
        abort();
    }
    mPath = pattern;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

}  // namespace testkit
