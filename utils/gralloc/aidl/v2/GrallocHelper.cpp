// The helper: lifecycle, the layout query and its cache, per-buffer operations and setters.
#include <aidl/android/hardware/graphics/common/Dataspace.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <android/hardware/graphics/mapper/IMapper.h>
#include <android/sync.h>
#include <cutils/properties.h>
#include <gralloc_extra.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utils/Errors.h>
#include <utils/Timers.h>

#include <algorithm>
#include <cstring>

#include "GrallocAllocatorAidlV2.h"
#include "GrallocHelperInternal.h"
#include "GrallocMapperAidlV2.h"
#include "GrallocVocabulary.h"
#include "logging/GrallocLog.h"

namespace GrallocAidlV2 {

using aidl::android::hardware::graphics::common::Dataspace;
using aidl::android::hardware::graphics::common::PixelFormat;
using NSCam::GrallocAllocatorAidlV2::AllocatorAidl;
using NSCam::GrallocMapperAidlV2::MapperV5;

// Released at exit in reverse order: the allocator, which uses the mapper, goes first.
std::unique_ptr<const MapperV5> gMapperV5;
std::unique_ptr<const AllocatorAidl> gAllocatorAidl;
std::atomic<int32_t> gLogLevel{0};

namespace {

constexpr unsigned long kDmaBufSetName = 0x40086201;  // DMA_BUF_SET_NAME_B
constexpr const char* kLogLevelProperty = "debug.zyncam.utils.gralloc.loglevel";
// The probe buffer: one layer, no reserved region.
constexpr uint32_t kProbeLayerCount = 1;
constexpr uint64_t kProbeReservedSize = 0;
// freeBuffer() of a null handle.
constexpr int kFreeNullHandle = -1;

// Vendor status word of the SF-info record: the YUV colour space in the top three bits.
constexpr int kStatusDirtyCamera = zcam::kGrallocStatusDirtyCamera;
constexpr uint32_t kColorSpaceMask = 0xE0000000;
enum ColorSpaceBits : uint32_t {
    kColorSpaceBt601Limited = 0x20000000,
    kColorSpaceBt601Full = 0x40000000,
    kColorSpaceBt709Limited = 0x60000000,
    kColorSpaceBt709Full = 0x80000000,
    kColorSpaceBt2020Limited = 0xA0000000,
    kColorSpaceBt2020Full = 0xC0000000,
};

using zcam::kDataspaceLegacyBt601_525;
using zcam::kDataspaceLegacyBt601_625;
using zcam::kDataspaceLegacyBt709;
using zcam::kDataspaceLegacyJfif;

constexpr uint32_t toBits(Dataspace value) {
    return static_cast<uint32_t>(value);
}

class AutoLock {
public:
    explicit AutoLock(pthread_mutex_t& mutex) : mMutex(mutex) { pthread_mutex_lock(&mMutex); }
    ~AutoLock() { pthread_mutex_unlock(&mMutex); }
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

private:
    pthread_mutex_t& mMutex;
};

// The request line of a layout query, out of line: a cache hit pays only for its gate.
[[gnu::cold, gnu::noinline]] void logQueryRequest(const zcam::GrallocRequest& request) {
    ZLOGD_FN("query", "[%s] Gralloc Request: u(0x%x) f(0x%x) w(%d) h(%d) BatchNum(%d)",
             request.usage, request.format, request.widthInPixels, request.heightInPixels,
             request.batchNum);
}

bool hasAliasEntry(int32_t format) {
    return format == static_cast<int32_t>(PixelFormat::IMPLEMENTATION_DEFINED) ||
           format == static_cast<int32_t>(PixelFormat::YCBCR_420_888) ||
           isVendorBatchFormat(format);
}

}  // namespace

GrallocHelperAidlV2Imp::GrallocHelperAidlV2Imp() {
    pthread_mutex_init(&mLock, nullptr);
    ZLOGD("[%s] +");
    gLogLevel.store(property_get_int32(kLogLevelProperty, 0));
    if (initialize() != android::NO_ERROR) {
        ZLOGE_AT(kLogLineInitializeFail, "[%s] %s initialize fail", "GrallocHelperAidlV2Imp");
    }
    ZLOGD("[%s] -");
}

GrallocHelperAidlV2Imp::~GrallocHelperAidlV2Imp() {
    ZLOGD("[%s] +");
    ZLOGD("[%s] -");
    mStreamInfoMap.clear();
    pthread_mutex_destroy(&mLock);
}

int GrallocHelperAidlV2Imp::initialize() {
    ZLOGD("[%s] +");
    std::shared_ptr<AllocatorAidl::IAllocator> allocator = AllocatorAidl::createInstance();
    gMapperV5 = std::make_unique<const MapperV5>(allocator);
    gAllocatorAidl = std::make_unique<const AllocatorAidl>(allocator, *gMapperV5);
    if (gMapperV5 == nullptr || gAllocatorAidl == nullptr) return android::NO_INIT;
    mInitialized = true;
    ZLOGD("[%s] -");
    return android::NO_ERROR;
}

int GrallocHelperAidlV2Imp::query(const zcam::GrallocRequest* request,
                                  zcam::GrallocStaticInfo* staticInfo, bool refresh) const {
    if (request == nullptr) {
        ZLOGE_AT(kLogLineNullRequest, "[%s] NULL pRequest");
        return android::BAD_VALUE;
    }
    if (staticInfo == nullptr) {
        ZLOGE_AT(kLogLineNullStaticInfo, "[%s] NULL pStaticInfo");
        return android::BAD_VALUE;
    }
    if (zcam::logging::debugEnabled()) [[unlikely]] {
        logQueryRequest(*request);
    }
    MyRequest key;
    determine(*request, key);
    if (refresh) [[unlikely]] {
        return queryRefresh(key, staticInfo);
    }

    AutoLock lock(mLock);
    const ssize_t index = indexOfLocked(key);
    if (index >= 0) [[likely]] {
        mStreamInfoMap[index].second.copyTo(*staticInfo);
        return 0;
    }
    return queryMissLocked(key, staticInfo);
}

int GrallocHelperAidlV2Imp::queryRefresh(MyRequest& key,
                                         zcam::GrallocStaticInfo* staticInfo) const {
    AutoLock lock(mLock);
    const ssize_t index = indexOfLocked(key);
    if (index >= 0) mStreamInfoMap.erase(mStreamInfoMap.begin() + index);
    return queryMissLocked(key, staticInfo);
}

int GrallocHelperAidlV2Imp::queryMissLocked(MyRequest& key,
                                            zcam::GrallocStaticInfo* staticInfo) const {
    MyStaticInfo info;
    info.batchNum = batchCountForDerivation(key);
    const int result = determine(key, info);
    // Stored under the probe's flag: an AFBC layout is never found by a plain lookup again.
    key.isAFBC = info.isAFBC;
    if (result != android::NO_ERROR) return result;
    addToMapLocked(key, info);
    info.copyTo(*staticInfo);

    // Buffer queries of the resolved format find the layout under usage 0.
    if (hasAliasEntry(key.format)) {
        MyRequest alias = key;
        alias.usage = 0;
        alias.format = info.format;
        if (indexOfLocked(alias) < 0) addToMapLocked(alias, info);
    }
    return android::NO_ERROR;
}

int GrallocHelperAidlV2Imp::determine(const MyRequest& request, MyStaticInfo& info) {
    const nsecs_t start = systemTime(SYSTEM_TIME_MONOTONIC);
    const native_handle* handle = nullptr;
    uint32_t stride = 0;
    const int allocated = gAllocatorAidl->allocate(
            static_cast<uint32_t>(request.widthInPixels),
            static_cast<uint32_t>(request.heightInPixels),
            static_cast<AllocatorAidl::PixelFormat>(request.format), kProbeLayerCount,
            static_cast<uint64_t>(static_cast<uint32_t>(request.usage)), &handle, &stride,
            kProbeReservedSize, "determine");
    if (allocated != android::NO_ERROR || handle == nullptr) {
        ZLOGE_AT(kLogLineBadAllocation,
                 "[%s] Bad allcation handle:%p %dx%d format:%#x(%s) usage:%#x(%s)", handle,
                 request.widthInPixels, request.heightInPixels, request.format,
                 gQueryPixelFormatName(request.format).c_str(), request.usage,
                 gQueryGrallocUsageName(request.usage).c_str());
        if (handle != nullptr) {
            gAllocatorAidl->free(handle);
            ZLOGI("[%s] free buffer_handle_t: GrallocHelper-%dx%d-%d", info.widthInPixels,
                  info.heightInPixels, info.format);
        }
        return android::NO_MEMORY;
    }
    info.grallocTime = systemTime(SYSTEM_TIME_MONOTONIC) - start;

    const int result = queryStaticInfo(handle, info);
    int fd = kNoFd;
    const int error = gralloc_extra_query(handle, GRALLOC_EXTRA_GET_ION_FD, &fd);
    if (error != 0 || fd < 0) {
        // The probe buffer is left as it is: without its descriptor it is not touched again.
        ZLOGE_AT(kLogLineProbeIonFd, "[%s] [buffer_handle_t:%p] err:%d ionFd:%d", handle, error,
                 fd);
        return android::UNKNOWN_ERROR;
    }
    char name[64];
    snprintf(name, sizeof(name), "GrallocHelper-%dx%d-%d", info.widthInPixels, info.heightInPixels,
             info.format);
    (void)ioctl(fd, kDmaBufSetName, name);
    gAllocatorAidl->free(handle);
    ZLOGI("[%s] free buffer_handle_t: GrallocHelper-%dx%d-%d", info.widthInPixels,
          info.heightInPixels, info.format);
    return result;
}

ssize_t GrallocHelperAidlV2Imp::addToMapLocked(const MyRequest& key,
                                               const MyStaticInfo& info) const {
    dump(key, info);
    auto it = std::lower_bound(
            mStreamInfoMap.begin(), mStreamInfoMap.end(), key,
            [](const Entry& entry, const MyRequest& k) { return entry.first < k; });
    if (it != mStreamInfoMap.end() && !(key < it->first)) {
        *it = Entry(key, info);
    } else {
        it = mStreamInfoMap.emplace(it, key, info);
    }
    return it - mStreamInfoMap.begin();
}

void GrallocHelperAidlV2Imp::dump(const MyRequest& key, const MyStaticInfo& info) const {
    ZLOGD("[%s] *****************************************************************************");
    ZLOGD("[%s] !!!gralloc time: %ld us", static_cast<long>(info.grallocTime / 1000));
    ZLOGD("[%s] %dx%d usage:0x%08x(%s) format:0x%08x(%s) -->", key.widthInPixels,
          key.heightInPixels, key.usage, queryGrallocUsageName(key.usage).c_str(), key.format,
          queryPixelFormatName(key.format).c_str());
    ZLOGD("[%s] %dx%d usage:0x%08x(%s) C(%d) format:0x%08x(%s)", info.widthInPixels,
          info.heightInPixels, info.usage,
          queryGrallocUsageName(static_cast<int>(info.usage)).c_str(), info.isAFBC ? 1 : 0,
          info.format, queryPixelFormatName(info.format).c_str());
    for (size_t i = 0; i < info.planes.size(); ++i) {
        ZLOGD("[%s]   [%zu] sizeInBytes:%zu rowStrideInBytes:%zu", i, info.planes[i].sizeInBytes,
              info.planes[i].rowStrideInBytes);
    }
}

void GrallocHelperAidlV2Imp::dumpToLog() const {
    ZLOGD("[%s] +");
    AutoLock lock(mLock);
    for (const auto& [key, info] : mStreamInfoMap) dump(key, info);
    ZLOGD("[%s] -");
}

void GrallocHelperAidlV2Imp::clearMap() {
    AutoLock lock(mLock);
    ZLOGI("[%s] Clear the stream info map");
    mStreamInfoMap.clear();
}

namespace {

zcam::GrallocCachedLayout toCachedLayout(const GrallocHelperAidlV2Imp::MyRequest& key,
                                         const MyStaticInfo& info) {
    zcam::GrallocCachedLayout out;
    out.key.usage = key.usage;
    out.key.format = key.format;
    out.key.widthInPixels = key.widthInPixels;
    out.key.heightInPixels = key.heightInPixels;
    out.key.batchNum = key.batchNum;
    out.keyIsAFBC = key.isAFBC;
    info.copyTo(out.info);
    out.allocationTimeNs = info.grallocTime;
    out.allocatorUsage = info.usage;
    out.producerUsage = info.producerUsage;
    out.allocSize = info.allocSize;
    out.framesPerBuffer = info.batchNum;
    return out;
}

}  // namespace

size_t GrallocHelperAidlV2Imp::cachedLayoutCount() const {
    AutoLock lock(mLock);
    return mStreamInfoMap.size();
}

std::vector<zcam::GrallocCachedLayout> GrallocHelperAidlV2Imp::cachedLayouts() const {
    AutoLock lock(mLock);
    std::vector<zcam::GrallocCachedLayout> out;
    out.reserve(mStreamInfoMap.size());
    for (const auto& [key, info] : mStreamInfoMap) out.push_back(toCachedLayout(key, info));
    return out;
}

bool GrallocHelperAidlV2Imp::findCachedLayout(const zcam::GrallocRequest& request, bool isAFBC,
                                              zcam::GrallocCachedLayout* out) const {
    if (out == nullptr) return false;
    MyRequest key;
    determine(request, key);
    key.isAFBC = isAFBC;
    AutoLock lock(mLock);
    const ssize_t index = indexOfLocked(key);
    if (index < 0) return false;
    *out = toCachedLayout(mStreamInfoMap[index].first, mStreamInfoMap[index].second);
    return true;
}

int GrallocHelperAidlV2Imp::query(buffer_handle_t buffer, zcam::GrallocStaticInfo* staticInfo,
                                  NSCam::GrallocDynamicInfo* dynamicInfo) const {
    if (buffer == nullptr) {
        ZLOGE("[%s] NULL buffer_handle_t");
        return android::BAD_VALUE;
    }
    Extra extra{};
    if (gQueryExtra(buffer, extra) != android::NO_ERROR) return android::UNKNOWN_ERROR;

    AutoLock lock(mLock);
    MyRequest key;
    key.format = extra.format;
    key.widthInPixels = static_cast<int32_t>(extra.widthInPixels);
    key.heightInPixels = static_cast<int32_t>(extra.heightInPixels);
    key.isAFBC = extra.isAFBC;
    const ssize_t index = indexOfLocked(key);
    if (index >= 0) {
        mStreamInfoMap[index].second.copyTo(*staticInfo);
    } else {
        // Gated as every warning: the format's name is built only when the line is written.
        ZLOGW("[%s] Not found: %dx%d %s", key.widthInPixels, key.heightInPixels,
              gQueryPixelFormatName(key.format).c_str());
        MyStaticInfo info;
        const int result = queryStaticInfo(buffer, info);
        if (result != android::NO_ERROR) return result;
        MyRequest derived;
        derived.format = info.format;
        derived.widthInPixels = info.widthInPixels;
        derived.heightInPixels = info.heightInPixels;
        derived.isAFBC = info.isAFBC;
        if (indexOfLocked(derived) < 0) addToMapLocked(derived, info);
        info.copyTo(*staticInfo);
    }
    if (dynamicInfo != nullptr) {
        int fd = kNoFd;
        const int error = gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_ION_FD, &fd);
        if (error != 0 || fd < 0) {
            ZLOGE("[%s] [buffer_handle_t:%p] err:%d ionFd:%d", buffer, error, fd);
            return android::UNKNOWN_ERROR;
        }
        dynamicInfo->ionFds.push_back(fd);  // still owned by the buffer
    }
    // The flag describes this buffer, whichever buffer the cache entry came from.
    staticInfo->isAFBC = extra.isAFBC;
    return android::NO_ERROR;
}

