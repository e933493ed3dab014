// Fault, counter and journal state shared by the simulated allocator, mapper and extension.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <zyncam_host/SimGralloc.h>

namespace zyncam::sim {

struct Faults {
    std::optional<int32_t> allocate;
    int32_t allocateShortfall = 0;
    int importCountdown = 0;
    int32_t free = 0;
    int32_t lock = 0;
    bool lockMapping = false;
    int32_t unlock = 0;
    int lateFenceMs = 0;
    std::map<int64_t, int32_t> metadataAnswers;
    std::map<int64_t, std::vector<uint8_t>> metadataBytes;
    std::map<int64_t, int32_t> setMetadataFailures;
    std::map<int, int32_t> extraFailures;
    std::map<int, int64_t> extraOverrides;
    std::map<int, int32_t> performFailures;
    std::optional<int32_t> sfSetStatus;
    std::optional<int32_t> platformFormat;
    std::string mapperSuffix = kMapperSuffix;
    bool mapperSuffixFails = false;
    int dmaBufNameErrno = 0;
    std::optional<std::vector<aidl::android::hardware::graphics::common::PlaneLayout>> planeLayouts;
    bool lockClosesAcquireFence = true;
};

// The state, under its lock.
struct Control {
    std::mutex lock;
    Faults faults;
    Counters counters;
    std::deque<std::string> dmaBufNames;
};
Control& control();

// Runs `f` on the state under its lock and returns what it returns.
template <typename F>
auto withControl(F&& f) {
    Control& c = control();
    std::lock_guard<std::mutex> guard(c.lock);
    return f(c);
}

// The value of `key` in a fault table, if it has one.
template <typename Map>
std::optional<typename Map::mapped_type> lookup(const Map& map, const typename Map::key_type& key) {
    auto it = map.find(key);
    if (it == map.end()) return std::nullopt;
    return it->second;
}

// The journal: a cheap test while off, so every call can ask.
extern std::atomic<bool> gJournalOn;
inline bool journalOn() {
    return gJournalOn.load(std::memory_order_relaxed);
}
void journalAppend(const JournalEntry& entry);

// A journal entry of a call on `buffer` (null for calls that take none).
inline JournalEntry journalEntry(Call call, const native_handle_t* buffer, int32_t result) {
    JournalEntry e{call};
    e.handle = buffer;
    e.result = result;
    return e;
}

}  // namespace zyncam::sim
