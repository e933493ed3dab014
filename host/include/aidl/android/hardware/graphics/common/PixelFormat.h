#pragma once

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

inline std::string toString(PixelFormat val) {
    switch (val) {
#define PF_CASE(n) \
    case PixelFormat::n: return #n;
        PF_CASE(UNSPECIFIED) PF_CASE(RGBA_8888) PF_CASE(RGBX_8888) PF_CASE(RGB_888)
        PF_CASE(RGB_565) PF_CASE(BGRA_8888) PF_CASE(YCBCR_422_SP) PF_CASE(YCRCB_420_SP)
        PF_CASE(YCBCR_422_I) PF_CASE(RGBA_FP16) PF_CASE(RAW16) PF_CASE(BLOB)
        PF_CASE(IMPLEMENTATION_DEFINED) PF_CASE(YCBCR_420_888) PF_CASE(RAW_OPAQUE)
        PF_CASE(RAW10) PF_CASE(RAW12) PF_CASE(RGBA_1010102) PF_CASE(DEPTH_16)
        PF_CASE(DEPTH_24) PF_CASE(DEPTH_24_STENCIL_8) PF_CASE(DEPTH_32F)
        PF_CASE(DEPTH_32F_STENCIL_8) PF_CASE(STENCIL_8) PF_CASE(YCBCR_P010) PF_CASE(HSV_888)
        PF_CASE(R_8) PF_CASE(R_16_UINT) PF_CASE(RG_1616_UINT) PF_CASE(RGBA_10101010)
        PF_CASE(Y8) PF_CASE(Y16) PF_CASE(YV12)
#undef PF_CASE
    }
    return std::to_string(static_cast<int32_t>(val));
}

}  // namespace aidl::android::hardware::graphics::common
