// The AIDL allocator v2 / AIMapper v5 implementation of IGrallocHelper.
#pragma once

#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "GrallocHelper.h"
#include "IGrallocHelper.h"

namespace NSCam::GrallocMapperAidlV2 {
class MapperV5;
}
namespace NSCam::GrallocAllocatorAidlV2 {
class AllocatorAidl;
}

namespace GrallocAidlV2 {

// A cached layout: the caller's answer plus what the probe learnt.
struct MyStaticInfo : zcam::GrallocStaticInfo {
    int64_t grallocTime = 0;  // ns spent in the probe allocation
    uint32_t usage = 0;       // usage reported by the gralloc extension
    size_t allocSize = 0;
    uint32_t producerUsage = 0;
    uint32_t batchNum = 1;  // frames per buffer; divides slow-motion allocation sizes

    // Assigns the caller-visible part to `out`, reusing the capacity of out's planes. The planes
    // go one field at a time: a layout has a handful of them, fewer than a copy call costs, and
    // a call's wide stores slow down when the caller's storage straddles a page.
    void copyTo(zcam::GrallocStaticInfo& out) const {
        out.format = format;
        out.widthInPixels = widthInPixels;
        out.heightInPixels = heightInPixels;
        out.isAFBC = isAFBC;
        const size_t count = planes.size();
        if (out.planes.size() != count) [[unlikely]] {
            out.planes.resize(count);
        }
        const Plane* from = planes.data();
        Plane* to = out.planes.data();
        for (size_t i = 0; i < count; ++i) {
            to[i].sizeInBytes = from[i].sizeInBytes;
            to[i].rowStrideInBytes = from[i].rowStrideInBytes;
        }
    }
};

// The vendor slow-motion batch formats: kPixelFormatSmvrBatch2..32 and
// kPixelFormatSmvrBatchCompressed2..32, one bit each above kPixelFormatSmvrBatch2.
inline bool isVendorBatchFormat(int32_t format) {
    constexpr uint32_t kBatchFormatBits = 0x1F001F;
    constexpr uint32_t kLastBit =
            zcam::kPixelFormatSmvrBatchCompressed32 - zcam::kPixelFormatSmvrBatch2;
    const uint32_t index =
            static_cast<uint32_t>(format) - static_cast<uint32_t>(zcam::kPixelFormatSmvrBatch2);
    return index <= kLastBit && ((kBatchFormatBits >> index) & 1u) != 0;
}

extern std::unique_ptr<const NSCam::GrallocMapperAidlV2::MapperV5> gMapperV5;
extern std::unique_ptr<const NSCam::GrallocAllocatorAidlV2::AllocatorAidl> gAllocatorAidl;
extern std::atomic<int32_t> gLogLevel;

class GrallocHelperAidlV2Imp : public zcam::IGrallocHelper, public zcam::IGrallocLayoutCache {
public:
    // The normalised request; the key of the layout cache.
    struct MyRequest {
        int32_t usage = 0;
        int32_t format = 0;
        int32_t widthInPixels = 0;
        int32_t heightInPixels = 0;
        int32_t batchNum = 0;
        bool isAFBC = false;

        // Three-way order by format, usage, width, height, AFBC flag (as a byte), batch count:
        // negative when *this sorts first, 0 for the same key.
        int compare(const MyRequest& other) const {
            if (format != other.format) return format < other.format ? -1 : 1;
            if (usage != other.usage) return usage < other.usage ? -1 : 1;
            if (widthInPixels != other.widthInPixels) {
                return widthInPixels < other.widthInPixels ? -1 : 1;
            }
            if (heightInPixels != other.heightInPixels) {
                return heightInPixels < other.heightInPixels ? -1 : 1;
            }
            if (isAFBC != other.isAFBC) return isAFBC < other.isAFBC ? -1 : 1;
            if (batchNum != other.batchNum) return batchNum < other.batchNum ? -1 : 1;
            return 0;
        }
        bool operator<(const MyRequest& other) const { return compare(other) < 0; }
        bool operator==(const MyRequest& other) const { return compare(other) == 0; }
    };

    GrallocHelperAidlV2Imp();
    ~GrallocHelperAidlV2Imp() override;

    int initialize();

