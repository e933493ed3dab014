// What the simulated mapper answers for every standard metadata type, and how it describes each
// format it allocates, as the platform requires of any stable-C mapper. Camera code tested against
// the simulator relies on the same answers a board's mapper gives.
#include <aidl/android/hardware/graphics/allocator/BufferDescriptorInfo.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <android/hardware/graphics/mapper/IMapper.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>
#include <dlfcn.h>
#include <drm_fourcc.h>
#include <vndksupport/linker.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <ostream>
#include <set>
#include <string>

#include "GrallocRecords.h"
#include "kit/GrallocKit.h"

namespace aidl::android::hardware::graphics::common {
// Failures name the type rather than dumping its bytes.
void PrintTo(const ExtendableType& t, std::ostream* os) {
    *os << t.name << " " << t.value;
}
}  // namespace aidl::android::hardware::graphics::common

namespace {

namespace common = aidl::android::hardware::graphics::common;
using aidl::android::hardware::graphics::allocator::BufferDescriptorInfo;
using android::hardware::graphics::mapper::StandardMetadata;
using common::BufferUsage;
using common::ExtendableType;
using common::PixelFormat;
using common::PlaneLayoutComponentType;
using common::StandardMetadataType;

constexpr const char* kProfiles[] = {"default.json", "soc-a64.json", "soc-b128.json"};
constexpr uint64_t kCpuUsage = static_cast<uint64_t>(BufferUsage::CPU_READ_OFTEN) |
                               static_cast<uint64_t>(BufferUsage::CPU_WRITE_OFTEN);
// Both camera bits keep IMPLEMENTATION_DEFINED opaque instead of resolving it to a YUV format.
constexpr uint64_t kZslUsage = static_cast<uint64_t>(BufferUsage::CAMERA_OUTPUT) |
                               static_cast<uint64_t>(BufferUsage::CAMERA_INPUT);
constexpr int64_t kStandardTypeCount = static_cast<int64_t>(StandardMetadataType::STRIDE) + 1;

std::string profilePath(const char* name) {
    return std::string(ZYNCAM_PROFILES_DIR) + "/" + name;
}

// The simulated mapper itself, as any client of a buffer reaches it.
AIMapper* simMapper() {
    static AIMapper* m = [] {
        const std::string library = std::string("mapper.") + zyncam::sim::kMapperSuffix + ".so";
        void* handle = android_load_sphal_library(library.c_str(), RTLD_NOW);
        if (handle == nullptr) return static_cast<AIMapper*>(nullptr);
        auto load = reinterpret_cast<AIMapper_Error (*)(AIMapper**)>(
                dlsym(handle, "AIMapper_loadIMapper"));
        AIMapper* loaded = nullptr;
        return load != nullptr && load(&loaded) == AIMAPPER_ERROR_NONE ? loaded : nullptr;
    }();
    return m;
}

// A buffer allocated with a name through the allocator service and imported; freed at the end.
class NamedBuffer {
public:
    NamedBuffer(const std::string& name, int32_t width, int32_t height, int32_t format,
                uint64_t usage)
        : NamedBuffer(describe(name, width, height, format, usage)) {}
    explicit NamedBuffer(const BufferDescriptorInfo& info) {
        EXPECT_EQ(testkit::allocator().allocate(info, 1, &mStride, &mHandle), AIMAPPER_ERROR_NONE);
    }
    static BufferDescriptorInfo describe(const std::string& name, int32_t width, int32_t height,
                                         int32_t format, uint64_t usage) {
        BufferDescriptorInfo info;
        std::copy_n(name.begin(), std::min(name.size(), info.name.size() - 1), info.name.begin());
        info.width = width;
        info.height = height;
        info.layerCount = 1;
        info.format = static_cast<PixelFormat>(format);
        info.usage = static_cast<BufferUsage>(usage);
        return info;
    }
    ~NamedBuffer() {
        if (mHandle != nullptr) testkit::allocator().free(mHandle);
    }
    NamedBuffer(const NamedBuffer&) = delete;
    NamedBuffer& operator=(const NamedBuffer&) = delete;

