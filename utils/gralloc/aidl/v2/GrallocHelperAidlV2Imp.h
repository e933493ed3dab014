// The AIDL allocator v2 / AIMapper v5 implementation of IGrallocHelper.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

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

    // Assigns the caller-visible part to `out`.
    void copyTo(zcam::GrallocStaticInfo& out) const {
        if (&out != this) out = static_cast<const zcam::GrallocStaticInfo&>(*this);
    }
};

extern std::unique_ptr<const NSCam::GrallocMapperAidlV2::MapperV5> gMapperV5;
extern std::unique_ptr<const NSCam::GrallocAllocatorAidlV2::AllocatorAidl> gAllocatorAidl;
extern std::atomic<int32_t> gLogLevel;

class GrallocHelperAidlV2Imp : public zcam::IGrallocHelper {
public:
    // The normalised request; the key of the layout cache.
    struct MyRequest {
        int32_t usage = 0;
        int32_t format = 0;
        int32_t widthInPixels = 0;
        int32_t heightInPixels = 0;
        int32_t batchNum = 0;
        bool isAFBC = false;

        // Orders by format, usage, width, height, AFBC flag, batch count.
        bool operator<(const MyRequest& other) const;
        bool operator==(const MyRequest& other) const {
            return !(*this < other) && !(other < *this);
        }
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
    // Normalises a caller's request into a cache key; always 0.
    static int determine(const zcam::GrallocRequest& request, MyRequest& out);
    // The probe: allocates, derives the layout, names the dma-buf and frees.
    static int determine(const MyRequest& request, MyStaticInfo& info);
    ssize_t addToMapLocked(const MyRequest& key, const MyStaticInfo& info) const;
    // The cached layout of `request` with what the probe learnt (allocation size, usages), for
    // diagnostics. With `afbc` false it is what query() answers without probing; AFBC layouts
    // are stored under the flag set and are found only with `afbc` true.
    bool findCachedLayout(const zcam::GrallocRequest& request, bool afbc, MyStaticInfo& out) const;
    void dump(const MyRequest& key, const MyStaticInfo& info) const;

private:
    using Entry = std::pair<MyRequest, MyStaticInfo>;
    // Index of `key`, or -1.
    ssize_t indexOfLocked(const MyRequest& key) const;

    mutable pthread_mutex_t mLock;
    mutable std::vector<Entry> mStreamInfoMap;  // sorted by key
    bool mInitialized = false;
};

// Layout of an allocated buffer from its gralloc-extension attributes.
int queryStaticInfo(buffer_handle_t buffer, MyStaticInfo& info);
// Whether plane `index` holds exactly `rows` rows; warns when not.
bool checkPlaneSize(const MyStaticInfo& info, size_t index, size_t rows);

}  // namespace GrallocAidlV2
