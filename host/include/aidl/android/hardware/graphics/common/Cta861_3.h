#pragma once

#include <android/binder_to_string.h>

namespace aidl::android::hardware::graphics::common {

class Cta861_3 {
public:
    float maxContentLightLevel = 0.0f;
    float maxFrameAverageLightLevel = 0.0f;
    auto operator<=>(const Cta861_3& o) const = default;
    std::string toString() const {
        using ::android::internal::ToString;
        return "Cta861_3{maxContentLightLevel: " + ToString(maxContentLightLevel) +
               ", maxFrameAverageLightLevel: " + ToString(maxFrameAverageLightLevel) + "}";
    }
};

}  // namespace aidl::android::hardware::graphics::common
