#pragma once

#include <android/binder_enums.h>

#include <array>
#include <cstdint>
#include <string>

namespace aidl::android::hardware::graphics::common {

enum class BlendMode : int32_t {
    INVALID = 0,
    NONE = 1,
    PREMULTIPLIED = 2,
    COVERAGE = 3,
};

// The enumerator's name (the first declared one for a shared value), else the decimal value.
[[nodiscard]] static inline std::string toString(BlendMode val) {
    switch (val) {
        case BlendMode::INVALID:
            return "INVALID";
        case BlendMode::NONE:
            return "NONE";
        case BlendMode::PREMULTIPLIED:
            return "PREMULTIPLIED";
        case BlendMode::COVERAGE:
            return "COVERAGE";
        default:
            return std::to_string(static_cast<int32_t>(val));
    }
}

}  // namespace aidl::android::hardware::graphics::common

namespace ndk::internal {

template <>
constexpr inline std::array<aidl::android::hardware::graphics::common::BlendMode, 4>
        enum_values<aidl::android::hardware::graphics::common::BlendMode> = {
                aidl::android::hardware::graphics::common::BlendMode::INVALID,
                aidl::android::hardware::graphics::common::BlendMode::NONE,
                aidl::android::hardware::graphics::common::BlendMode::PREMULTIPLIED,
                aidl::android::hardware::graphics::common::BlendMode::COVERAGE,
};

}  // namespace ndk::internal
