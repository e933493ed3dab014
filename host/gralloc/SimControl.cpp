#include "SimControl.h"

namespace zyncam::sim {

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

void failImportAt(int k) {
    withControl([&](Control& c) { c.faults.importCountdown = k; });
}

void failLock(int32_t error) {
    withControl([&](Control& c) { c.faults.lock = error; });
}

void failUnlock(int32_t error) {
    withControl([&](Control& c) { c.faults.unlock = error; });
}

void setLateFenceMs(int ms) {
    withControl([&](Control& c) { c.faults.lateFenceMs = ms; });
}

void setMetadataAnswer(int64_t type, std::optional<int32_t> answer) {
    withControl([&](Control& c) {
        if (answer) {
            c.faults.metadataAnswers[type] = *answer;
        } else {
            c.faults.metadataAnswers.erase(type);
        }
    });
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
    withControl([&](Control& c) {
        if (code) {
            c.faults.extraFailures[attribute] = *code;
        } else {
            c.faults.extraFailures.erase(attribute);
        }
    });
}

void overrideExtraQuery(int attribute, std::optional<int64_t> value) {
    withControl([&](Control& c) {
        if (value) {
            c.faults.extraOverrides[attribute] = *value;
        } else {
            c.faults.extraOverrides.erase(attribute);
        }
    });
}

void setMapperSuffix(const std::string& suffix) {
    withControl([&](Control& c) { c.faults.mapperSuffix = suffix; });
}

std::string mapperSuffix() {
    return withControl([](Control& c) { return c.faults.mapperSuffix; });
}

std::vector<std::string> dmaBufNameHistory() {
    return withControl([](Control& c) { return c.dmaBufNames; });
}

void clearDmaBufNameHistory() {
    withControl([](Control& c) { c.dmaBufNames.clear(); });
}

}  // namespace zyncam::sim
