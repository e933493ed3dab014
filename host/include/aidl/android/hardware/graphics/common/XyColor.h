#pragma once

#include <android/binder_to_string.h>

namespace aidl::android::hardware::graphics::common {

class XyColor {
public:
    float x = 0.0f;
    float y = 0.0f;
    auto operator<=>(const XyColor& o) const = default;
    std::string toString() const {
        using ::android::internal::ToString;
        return "XyColor{x: " + ToString(x) + ", y: " + ToString(y) + "}";
    }
};

}  // namespace aidl::android::hardware::graphics::common
