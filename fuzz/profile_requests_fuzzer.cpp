// Layout queries under a fuzzed device profile: every request is answered with a layout or
// failed with a code, and no probe buffer or descriptor outlives its query, whatever the
// profile's rules and exact answers say. A profile that does not load is simply refused.
//
// Input: {u8 count} then count % 4 + 1 requests {i32 width, i32 height, i32 format, i32 usage,
// i32 batch}, then the profile's text (read as a file beside the shipped profiles, so that
// "extends" reaches them by name).
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <utils/Errors.h>
#include <zyncam_host/Platform.h>
#include <zyncam_host/SimGralloc.h>

#include <cstdio>
#include <memory>
#include <string>

#include "FuzzSupport.h"
#include "GrallocHelper.h"

namespace {

namespace common = aidl::android::hardware::graphics::common;
using zyncam::fuzz::fail;

constexpr size_t kMaxRequests = 4;
constexpr int32_t kProtected = static_cast<int32_t>(common::BufferUsage::PROTECTED);
const std::string kSource = std::string(ZYNCAM_PROFILES_DIR) + "/fuzzed.json";

std::unique_ptr<zcam::IGrallocHelper> gHelper;

// The derivation locates YCrCb_420_SP planes through a CPU lock, which a protected buffer
// refuses, and a failed lock there ends the process by design; gralloc-layout refuses such
// requests before probing, by the format the profile's rules resolve to. An exact answer may
// name any format for any request, so under a profile that holds some, no request keeps the
// protected bit.
int32_t withoutAbortingProtection(const zcam::GrallocRequest& request) {
    if ((request.usage & kProtected) == 0) return request.usage;
    const zcam::GrallocRequest probed = zcam::normalizeGrallocRequest(request);
    const int resolved = gHelper->getGrallocExtraFormat(
            probed.format, static_cast<unsigned long>(static_cast<uint32_t>(probed.usage)));
    if (zyncam::sim::profileExactAnswerCount() != 0 ||
        resolved == static_cast<int>(common::PixelFormat::YCRCB_420_SP)) {
        return request.usage & ~kProtected;
    }
    return request.usage;
}

void query(const zcam::GrallocRequest& request) {
    const auto before = zyncam::sim::counters();
    const int fdsBefore = zyncam::host::openFdCount();
    zcam::GrallocStaticInfo info;
    const int result = gHelper->query(&request, &info, false);
    const int64_t stranded = zyncam::sim::counters().liveBuffers - before.liveBuffers;
    const int fdsLeft = zyncam::host::openFdCount() - fdsBefore;
    if (stranded != 0 || fdsLeft != 0) {
        fail("query %dx%d format %#x usage %#x batch %d answered %d and left %lld buffers and "
             "%d descriptors",
             request.widthInPixels, request.heightInPixels, request.format, request.usage,
             request.batchNum, result, static_cast<long long>(stranded), fdsLeft);
    }
    if (result == android::OK) {
        if (info.planes.empty() || info.widthInPixels <= 0 || info.heightInPixels <= 0) {
            fail("query %dx%d format %#x usage %#x answered a layout of %dx%d with %zu planes",
                 request.widthInPixels, request.heightInPixels, request.format, request.usage,
                 info.widthInPixels, info.heightInPixels, info.planes.size());
        }
    } else if (result != android::NO_MEMORY && result != android::NAME_NOT_FOUND &&
               result != android::UNKNOWN_ERROR) {
        fail("query %dx%d format %#x usage %#x answered %d", request.widthInPixels,
             request.heightInPixels, request.format, request.usage, result);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zyncam::fuzz::openLogGatesQuietly();
    // A base named "/dev/stdin" reads an empty input rather than waiting for the terminal.
    if (std::freopen("/dev/null", "r", stdin) == nullptr) fail("no /dev/null");
    gHelper = zcam::createGrallocHelper();
    if (gHelper == nullptr) fail("no helper");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zyncam::fuzz::Input input(data, size);
    const size_t count = input.take<uint8_t>() % kMaxRequests + 1;
    zcam::GrallocRequest requests[kMaxRequests];
    for (size_t i = 0; i < count; ++i) {
        requests[i].widthInPixels = input.take<int32_t>();
        requests[i].heightInPixels = input.take<int32_t>();
        requests[i].format = input.take<int32_t>();
        requests[i].usage = input.take<int32_t>();
        requests[i].batchNum = input.take<int32_t>();
    }
    const std::vector<uint8_t> rest = input.bytes(input.left());
    const std::string text(rest.begin(), rest.end());
    if (!zyncam::sim::loadProfileText(text, kSource, nullptr)) return 0;
    gHelper->clearMap();  // layouts of the previous profile
    for (size_t i = 0; i < count; ++i) {
        requests[i].usage = withoutAbortingProtection(requests[i]);
        query(requests[i]);
    }
    zyncam::sim::resetProfile();
    return 0;
}
