#pragma once

#include <aidl/android/hardware/graphics/allocator/AllocationResult.h>
#include <aidl/android/hardware/graphics/allocator/BufferDescriptorInfo.h>
#include <android/binder_interface_utils.h>

#include <memory>
#include <string>
#include <vector>

namespace aidl::android::hardware::graphics::allocator {

class IAllocator : public ::ndk::ICInterface {
public:
    static const char* descriptor;
    static const int32_t version = 2;
    static inline const std::string hash = "9499fec09c544e9de5be3c87125721600f8ade66";

    static std::shared_ptr<IAllocator> fromBinder(const ::ndk::SpAIBinder& binder);

    [[deprecated("use allocate2 with mapper 5")]] virtual ::ndk::ScopedAStatus allocate(
            const std::vector<uint8_t>& in_descriptor, int32_t in_count,
            AllocationResult* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus allocate2(const BufferDescriptorInfo& in_descriptor,
                                           int32_t in_count, AllocationResult* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus isSupported(const BufferDescriptorInfo& in_descriptor,
                                             bool* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getIMapperLibrarySuffix(std::string* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;
};

}  // namespace aidl::android::hardware::graphics::allocator
