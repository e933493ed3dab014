#include "Capture.h"

#include <GrallocAllocatorAidlV2.h>
#include <GrallocFormats.h>
#include <GrallocHelper.h>
#include <GrallocMapperAidlV2.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <aidl/android/hardware/graphics/common/StandardMetadataType.h>
#include <android/sync.h>
#include <cutils/properties.h>
#include <gralloc_extra.h>
#include <system/graphics.h>
#include <unistd.h>
#include <utils/Errors.h>

#include <filesystem>

#include "ProfileScope.h"
#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;
using aidl::android::hardware::graphics::common::PlaneLayout;
using aidl::android::hardware::graphics::common::PlaneLayoutComponentType;
using aidl::android::hardware::graphics::common::StandardMetadataType;
using NSCam::GrallocAllocatorAidlV2::AllocatorAidl;
using NSCam::GrallocMapperAidlV2::MapperV5;

constexpr int32_t kProbeLayerCount = 1;
constexpr uint64_t kReservedSize = 0;
constexpr const char* kBufferName = "gralloc-layout-capture";
constexpr uint64_t kLockUsage = static_cast<uint64_t>(BufferUsage::CPU_READ_OFTEN);
constexpr uint64_t kUsageProtected = static_cast<uint64_t>(BufferUsage::PROTECTED);
constexpr int kNoFence = -1;
constexpr int kWaitForever = -1;

// The device's identity, as a person would want it next to a capture.
constexpr const char* kIdentityProperties[] = {
        "ro.product.manufacturer", "ro.product.model", "ro.product.board",
        "ro.board.platform",       "ro.hardware",      "ro.build.fingerprint",
};

// The 8-bit YCbCr formats whose planes a YCbCr lock describes.
bool lockableAsYCbCr(int32_t format) {
    const zcam::PixelFormatInfo* info = zcam::findPixelFormat(format);
    return info != nullptr && info->lock != zcam::PlaneLock::kNone;
}

// `to` - `from` in bytes, without forming a pointer difference across objects.
int64_t distance(const void* from, const void* to) {
    const uint64_t a = reinterpret_cast<uintptr_t>(from);
    const uint64_t b = reinterpret_cast<uintptr_t>(to);
    return b >= a ? static_cast<int64_t>(b - a) : -static_cast<int64_t>(a - b);
}

template <typename T>
bool query(const native_handle* buffer, GRALLOC_EXTRA_ATTRIBUTE_QUERY attribute, T* out,
           std::string* why) {
    const int error = gralloc_extra_query(buffer, attribute, out);
    if (error != 0) {
        *why = "the gralloc extension did not report attribute " + std::to_string(attribute) +
               " (" + std::to_string(error) + ")";
    }
    return error == 0;
}

std::string property(const char* key) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, "");
    return value;
}

}  // namespace

profile::AllocationRequest probeAllocation(const zcam::GrallocRequest& probed) {
    profile::AllocationRequest a;
    const bool empty = probed.widthInPixels == 0 || probed.heightInPixels == 0;
    a.width = empty ? 1 : probed.widthInPixels;
    a.height = empty ? 1 : probed.heightInPixels;
    a.format = probed.format;
    a.usage = static_cast<uint32_t>(probed.usage);
    a.layerCount = kProbeLayerCount;
    return a;
}

Capture::Capture(const GrallocPlatform& platform)
    : mMapperTable(platform.mapper),
      mMapper(std::make_unique<MapperV5>(platform.allocator)),
      mAllocator(std::make_unique<AllocatorAidl>(platform.allocator, *mMapper)) {}

Capture::~Capture() = default;

std::optional<std::string> Capture::record(const zcam::GrallocRequest& probed) {
    const profile::AllocationRequest request = probeAllocation(probed);
    if (mSeen.count(request) != 0 || answeredExactly(request).value_or(false)) return std::nullopt;
    std::string why;
    std::optional<profile::ExactAnswer> answer = probe(request, &why);
    if (!answer) return why;
    mSeen.insert(request);
    mAnswers.push_back(std::move(*answer));
    return std::nullopt;
}

std::optional<profile::ExactAnswer> Capture::probe(const profile::AllocationRequest& request,
                                                   std::string* why) {
    profile::ExactAnswer a;
    a.request = request;
    const native_handle* buffer = nullptr;
    uint32_t stride = 0;
    const int allocated = mAllocator->allocate(
            static_cast<uint32_t>(a.request.width), static_cast<uint32_t>(a.request.height),
            static_cast<PixelFormat>(a.request.format), a.request.layerCount, a.request.usage,
            &buffer, &stride, kReservedSize, kBufferName);
    if (allocated != android::NO_ERROR || buffer == nullptr) {
        *why = "the allocator refused it";
        return std::nullopt;
    }
    GrallocExtraSfInfo sfInfo{};
    const bool read = query(buffer, GRALLOC_EXTRA_GET_FORMAT, &a.format, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_WIDTH, &a.width, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_HEIGHT, &a.height, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_STRIDE, &a.stride, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_VERTICAL_STRIDE, &a.verticalStride, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_ALLOC_SIZE, &a.allocSize, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_USAGE, &a.usage, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_ID, &a.id, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_CONSUMER_USAGE, &a.consumerUsage, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_PRODUCER_USAGE, &a.producerUsage, why) &&
                      query(buffer, GRALLOC_EXTRA_GET_SF_INFO, &sfInfo, why);
    a.sfStatus = sfInfo.status;
    if (read) {
        a.planeLayouts = planeLayoutBytes(buffer);
        if ((a.request.usage & kUsageProtected) == 0 && lockableAsYCbCr(a.format)) {
            a.ycbcr = ycbcrOffsets(buffer, a.width, a.height);
        }
    }
    mAllocator->free(buffer);
    if (!read) return std::nullopt;
    return a;
}

