#include "SimControl.h"

#include <zyncam_host/Platform.h>

namespace zyncam::sim {

namespace {

// Sets or clears the entry of `key`.
template <typename Map>
void assign(Map& map, const typename Map::key_type& key,
            std::optional<typename Map::mapped_type> value) {
    if (value) {
        map[key] = std::move(*value);
    } else {
        map.erase(key);
    }
}

// Kept apart from the control state: closes reach it from anywhere, even under that lock.
struct Journal {
    std::mutex lock;
    std::vector<JournalEntry> entries;
};

Journal& journalState() {
    static auto* j = new Journal;  // used until the very end of the process
    return *j;
}

void observeFd(host::FdCall call, int fd, int timeout, int result) {
    JournalEntry e{call == host::FdCall::SyncWait ? Call::SyncWait : Call::Close};
    e.fd = fd;
    e.attribute = timeout;
    e.result = result;
    journalAppend(e);
}

}  // namespace

std::atomic<bool> gJournalOn{false};

Control& control() {
    static auto* c = new Control;  // used until the very end of the process
    return *c;
}

Counters counters() {
    return withControl([](Control& c) { return c.counters; });
}

void resetFaults() {
    withControl([](Control& c) { c.faults = Faults{}; });
}

void failAllocate(std::optional<int32_t> serviceSpecific) {
    withControl([&](Control& c) { c.faults.allocate = serviceSpecific; });
}

void setAllocateShortfall(int32_t missing) {
    withControl([&](Control& c) { c.faults.allocateShortfall = missing; });
}

void failImportAt(int k) {
    withControl([&](Control& c) { c.faults.importCountdown = k; });
}

void failFree(int32_t error) {
    withControl([&](Control& c) { c.faults.free = error; });
}

void failLock(int32_t error) {
    withControl([&](Control& c) { c.faults.lock = error; });
}

void failLockMapping(bool fail) {
    withControl([&](Control& c) { c.faults.lockMapping = fail; });
}

void failUnlock(int32_t error) {
    withControl([&](Control& c) { c.faults.unlock = error; });
}

void setLateFenceMs(int ms) {
    withControl([&](Control& c) { c.faults.lateFenceMs = ms; });
}

void setMetadataAnswer(int64_t type, std::optional<int32_t> answer) {
    withControl([&](Control& c) { assign(c.faults.metadataAnswers, type, answer); });
}

void setMetadataBytes(int64_t type, std::optional<std::vector<uint8_t>> bytes) {
    withControl([&](Control& c) { assign(c.faults.metadataBytes, type, std::move(bytes)); });
}

void failSetMetadata(int64_t type, std::optional<int32_t> error) {
    withControl([&](Control& c) { assign(c.faults.setMetadataFailures, type, error); });
}

void overridePlaneLayouts(
        std::optional<std::vector<aidl::android::hardware::graphics::common::PlaneLayout>>
                layouts) {
    withControl([&](Control& c) { c.faults.planeLayouts = std::move(layouts); });
}

void setLockClosesAcquireFence(bool closes) {
    withControl([&](Control& c) { c.faults.lockClosesAcquireFence = closes; });
}

void failExtraQuery(int attribute, std::optional<int32_t> code) {
    withControl([&](Control& c) { assign(c.faults.extraFailures, attribute, code); });
}

void overrideExtraQuery(int attribute, std::optional<int64_t> value) {
    withControl([&](Control& c) { assign(c.faults.extraOverrides, attribute, value); });
}

void failExtraPerform(int attribute, std::optional<int32_t> code) {
    withControl([&](Control& c) { assign(c.faults.performFailures, attribute, code); });
}

void failSfSetStatus(std::optional<int32_t> code) {
    withControl([&](Control& c) { c.faults.sfSetStatus = code; });
}

void overridePlatformFormat(std::optional<int32_t> format) {
    withControl([&](Control& c) { c.faults.platformFormat = format; });
}

void setMapperSuffix(const std::string& suffix) {
    withControl([&](Control& c) { c.faults.mapperSuffix = suffix; });
}

std::string mapperSuffix() {
    return withControl([](Control& c) { return c.faults.mapperSuffix; });
}

void failMapperSuffix(bool fail) {
    withControl([&](Control& c) { c.faults.mapperSuffixFails = fail; });
}

void failDmaBufName(int error) {
    withControl([&](Control& c) { c.faults.dmaBufNameErrno = error; });
}

std::vector<std::string> dmaBufNameHistory() {
    return withControl([](Control& c) {
        return std::vector<std::string>(c.dmaBufNames.begin(), c.dmaBufNames.end());
    });
}

void clearDmaBufNameHistory() {
    withControl([](Control& c) { c.dmaBufNames.clear(); });
}

void setJournalEnabled(bool on) {
    Journal& j = journalState();
    {
        std::lock_guard<std::mutex> guard(j.lock);
        j.entries.clear();
    }
    gJournalOn.store(on, std::memory_order_relaxed);
    host::setFdObserver(on ? observeFd : nullptr);
}

std::vector<JournalEntry> journal() {
    Journal& j = journalState();
    std::lock_guard<std::mutex> guard(j.lock);
    return j.entries;
}

void journalAppend(const JournalEntry& entry) {
    if (!journalOn()) return;
    Journal& j = journalState();
    std::lock_guard<std::mutex> guard(j.lock);
    j.entries.push_back(entry);
}

}  // namespace zyncam::sim
