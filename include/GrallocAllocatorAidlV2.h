// The allocator adapter, and the conversions between AIDL and native buffer handles.
#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>
#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <cutils/native_handle.h>

#include <cstdint>
#include <memory>
#include <string>

#include "GrallocMapperAidlV2.h"

namespace NSCam::GrallocAllocatorAidlV2 {

class AllocatorAidl {
public:
    using IAllocator = aidl::android::hardware::graphics::allocator::IAllocator;
    using BufferDescriptorInfo = aidl::android::hardware::graphics::allocator::BufferDescriptorInfo;
    using PixelFormat = aidl::android::hardware::graphics::common::PixelFormat;

    // The platform's allocator service; empty (after a crash report) when it is absent.
    static std::shared_ptr<IAllocator> createInstance();

    // Ends the process when `allocator` is empty. `mapper` must outlive this object.
    AllocatorAidl(std::shared_ptr<IAllocator> allocator,
                  const NSCam::GrallocMapperAidlV2::MapperV5& mapper);

    // Allocates and imports `count` buffers: 0, 5 when the service fails, 2 when an import fails.
    int32_t allocate(BufferDescriptorInfo descriptor, uint32_t count, uint32_t* outStride,
                     const native_handle** outHandles) const;
    // One buffer; 0 or -12. The reserved size and the name are not passed on.
    int32_t allocate(uint32_t width, uint32_t height, PixelFormat format, uint32_t layerCount,
                     uint64_t usage, const native_handle** outHandle, uint32_t* outStride,
                     uint64_t reservedSize, std::string name) const;
    int32_t free(const native_handle* buffer) const;
    void ipcFlushCommands() const;

private:
    const NSCam::GrallocMapperAidlV2::MapperV5& mMapper;
    std::shared_ptr<IAllocator> mAllocator;
};

}  // namespace NSCam::GrallocAllocatorAidlV2

namespace android {

using AidlNativeHandle = aidl::android::hardware::common::NativeHandle;

// Borrows the descriptors: release with native_handle_delete only.
native_handle_t* makeFromAidl(const AidlNativeHandle& handle);
// Duplicates the descriptors: the caller owns them.
native_handle_t* dupFromAidl(const AidlNativeHandle& handle);
// Takes the descriptors over: the result closes them.
AidlNativeHandle makeToAidl(const native_handle_t* handle);
// Duplicates the descriptors.
AidlNativeHandle dupToAidl(const native_handle_t* handle);
bool isAidlNativeHandleEmpty(const AidlNativeHandle& handle);

}  // namespace android
