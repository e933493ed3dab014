#pragma once

#include <aidl/android/hardware/graphics/allocator/IAllocator.h>

namespace aidl::android::hardware::graphics::allocator {

class BnAllocator : public ::ndk::BnCInterface<IAllocator> {
public:
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) final {
        *_aidl_return = IAllocator::version;
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) final {
        *_aidl_return = IAllocator::hash;
        return ::ndk::ScopedAStatus::ok();
    }
};

}  // namespace aidl::android::hardware::graphics::allocator
