#pragma once

#include <cstdint>
#include <string>

namespace aidl::android::hardware::graphics::common {

enum class BufferUsage : int64_t {
    CPU_READ_MASK = 15L,
    CPU_READ_NEVER = 0L,
    CPU_READ_RARELY = 2L,
    CPU_READ_OFTEN = 3L,
    CPU_WRITE_MASK = 240L,
    CPU_WRITE_NEVER = 0L,
    CPU_WRITE_RARELY = 32L,
    CPU_WRITE_OFTEN = 48L,
    GPU_TEXTURE = 256L,
    GPU_RENDER_TARGET = 512L,
    COMPOSER_OVERLAY = 2048L,
    COMPOSER_CLIENT_TARGET = 4096L,
    PROTECTED = 16384L,
    COMPOSER_CURSOR = 32768L,
    VIDEO_ENCODER = 65536L,
    CAMERA_OUTPUT = 131072L,
    CAMERA_INPUT = 262144L,
    RENDERSCRIPT = 1048576L,
    VIDEO_DECODER = 4194304L,
    SENSOR_DIRECT_DATA = 8388608L,
    GPU_DATA_BUFFER = 16777216L,
    GPU_CUBE_MAP = 33554432L,
    GPU_MIPMAP_COMPLETE = 67108864L,
    HW_IMAGE_ENCODER = 134217728L,
    FRONT_BUFFER = 4294967296L,
    VENDOR_MASK = 4026531840L,
    VENDOR_MASK_HI = -281474976710656L,
};

inline std::string toString(BufferUsage val) {
    return std::to_string(static_cast<int64_t>(val));
}

}  // namespace aidl::android::hardware::graphics::common
