#pragma once

#include <cstdint>

namespace aidl::android::hardware::graphics::common {

class Rect {
public:
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;
    auto operator<=>(const Rect& o) const = default;
};

}  // namespace aidl::android::hardware::graphics::common