bool GrallocHelperAidlV2Imp::importBuffer(buffer_handle_t& buffer, bool deleteRaw) {
    if (buffer->numFds == 0 && buffer->numInts == 0) {
        buffer = nullptr;
        return true;
    }
    const native_handle* imported = nullptr;
    const int32_t error = gMapperV5->importBuffer(buffer, &imported);
    if (error != AIMAPPER_ERROR_NONE) {
        ZLOGE("[%s] importBuffer(%p) failed: %d", buffer, error);
        return false;
    }
    // Only the raw record goes; its descriptors are the caller's to close.
    if (deleteRaw) native_handle_delete(const_cast<native_handle_t*>(buffer));
    buffer = imported;
    return true;
}

int GrallocHelperAidlV2Imp::freeBuffer(buffer_handle_t buffer) {
    if (buffer == nullptr) return kFreeNullHandle;
    return gMapperV5->freeBuffer(buffer);
}

int GrallocHelperAidlV2Imp::lock(buffer_handle_t buffer, unsigned int usage, int width, int height,
                                 void** outData) {
    const ARect region{0, 0, width, height};
    const int32_t error = gMapperV5->lock(buffer, usage, region, kNoFence, outData);
    if (error != AIMAPPER_ERROR_NONE) {
        ZLOGE("[%s] lock(...) failed %d (%s)", error, strerror(-error));
    }
    return error;
}

