#pragma once

#include <android/binder_enums.h>

#include <array>
#include <cstdint>
#include <string>

namespace aidl::android::hardware::graphics::allocator {

enum class AllocationError : int32_t {
    BAD_DESCRIPTOR = 0,
    NO_RESOURCES = 1,
    UNSUPPORTED = 2,
};

// The enumerator's name (the first declared one for a shared value), else the decimal value.
[[nodiscard]] static inline std::string toString(AllocationError val) {
    switch (val) {
        case AllocationError::BAD_DESCRIPTOR:
            return "BAD_DESCRIPTOR";
        case AllocationError::NO_RESOURCES:
            return "NO_RESOURCES";
        case AllocationError::UNSUPPORTED:
            return "UNSUPPORTED";
        default:
            return std::to_string(static_cast<int32_t>(val));
    }
}

}  // namespace aidl::android::hardware::graphics::allocator

namespace ndk::internal {

template <>
constexpr inline std::array<aidl::android::hardware::graphics::allocator::AllocationError, 3>
        enum_values<aidl::android::hardware::graphics::allocator::AllocationError> = {
                aidl::android::hardware::graphics::allocator::AllocationError::BAD_DESCRIPTOR,
                aidl::android::hardware::graphics::allocator::AllocationError::NO_RESOURCES,
                aidl::android::hardware::graphics::allocator::AllocationError::UNSUPPORTED,
};

}  // namespace ndk::internal
