#pragma once

#include <android/binder_enums.h>

#include <array>
#include <cstdint>
#include <string>

namespace aidl::android::hardware::graphics::common {

enum class PlaneLayoutComponentType : int64_t {
    Y = 1L,
    CB = 2L,
    CR = 4L,
    R = 1024L,
    G = 2048L,
    B = 4096L,
    RAW = 1048576L,
    A = 1073741824L,
};

// The enumerator's name (the first declared one for a shared value), else the decimal value.
[[nodiscard]] static inline std::string toString(PlaneLayoutComponentType val) {
    switch (val) {
        case PlaneLayoutComponentType::Y:
            return "Y";
        case PlaneLayoutComponentType::CB:
            return "CB";
        case PlaneLayoutComponentType::CR:
            return "CR";
        case PlaneLayoutComponentType::R:
            return "R";
        case PlaneLayoutComponentType::G:
            return "G";
        case PlaneLayoutComponentType::B:
            return "B";
        case PlaneLayoutComponentType::RAW:
            return "RAW";
        case PlaneLayoutComponentType::A:
            return "A";
        default:
            return std::to_string(static_cast<int64_t>(val));
    }
}

}  // namespace aidl::android::hardware::graphics::common

namespace ndk::internal {

template <>
constexpr inline std::array<aidl::android::hardware::graphics::common::PlaneLayoutComponentType, 8>
        enum_values<aidl::android::hardware::graphics::common::PlaneLayoutComponentType> = {
                aidl::android::hardware::graphics::common::PlaneLayoutComponentType::Y,
                aidl::android::hardware::graphics::common::PlaneLayoutComponentType::CB,
                aidl::android::hardware::graphics::common::PlaneLayoutComponentType::CR,
                aidl::android::hardware::graphics::common::PlaneLayoutComponentType::R,
                aidl::android::hardware::graphics::common::PlaneLayoutComponentType::G,
                aidl::android::hardware::graphics::common::PlaneLayoutComponentType::B,
                aidl::android::hardware::graphics::common::PlaneLayoutComponentType::RAW,
                aidl::android::hardware::graphics::common::PlaneLayoutComponentType::A,
};

}  // namespace ndk::internal