    int query(const zcam::GrallocRequest* request, zcam::GrallocStaticInfo* staticInfo,
              bool refresh) const override;
    int query(buffer_handle_t buffer, zcam::GrallocStaticInfo* staticInfo,
              NSCam::GrallocDynamicInfo* dynamicInfo) const override;
    int setDirtyCamera(buffer_handle_t buffer) const override;
    int setColorspace(buffer_handle_t buffer, int dataspace) const override;
    int setBufferSOF(buffer_handle_t buffer, unsigned long timestamp) const override;
    std::string queryPixelFormatName(int format) const override;
    std::string queryGrallocUsageName(int usage) const override;
    std::string queryDataspaceName(int dataspace) const override;
    int getGrallocExtraFormat(int format, unsigned long usage) override;
    void dumpToLog() const override;
    bool importBuffer(buffer_handle_t& buffer, bool deleteRaw) override;
    int freeBuffer(buffer_handle_t buffer) override;
    int lock(buffer_handle_t buffer, unsigned int usage, int width, int height,
             void** outData) override;
    int unlock(buffer_handle_t buffer) override;
    int setBufferStatus(buffer_handle_t buffer, int mask, int value) const override;
    void clearMap() override;

    // Frames per slow-motion batch buffer, from the system properties.
    int queryBatchNum(const MyRequest& request) const;
    // Normalises a caller's request into a cache key; always 0. Inline: it is on the cache-hit
    // path of every layout query.
    static int determine(const zcam::GrallocRequest& request, MyRequest& out) {
        using aidl::android::hardware::graphics::common::BufferUsage;
        using aidl::android::hardware::graphics::common::PixelFormat;
        constexpr int32_t kCpuBits = static_cast<int32_t>(BufferUsage::CPU_READ_MASK) |
                                     static_cast<int32_t>(BufferUsage::CPU_WRITE_MASK);
        constexpr int32_t kComposer = static_cast<int32_t>(BufferUsage::COMPOSER_OVERLAY);
        constexpr int32_t kCameraWrite = static_cast<int32_t>(BufferUsage::CAMERA_OUTPUT);
        constexpr int32_t kCameraReadWrite =
                kCameraWrite | static_cast<int32_t>(BufferUsage::CAMERA_INPUT);

        out.usage = request.usage;
        out.format = request.format;
        out.widthInPixels = request.widthInPixels;
        out.heightInPixels = request.heightInPixels;
        out.batchNum = request.batchNum;
        out.isAFBC = false;

        switch (static_cast<PixelFormat>(request.format)) {
            case PixelFormat::IMPLEMENTATION_DEFINED:
            case PixelFormat::YCBCR_420_888:
                return 0;
            case PixelFormat::RAW16:
                out.usage |= kCameraWrite;
                return 0;
            case PixelFormat::BLOB:  // never goes to the composer
                out.usage &= ~kComposer;
                break;
            default:
                if (isVendorBatchFormat(request.format)) [[unlikely]] {
                    return 0;
                }
                break;
        }
        out.usage |= (request.usage & kCpuBits) != 0 ? kCameraReadWrite : kCameraWrite;
        return 0;
    }
    // The probe: allocates, derives the layout, names the dma-buf and frees.
    static int determine(const MyRequest& request, MyStaticInfo& info);
    ssize_t addToMapLocked(const MyRequest& key, const MyStaticInfo& info) const;
    size_t cachedLayoutCount() const override;
    std::vector<zcam::GrallocCachedLayout> cachedLayouts() const override;
    bool findCachedLayout(const zcam::GrallocRequest& request, bool isAFBC,
                          zcam::GrallocCachedLayout* out) const override;
    void dump(const MyRequest& key, const MyStaticInfo& info) const;

private:
    using Entry = std::pair<MyRequest, MyStaticInfo>;
    static constexpr ssize_t kNotCached = -1;
    // Index of `key` by binary search, or kNotCached.
    ssize_t indexOfLocked(const MyRequest& key) const {
        size_t low = 0, high = mStreamInfoMap.size();
        while (low < high) {
            const size_t middle = low + (high - low) / 2;
            const int order = mStreamInfoMap[middle].first.compare(key);
            if (order == 0) return static_cast<ssize_t>(middle);
            if (order < 0) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        return kNotCached;
    }
    // A layout request with the refresh flag: drops the key's entry, if any, and probes again.
    // Out of line and taking the lock itself, so that a cache hit neither carries the flag
    // across the lock nor the erase's move loop.
    [[gnu::noinline]] int queryRefresh(MyRequest& key, zcam::GrallocStaticInfo* staticInfo) const;
    // A layout request that the cache could not answer: probe, store, answer.
    int queryMissLocked(MyRequest& key, zcam::GrallocStaticInfo* staticInfo) const;

    mutable pthread_mutex_t mLock;
    mutable std::vector<Entry> mStreamInfoMap;  // sorted by key
    bool mInitialized = false;
};

// Layout of an allocated buffer from its gralloc-extension attributes.
int queryStaticInfo(buffer_handle_t buffer, MyStaticInfo& info);
// Whether plane `index` holds exactly `rows` rows; warns when not.
bool checkPlaneSize(const MyStaticInfo& info, size_t index, size_t rows);

}  // namespace GrallocAidlV2
