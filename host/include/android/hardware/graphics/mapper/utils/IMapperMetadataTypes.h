// Host stand-in for the standard-metadata encoders and decoders of the mapper-5 headers: the
// platform's byte encoding, written in native (little-endian) order without padding.
#pragma once

#include <cstddef>  // before IMapper.h, which uses size_t without including it

#include <aidl/android/hardware/graphics/common/BlendMode.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/Cta861_3.h>
#include <aidl/android/hardware/graphics/common/Dataspace.h>
#include <aidl/android/hardware/graphics/common/ExtendableType.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <aidl/android/hardware/graphics/common/Rect.h>
#include <aidl/android/hardware/graphics/common/Smpte2086.h>
#include <aidl/android/hardware/graphics/common/StandardMetadataType.h>
#include <android/hardware/graphics/mapper/IMapper.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace android::hardware::graphics::mapper {

namespace common = aidl::android::hardware::graphics::common;
using common::StandardMetadataType;

inline constexpr std::string_view kStandardMetadataTypeName =
        "android.hardware.graphics.common.StandardMetadataType";

namespace detail {

// Counts the full size; writes fields while they fit and nothing after the first that does not.
class Writer {
public:
    Writer(void* dest, size_t size) : mDest(static_cast<uint8_t*>(dest)), mRoom(dest ? size : 0) {}

    void put(const void* data, size_t n) {
        if (mOverflow) return;
        if (n > static_cast<size_t>(INT32_MAX) - mSize) {
            mOverflow = true;
            return;
        }
        mSize += n;
        if (n <= mRoom) {
            if (n) memcpy(mDest, data, n);
            mDest += n;
            mRoom -= n;
        } else {
            mRoom = 0;
        }
    }
    int32_t result() const {
        return mOverflow ? -AIMAPPER_ERROR_BAD_VALUE : static_cast<int32_t>(mSize);
    }

private:
    uint8_t* mDest;
    size_t mRoom;
    size_t mSize = 0;
    bool mOverflow = false;
};

// Reads within the bytes present; any read past the end fails.
class Reader {
public:
    Reader(const void* data, size_t size) : mData(static_cast<const uint8_t*>(data)), mLeft(size) {}

