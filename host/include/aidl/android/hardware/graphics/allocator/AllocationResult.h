#pragma once

#include <aidl/android/hardware/common/NativeHandle.h>

#include <vector>

namespace aidl::android::hardware::graphics::allocator {

class AllocationResult {
public:
    static const char* descriptor;
    int32_t stride = 0;  // pixels
    std::vector<::aidl::android::hardware::common::NativeHandle> buffers;
};
inline const char* AllocationResult::descriptor =
        "android.hardware.graphics.allocator.AllocationResult";

}  // namespace aidl::android::hardware::graphics::allocator
