// The standard-metadata codec: whatever decodes must encode back to the same bytes, a strict
// prefix of an encoding must not decode, and an encode into a short buffer writes only a
// prefix of the encoding, never past the buffer, and still reports the full size.
//
// Input: one byte choosing the metadata type, two bytes choosing a cut point, then the blob.
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>

#include <memory>
#include <utility>

#include "FuzzSupport.h"

namespace {

using aidl::android::hardware::graphics::common::StandardMetadataType;
using android::hardware::graphics::mapper::StandardMetadata;
using zyncam::fuzz::fail;

constexpr uint8_t kUntouched = 0xA5;

template <StandardMetadataType T>
void roundTrip(const uint8_t* blob, size_t size, uint16_t cutChoice) {
    using Codec = typename StandardMetadata<T>::value;
    const auto decoded = Codec::decode(blob, size);
    if (!decoded) return;
    const long type = static_cast<long>(T);

    const int32_t full = Codec::encode(*decoded, nullptr, 0);
    if (full < 0 || static_cast<size_t>(full) > size) {
        fail("type %ld: %zu bytes decode to a value whose encoding needs %d", type, size, full);
    }
    std::vector<uint8_t> encoded(static_cast<size_t>(full));
    if (Codec::encode(*decoded, encoded.data(), encoded.size()) != full ||
        (full != 0 && memcmp(encoded.data(), blob, encoded.size()) != 0)) {
        fail("type %ld: the value does not encode back to the bytes it came from", type);
    }

    // A buffer of exactly `cut` bytes, so that the sanitizer sees any write past it.
    const size_t cut = cutChoice % (encoded.size() + 1);
    auto shortBuffer = std::make_unique<uint8_t[]>(cut);
    memset(shortBuffer.get(), kUntouched, cut);
    if (Codec::encode(*decoded, shortBuffer.get(), cut) != full) {
        fail("type %ld: an encode into %zu bytes does not report the full size %d", type, cut,
             full);
    }
    size_t written = 0;
    while (written < cut && shortBuffer[written] == encoded[written]) ++written;
    for (size_t i = written; i < cut; ++i) {
        if (shortBuffer[i] != kUntouched) {
            fail("type %ld: an encode into %zu bytes wrote byte %zu out of order", type, cut, i);
        }
    }

    if (cut < encoded.size()) {
        const auto truncated = Codec::decode(encoded.data(), cut);
        // An optional type reads an empty blob as "unset"; nothing else short may decode.
        bool unset = false;
        if constexpr (requires { truncated->has_value(); }) {
            unset = cut == 0 && truncated && !truncated->has_value();
        }
        if (truncated && !unset) {
            fail("type %ld: the first %zu of %d encoded bytes decode", type, cut, full);
        }
    }
}

template <size_t... I>
void dispatch(uint8_t choice, const uint8_t* blob, size_t size, uint16_t cut,
              std::index_sequence<I...>) {
    // Every standard type from BUFFER_ID (1) to STRIDE (23).
    constexpr size_t kTypes = sizeof...(I);
    const size_t index = choice % kTypes;
    ((index == I ? roundTrip<static_cast<StandardMetadataType>(I + 1)>(blob, size, cut) : void()),
     ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zyncam::fuzz::Input input(data, size);
    const auto choice = input.take<uint8_t>();
    const auto cut = input.take<uint16_t>();
    const size_t consumed = size - input.left();
    dispatch(choice, data + consumed, input.left(), cut,
             std::make_index_sequence<static_cast<size_t>(StandardMetadataType::STRIDE)>());
    return 0;
}
