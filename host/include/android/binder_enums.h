// Host stand-in for <android/binder_enums.h>: the list of an AIDL enum's enumerators, which the
// NDK backend generates for every enum (in declaration order), and a range over it.
#pragma once

#include <array>
#include <iterator>

namespace ndk {

namespace internal {
// Specialised by each generated enum header.
template <typename EnumType>
extern std::array<EnumType, 0> enum_values;
}  // namespace internal

// for (auto value : ndk::enum_range<PixelFormat>()) ...
template <typename EnumType>
struct enum_range {
    constexpr auto begin() const { return std::begin(internal::enum_values<EnumType>); }
    constexpr auto end() const { return std::end(internal::enum_values<EnumType>); }
};

}  // namespace ndk