int GrallocHelperAidlV2Imp::unlock(buffer_handle_t buffer) {
    const int fence = gMapperV5->unlock(buffer);
    sync_wait(fence, kSyncWaitForever);
    close(fence);
    return android::NO_ERROR;
}

int GrallocHelperAidlV2Imp::setBufferStatus(buffer_handle_t buffer, int mask, int value) const {
    GrallocExtraSfInfo info;
    memset(&info, 0, sizeof(info));
    (void)gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_SF_INFO, &info);
    (void)gralloc_extra_sf_set_status(&info, mask, value);
    return gralloc_extra_perform(buffer, GRALLOC_EXTRA_SET_SF_INFO, &info);
}

int GrallocHelperAidlV2Imp::setDirtyCamera(buffer_handle_t buffer) const {
    return setBufferStatus(buffer, kStatusDirtyCamera, kStatusDirtyCamera);
}

int GrallocHelperAidlV2Imp::setColorspace(buffer_handle_t buffer, int dataspace) const {
    const uint32_t standard = static_cast<uint32_t>(dataspace) & toBits(Dataspace::STANDARD_MASK);
    const uint32_t range = static_cast<uint32_t>(dataspace) & toBits(Dataspace::RANGE_MASK);
    const bool full = range == toBits(Dataspace::RANGE_FULL);
    const bool limited = range == toBits(Dataspace::RANGE_LIMITED);
    // BT601_525 itself is not in the family; its unadjusted sibling is.
    const bool bt601 = standard == toBits(Dataspace::STANDARD_BT601_625) ||
                       standard == toBits(Dataspace::STANDARD_BT601_625_UNADJUSTED) ||
                       standard == toBits(Dataspace::STANDARD_BT601_525_UNADJUSTED) ||
                       dataspace == kDataspaceLegacyJfif ||
                       dataspace == kDataspaceLegacyBt601_625 ||
                       dataspace == kDataspaceLegacyBt601_525;
    const bool bt709 =
            dataspace == kDataspaceLegacyBt709 || standard == toBits(Dataspace::STANDARD_BT709);
    const bool bt2020 = standard == toBits(Dataspace::STANDARD_BT2020) ||
                        standard == toBits(Dataspace::STANDARD_BT2020_CONSTANT_LUMINANCE);

    uint32_t value;
    if (bt601 && (full || dataspace == kDataspaceLegacyJfif)) {
        value = kColorSpaceBt601Full;
    } else if (bt601 && (limited || dataspace == kDataspaceLegacyBt601_625 ||
                         dataspace == kDataspaceLegacyBt601_525)) {
        value = kColorSpaceBt601Limited;
    } else if (bt709 && full) {
        value = kColorSpaceBt709Full;
    } else if (bt709 && (limited || dataspace == kDataspaceLegacyBt709)) {
        value = kColorSpaceBt709Limited;
    } else if (bt2020 && full) {
        value = kColorSpaceBt2020Full;
    } else if (bt2020 && limited) {
        value = kColorSpaceBt2020Limited;
    } else {
        value = kColorSpaceBt601Full;
        ZLOGE("[%s] unknown color space %x(%s), set default value, BT601 FULL", value,
              zcam::queryDataspaceName(dataspace).c_str());
    }
    if (gLogLevel.load() >= kOwnLogLevelDetails) {
        ZLOGD("[%s] GRALLOC_EXTRA_BIT_YUV=0x%x(%s)", value,
              zcam::queryDataspaceName(dataspace).c_str());
    }
    return setBufferStatus(buffer, static_cast<int>(kColorSpaceMask), static_cast<int>(value));
}

