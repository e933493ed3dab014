// Test kit for the graphics half: fault scopes and adapters built once per test program.
#pragma once

#include <zyncam_host/Platform.h>
#include <zyncam_host/SimGralloc.h>

#include "GrallocAllocatorAidlV2.h"
#include "GrallocMapperAidlV2.h"

namespace testkit {

// Every simulator fault is off inside the scope and again after it.
class SimFaults {
public:
    SimFaults() { reset(); }
    ~SimFaults() { reset(); }

private:
    static void reset() {
        zyncam::sim::resetFaults();
        zyncam::host::setBinderThreadStateAvailable(true);
    }
};

// A device profile in force for the scope; the one in force before comes back afterwards. A
// profile that is refused fails the test and leaves the one before in force.
class ScopedProfile {
public:
    // A profile file.
    explicit ScopedProfile(const std::string& path);
    // Profile text; `source` names it in errors.
    ScopedProfile(const std::string& json, const std::string& source);
    ~ScopedProfile() { zyncam::sim::activateProfile(mPrevious); }
    ScopedProfile(const ScopedProfile&) = delete;
    ScopedProfile& operator=(const ScopedProfile&) = delete;

private:
    std::shared_ptr<const zyncam::sim::Profile> mPrevious = zyncam::sim::activeProfile();
};

// The simulator's call journal, on for the scope and off (and empty) after it.
class Journal {
public:
    Journal() { zyncam::sim::setJournalEnabled(true); }
    ~Journal() { zyncam::sim::setJournalEnabled(false); }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Empties the journal and keeps it on.
    void clear() { zyncam::sim::setJournalEnabled(true); }
    std::vector<zyncam::sim::JournalEntry> entries() const { return zyncam::sim::journal(); }
    // The entries of one kind, in order.
    std::vector<zyncam::sim::JournalEntry> of(zyncam::sim::Call call) const;
    // Descriptors closed, in order.
    std::vector<int> closed() const;
};

const NSCam::GrallocMapperAidlV2::MapperV5& mapper();
const NSCam::GrallocAllocatorAidlV2::AllocatorAidl& allocator();

// A buffer allocated through the allocator adapter, freed at the end of the scope.
class Buffer {
public:
    Buffer(uint32_t width, uint32_t height, int32_t format, uint64_t usage);
    ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    const native_handle* get() const { return mHandle; }
    uint32_t stride() const { return mStride; }

private:
    const native_handle* mHandle = nullptr;
    uint32_t mStride = 0;
};

}  // namespace testkit
