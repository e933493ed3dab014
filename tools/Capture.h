// Capturing what a gralloc answers, as the exact answers of a device profile: on a device the
// real allocator, on a workstation the simulated one.
#pragma once

#include <GrallocRecords.h>
#include <json/value.h>
#include <zyncam_host/ProfileFormat.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "PlatformCheck.h"

namespace zyncam::tools {

// The allocation a layout query's probe makes for a normalised request: one layer, the usage's
// 32 bits, and an empty size made 1 x 1 as the allocator adapter does.
profile::AllocationRequest probeAllocation(const zcam::GrallocRequest& probed);

class Capture {
public:
    // `platform` (opened by openGrallocPlatform) must outlive this object.
    explicit Capture(const GrallocPlatform& platform);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // Records what the allocator answers for the probe of `probed` (a normalised request):
    // allocates one buffer as the helper's probe does, reads every attribute the helper reads
    // from the gralloc extension, the PLANE_LAYOUTS metadata as the mapper encodes it and, for
    // unprotected 8-bit YCbCr buffers, where a YCbCr lock puts the planes; then frees the buffer.
    // An allocation recorded before, or one the simulated profile in force answers exactly
    // already, is not recorded again. Returns why nothing could be recorded, or nothing.
    std::optional<std::string> record(const zcam::GrallocRequest& probed);

    // What was recorded, in the order of the requests.
    const std::vector<profile::ExactAnswer>& answers() const { return mAnswers; }

private:
    std::optional<profile::ExactAnswer> probe(const profile::AllocationRequest& request,
                                              std::string* why);
    std::optional<std::vector<uint8_t>> planeLayoutBytes(const native_handle* buffer) const;
    std::optional<profile::YCbCrOffsets> ycbcrOffsets(const native_handle* buffer, int32_t width,
                                                      int32_t height) const;

    const AIMapper* mMapperTable;
    std::unique_ptr<NSCam::GrallocMapperAidlV2::MapperV5> mMapper;
    std::unique_ptr<NSCam::GrallocAllocatorAidlV2::AllocatorAidl> mAllocator;
    std::set<profile::AllocationRequest> mSeen;
    std::vector<profile::ExactAnswer> mAnswers;
};

// A captured profile: named after the device (its ro. properties) or the simulated profile,
// with the device's identity as its comment, built on `extends` (the profile whose rules answer
// what was not captured), holding `answers` as its exact answers.
Json::Value captureProfile(const std::string& extends,
                           const std::vector<profile::ExactAnswer>& answers);

// What a capture written to `outPath` builds on: the simulated profile in force (as a path
// from the capture's folder), or the built-in "default" on a device.
std::string captureBase(const std::string& outPath);

}  // namespace zyncam::tools