    const native_handle* get() const { return mHandle; }
    uint32_t stride() const { return mStride; }

    // getStandardMetadata's result: the encoded bytes, or the negated error in `*result`.
    std::vector<uint8_t> metadata(int64_t type, int32_t* result) const {
        std::vector<uint8_t> bytes(4096);
        *result = simMapper()->v5.getStandardMetadata(mHandle, type, bytes.data(), bytes.size());
        bytes.resize(*result > 0 ? static_cast<size_t>(*result) : 0);
        return bytes;
    }
    // The value of `T`, decoded with the platform's decoder; fails the test when it cannot be.
    template <StandardMetadataType T>
    typename StandardMetadata<T>::value_type value() const {
        int32_t result = 0;
        const std::vector<uint8_t> bytes = metadata(static_cast<int64_t>(T), &result);
        EXPECT_GE(result, 0) << toString(T);
        auto decoded = StandardMetadata<T>::value::decode(bytes.data(), bytes.size());
        EXPECT_TRUE(decoded.has_value()) << toString(T) << " does not decode";
        return decoded.value_or(typename StandardMetadata<T>::value_type{});
    }
    AIMapper_Error set(int64_t type, const std::vector<uint8_t>& bytes) const {
        return simMapper()->v5.setStandardMetadata(mHandle, type, bytes.data(), bytes.size());
    }

private:
    const native_handle* mHandle = nullptr;
    uint32_t mStride = 0;
};

template <StandardMetadataType T>
std::vector<uint8_t> encoded(const typename StandardMetadata<T>::value_type& v) {
    std::vector<uint8_t> bytes(StandardMetadata<T>::value::encode(v, nullptr, 0));
    EXPECT_EQ(StandardMetadata<T>::value::encode(v, bytes.data(), bytes.size()),
              static_cast<int32_t>(bytes.size()));
    return bytes;
}

ExtendableType none(const char* name) {
    return ExtendableType{std::string("android.hardware.graphics.common.") + name, 0};
}

constexpr const char* kName = "Hello, World!";
constexpr int32_t kWidth = 64;
constexpr int32_t kHeight = 48;
constexpr int64_t kRgbaBytesPerPixel = 4;

// One standard metadata type: what a new 64x48 RGBA_8888 buffer named kName reports, and for a
// type the platform requires to be settable, a value to set.
struct TypeCase {
    StandardMetadataType type;
    std::function<void(const NamedBuffer&)> checkNew;
    std::vector<uint8_t> setValue;  // empty: not settable
    std::function<void(const NamedBuffer&)> checkSet;
};

template <StandardMetadataType T>
TypeCase expect(typename StandardMetadata<T>::value_type expected) {
    return {T, [expected](const NamedBuffer& b) { EXPECT_EQ(b.value<T>(), expected); }, {}, {}};
}

template <StandardMetadataType T>
TypeCase settable(typename StandardMetadata<T>::value_type initial,
                  typename StandardMetadata<T>::value_type changed) {
    return {T, [initial](const NamedBuffer& b) { EXPECT_EQ(b.value<T>(), initial); },
            encoded<T>(changed),
            [changed](const NamedBuffer& b) { EXPECT_EQ(b.value<T>(), changed); }};
}

std::vector<TypeCase> typeCases() {
    using T = StandardMetadataType;
    const common::Smpte2086 smpte{{0.708f, 0.292f},   {0.170f, 0.797f}, {0.131f, 0.046f},
                                  {0.3127f, 0.3290f}, 1000.0f,          0.0001f};
    return {
            {T::BUFFER_ID,
             [](const NamedBuffer& b) {
                 NamedBuffer other(kName, kWidth, kHeight,
                                   static_cast<int32_t>(PixelFormat::RGBA_8888), kCpuUsage);
                 EXPECT_NE(b.value<T::BUFFER_ID>(), 0u);
                 EXPECT_NE(b.value<T::BUFFER_ID>(), other.value<T::BUFFER_ID>());
             },
             {},
             {}},
            expect<T::NAME>(kName),
            expect<T::WIDTH>(kWidth),
            expect<T::HEIGHT>(kHeight),
            expect<T::LAYER_COUNT>(1),
            expect<T::PIXEL_FORMAT_REQUESTED>(PixelFormat::RGBA_8888),
            expect<T::PIXEL_FORMAT_FOURCC>(DRM_FORMAT_ABGR8888),
            expect<T::PIXEL_FORMAT_MODIFIER>(DRM_FORMAT_MOD_LINEAR),
            expect<T::USAGE>(static_cast<BufferUsage>(kCpuUsage)),
            {T::ALLOCATION_SIZE,
             [](const NamedBuffer& b) {
                 EXPECT_EQ(b.value<T::ALLOCATION_SIZE>(),
                           static_cast<uint64_t>(b.stride()) * kRgbaBytesPerPixel * kHeight);
             },
             {},
             {}},
            expect<T::PROTECTED_CONTENT>(0),
            expect<T::COMPRESSION>(none("Compression")),
            expect<T::INTERLACED>(none("Interlaced")),
            expect<T::CHROMA_SITING>(none("ChromaSiting")),
            {T::PLANE_LAYOUTS,
             [](const NamedBuffer& b) {
                 auto planes = b.value<T::PLANE_LAYOUTS>();
                 ASSERT_EQ(planes.size(), 1u);
                 EXPECT_EQ(planes[0].components.size(), 4u);
                 EXPECT_EQ(planes[0].strideInBytes, b.stride() * kRgbaBytesPerPixel);
                 EXPECT_EQ(planes[0].widthInSamples, kWidth);
                 EXPECT_EQ(planes[0].heightInSamples, kHeight);
             },
             {},
             {}},
            expect<T::CROP>({common::Rect{0, 0, kWidth, kHeight}}),
            settable<T::DATASPACE>(common::Dataspace::UNKNOWN, common::Dataspace::BT2020),
            settable<T::BLEND_MODE>(common::BlendMode::INVALID, common::BlendMode::PREMULTIPLIED),
            settable<T::SMPTE2086>(std::nullopt, smpte),
            settable<T::CTA861_3>(std::nullopt, common::Cta861_3{1000.0f, 400.0f}),
            // Not required of a mapper; this one keeps them for the helper's HDR calls.
            settable<T::SMPTE2094_40>(std::nullopt, std::vector<uint8_t>{0x01, 0x02, 0x03}),
            settable<T::SMPTE2094_10>(std::nullopt, std::vector<uint8_t>{0xde, 0xad}),
            {T::STRIDE,
             [](const NamedBuffer& b) { EXPECT_EQ(b.value<T::STRIDE>(), b.stride()); },
             {},
             {}},
    };
}

TEST(StandardMetadataTest, EachTypeAnswersAsThePlatformRequires) {
    ASSERT_NE(simMapper(), nullptr);
    for (const char* profile : kProfiles) {
        testkit::ScopedProfile scope(profilePath(profile));
        for (const TypeCase& c : typeCases()) {
            SCOPED_TRACE(std::string(profile) + " " + toString(c.type));
            NamedBuffer buffer(kName, kWidth, kHeight, static_cast<int32_t>(PixelFormat::RGBA_8888),
                               kCpuUsage);
            ASSERT_NE(buffer.get(), nullptr);
            c.checkNew(buffer);
            const auto type = static_cast<int64_t>(c.type);
            if (!c.setValue.empty()) {
                EXPECT_EQ(buffer.set(type, c.setValue), AIMAPPER_ERROR_NONE);
                c.checkSet(buffer);
            } else {
                // A type that is not settable refuses a value and keeps its own.
                int32_t result = 0;
                const std::vector<uint8_t> before = buffer.metadata(type, &result);
                EXPECT_NE(buffer.set(type, before), AIMAPPER_ERROR_NONE);
                EXPECT_EQ(buffer.metadata(type, &result), before);
            }
        }
    }
}

TEST(StandardMetadataTest, ANameWithoutItsEndIsCutBeforeTheLastByte) {
    BufferDescriptorInfo info = NamedBuffer::describe(
            "", kWidth, kHeight, static_cast<int32_t>(PixelFormat::RGBA_8888), kCpuUsage);
    info.name.fill('n');
    NamedBuffer buffer(info);
    EXPECT_EQ(buffer.value<StandardMetadataType::NAME>(), std::string(info.name.size() - 1, 'n'));
}

TEST(StandardMetadataTest, UnsetHdrMetadataCanBeSetAndClearedAgain) {
    NamedBuffer buffer(kName, kWidth, kHeight, static_cast<int32_t>(PixelFormat::RGBA_8888),
                       kCpuUsage);
    const auto type = static_cast<int64_t>(StandardMetadataType::CTA861_3);
    ASSERT_EQ(buffer.set(type, encoded<StandardMetadataType::CTA861_3>(common::Cta861_3{1, 2})),
              AIMAPPER_ERROR_NONE);
    // An unset value encodes as no bytes at all.
    EXPECT_EQ(buffer.set(type, {}), AIMAPPER_ERROR_NONE);
    EXPECT_EQ(buffer.value<StandardMetadataType::CTA861_3>(), std::nullopt);
}

TEST(StandardMetadataTest, TypesOutsideTheStandardRangeAreUnsupported) {
    NamedBuffer buffer(kName, kWidth, kHeight, static_cast<int32_t>(PixelFormat::RGBA_8888),
                       kCpuUsage);
    for (int64_t type : {int64_t{0}, kStandardTypeCount, int64_t{-1}}) {
        int32_t result = 0;
        buffer.metadata(type, &result);
        EXPECT_EQ(result, -AIMAPPER_ERROR_UNSUPPORTED) << type;
    }
}

TEST(StandardMetadataTest, ListNamesEveryRequiredTypeAsTheBufferAnswersIt) {
    using T = StandardMetadataType;
    const std::set<T> requiredGetters = {T::BUFFER_ID,
                                         T::NAME,
                                         T::WIDTH,
                                         T::HEIGHT,
                                         T::LAYER_COUNT,
                                         T::PIXEL_FORMAT_REQUESTED,
                                         T::PIXEL_FORMAT_FOURCC,
                                         T::PIXEL_FORMAT_MODIFIER,
                                         T::USAGE,
                                         T::ALLOCATION_SIZE,
                                         T::PROTECTED_CONTENT,
                                         T::COMPRESSION,
                                         T::INTERLACED,
                                         T::CHROMA_SITING,
                                         T::PLANE_LAYOUTS,
                                         T::CROP,
                                         T::DATASPACE,
                                         T::BLEND_MODE,
                                         T::SMPTE2086,
                                         T::CTA861_3,
                                         T::STRIDE};
    const std::set<T> requiredSetters = {T::DATASPACE, T::BLEND_MODE, T::SMPTE2086, T::CTA861_3};

    const AIMapper_MetadataTypeDescription* list = nullptr;
    size_t count = 0;
    ASSERT_EQ(simMapper()->v5.listSupportedMetadataTypes(&list, &count), AIMAPPER_ERROR_NONE);
    std::set<T> gettable, settableTypes;
    NamedBuffer buffer(kName, kWidth, kHeight, static_cast<int32_t>(PixelFormat::RGBA_8888),
                       kCpuUsage);
    for (size_t i = 0; i < count; ++i) {
        const AIMapper_MetadataTypeDescription& d = list[i];
        ASSERT_NE(d.metadataType.name, nullptr);
        if (android::hardware::graphics::mapper::kStandardMetadataTypeName != d.metadataType.name) {
            EXPECT_NE(d.description, nullptr) << d.metadataType.name;
            continue;
        }
        const int64_t value = d.metadataType.value;
        EXPECT_GT(value, 0);
        EXPECT_LT(value, kStandardTypeCount);
        const auto type = static_cast<T>(value);
        EXPECT_TRUE(gettable.count(type) == 0 && settableTypes.count(type) == 0)
                << toString(type) << " listed twice";
        // What the list promises, a new buffer keeps.
        int32_t result = 0;
        const std::vector<uint8_t> current = buffer.metadata(value, &result);
        if (d.isGettable) {
            gettable.insert(type);
            EXPECT_GE(result, 0) << toString(type);
        }
        if (d.isSettable) {
            settableTypes.insert(type);
            EXPECT_EQ(buffer.set(value, current), AIMAPPER_ERROR_NONE) << toString(type);
        }
    }
    for (T type : requiredGetters) {
        EXPECT_EQ(gettable.count(type), 1u) << toString(type) << " is not listed as gettable";
    }
    for (T type : requiredSetters) {
        EXPECT_EQ(settableTypes.count(type), 1u) << toString(type) << " is not listed as settable";
    }
}

// How the platform describes a format: its DRM fourcc, and per plane the components (type,
// offset and size in bits), the sample increment and the subsampling.
struct Component {
    PlaneLayoutComponentType type;
    int64_t offsetInBits;
    int64_t sizeInBits;
};
struct Plane {
    std::vector<Component> components;
    int64_t sampleIncrementInBits;
    int64_t horizontalSubsampling = 1;
    int64_t verticalSubsampling = 1;
};
struct FormatCase {
    const char* name;
    int32_t format;
    uint64_t usage;
    uint32_t fourcc;
    std::vector<Plane> planes;
};

int32_t fmt(PixelFormat f) {
    return static_cast<int32_t>(f);
}

std::vector<FormatCase> formatCases() {
    using C = PlaneLayoutComponentType;
    const Component y8{C::Y, 0, 8};
    // Packed samples have no per-sample size or increment.
    const Plane packedRaw{{{C::RAW, 0, -1}}, 0};
    const Plane opaque{{}, 0};
    return {
            {"RGBA_8888",
             fmt(PixelFormat::RGBA_8888),
             kCpuUsage,
             DRM_FORMAT_ABGR8888,
             {{{{C::R, 0, 8}, {C::G, 8, 8}, {C::B, 16, 8}, {C::A, 24, 8}}, 32}}},
            {"RGBX_8888",
             fmt(PixelFormat::RGBX_8888),
             kCpuUsage,
             DRM_FORMAT_XBGR8888,
             {{{{C::R, 0, 8}, {C::G, 8, 8}, {C::B, 16, 8}}, 32}}},
            {"BGRA_8888",
             fmt(PixelFormat::BGRA_8888),
             kCpuUsage,
             DRM_FORMAT_ARGB8888,
             {{{{C::B, 0, 8}, {C::G, 8, 8}, {C::R, 16, 8}, {C::A, 24, 8}}, 32}}},
            {"RGB_888",
             fmt(PixelFormat::RGB_888),
             kCpuUsage,
             DRM_FORMAT_BGR888,
             {{{{C::R, 0, 8}, {C::G, 8, 8}, {C::B, 16, 8}}, 24}}},
            {"RGB_565",
             fmt(PixelFormat::RGB_565),
             kCpuUsage,
             DRM_FORMAT_RGB565,
             {{{{C::B, 0, 5}, {C::G, 5, 6}, {C::R, 11, 5}}, 16}}},
            {"RAW16",
             fmt(PixelFormat::RAW16),
             kCpuUsage,
             DRM_FORMAT_R16,
             {{{{C::RAW, 0, 16}}, 16}}},
            {"RAW10", fmt(PixelFormat::RAW10), kCpuUsage, DRM_FORMAT_INVALID, {packedRaw}},
            {"RAW_OPAQUE",
             fmt(PixelFormat::RAW_OPAQUE),
             kCpuUsage,
             DRM_FORMAT_INVALID,
             {packedRaw}},
            {"Y8", fmt(PixelFormat::Y8), kCpuUsage, DRM_FORMAT_R8, {{{y8}, 8}}},
            {"Y16", fmt(PixelFormat::Y16), kCpuUsage, DRM_FORMAT_R16, {{{{C::Y, 0, 16}}, 16}}},
            {"YCBCR_422_I",
             fmt(PixelFormat::YCBCR_422_I),
             kCpuUsage,
             DRM_FORMAT_YUYV,
             {{{{C::Y, 0, 8}, {C::CB, 8, 8}, {C::CR, 24, 8}}, 16}}},
            {"BLOB", fmt(PixelFormat::BLOB), kCpuUsage, DRM_FORMAT_R8, {{{}, 8}}},
            {"CAMERA_OPAQUE",
             zcam::kPixelFormatCameraOpaque,
             kCpuUsage,
             DRM_FORMAT_INVALID,
             {opaque}},
            {"IMPLEMENTATION_DEFINED",
             fmt(PixelFormat::IMPLEMENTATION_DEFINED),
             kZslUsage,
             DRM_FORMAT_INVALID,
             {opaque}},
            {"YCBCR_422_SP",
             fmt(PixelFormat::YCBCR_422_SP),
             kCpuUsage,
             DRM_FORMAT_NV16,
             {{{y8}, 8}, {{{C::CB, 0, 8}, {C::CR, 8, 8}}, 16, 2, 1}}},
            {"YCRCB_420_SP",
             fmt(PixelFormat::YCRCB_420_SP),
             kCpuUsage,
             DRM_FORMAT_NV21,
             {{{y8}, 8}, {{{C::CR, 0, 8}, {C::CB, 8, 8}}, 16, 2, 2}}},
            {"NV12",
             zcam::kPixelFormatNV12,
             kCpuUsage,
             DRM_FORMAT_NV12,
             {{{y8}, 8}, {{{C::CB, 0, 8}, {C::CR, 8, 8}}, 16, 2, 2}}},
            {"YCBCR_P010",
             fmt(PixelFormat::YCBCR_P010),
             kCpuUsage,
             DRM_FORMAT_P010,
             {{{{C::Y, 6, 10}}, 16}, {{{C::CB, 6, 10}, {C::CR, 22, 10}}, 32, 2, 2}}},
            {"YV12",
             fmt(PixelFormat::YV12),
             kCpuUsage,
             DRM_FORMAT_YVU420,
             {{{y8}, 8}, {{{C::CR, 0, 8}}, 8, 2, 2}, {{{C::CB, 0, 8}}, 8, 2, 2}}},
    };
}

TEST(StandardMetadataTest, EachFormatHasItsFourccAndPlaneComponents) {
    constexpr const char* kComponentTypeName =
            "android.hardware.graphics.common.PlaneLayoutComponentType";
    for (const char* profile : kProfiles) {
        testkit::ScopedProfile scope(profilePath(profile));
        for (const FormatCase& c : formatCases()) {
            SCOPED_TRACE(std::string(profile) + " " + c.name);
            NamedBuffer buffer(c.name, kWidth, kHeight, c.format, c.usage);
            ASSERT_NE(buffer.get(), nullptr);
            EXPECT_EQ(buffer.value<StandardMetadataType::PIXEL_FORMAT_FOURCC>(), c.fourcc);
            const auto planes = buffer.value<StandardMetadataType::PLANE_LAYOUTS>();
            ASSERT_EQ(planes.size(), c.planes.size());
            for (size_t i = 0; i < planes.size(); ++i) {
                SCOPED_TRACE("plane " + std::to_string(i));
                const Plane& expected = c.planes[i];
                EXPECT_EQ(planes[i].sampleIncrementInBits, expected.sampleIncrementInBits);
                EXPECT_EQ(planes[i].horizontalSubsampling, expected.horizontalSubsampling);
                EXPECT_EQ(planes[i].verticalSubsampling, expected.verticalSubsampling);
                ASSERT_EQ(planes[i].components.size(), expected.components.size());
                for (size_t k = 0; k < expected.components.size(); ++k) {
                    const auto& actual = planes[i].components[k];
                    EXPECT_EQ(actual.type.name, kComponentTypeName);
                    EXPECT_EQ(actual.type.value, static_cast<int64_t>(expected.components[k].type));
                    EXPECT_EQ(actual.offsetInBits, expected.components[k].offsetInBits);
                    EXPECT_EQ(actual.sizeInBits, expected.components[k].sizeInBits);
                }
            }
        }
    }
}

}  // namespace
