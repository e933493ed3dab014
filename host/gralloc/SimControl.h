// Fault and counter state shared by the simulated allocator, mapper and extension.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <zyncam_host/SimGralloc.h>

namespace zyncam::sim {

struct Faults {
    std::optional<int32_t> allocate;
    int importCountdown = 0;
    int32_t lock = 0;
    int32_t unlock = 0;
    int lateFenceMs = 0;
    std::map<int64_t, int32_t> metadataAnswers;
    std::map<int, int32_t> extraFailures;
    std::map<int, int64_t> extraOverrides;
    std::string mapperSuffix = kMapperSuffix;
    std::optional<std::vector<aidl::android::hardware::graphics::common::PlaneLayout>> planeLayouts;
    bool lockClosesAcquireFence = true;
};

// The state, under its lock.
struct Control {
    std::mutex lock;
    Faults faults;
    Counters counters;
    std::vector<std::string> dmaBufNames;
};
Control& control();

// Runs `f` on the state under its lock and returns what it returns.
template <typename F>
auto withControl(F&& f) {
    Control& c = control();
    std::lock_guard<std::mutex> guard(c.lock);
    return f(c);
}

}  // namespace zyncam::sim
