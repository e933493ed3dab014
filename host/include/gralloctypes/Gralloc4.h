// Host stand-in for the gralloc4 type helpers in use.
#pragma once

#include <aidl/android/hardware/graphics/common/ExtendableType.h>

#include <string.h>

#define GRALLOC4_STANDARD_PLANE_LAYOUT_COMPONENT_TYPE \
    "android.hardware.graphics.common.PlaneLayoutComponentType"

namespace android::gralloc4 {

// True for any prefix of the standard name, the empty one included.
inline bool isStandardPlaneLayoutComponentType(
        const aidl::android::hardware::graphics::common::ExtendableType& type) {
    return strncmp(type.name.c_str(), GRALLOC4_STANDARD_PLANE_LAYOUT_COMPONENT_TYPE,
                   type.name.size()) == 0;
}

}  // namespace android::gralloc4
