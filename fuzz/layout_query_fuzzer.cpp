// The layout query against the simulated gralloc, for any width, height, format, usage and
// batch count: an answer is a status code or a layout, never a crash; a failed query leaves
// the caller's record alone; an answered one is cached; no probe buffer or descriptor
// outlives its query, except the one a failed ION-descriptor query leaves behind on purpose.
//
// Input: up to four requests, each {i32 width, i32 height, i32 format, i32 usage, i32 batch,
// u8 flags} and, when the flags say so, {u8 attribute, i64 value}: an extension attribute of
// the probe buffer that the simulated extension misreports.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <gralloc_extra.h>
#include <utils/Errors.h>
#include <zyncam_host/Platform.h>
#include <zyncam_host/SimGralloc.h>

#include <iterator>
#include <memory>
#include <optional>

#include "FuzzSupport.h"
#include "GrallocHelper.h"

namespace {

using zyncam::fuzz::fail;

constexpr size_t kMaxRequests = 4;
constexpr uint8_t kFlagRefresh = 1 << 0;
constexpr uint8_t kFlagIonQueryFails = 1 << 1;
constexpr uint8_t kFlagExtensionLies = 1 << 2;
// Attributes the layout derivation reads and may be told anything about. Width and height are
// not among them: the derivation locks that region for YUV layouts, and a failed lock there
// ends the process by design.
constexpr int kMisreportable[] = {
        GRALLOC_EXTRA_GET_STRIDE,     GRALLOC_EXTRA_GET_VERTICAL_STRIDE,
        GRALLOC_EXTRA_GET_ALLOC_SIZE, GRALLOC_EXTRA_GET_FORMAT,
        GRALLOC_EXTRA_GET_USAGE,      GRALLOC_EXTRA_GET_PRODUCER_USAGE,
};
// Each failed ION-descriptor query strands a probe buffer and its descriptors; past this many
// the fault is no longer injected, so that long runs stay within the descriptor limit.
constexpr int kMaxStrandedBuffers = 64;
constexpr int kNoDescriptor = -1;

std::unique_ptr<zcam::IGrallocHelper> gHelper;
const zcam::IGrallocLayoutCache* gCache = nullptr;
int gFdsPerBuffer = 0;
int gStranded = 0;

bool sameLayout(const zcam::GrallocStaticInfo& a, const zcam::GrallocStaticInfo& b) {
    if (a.format != b.format || a.widthInPixels != b.widthInPixels ||
        a.heightInPixels != b.heightInPixels || a.isAFBC != b.isAFBC ||
        a.planes.size() != b.planes.size()) {
        return false;
    }
    for (size_t i = 0; i < a.planes.size(); ++i) {
        if (a.planes[i].sizeInBytes != b.planes[i].sizeInBytes ||
            a.planes[i].rowStrideInBytes != b.planes[i].rowStrideInBytes) {
            return false;
        }
    }
    return true;
}

// A record no answer looks like.
zcam::GrallocStaticInfo sentinel() {
    zcam::GrallocStaticInfo info;
    info.format = -7;
    info.widthInPixels = -7;
    info.heightInPixels = -7;
    info.planes = {{7, 7}};
    info.isAFBC = true;
    return info;
}

struct Misreport {
    int attribute;
    int64_t value;
};

void query(const zcam::GrallocRequest& request, bool refresh, bool ionQueryFails,
           std::optional<Misreport> misreport) {
    const auto before = zyncam::sim::counters();
    const int fdsBefore = zyncam::host::openFdCount();
    if (ionQueryFails) zyncam::sim::overrideExtraQuery(GRALLOC_EXTRA_GET_ION_FD, kNoDescriptor);
    if (misreport) zyncam::sim::overrideExtraQuery(misreport->attribute, misreport->value);
    zcam::GrallocStaticInfo info = sentinel();
    const int result = gHelper->query(&request, &info, refresh);
    zyncam::sim::resetFaults();

    const auto after = zyncam::sim::counters();
    const int64_t stranded = after.liveBuffers - before.liveBuffers;
    const bool strandedOnPurpose = ionQueryFails && result == android::UNKNOWN_ERROR;
    if (stranded != (strandedOnPurpose ? 1 : 0)) {
        fail("query %dx%d format %#x usage %#x batch %d answered %d and left %lld buffers",
             request.widthInPixels, request.heightInPixels, request.format, request.usage,
             request.batchNum, result, static_cast<long long>(stranded));
    }
    gStranded += static_cast<int>(stranded);
    const int fdsLeft = zyncam::host::openFdCount() - fdsBefore;
    if (fdsLeft != stranded * gFdsPerBuffer) {
        fail("query %dx%d format %#x usage %#x answered %d and left %d descriptors open",
             request.widthInPixels, request.heightInPixels, request.format, request.usage, result,
             fdsLeft);
    }

    if (result != android::OK) {
        if (result != android::NO_MEMORY && result != android::NAME_NOT_FOUND &&
            result != android::UNKNOWN_ERROR) {
            fail("query %dx%d format %#x usage %#x answered %d", request.widthInPixels,
                 request.heightInPixels, request.format, request.usage, result);
        }
        if (!sameLayout(info, sentinel())) {
            fail("query %dx%d format %#x usage %#x failed with %d but wrote the record",
                 request.widthInPixels, request.heightInPixels, request.format, request.usage,
                 result);
        }
        return;
    }
    if (info.planes.empty() || info.widthInPixels <= 0 || info.heightInPixels <= 0) {
        fail("query %dx%d format %#x usage %#x answered a layout of %dx%d with %zu planes",
             request.widthInPixels, request.heightInPixels, request.format, request.usage,
             info.widthInPixels, info.heightInPixels, info.planes.size());
    }
    zcam::GrallocCachedLayout cached;
    if (!gCache->findCachedLayout(request, info.isAFBC, &cached) ||
        !sameLayout(cached.info, info)) {
        fail("query %dx%d format %#x usage %#x answered a layout its cache does not hold",
             request.widthInPixels, request.heightInPixels, request.format, request.usage);
    }
    if (info.isAFBC) return;  // compressed layouts are probed every time
    zcam::GrallocStaticInfo again = sentinel();
    if (gHelper->query(&request, &again, false) != android::OK || !sameLayout(again, info) ||
        zyncam::sim::counters().allocateCalls != after.allocateCalls) {
        fail("query %dx%d format %#x usage %#x was not answered from the cache the second time",
             request.widthInPixels, request.heightInPixels, request.format, request.usage);
    }
}

}  // namespace

