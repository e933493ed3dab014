#pragma once

#include <android/binder_enums.h>

#include <array>
#include <cstdint>
#include <string>

namespace aidl::android::hardware::graphics::common {

enum class StandardMetadataType : int64_t {
    INVALID = 0L,
    BUFFER_ID = 1L,
    NAME = 2L,
    WIDTH = 3L,
    HEIGHT = 4L,
    LAYER_COUNT = 5L,
    PIXEL_FORMAT_REQUESTED = 6L,
    PIXEL_FORMAT_FOURCC = 7L,
    PIXEL_FORMAT_MODIFIER = 8L,
    USAGE = 9L,
    ALLOCATION_SIZE = 10L,
    PROTECTED_CONTENT = 11L,
    COMPRESSION = 12L,
    INTERLACED = 13L,
    CHROMA_SITING = 14L,
    PLANE_LAYOUTS = 15L,
    CROP = 16L,
    DATASPACE = 17L,
    BLEND_MODE = 18L,
    SMPTE2086 = 19L,
    CTA861_3 = 20L,
    SMPTE2094_40 = 21L,
    SMPTE2094_10 = 22L,
    STRIDE = 23L,
};

// The enumerator's name (the first declared one for a shared value), else the decimal value.
[[nodiscard]] static inline std::string toString(StandardMetadataType val) {
    switch (val) {
        case StandardMetadataType::INVALID:
            return "INVALID";
        case StandardMetadataType::BUFFER_ID:
            return "BUFFER_ID";
        case StandardMetadataType::NAME:
            return "NAME";
        case StandardMetadataType::WIDTH:
            return "WIDTH";
        case StandardMetadataType::HEIGHT:
            return "HEIGHT";
        case StandardMetadataType::LAYER_COUNT:
            return "LAYER_COUNT";
        case StandardMetadataType::PIXEL_FORMAT_REQUESTED:
            return "PIXEL_FORMAT_REQUESTED";
        case StandardMetadataType::PIXEL_FORMAT_FOURCC:
            return "PIXEL_FORMAT_FOURCC";
        case StandardMetadataType::PIXEL_FORMAT_MODIFIER:
            return "PIXEL_FORMAT_MODIFIER";
        case StandardMetadataType::USAGE:
            return "USAGE";
        case StandardMetadataType::ALLOCATION_SIZE:
            return "ALLOCATION_SIZE";
        case StandardMetadataType::PROTECTED_CONTENT:
            return "PROTECTED_CONTENT";
        case StandardMetadataType::COMPRESSION:
            return "COMPRESSION";
        case StandardMetadataType::INTERLACED:
            return "INTERLACED";
        case StandardMetadataType::CHROMA_SITING:
            return "CHROMA_SITING";
        case StandardMetadataType::PLANE_LAYOUTS:
            return "PLANE_LAYOUTS";
        case StandardMetadataType::CROP:
            return "CROP";
        case StandardMetadataType::DATASPACE:
            return "DATASPACE";
        case StandardMetadataType::BLEND_MODE:
            return "BLEND_MODE";
        case StandardMetadataType::SMPTE2086:
            return "SMPTE2086";
        case StandardMetadataType::CTA861_3:
            return "CTA861_3";
        case StandardMetadataType::SMPTE2094_40:
            return "SMPTE2094_40";
        case StandardMetadataType::SMPTE2094_10:
            return "SMPTE2094_10";
        case StandardMetadataType::STRIDE:
            return "STRIDE";
        default:
            return std::to_string(static_cast<int64_t>(val));
    }
}

}  // namespace aidl::android::hardware::graphics::common

namespace ndk::internal {

template <>
constexpr inline std::array<aidl::android::hardware::graphics::common::StandardMetadataType, 24>
        enum_values<aidl::android::hardware::graphics::common::StandardMetadataType> = {
                aidl::android::hardware::graphics::common::StandardMetadataType::INVALID,
                aidl::android::hardware::graphics::common::StandardMetadataType::BUFFER_ID,
                aidl::android::hardware::graphics::common::StandardMetadataType::NAME,
                aidl::android::hardware::graphics::common::StandardMetadataType::WIDTH,
                aidl::android::hardware::graphics::common::StandardMetadataType::HEIGHT,
                aidl::android::hardware::graphics::common::StandardMetadataType::LAYER_COUNT,
                aidl::android::hardware::graphics::common::StandardMetadataType::
                        PIXEL_FORMAT_REQUESTED,
                aidl::android::hardware::graphics::common::StandardMetadataType::
                        PIXEL_FORMAT_FOURCC,
                aidl::android::hardware::graphics::common::StandardMetadataType::
                        PIXEL_FORMAT_MODIFIER,
                aidl::android::hardware::graphics::common::StandardMetadataType::USAGE,
                aidl::android::hardware::graphics::common::StandardMetadataType::ALLOCATION_SIZE,
                aidl::android::hardware::graphics::common::StandardMetadataType::PROTECTED_CONTENT,
                aidl::android::hardware::graphics::common::StandardMetadataType::COMPRESSION,
                aidl::android::hardware::graphics::common::StandardMetadataType::INTERLACED,
                aidl::android::hardware::graphics::common::StandardMetadataType::CHROMA_SITING,
                aidl::android::hardware::graphics::common::StandardMetadataType::PLANE_LAYOUTS,
                aidl::android::hardware::graphics::common::StandardMetadataType::CROP,
                aidl::android::hardware::graphics::common::StandardMetadataType::DATASPACE,
                aidl::android::hardware::graphics::common::StandardMetadataType::BLEND_MODE,
                aidl::android::hardware::graphics::common::StandardMetadataType::SMPTE2086,
                aidl::android::hardware::graphics::common::StandardMetadataType::CTA861_3,
                aidl::android::hardware::graphics::common::StandardMetadataType::SMPTE2094_40,
                aidl::android::hardware::graphics::common::StandardMetadataType::SMPTE2094_10,
                aidl::android::hardware::graphics::common::StandardMetadataType::STRIDE,
};

}  // namespace ndk::internal
