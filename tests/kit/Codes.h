// Platform codes by name, as the plain integers that requests, records and the simulator's
// overrides carry.
#pragma once

#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>

#include <cstdint>

namespace testkit {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;

constexpr int32_t fmt(PixelFormat format) {
    return static_cast<int32_t>(format);
}
// Usage bits below bit 31, as a request's 32-bit usage field holds them.
constexpr int32_t bits(BufferUsage usage) {
    return static_cast<int32_t>(usage);
}

inline constexpr int32_t kCpuReadOften = bits(BufferUsage::CPU_READ_OFTEN);
// The simulated device's vendor usage bit that asks for an AFBC-compressed layout.
inline constexpr int32_t kSimUsageAfbc = 0x10000000;

}  // namespace testkit