// A protected buffer cannot be locked for the CPU, and a failed lock in the derivation ends the
// process by design (gralloc-layout refuses such requests before probing). The protected bit is
// kept only where the derivation needs no lock: the allocator does not resolve the request to
// YCrCb_420_SP, and the extension tells the truth about the format and the usage.
int32_t withoutAbortingProtection(const zcam::GrallocRequest& request,
                                  const std::optional<Misreport>& misreport) {
    namespace common = aidl::android::hardware::graphics::common;
    constexpr int32_t kProtected = static_cast<int32_t>(common::BufferUsage::PROTECTED);
    if ((request.usage & kProtected) == 0) return request.usage;
    const bool liesAboutLayoutKind =
            misreport && (misreport->attribute == GRALLOC_EXTRA_GET_FORMAT ||
                          misreport->attribute == GRALLOC_EXTRA_GET_USAGE);
    const int resolved = gHelper->getGrallocExtraFormat(
            request.format, static_cast<unsigned long>(static_cast<uint32_t>(request.usage)));
    if (liesAboutLayoutKind || resolved == static_cast<int>(common::PixelFormat::YCRCB_420_SP)) {
        return request.usage & ~kProtected;
    }
    return request.usage;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zyncam::fuzz::openLogGatesQuietly();
    gHelper = zcam::createGrallocHelper();
    gCache = zcam::layoutCacheOf(*gHelper);
    namespace common = aidl::android::hardware::graphics::common;
    native_handle_t* raw = zyncam::sim::createRawBuffer(
            16, 16, static_cast<int32_t>(common::PixelFormat::RGBA_8888),
            static_cast<uint64_t>(common::BufferUsage::CPU_READ_OFTEN));
    if (gCache == nullptr || raw == nullptr) fail("no helper or no simulated gralloc");
    gFdsPerBuffer = raw->numFds;
    native_handle_close(raw);
    native_handle_delete(raw);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zyncam::fuzz::Input input(data, size);
    gHelper->clearMap();
    for (size_t i = 0; i < kMaxRequests && input.left() != 0; ++i) {
        zcam::GrallocRequest request;
        request.widthInPixels = input.take<int32_t>();
        request.heightInPixels = input.take<int32_t>();
        request.format = input.take<int32_t>();
        request.usage = input.take<int32_t>();
        request.batchNum = input.take<int32_t>();
        const auto flags = input.take<uint8_t>();
        std::optional<Misreport> misreport;
        if (flags & kFlagExtensionLies) {
            const auto choice = input.take<uint8_t>() % std::size(kMisreportable);
            misreport = Misreport{kMisreportable[choice], input.take<int64_t>()};
        }
        request.usage = withoutAbortingProtection(request, misreport);
        query(request, flags & kFlagRefresh,
              (flags & kFlagIonQueryFails) && gStranded < kMaxStrandedBuffers, misreport);
    }
    return 0;
}
