// The arithmetic of the layout rules. Some sizes are defined as 32-bit signed arithmetic that
// wraps, the way the allocator's own code computes them; these helpers compute them in
// unsigned arithmetic, so that any geometry the allocator reports gives the same wrapped
// numbers and never undefined behaviour.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace GrallocAidlV2::layout {

inline constexpr uint32_t kRowAlignment = 32;

// `value` rounded up to a multiple of 32, wrapping at the type's range.
template <typename Unsigned>
constexpr Unsigned alignUp32(Unsigned value) {
    static_assert(std::is_unsigned_v<Unsigned>);
    constexpr Unsigned kMask = kRowAlignment - 1;
    return static_cast<Unsigned>(value + kMask) & static_cast<Unsigned>(~kMask);
}

// A 32-bit signed value rounded up to a multiple of 32, as 32-bit arithmetic that wraps.
constexpr int32_t alignUp32Wrapping(int32_t value) {
    return static_cast<int32_t>(alignUp32(static_cast<uint32_t>(value)));
}

// a × b and a + b as 32-bit signed arithmetic that wraps.
constexpr int32_t product32Wrapping(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
constexpr int32_t sum32Wrapping(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// A signed 32-bit result as a byte count: sign-extended, then taken modulo size_t.
constexpr size_t toSize(int32_t value) {
    return static_cast<size_t>(static_cast<int64_t>(value));
}

// The exact product of two 32-bit values (it always fits in 64 bits) as a byte count.
constexpr size_t product64(int32_t a, int32_t b) {
    return static_cast<size_t>(static_cast<int64_t>(a) * static_cast<int64_t>(b));
}

// Bytes of one slow-motion YCrCb_420_SP frame: a luma plane of 32-aligned width and height
// plus half of it for the interleaved chroma, in 32-bit wrapping arithmetic (the half is an
// arithmetic shift of the possibly negative product).
constexpr int32_t smvrSemiPlanarFrameSize(int32_t width, int32_t height) {
    const int32_t luma = product32Wrapping(alignUp32Wrapping(width), alignUp32Wrapping(height));
    return sum32Wrapping(luma, luma >> 1);
}

// Chroma plane of a two-plane 4:2:0 format with `bytesPerSample`-byte samples: (s × h × b) / 2
// in 32-bit arithmetic, the products wrapping. For 1-byte samples the halving is an arithmetic
// shift; for wider ones the wrapped product is even, where the shift and a division agree.
constexpr size_t twoPlane420ChromaSize(int32_t stride, int32_t height, int32_t bytesPerSample) {
    return toSize(product32Wrapping(product32Wrapping(stride, height), bytesPerSample) >> 1);
}

// YV12 chroma plane of a buffer that cannot be locked: (h / 2) × (s / 2) in 32 bits.
constexpr size_t yv12ChromaSize(int32_t stride, int32_t height) {
    return toSize(product32Wrapping(height / 2, stride / 2));
}

}  // namespace GrallocAidlV2::layout