std::optional<std::vector<uint8_t>> Capture::planeLayoutBytes(const native_handle* buffer) const {
    constexpr auto kType = static_cast<int64_t>(StandardMetadataType::PLANE_LAYOUTS);
    std::vector<uint8_t> bytes(profile::kExactPlaneLayoutsCapacity);
    const int32_t size =
            mMapperTable->v5.getStandardMetadata(buffer, kType, bytes.data(), bytes.size());
    // No layouts, or more than a profile can hold: the format's rule describes the planes.
    if (size <= 0 || static_cast<size_t>(size) > bytes.size()) return std::nullopt;
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}

std::optional<profile::YCbCrOffsets> Capture::ycbcrOffsets(const native_handle* buffer,
                                                           int32_t width, int32_t height) const {
    android_ycbcr ycbcr{};
    const ARect region{0, 0, width, height};
    const int32_t status = mMapper->lock(buffer, kLockUsage, region, kNoFence, &ycbcr);
    if (status != AIMAPPER_ERROR_NONE) return std::nullopt;
    const int fence = mMapper->unlock(buffer);
    if (fence >= 0) {
        sync_wait(fence, kWaitForever);
        close(fence);
    }
    // Where the Y plane starts in the buffer, as its plane layout says.
    int64_t yOffset = 0;
    std::vector<PlaneLayout> layouts;
    if (mMapper->getPlaneLayouts(buffer, &layouts) == AIMAPPER_ERROR_NONE) {
        for (const PlaneLayout& plane : layouts) {
            for (const auto& component : plane.components) {
                if (component.type.value == static_cast<int64_t>(PlaneLayoutComponentType::Y)) {
                    yOffset = plane.offsetInBytes;
                }
            }
        }
    }
    profile::YCbCrOffsets o;
    o.y = yOffset;
    o.cb = yOffset + distance(ycbcr.y, ycbcr.cb);
    o.cr = yOffset + distance(ycbcr.y, ycbcr.cr);
    o.ystride = ycbcr.ystride;
    o.cstride = ycbcr.cstride;
    o.chromaStep = ycbcr.chroma_step;
    return o;
}

Json::Value captureProfile(const std::string& extends,
                           const std::vector<profile::ExactAnswer>& answers) {
    std::string identity, name;
    for (const char* key : kIdentityProperties) {
        const std::string value = property(key);
        if (value.empty()) continue;
        identity += (identity.empty() ? "" : "; ") + std::string(key) + "=" + value;
    }
    for (const char* key : {"ro.product.board", "ro.product.model", "ro.board.platform"}) {
        if (name.empty()) name = property(key);
    }
    if (const std::optional<SimulatedProfile> simulated = simulatedProfile()) {
        const std::string of = "the simulated gralloc of a workstation, profile " +
                               simulated->name +
                               (simulated->source.empty() ? "" : " (" + simulated->source + ")");
        identity = identity.empty() ? of : identity + "; " + of;
        if (name.empty()) name = simulated->name;
    }
    Json::Value document(Json::objectValue);
    document["name"] = (name.empty() ? std::string("device") : name) + "-capture";
    document["description"] = "what the gralloc answered for " + std::to_string(answers.size()) +
                              (answers.size() == 1 ? " allocation" : " allocations") +
                              ", captured by gralloc-layout --capture";
    document["comment"] = identity.empty() ? std::string("no ro. property was set") : identity;
    document["extends"] = extends;
    Json::Value& exact = document["exact"] = Json::Value(Json::arrayValue);
    for (const profile::ExactAnswer& a : answers) exact.append(profile::toJson(a));
    return document;
}

std::string captureBase(const std::string& outPath) {
    const std::optional<SimulatedProfile> simulated = simulatedProfile();
    if (!simulated || simulated->source.empty()) return "default";
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path folder = fs::absolute(fs::path(outPath), error).parent_path();
    const fs::path base = fs::absolute(fs::path(simulated->source), error);
    if (error) return simulated->source;
    // A path beside the capture, or below its folder, moves with both; any other is absolute.
    const fs::path relative = fs::proximate(base, folder, error);
    if (error || relative.empty() || *relative.begin() == "..") return base.generic_string();
    return relative.generic_string();
}

}  // namespace zyncam::tools