int GrallocHelperAidlV2Imp::setBufferSOF(buffer_handle_t buffer, unsigned long timestamp) const {
    // The extension stores 64 bits, wider than unsigned long on a 32-bit target.
    uint64_t time = timestamp;
    return gralloc_extra_perform(buffer, GRALLOC_EXTRA_SET_SOF_TIME, &time);
}

int GrallocHelperAidlV2Imp::getGrallocExtraFormat(int format, unsigned long usage) {
    return gralloc_extra_get_platform_format(format, usage);
}

std::string GrallocHelperAidlV2Imp::queryPixelFormatName(int format) const {
    return gQueryPixelFormatName(format);
}

std::string GrallocHelperAidlV2Imp::queryGrallocUsageName(int usage) const {
    return gQueryGrallocUsageName(usage);
}

std::string GrallocHelperAidlV2Imp::queryDataspaceName(int dataspace) const {
    return gQueryDataspaceNameHex(dataspace);
}

}  // namespace GrallocAidlV2

namespace zcam {

std::unique_ptr<IGrallocHelper> createGrallocHelper() {
    return std::make_unique<GrallocAidlV2::GrallocHelperAidlV2Imp>();
}

const IGrallocLayoutCache* layoutCacheOf(const IGrallocHelper& helper) {
    return dynamic_cast<const GrallocAidlV2::GrallocHelperAidlV2Imp*>(&helper);
}

GrallocRequest normalizeGrallocRequest(const GrallocRequest& request) {
    GrallocAidlV2::GrallocHelperAidlV2Imp::MyRequest key;
    GrallocAidlV2::GrallocHelperAidlV2Imp::determine(request, key);
    GrallocRequest out;
    out.usage = key.usage;
    out.format = key.format;
    out.widthInPixels = key.widthInPixels;
    out.heightInPixels = key.heightInPixels;
    out.batchNum = key.batchNum;
    return out;
}

std::string pixelFormatName(int format) {
    return GrallocAidlV2::gQueryPixelFormatName(format);
}

std::string grallocUsageName(int usage) {
    return GrallocAidlV2::gQueryGrallocUsageName(usage);
}

std::string dataspaceName(int dataspace) {
    return GrallocAidlV2::gQueryDataspaceNameHex(dataspace);
}

}  // namespace zcam
