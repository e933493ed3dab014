#pragma once

#include <cstdint>

namespace aidl::android::hardware::graphics::allocator {

enum class AllocationError : int32_t { BAD_DESCRIPTOR = 0, NO_RESOURCES = 1, UNSUPPORTED = 2 };

}  // namespace aidl::android::hardware::graphics::allocator
