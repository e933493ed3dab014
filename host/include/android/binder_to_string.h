// Host stand-in for the text form that generated NDK types print.
#pragma once

#include <android/binder_auto_utils.h>

#include <array>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace android::internal {

template <typename T>
std::string ToString(const T& t);

template <typename T>
std::string ToString(const std::vector<T>& v) {
    std::string out = "[";
    for (size_t i = 0; i < v.size(); ++i) out += (i ? ", " : "") + ToString(v[i]);
    return out + "]";
}

template <typename T, size_t N>
std::string ToString(const std::array<T, N>& a) {
    return ToString(std::vector<T>(a.begin(), a.end()));
}

template <typename T>
std::string ToString(const std::optional<T>& o) {
    return o ? ToString(*o) : std::string("(null)");
}

template <typename T>
std::string ToString(const T& t) {
    if constexpr (std::is_same_v<T, bool>) {
        return t ? "true" : "false";
    } else if constexpr (std::is_same_v<T, std::string>) {
        return t;
    } else if constexpr (std::is_same_v<T, ndk::ScopedFileDescriptor>) {
        return "fd:" + std::to_string(t.get());
    } else if constexpr (std::is_enum_v<T>) {
        return toString(t);
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(t);
    } else {
        return t.toString();
    }
}

}  // namespace android::internal
