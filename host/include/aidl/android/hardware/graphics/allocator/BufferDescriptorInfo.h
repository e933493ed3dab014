#pragma once

#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/ExtendableType.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>

#include <array>
#include <vector>

namespace aidl::android::hardware::graphics::allocator {

class BufferDescriptorInfo {
public:
    static const char* descriptor;
    std::array<uint8_t, 128> name = {{}};
    int32_t width = 0;
    int32_t height = 0;
    int32_t layerCount = 0;
    common::PixelFormat format = common::PixelFormat(0);
    common::BufferUsage usage = common::BufferUsage(0);
    int64_t reservedSize = 0;
    std::vector<common::ExtendableType> additionalOptions;
};
inline const char* BufferDescriptorInfo::descriptor =
        "android.hardware.graphics.allocator.BufferDescriptorInfo";

}  // namespace aidl::android::hardware::graphics::allocator
