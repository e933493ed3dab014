// The mapper adapter: the loaded AIMapper v5 with the library's conventions on top.
#pragma once

#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <android/hardware/graphics/mapper/IMapper.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>
#include <android/rect.h>
#include <cutils/native_handle.h>
#include <system/graphics.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace NSCam::GrallocMapperAidlV2 {

// HDR metadata that camera code gets and sets as raw records.
enum GRALLOC_STANDARD_METADATA_TYPE : int32_t {
    GRALLOC_STANDARD_METADATA_SMPTE2086 = 0,     // Smpte2086, 40 bytes
    GRALLOC_STANDARD_METADATA_CTA861_3 = 1,      // Cta861_3, 8 bytes
    GRALLOC_STANDARD_METADATA_SMPTE2094_40 = 2,  // get: 224 bytes; set: std::vector<uint8_t>
    GRALLOC_STANDARD_METADATA_SMPTE2094_10 = 3,  // set only: std::vector<uint8_t>
};

class MapperV5 {
public:
    using IAllocator = aidl::android::hardware::graphics::allocator::IAllocator;
    using PlaneLayout = aidl::android::hardware::graphics::common::PlaneLayout;
    using StandardMetadataType = aidl::android::hardware::graphics::common::StandardMetadataType;
    template <StandardMetadataType T>
    using MetadataValue =
            typename android::hardware::graphics::mapper::StandardMetadata<T>::value_type;

    // Loads mapper.<suffix>.so, the suffix coming from the allocator; any failure is fatal.
    explicit MapperV5(std::shared_ptr<IAllocator> allocator);

    int32_t importBuffer(const native_handle* raw, const native_handle** outBuffer) const;
    int32_t freeBuffer(const native_handle* buffer) const;
    // The acquire fence (or -1) is given up in every case.
    int32_t lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                 int acquireFence, void** outData) const;
    int32_t lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                 int acquireFence, void** outData, int* outBytesPerPixel,
                 int* outBytesPerStride) const;
    // Plane addresses derived from the plane layouts; 3 when they do not describe YCbCr.
    int32_t lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                 int acquireFence, android_ycbcr* outYcbcr) const;
    // The release fence, owned by the caller, or -1.
    int unlock(const native_handle* buffer) const;
    void ipcFlushCommands() const;

    template <StandardMetadataType T>
    std::optional<MetadataValue<T>> getStandardMetadata(const native_handle* buffer) const;
    template <StandardMetadataType T>
    int32_t setStandardMetadata(const native_handle* buffer, const MetadataValue<T>& value) const;
    int32_t getPlaneLayouts(const native_handle* buffer, std::vector<PlaneLayout>* out) const;
    int32_t getGrallocMeta(const native_handle* buffer, GRALLOC_STANDARD_METADATA_TYPE type,
                           void* data, unsigned int size) const;
    int32_t setGrallocMeta(const native_handle* buffer, GRALLOC_STANDARD_METADATA_TYPE type,
                           void* data, unsigned int size) const;

private:
    std::shared_ptr<const AIMapper> mMapper;
    std::shared_ptr<IAllocator> mAllocator;
    int32_t mLogLevel = 0;
};

}  // namespace NSCam::GrallocMapperAidlV2
