#pragma once

#include <aidl/android/hardware/graphics/common/XyColor.h>

namespace aidl::android::hardware::graphics::common {

class Smpte2086 {
public:
    XyColor primaryRed;
    XyColor primaryGreen;
    XyColor primaryBlue;
    XyColor whitePoint;
    float maxLuminance = 0.0f;
    float minLuminance = 0.0f;
    auto operator<=>(const Smpte2086& o) const = default;
};

}  // namespace aidl::android::hardware::graphics::common
