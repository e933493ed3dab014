#pragma once

#include <android/binder_enums.h>

#include <array>
#include <cstdint>
#include <string>

namespace aidl::android::hardware::graphics::common {

enum class PixelFormat : int32_t {
    UNSPECIFIED = 0,
    RGBA_8888 = 0x1,
    RGBX_8888 = 0x2,
    RGB_888 = 0x3,
    RGB_565 = 0x4,
    BGRA_8888 = 0x5,
    YCBCR_422_SP = 0x10,
    YCRCB_420_SP = 0x11,
    YCBCR_422_I = 0x14,
    RGBA_FP16 = 0x16,
    RAW16 = 0x20,
    BLOB = 0x21,
    IMPLEMENTATION_DEFINED = 0x22,
    YCBCR_420_888 = 0x23,
    RAW_OPAQUE = 0x24,
    RAW10 = 0x25,
    RAW12 = 0x26,
    RGBA_1010102 = 0x2B,
    DEPTH_16 = 0x30,
    DEPTH_24 = 0x31,
    DEPTH_24_STENCIL_8 = 0x32,
    DEPTH_32F = 0x33,
    DEPTH_32F_STENCIL_8 = 0x34,
    STENCIL_8 = 0x35,
    YCBCR_P010 = 0x36,
    HSV_888 = 0x37,
    R_8 = 0x38,
    R_16_UINT = 0x39,
    RG_1616_UINT = 0x3a,
    RGBA_10101010 = 0x3b,
    Y8 = 0x20203859,
    Y16 = 0x20363159,
    YV12 = 0x32315659,
};

// The enumerator's name (the first declared one for a shared value), else the decimal value.
[[nodiscard]] static inline std::string toString(PixelFormat val) {
    switch (val) {
        case PixelFormat::UNSPECIFIED:
            return "UNSPECIFIED";
        case PixelFormat::RGBA_8888:
            return "RGBA_8888";
        case PixelFormat::RGBX_8888:
            return "RGBX_8888";
        case PixelFormat::RGB_888:
            return "RGB_888";
        case PixelFormat::RGB_565:
            return "RGB_565";
        case PixelFormat::BGRA_8888:
            return "BGRA_8888";
        case PixelFormat::YCBCR_422_SP:
            return "YCBCR_422_SP";
        case PixelFormat::YCRCB_420_SP:
            return "YCRCB_420_SP";
        case PixelFormat::YCBCR_422_I:
            return "YCBCR_422_I";
        case PixelFormat::RGBA_FP16:
            return "RGBA_FP16";
        case PixelFormat::RAW16:
            return "RAW16";
        case PixelFormat::BLOB:
            return "BLOB";
        case PixelFormat::IMPLEMENTATION_DEFINED:
            return "IMPLEMENTATION_DEFINED";
        case PixelFormat::YCBCR_420_888:
            return "YCBCR_420_888";
        case PixelFormat::RAW_OPAQUE:
            return "RAW_OPAQUE";
        case PixelFormat::RAW10:
            return "RAW10";
        case PixelFormat::RAW12:
            return "RAW12";
        case PixelFormat::RGBA_1010102:
            return "RGBA_1010102";
        case PixelFormat::DEPTH_16:
            return "DEPTH_16";
        case PixelFormat::DEPTH_24:
            return "DEPTH_24";
        case PixelFormat::DEPTH_24_STENCIL_8:
            return "DEPTH_24_STENCIL_8";
        case PixelFormat::DEPTH_32F:
            return "DEPTH_32F";
        case PixelFormat::DEPTH_32F_STENCIL_8:
            return "DEPTH_32F_STENCIL_8";
        case PixelFormat::STENCIL_8:
            return "STENCIL_8";
        case PixelFormat::YCBCR_P010:
            return "YCBCR_P010";
        case PixelFormat::HSV_888:
            return "HSV_888";
        case PixelFormat::R_8:
            return "R_8";
        case PixelFormat::R_16_UINT:
            return "R_16_UINT";
        case PixelFormat::RG_1616_UINT:
            return "RG_1616_UINT";
        case PixelFormat::RGBA_10101010:
            return "RGBA_10101010";
        case PixelFormat::Y8:
            return "Y8";
        case PixelFormat::Y16:
            return "Y16";
        case PixelFormat::YV12:
            return "YV12";
        default:
            return std::to_string(static_cast<int32_t>(val));
    }
}

}  // namespace aidl::android::hardware::graphics::common

namespace ndk::internal {

template <>
constexpr inline std::array<aidl::android::hardware::graphics::common::PixelFormat, 33>
        enum_values<aidl::android::hardware::graphics::common::PixelFormat> = {
                aidl::android::hardware::graphics::common::PixelFormat::UNSPECIFIED,
                aidl::android::hardware::graphics::common::PixelFormat::RGBA_8888,
                aidl::android::hardware::graphics::common::PixelFormat::RGBX_8888,
                aidl::android::hardware::graphics::common::PixelFormat::RGB_888,
                aidl::android::hardware::graphics::common::PixelFormat::RGB_565,
                aidl::android::hardware::graphics::common::PixelFormat::BGRA_8888,
                aidl::android::hardware::graphics::common::PixelFormat::YCBCR_422_SP,
                aidl::android::hardware::graphics::common::PixelFormat::YCRCB_420_SP,
                aidl::android::hardware::graphics::common::PixelFormat::YCBCR_422_I,
                aidl::android::hardware::graphics::common::PixelFormat::RGBA_FP16,
                aidl::android::hardware::graphics::common::PixelFormat::RAW16,
                aidl::android::hardware::graphics::common::PixelFormat::BLOB,
                aidl::android::hardware::graphics::common::PixelFormat::IMPLEMENTATION_DEFINED,
                aidl::android::hardware::graphics::common::PixelFormat::YCBCR_420_888,
                aidl::android::hardware::graphics::common::PixelFormat::RAW_OPAQUE,
                aidl::android::hardware::graphics::common::PixelFormat::RAW10,
                aidl::android::hardware::graphics::common::PixelFormat::RAW12,
                aidl::android::hardware::graphics::common::PixelFormat::RGBA_1010102,
                aidl::android::hardware::graphics::common::PixelFormat::DEPTH_16,
                aidl::android::hardware::graphics::common::PixelFormat::DEPTH_24,
                aidl::android::hardware::graphics::common::PixelFormat::DEPTH_24_STENCIL_8,
                aidl::android::hardware::graphics::common::PixelFormat::DEPTH_32F,
                aidl::android::hardware::graphics::common::PixelFormat::DEPTH_32F_STENCIL_8,
                aidl::android::hardware::graphics::common::PixelFormat::STENCIL_8,
                aidl::android::hardware::graphics::common::PixelFormat::YCBCR_P010,
                aidl::android::hardware::graphics::common::PixelFormat::HSV_888,
                aidl::android::hardware::graphics::common::PixelFormat::R_8,
                aidl::android::hardware::graphics::common::PixelFormat::R_16_UINT,
                aidl::android::hardware::graphics::common::PixelFormat::RG_1616_UINT,
                aidl::android::hardware::graphics::common::PixelFormat::RGBA_10101010,
                aidl::android::hardware::graphics::common::PixelFormat::Y8,
                aidl::android::hardware::graphics::common::PixelFormat::Y16,
                aidl::android::hardware::graphics::common::PixelFormat::YV12,
};

}  // namespace ndk::internal