    bool get(void* out, size_t n) {
        if (n > mLeft) return false;
        if (n) memcpy(out, mData, n);
        mData += n;
        mLeft -= n;
        return true;
    }
    size_t left() const { return mLeft; }

private:
    const uint8_t* mData;
    size_t mLeft;
};

template <typename T>
requires std::is_arithmetic_v<T> || std::is_enum_v<T>
void write(Writer& w, const T& v) {
    w.put(&v, sizeof(v));
}
template <typename T>
requires std::is_arithmetic_v<T> || std::is_enum_v<T>
bool read(Reader& r, T& v) {
    return r.get(&v, sizeof(v));
}

inline void write(Writer& w, std::string_view s) {
    write(w, static_cast<int64_t>(s.size()));
    w.put(s.data(), s.size());
}
inline bool read(Reader& r, std::string& s) {
    int64_t size = 0;
    if (!read(r, size) || static_cast<uint64_t>(size) > r.left()) return false;
    s.resize(static_cast<size_t>(size));
    return r.get(s.data(), s.size());
}

inline void write(Writer& w, const std::vector<uint8_t>& bytes) {
    write(w, static_cast<int64_t>(bytes.size()));
    w.put(bytes.data(), bytes.size());
}
inline bool read(Reader& r, std::vector<uint8_t>& bytes) {
    int64_t size = 0;
    if (!read(r, size) || static_cast<uint64_t>(size) > r.left()) return false;
    bytes.resize(static_cast<size_t>(size));
    return r.get(bytes.data(), bytes.size());
}

inline void write(Writer& w, const common::ExtendableType& t) {
    write(w, std::string_view(t.name));
    write(w, t.value);
}
inline bool read(Reader& r, common::ExtendableType& t) {
    return read(r, t.name) && read(r, t.value);
}

inline void write(Writer& w, const common::XyColor& c) {
    write(w, c.x);
    write(w, c.y);
}
inline bool read(Reader& r, common::XyColor& c) {
    return read(r, c.x) && read(r, c.y);
}

inline void write(Writer& w, const common::Rect& rect) {
    write(w, rect.left);
    write(w, rect.top);
    write(w, rect.right);
    write(w, rect.bottom);
}
inline bool read(Reader& r, common::Rect& rect) {
    return read(r, rect.left) && read(r, rect.top) && read(r, rect.right) && read(r, rect.bottom);
}

inline void write(Writer& w, const common::PlaneLayoutComponent& c) {
    write(w, c.type);
    write(w, c.offsetInBits);
    write(w, c.sizeInBits);
}
inline bool read(Reader& r, common::PlaneLayoutComponent& c) {
    return read(r, c.type) && read(r, c.offsetInBits) && read(r, c.sizeInBits);
}

template <typename T>
void write(Writer& w, const std::vector<T>& items);
template <typename T>
bool read(Reader& r, std::vector<T>& items);

inline void write(Writer& w, const common::PlaneLayout& p) {
    write(w, p.components);
    for (int64_t v :
         {p.offsetInBytes, p.sampleIncrementInBits, p.strideInBytes, p.widthInSamples,
          p.heightInSamples, p.totalSizeInBytes, p.horizontalSubsampling, p.verticalSubsampling}) {
        write(w, v);
    }
}
inline bool read(Reader& r, common::PlaneLayout& p) {
    return read(r, p.components) && read(r, p.offsetInBytes) && read(r, p.sampleIncrementInBits) &&
           read(r, p.strideInBytes) && read(r, p.widthInSamples) && read(r, p.heightInSamples) &&
           read(r, p.totalSizeInBytes) && read(r, p.horizontalSubsampling) &&
           read(r, p.verticalSubsampling);
}

inline void write(Writer& w, const common::Smpte2086& s) {
    write(w, s.primaryRed);
    write(w, s.primaryGreen);
    write(w, s.primaryBlue);
    write(w, s.whitePoint);
    write(w, s.maxLuminance);
    write(w, s.minLuminance);
}
inline bool read(Reader& r, common::Smpte2086& s) {
    return read(r, s.primaryRed) && read(r, s.primaryGreen) && read(r, s.primaryBlue) &&
           read(r, s.whitePoint) && read(r, s.maxLuminance) && read(r, s.minLuminance);
}

inline void write(Writer& w, const common::Cta861_3& c) {
    write(w, c.maxContentLightLevel);
    write(w, c.maxFrameAverageLightLevel);
}
inline bool read(Reader& r, common::Cta861_3& c) {
    return read(r, c.maxContentLightLevel) && read(r, c.maxFrameAverageLightLevel);
}

template <typename T>
void write(Writer& w, const std::vector<T>& items) {
    write(w, static_cast<int64_t>(items.size()));
    for (const auto& item : items) write(w, item);
}
// The count is untrusted: every element must be present, so a count larger than the bytes
// left fails at the first missing element instead of reserving memory for it.
template <typename T>
bool read(Reader& r, std::vector<T>& items) {
    int64_t count = 0;
    if (!read(r, count) || count < 0 || static_cast<uint64_t>(count) > r.left()) return false;
    items.clear();
    for (int64_t i = 0; i < count; ++i) {
        T item{};
        if (!read(r, item)) return false;
        items.push_back(std::move(item));
    }
    return true;
}

inline void writeHeader(Writer& w, StandardMetadataType type) {
    write(w, kStandardMetadataTypeName);
    write(w, static_cast<int64_t>(type));
}
inline bool readHeader(Reader& r, StandardMetadataType type) {
    std::string name;
    int64_t value = 0;
    return read(r, name) && name == kStandardMetadataTypeName && read(r, value) &&
           value == static_cast<int64_t>(type);
}

}  // namespace detail

// Encoding of one standard metadata type whose value is always present. As the platform's
// encoders do, encode takes the value by value (a string as a view).
template <StandardMetadataType TYPE, typename T>
struct MetadataValue {
    using value_type = T;
    using encode_type =
            std::conditional_t<std::is_same_v<T, std::string>, const std::string_view&, T>;
    // The full encoded size (written as far as it fits), or -AIMAPPER_ERROR_BAD_VALUE.
    [[nodiscard]] static int32_t encode(encode_type value, void* dest, size_t size) {
        detail::Writer w(dest, size);
        detail::writeHeader(w, TYPE);
        detail::write(w, value);
        return w.result();
    }
    [[nodiscard]] static std::optional<T> decode(const void* data, size_t size) {
        detail::Reader r(data, size);
        T value{};
        if (!detail::readHeader(r, TYPE) || !detail::read(r, value)) return std::nullopt;
        return value;
    }
};

