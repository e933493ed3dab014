#pragma once

#include <aidl/android/hardware/graphics/common/PlaneLayoutComponent.h>

#include <vector>

namespace aidl::android::hardware::graphics::common {

class PlaneLayout {
public:
    static const char* descriptor;
    std::vector<PlaneLayoutComponent> components;
    int64_t offsetInBytes = 0;
    int64_t sampleIncrementInBits = 0;
    int64_t strideInBytes = 0;
    int64_t widthInSamples = 0;
    int64_t heightInSamples = 0;
    int64_t totalSizeInBytes = 0;
    int64_t horizontalSubsampling = 0;
    int64_t verticalSubsampling = 0;

    auto operator<=>(const PlaneLayout& o) const = default;
    std::string toString() const {
        using ::android::internal::ToString;
        return "PlaneLayout{components: " + ToString(components) +
               ", offsetInBytes: " + ToString(offsetInBytes) +
               ", sampleIncrementInBits: " + ToString(sampleIncrementInBits) +
               ", strideInBytes: " + ToString(strideInBytes) +
               ", widthInSamples: " + ToString(widthInSamples) +
               ", heightInSamples: " + ToString(heightInSamples) +
               ", totalSizeInBytes: " + ToString(totalSizeInBytes) +
               ", horizontalSubsampling: " + ToString(horizontalSubsampling) +
               ", verticalSubsampling: " + ToString(verticalSubsampling) + "}";
    }
};
inline const char* PlaneLayout::descriptor = "android.hardware.graphics.common.PlaneLayout";

}  // namespace aidl::android::hardware::graphics::common
