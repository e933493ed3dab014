// The allocator adapter, and the conversions between AIDL and native buffer handles. The
// process-wide instance is GrallocAidlV2::gAllocatorAidl.
//
// Thread safety: immutable after construction, no lock; any thread may call any operation (the
// service proxy and the mapper adapter are safe to share), and each flush concerns only the
// calling thread.
//
// The AIDL types appear as declarations, so that this header needs nothing the library does not
// export: code that builds a BufferDescriptorInfo or holds a NativeHandle includes the
// allocator's NDK headers itself.
#pragma once

#include <cutils/native_handle.h>

#include <cstdint>
#include <memory>
#include <string>

#include "GrallocMapperAidlV2.h"

namespace aidl::android::hardware::common {
class NativeHandle;
}  // namespace aidl::android::hardware::common

namespace aidl::android::hardware::graphics::allocator {
class BufferDescriptorInfo;
}  // namespace aidl::android::hardware::graphics::allocator

namespace aidl::android::hardware::graphics::common {
enum class PixelFormat : int32_t;
}  // namespace aidl::android::hardware::graphics::common

namespace NSCam::GrallocAllocatorAidlV2 {

class AllocatorAidl {
public:
    using IAllocator = aidl::android::hardware::graphics::allocator::IAllocator;
    using BufferDescriptorInfo = aidl::android::hardware::graphics::allocator::BufferDescriptorInfo;
    using PixelFormat = aidl::android::hardware::graphics::common::PixelFormat;

    // The platform's allocator service ("<IAllocator descriptor>/default"), without waiting for
    // it to start. Empty when it is absent, after raising a crash report; the process goes on.
    static std::shared_ptr<IAllocator> createInstance();

    // Keeps `allocator` (shared) and a reference to `mapper`, which must outlive this object.
    // Ends the process (an error line when the test logger wants it, then an assert) when
    // `allocator` is empty.
    AllocatorAidl(std::shared_ptr<IAllocator> allocator,
                  const NSCam::GrallocMapperAidlV2::MapperV5& mapper);

    // Allocates `count` buffers as `descriptor` says and imports each through the mapper into
    // `outHandles[0..count)` (the caller owns them; release with free). Stores the stride in
    // pixels in `*outStride` on success only. AIMAPPER_ERROR_NONE; AIMAPPER_ERROR_NO_RESOURCES
    // when the service call fails in any way (nothing logged); AIMAPPER_ERROR_BAD_BUFFER when a
    // buffer cannot be imported: the ones imported before it are freed again and their slots
    // set to null. The descriptors the service sent are closed before returning.
    int32_t allocate(BufferDescriptorInfo descriptor, uint32_t count, uint32_t* outStride,
                     const native_handle** outHandles) const;
    // One buffer of the given geometry (0 x h or w x 0 becomes 1 x 1, a layer count of 0
    // becomes 1) into `*outHandle`, owned by the caller: android::NO_ERROR, or
    // android::NO_MEMORY with an error line. `reservedSize` and `name` are accepted and not
    // passed on: the service always sees a zero name and no reserved region.
    int32_t allocate(uint32_t width, uint32_t height, PixelFormat format, uint32_t layerCount,
                     uint64_t usage, const native_handle** outHandle, uint32_t* outStride,
                     uint64_t reservedSize, std::string name) const;
    // Frees a handle from allocate through the mapper. Always android::NO_ERROR; a mapper
    // failure is logged by the mapper adapter.
    int32_t free(const native_handle* buffer) const;
    // Flushes the calling thread's hardware-binder commands; an error line without binder state.
    void ipcFlushCommands() const;

private:
    const NSCam::GrallocMapperAidlV2::MapperV5& mMapper;
    std::shared_ptr<IAllocator> mAllocator;
};

}  // namespace NSCam::GrallocAllocatorAidlV2

// The platform's conversions between the AIDL and the native form of a handle. Integers are
// copied unchanged; the descriptors' ownership is as each function says. Thread-safe.
namespace android {

using AidlNativeHandle = aidl::android::hardware::common::NativeHandle;

// A new native handle holding the same descriptor numbers, which stay owned by `handle`:
// release it with native_handle_delete only. Null when it cannot be created.
native_handle_t* makeFromAidl(const AidlNativeHandle& handle);
// A new native handle with duplicated (close-on-exec) descriptors, owned by the caller
// (native_handle_close, then native_handle_delete). Null when it cannot be created.
native_handle_t* dupFromAidl(const AidlNativeHandle& handle);
// Takes the descriptors of `handle` (non-null) over: the result closes them; release `handle`
// with native_handle_delete only.
AidlNativeHandle makeToAidl(const native_handle_t* handle);
// Duplicates the descriptors of `handle` (non-null); the caller keeps its own.
AidlNativeHandle dupToAidl(const native_handle_t* handle);
// True when `handle` holds neither descriptors nor integers.
bool isAidlNativeHandleEmpty(const AidlNativeHandle& handle);

}  // namespace android
