// The allocator adapter and the AIDL <-> native handle conversions.
#define LOG_TAG "ZynCam/GrallocAllocatorAidlV2"
#define LOG_FILE "utils/gralloc/aidl/v2/allocator/allocator"

#include "GrallocAllocatorAidlV2.h"

#include <aidl/android/hardware/common/NativeHandle.h>
#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <hwbinder/IPCThreadState.h>
#include <utils/Errors.h>

#include <ULogger.h>

#include <string>

#include "logging/GrallocLog.h"

namespace NSCam::GrallocAllocatorAidlV2 {

namespace {

using aidl::android::hardware::graphics::allocator::AllocationResult;
using aidl::android::hardware::graphics::common::BufferUsage;

constexpr uint32_t kSmallestDimension = 1;  // a 0 x h request is sent as 1 x 1
constexpr uint32_t kSmallestLayerCount = 1;
constexpr uint32_t kSingleBuffer = 1;

}  // namespace

std::shared_ptr<AllocatorAidl::IAllocator> AllocatorAidl::createInstance() {
    const std::string instance = std::string(IAllocator::descriptor) + "/default";
    auto allocator =
            IAllocator::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
    if (allocator == nullptr) {
        NSCam::Utils::Kre::triggerKreException(
                LOG_TAG, nullptr, "\nCRDISPATCH_KEY:get null IAllocator ptr, gralloc issue");
    }
    return allocator;
}

AllocatorAidl::AllocatorAidl(std::shared_ptr<IAllocator> allocator,
                             const NSCam::GrallocMapperAidlV2::MapperV5& mapper)
    : mMapper(mapper), mAllocator(std::move(allocator)) {
    if (mAllocator == nullptr) {
        if (zyncam_testLog(LOG_TAG, 'E')) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "[Fatal] [%s] gralloc-alloc is missing  (%s){#%d:%s}", __FUNCTION__,
                                __FUNCTION__, __LINE__, LOG_FILE);
        }
        __android_log_assert("1", LOG_TAG, "(%s){#%d:%s}\r\n", __FUNCTION__, __LINE__, LOG_FILE);
    }
}

void AllocatorAidl::ipcFlushCommands() const {
    if (auto* state = android::hardware::IPCThreadState::self()) {
        state->flushCommands();
    } else {
        ZLOGE("[%s] get IPCThreadState singleton failed");
    }
}

int32_t AllocatorAidl::allocate(BufferDescriptorInfo descriptor, uint32_t count,
                                uint32_t* outStride, const native_handle** outHandles) const {
    AllocationResult result;
    ndk::ScopedAStatus status =
            mAllocator->allocate2(descriptor, static_cast<int32_t>(count), &result);
    ipcFlushCommands();
    if (!status.isOk()) return AIMAPPER_ERROR_NO_RESOURCES;

    uint32_t imported = 0;
    int32_t error = AIMAPPER_ERROR_NONE;
    for (; imported < count; ++imported) {
        if (imported >= result.buffers.size()) {
            error = AIMAPPER_ERROR_BAD_BUFFER;
            break;
        }
        native_handle_t* borrowed = android::makeFromAidl(result.buffers[imported]);
        error = mMapper.importBuffer(borrowed, &outHandles[imported]);
        native_handle_delete(borrowed);
        ipcFlushCommands();
        if (error != AIMAPPER_ERROR_NONE) break;
    }
    if (error != AIMAPPER_ERROR_NONE) {
        for (uint32_t i = 0; i < imported; ++i) {
            mMapper.freeBuffer(outHandles[i]);
            ipcFlushCommands();
            outHandles[i] = nullptr;
        }
        return AIMAPPER_ERROR_BAD_BUFFER;
    }
    *outStride = static_cast<uint32_t>(result.stride);
    return AIMAPPER_ERROR_NONE;
}  // `result` closes the descriptors that the service sent

int32_t AllocatorAidl::allocate(uint32_t width, uint32_t height, PixelFormat format,
                                uint32_t layerCount, uint64_t usage,
                                const native_handle** outHandle, uint32_t* outStride,
                                uint64_t /*reservedSize*/, std::string /*name*/) const {
    ZLOGD("[%s] allocate: %dx%d format(%#x) layerCount(%d) usage(%#lx) handle(%p) stride(%p)",
          static_cast<int>(width), static_cast<int>(height), static_cast<unsigned int>(format),
          static_cast<int>(layerCount), static_cast<unsigned long>(usage),
          static_cast<void*>(outHandle), static_cast<void*>(outStride));
    if (width == 0 || height == 0) width = height = kSmallestDimension;
    if (layerCount == 0) layerCount = kSmallestLayerCount;

    BufferDescriptorInfo descriptor;
    descriptor.width = static_cast<int32_t>(width);
    descriptor.height = static_cast<int32_t>(height);
    descriptor.layerCount = static_cast<int32_t>(layerCount);
    descriptor.format = format;
    descriptor.usage = static_cast<BufferUsage>(usage);
    const int32_t error = allocate(descriptor, kSingleBuffer, outStride, outHandle);
    if (error != AIMAPPER_ERROR_NONE) {
        ZLOGE("[%s] Failed to allocate (%u x %u) layerCount %u format %d usage %lx: %d", width,
              height, layerCount, static_cast<int>(format), static_cast<unsigned long>(usage),
              error);
        return android::NO_MEMORY;
    }
    return android::NO_ERROR;
}

int32_t AllocatorAidl::free(const native_handle* buffer) const {
    mMapper.freeBuffer(buffer);
    ipcFlushCommands();
    return android::NO_ERROR;
}

}  // namespace NSCam::GrallocAllocatorAidlV2

namespace android {

namespace {

template <typename DupFd>
native_handle_t* fromAidl(const AidlNativeHandle& handle, DupFd dupFd) {
    native_handle_t* out = native_handle_create(static_cast<int>(handle.fds.size()),
                                                static_cast<int>(handle.ints.size()));
    if (out == nullptr) return nullptr;
    for (size_t i = 0; i < handle.fds.size(); ++i) out->data[i] = dupFd(handle.fds[i].get());
    for (size_t i = 0; i < handle.ints.size(); ++i) {
        out->data[handle.fds.size() + i] = handle.ints[i];
    }
    return out;
}

template <typename DupFd>
AidlNativeHandle toAidl(const native_handle_t* handle, DupFd dupFd) {
    AidlNativeHandle out;
    out.fds.reserve(handle->numFds);
    for (int i = 0; i < handle->numFds; ++i) out.fds.emplace_back(dupFd(handle->data[i]));
    out.ints.assign(&handle->data[handle->numFds], &handle->data[handle->numFds + handle->numInts]);
    return out;
}

int sameFd(int fd) {
    return fd;
}
int dupFd(int fd) {
    return fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

}  // namespace

native_handle_t* makeFromAidl(const AidlNativeHandle& handle) {
    return fromAidl(handle, sameFd);
}

native_handle_t* dupFromAidl(const AidlNativeHandle& handle) {
    return fromAidl(handle, dupFd);
}

AidlNativeHandle makeToAidl(const native_handle_t* handle) {
    return toAidl(handle, sameFd);
}

AidlNativeHandle dupToAidl(const native_handle_t* handle) {
    return toAidl(handle, dupFd);
}

bool isAidlNativeHandleEmpty(const AidlNativeHandle& handle) {
    return handle.fds.empty() && handle.ints.empty();
}

}  // namespace android
