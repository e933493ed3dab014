#pragma once

#include <aidl/android/hardware/graphics/common/ExtendableType.h>

namespace aidl::android::hardware::graphics::common {

class PlaneLayoutComponent {
public:
    static const char* descriptor;
    ExtendableType type;
    int64_t offsetInBits = 0;  // -1 when not describable
    int64_t sizeInBits = 0;    // -1 when variable

    auto operator<=>(const PlaneLayoutComponent& o) const = default;
    std::string toString() const {
        using ::android::internal::ToString;
        return "PlaneLayoutComponent{type: " + ToString(type) +
               ", offsetInBits: " + ToString(offsetInBits) +
               ", sizeInBits: " + ToString(sizeInBits) + "}";
    }
};
inline const char* PlaneLayoutComponent::descriptor =
        "android.hardware.graphics.common.PlaneLayoutComponent";

}  // namespace aidl::android::hardware::graphics::common