// Encoding of a type that may be unset; unset encodes as nothing at all.
template <StandardMetadataType TYPE, typename T>
struct OptionalMetadataValue {
    using value_type = std::optional<T>;
    [[nodiscard]] static int32_t encode(std::optional<T> value, void* dest, size_t size) {
        if (!value) return 0;
        return MetadataValue<TYPE, T>::encode(std::move(*value), dest, size);
    }
    // Outer empty: malformed; inner empty: a valid encoding of "unset".
    [[nodiscard]] static std::optional<std::optional<T>> decode(const void* data, size_t size) {
        if (size == 0) return std::optional<T>();
        auto value = MetadataValue<TYPE, T>::decode(data, size);
        if (!value) return std::nullopt;
        return std::optional<T>(std::move(*value));
    }
};

template <StandardMetadataType T>
struct StandardMetadata;

#define ZYNCAM_STANDARD_METADATA(TYPE, WRAPPER, T)                               \
    template <>                                                                  \
    struct StandardMetadata<StandardMetadataType::TYPE> {                        \
        using value = WRAPPER<StandardMetadataType::TYPE, T>;                    \
        using value_type = value::value_type;                                    \
        static constexpr StandardMetadataType type = StandardMetadataType::TYPE; \
    };

ZYNCAM_STANDARD_METADATA(BUFFER_ID, MetadataValue, uint64_t)
ZYNCAM_STANDARD_METADATA(NAME, MetadataValue, std::string)
ZYNCAM_STANDARD_METADATA(WIDTH, MetadataValue, uint64_t)
ZYNCAM_STANDARD_METADATA(HEIGHT, MetadataValue, uint64_t)
ZYNCAM_STANDARD_METADATA(LAYER_COUNT, MetadataValue, uint64_t)
ZYNCAM_STANDARD_METADATA(PIXEL_FORMAT_REQUESTED, MetadataValue, common::PixelFormat)
ZYNCAM_STANDARD_METADATA(PIXEL_FORMAT_FOURCC, MetadataValue, uint32_t)
ZYNCAM_STANDARD_METADATA(PIXEL_FORMAT_MODIFIER, MetadataValue, uint64_t)
ZYNCAM_STANDARD_METADATA(USAGE, MetadataValue, common::BufferUsage)
ZYNCAM_STANDARD_METADATA(ALLOCATION_SIZE, MetadataValue, uint64_t)
ZYNCAM_STANDARD_METADATA(PROTECTED_CONTENT, MetadataValue, uint64_t)
ZYNCAM_STANDARD_METADATA(COMPRESSION, MetadataValue, common::ExtendableType)
ZYNCAM_STANDARD_METADATA(INTERLACED, MetadataValue, common::ExtendableType)
ZYNCAM_STANDARD_METADATA(CHROMA_SITING, MetadataValue, common::ExtendableType)
ZYNCAM_STANDARD_METADATA(PLANE_LAYOUTS, MetadataValue, std::vector<common::PlaneLayout>)
ZYNCAM_STANDARD_METADATA(CROP, MetadataValue, std::vector<common::Rect>)
ZYNCAM_STANDARD_METADATA(DATASPACE, MetadataValue, common::Dataspace)
ZYNCAM_STANDARD_METADATA(BLEND_MODE, MetadataValue, common::BlendMode)
ZYNCAM_STANDARD_METADATA(SMPTE2086, OptionalMetadataValue, common::Smpte2086)
ZYNCAM_STANDARD_METADATA(CTA861_3, OptionalMetadataValue, common::Cta861_3)
ZYNCAM_STANDARD_METADATA(SMPTE2094_40, OptionalMetadataValue, std::vector<uint8_t>)
ZYNCAM_STANDARD_METADATA(SMPTE2094_10, OptionalMetadataValue, std::vector<uint8_t>)
ZYNCAM_STANDARD_METADATA(STRIDE, MetadataValue, uint32_t)
#undef ZYNCAM_STANDARD_METADATA

}  // namespace android::hardware::graphics::mapper
