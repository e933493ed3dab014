#pragma once

#include <android/binder_to_string.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace aidl::android::hardware::graphics::common {

class ExtendableType {
public:
    static const char* descriptor;
    std::string name;
    int64_t value = 0;

    auto operator<=>(const ExtendableType& o) const = default;
    std::string toString() const {
        return "ExtendableType{name: " + ::android::internal::ToString(name) +
               ", value: " + ::android::internal::ToString(value) + "}";
    }
};
inline const char* ExtendableType::descriptor = "android.hardware.graphics.common.ExtendableType";

}  // namespace aidl::android::hardware::graphics::common
