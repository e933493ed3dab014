// Standard metadata: the platform's byte encoding, and the mapper adapter's accessors.
#include <aidl/android/hardware/graphics/allocator/AllocationError.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <android/binder_enums.h>
#include <dlfcn.h>
#include <gralloctypes/Gralloc4.h>
#include <vndksupport/linker.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "kit/GrallocKit.h"
#include "kit/TestKit.h"
#include "mapper/MapperMetadata.h"

namespace {

namespace common = aidl::android::hardware::graphics::common;
using android::hardware::graphics::mapper::StandardMetadata;
using common::StandardMetadataType;
using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_CTA861_3;
using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2086;
using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2094_10;
using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2094_40;
using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_TYPE;
using NSCam::GrallocMapperAidlV2::MapperMetadata;
using testkit::Buffer;
using testkit::mapper;

std::vector<uint8_t> hex(const char* text) {
    std::vector<uint8_t> bytes;
    for (const char* p = text; *p;) {
        if (*p == ' ' || *p == '\n') {
            ++p;
            continue;
        }
        bytes.push_back(static_cast<uint8_t>(strtoul(std::string(p, 2).c_str(), nullptr, 16)));
        p += 2;
    }
    return bytes;
}

constexpr int32_t kNV21 = static_cast<int32_t>(common::PixelFormat::YCRCB_420_SP);
constexpr uint64_t kCpuReadWrite = static_cast<uint64_t>(common::BufferUsage::CPU_READ_OFTEN) |
                                   static_cast<uint64_t>(common::BufferUsage::CPU_WRITE_OFTEN);
constexpr int32_t kP010 = static_cast<int32_t>(common::PixelFormat::YCBCR_P010);
constexpr uint64_t kCpuReadOften = static_cast<uint64_t>(common::BufferUsage::CPU_READ_OFTEN);

const std::string kHeaderName = "android.hardware.graphics.common.StandardMetadataType";

// The encoded header: the name's length (int64), the name, the type (int64).
std::vector<uint8_t> header(StandardMetadataType type) {
    std::vector<uint8_t> bytes(sizeof(int64_t) + kHeaderName.size() + sizeof(int64_t), 0);
    bytes[0] = static_cast<uint8_t>(kHeaderName.size());
    memcpy(&bytes[sizeof(int64_t)], kHeaderName.data(), kHeaderName.size());
    bytes[sizeof(int64_t) + kHeaderName.size()] = static_cast<uint8_t>(type);
    return bytes;
}

template <StandardMetadataType T>
std::vector<uint8_t> encoded(const typename StandardMetadata<T>::value_type& v) {
    const int32_t size = StandardMetadata<T>::value::encode(v, nullptr, 0);
    std::vector<uint8_t> bytes(size);
    EXPECT_EQ(StandardMetadata<T>::value::encode(v, bytes.data(), bytes.size()), size);
    return bytes;
}

TEST(MetadataEncodingTest, WorkedExamples) {
    auto cta = header(StandardMetadataType::CTA861_3);
    auto ctaPayload = hex("00 00 7a 44 00 00 c8 43");
    cta.insert(cta.end(), ctaPayload.begin(), ctaPayload.end());
    EXPECT_EQ(encoded<StandardMetadataType::CTA861_3>(common::Cta861_3{1000.0f, 400.0f}), cta);
    EXPECT_EQ(cta.size(), 77u);

    common::Smpte2086 smpte{{0.708f, 0.292f},   {0.170f, 0.797f}, {0.131f, 0.046f},
                            {0.3127f, 0.3290f}, 1000.0f,          0.0001f};
    auto smpteBytes = header(StandardMetadataType::SMPTE2086);
    auto smptePayload =
            hex("7d 3f 35 3f 06 81 95 3e 7b 14 2e 3e 31 08 4c 3f dd 24 06 3e"
                "7f 6a 3c 3d 37 1a a0 3e b0 72 a8 3e 00 00 7a 44 17 b7 d1 38");
    smpteBytes.insert(smpteBytes.end(), smptePayload.begin(), smptePayload.end());
    EXPECT_EQ(encoded<StandardMetadataType::SMPTE2086>(smpte), smpteBytes);

    auto dv = header(StandardMetadataType::SMPTE2094_10);
    auto dvPayload = hex("02 00 00 00 00 00 00 00 de ad");
    dv.insert(dv.end(), dvPayload.begin(), dvPayload.end());
    EXPECT_EQ(encoded<StandardMetadataType::SMPTE2094_10>(std::vector<uint8_t>{0xde, 0xad}), dv);
    EXPECT_EQ(encoded<StandardMetadataType::SMPTE2094_40>(std::vector<uint8_t>{}).size(), 77u);
    EXPECT_EQ(StandardMetadata<StandardMetadataType::CTA861_3>::value::encode(std::nullopt, nullptr,
                                                                              0),
              0);

    auto crop = header(StandardMetadataType::CROP);
    auto cropPayload =
            hex("01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 80 07 00 00 38 04 00 00");
    crop.insert(crop.end(), cropPayload.begin(), cropPayload.end());
    EXPECT_EQ(encoded<StandardMetadataType::CROP>({common::Rect{0, 0, 1920, 1080}}), crop);
}

TEST(MetadataEncodingTest, DecodeIsBoundedByTheBytesPresent) {
    using Cta = StandardMetadata<StandardMetadataType::CTA861_3>::value;
    using Layouts = StandardMetadata<StandardMetadataType::PLANE_LAYOUTS>::value;
    using Stride = StandardMetadata<StandardMetadataType::STRIDE>::value;
    auto cta = encoded<StandardMetadataType::CTA861_3>(common::Cta861_3{1.0f, 2.0f});
    EXPECT_FALSE(Cta::decode(cta.data(), cta.size() - 1));
    auto unset = Cta::decode(nullptr, 0);
    ASSERT_TRUE(unset);
    EXPECT_FALSE(*unset);

    auto stride = encoded<StandardMetadataType::STRIDE>(1920);
    stride.push_back(0xFF);  // trailing bytes are ignored
    EXPECT_EQ(Stride::decode(stride.data(), stride.size()), 1920u);
    EXPECT_FALSE(Stride::decode(nullptr, 0));
    EXPECT_FALSE(Cta::decode(stride.data(), stride.size()));  // wrong type in the header

    auto bad = header(StandardMetadataType::PLANE_LAYOUTS);
    bad[0] = 0xFF;  // header length -1 and friends
    for (int i = 1; i < 8; ++i) bad[i] = 0xFF;
    EXPECT_FALSE(Layouts::decode(bad.data(), bad.size()));

    // Plane counts that the bytes cannot hold fail instead of reserving memory.
    for (int64_t count : {int64_t{-1}, int64_t{1} << 40, int64_t{3}}) {
        auto blob = header(StandardMetadataType::PLANE_LAYOUTS);
        blob.resize(blob.size() + 8);
        memcpy(&blob[69], &count, 8);
        EXPECT_FALSE(Layouts::decode(blob.data(), blob.size())) << count;
    }
}

TEST(MetadataEncodingTest, PartialWriteStopsAtTheFirstFieldThatDoesNotFit) {
    common::PlaneLayout p;
    p.components = {{{"android.hardware.graphics.common.PlaneLayoutComponentType", 1}, 0, 8}};
    std::vector<uint8_t> dest(100, 0xEE);
    using Layouts = StandardMetadata<StandardMetadataType::PLANE_LAYOUTS>::value;
    EXPECT_EQ(Layouts::encode({p}, dest.data(), dest.size()), 238);
    EXPECT_EQ(dest[85], 57);    // the name's length was written
    EXPECT_EQ(dest[93], 0xEE);  // the 57-byte name was not
    EXPECT_EQ(Layouts::encode({p}, nullptr, 0), 238);
}

TEST(MetadataEncodingTest, ToStringShapes) {
    common::PlaneLayout p;
    using T = common::PlaneLayoutComponentType;
    const char* name = "android.hardware.graphics.common.PlaneLayoutComponentType";
    p.components = {{{name, static_cast<int64_t>(T::CR)}, 0, 8},
                    {{name, static_cast<int64_t>(T::CB)}, 8, 8}};
    p.offsetInBytes = 2073600;
    p.sampleIncrementInBits = 16;
    p.strideInBytes = 1920;
    p.widthInSamples = 960;
    p.heightInSamples = 540;
    p.totalSizeInBytes = 1036800;
    p.horizontalSubsampling = 2;
    p.verticalSubsampling = 2;
    EXPECT_EQ(p.toString(),
              "PlaneLayout{components: [PlaneLayoutComponent{type: ExtendableType{name: "
              "android.hardware.graphics.common.PlaneLayoutComponentType, value: 4}, "
              "offsetInBits: 0, sizeInBits: 8}, PlaneLayoutComponent{type: ExtendableType{name: "
              "android.hardware.graphics.common.PlaneLayoutComponentType, value: 2}, "
              "offsetInBits: 8, sizeInBits: 8}], offsetInBytes: 2073600, sampleIncrementInBits: "
              "16, strideInBytes: 1920, widthInSamples: 960, heightInSamples: 540, "
              "totalSizeInBytes: 1036800, horizontalSubsampling: 2, verticalSubsampling: 2}");
    EXPECT_EQ(android::internal::ToString(std::vector<common::PlaneLayout>(1)),
              "[PlaneLayout{components: [], offsetInBytes: 0, sampleIncrementInBits: 0, "
              "strideInBytes: 0, widthInSamples: 0, heightInSamples: 0, totalSizeInBytes: 0, "
              "horizontalSubsampling: 0, verticalSubsampling: 0}]");
    EXPECT_EQ(common::Cta861_3({1000.0f, 400.0f}).toString(),
              "Cta861_3{maxContentLightLevel: 1000.000000, maxFrameAverageLightLevel: 400.000000}");
}

// The stand-ins must let the platform's own metadata header compile: it walks every AIDL enum
// through ndk::enum_range, names values with toString, and calls encoders that take their value
// as the platform's do.
template <typename Enum>
void expectEveryEnumeratorNamed() {
    size_t count = 0;
    for (Enum value : ndk::enum_range<Enum>()) {
        const std::string name = toString(value);
        EXPECT_FALSE(name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) ||
                     name[0] == '-')
                << static_cast<int64_t>(value);
        ++count;
    }
    EXPECT_EQ(count, ndk::internal::enum_values<Enum>.size());
}

TEST(MetadataEncodingTest, StandInsOfferWhatThePlatformHeaderUses) {
    expectEveryEnumeratorNamed<common::BlendMode>();
    expectEveryEnumeratorNamed<common::BufferUsage>();
    expectEveryEnumeratorNamed<common::Dataspace>();
    expectEveryEnumeratorNamed<common::PixelFormat>();
    expectEveryEnumeratorNamed<common::PlaneLayoutComponentType>();
    expectEveryEnumeratorNamed<common::StandardMetadataType>();
    expectEveryEnumeratorNamed<aidl::android::hardware::graphics::allocator::AllocationError>();

    // Shared values print the first declared name; unknown values print as numbers.
    EXPECT_EQ(toString(common::BufferUsage::CPU_WRITE_NEVER), "CPU_READ_NEVER");
    EXPECT_EQ(toString(common::Dataspace::DISPLAY_P3_LINEAR), "DCI_P3_LINEAR");
    EXPECT_EQ(toString(static_cast<common::PixelFormat>(0x7777)), "30583");
    EXPECT_EQ(toString(static_cast<common::BufferUsage>(-2)), "-2");

    // Each standard metadata type's value is its index among the enumerators.
    const auto& types = ndk::internal::enum_values<StandardMetadataType>;
    for (size_t i = 0; i < types.size(); ++i) EXPECT_EQ(static_cast<size_t>(types[i]), i);

    using Name = StandardMetadata<StandardMetadataType::NAME>::value;
    using Layouts = StandardMetadata<StandardMetadataType::PLANE_LAYOUTS>::value;
    using Hdr10Plus = StandardMetadata<StandardMetadataType::SMPTE2094_40>::value;
    static_assert(std::is_same_v<decltype(&Name::encode),
                                 int32_t (*)(const std::string_view&, void*, size_t)>);
    static_assert(std::is_same_v<decltype(&Layouts::encode),
                                 int32_t (*)(std::vector<common::PlaneLayout>, void*, size_t)>);
    static_assert(std::is_same_v<decltype(&Hdr10Plus::encode),
                                 int32_t (*)(std::optional<std::vector<uint8_t>>, void*, size_t)>);
}

TEST(MetadataEncodingTest, StandardComponentTypeIsAPrefixMatch) {
    const std::pair<const char*, bool> cases[] = {
            {"android.hardware.graphics.common.PlaneLayoutComponentType", true},
            {"", true},
            {"android", true},
            {"android.hardware.graphics.common.PlaneLayoutComponentTypeX", false},
            {"vendor", false},
    };
    for (const auto& [name, standard] : cases) {
        EXPECT_EQ(android::gralloc4::isStandardPlaneLayoutComponentType({name, 99}), standard)
                << name;
    }
}

TEST(MetadataEncodingTest, Nv21PlaneLayoutsMatchThePlatformBytes) {
    const auto expected = hex(R"(
        35 00 00 00 00 00 00 00 61 6e 64 72 6f 69 64 2e 68 61 72 64 77 61 72 65 2e 67 72 61 70 68 69 63
        73 2e 63 6f 6d 6d 6f 6e 2e 53 74 61 6e 64 61 72 64 4d 65 74 61 64 61 74 61 54 79 70 65 0f 00 00
        00 00 00 00 00 02 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 39 00 00 00 00 00 00 00 61 6e 64
        72 6f 69 64 2e 68 61 72 64 77 61 72 65 2e 67 72 61 70 68 69 63 73 2e 63 6f 6d 6d 6f 6e 2e 50 6c
        61 6e 65 4c 61 79 6f 75 74 43 6f 6d 70 6f 6e 65 6e 74 54 79 70 65 01 00 00 00 00 00 00 00 00 00
        00 00 00 00 00 00 08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 08 00 00 00 00 00 00 00 80 07
        00 00 00 00 00 00 80 07 00 00 00 00 00 00 38 04 00 00 00 00 00 00 00 a4 1f 00 00 00 00 00 01 00
        00 00 00 00 00 00 01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 39 00 00 00 00 00 00 00 61 6e
        64 72 6f 69 64 2e 68 61 72 64 77 61 72 65 2e 67 72 61 70 68 69 63 73 2e 63 6f 6d 6d 6f 6e 2e 50
        6c 61 6e 65 4c 61 79 6f 75 74 43 6f 6d 70 6f 6e 65 6e 74 54 79 70 65 04 00 00 00 00 00 00 00 00
        00 00 00 00 00 00 00 08 00 00 00 00 00 00 00 39 00 00 00 00 00 00 00 61 6e 64 72 6f 69 64 2e 68
        61 72 64 77 61 72 65 2e 67 72 61 70 68 69 63 73 2e 63 6f 6d 6d 6f 6e 2e 50 6c 61 6e 65 4c 61 79
        6f 75 74 43 6f 6d 70 6f 6e 65 6e 74 54 79 70 65 02 00 00 00 00 00 00 00 08 00 00 00 00 00 00 00
        08 00 00 00 00 00 00 00 00 a4 1f 00 00 00 00 00 10 00 00 00 00 00 00 00 80 07 00 00 00 00 00 00
        c0 03 00 00 00 00 00 00 1c 02 00 00 00 00 00 00 00 d2 0f 00 00 00 00 00 02 00 00 00 00 00 00 00
        02 00 00 00 00 00 00 00)");
    ASSERT_EQ(expected.size(), 488u);

    // Ask the mapper library itself, as any client of the buffer would.
    void* library = android_load_sphal_library("mapper.zyncamsim.so", RTLD_NOW);
    ASSERT_NE(library, nullptr);
    auto load = reinterpret_cast<AIMapper_Error (*)(AIMapper**)>(
            dlsym(library, "AIMapper_loadIMapper"));
    AIMapper* m = nullptr;
    ASSERT_EQ(load(&m), AIMAPPER_ERROR_NONE);
    native_handle_t* raw = zyncam::sim::createRawBuffer(1920, 1080, kNV21, kCpuReadOften);
    buffer_handle_t buffer = nullptr;
    ASSERT_EQ(m->v5.importBuffer(raw, &buffer), AIMAPPER_ERROR_NONE);
    std::vector<uint8_t> actual(1024);
    const int32_t size = m->v5.getStandardMetadata(
            buffer, static_cast<int64_t>(StandardMetadataType::PLANE_LAYOUTS), actual.data(),
            actual.size());
    ASSERT_EQ(size, 488);
    actual.resize(size);
    EXPECT_EQ(actual, expected);
    m->v5.freeBuffer(buffer);
    native_handle_close(raw);
    native_handle_delete(raw);
}

TEST(MapperMetadataTest, HdrMetadataIsSharedBetweenImports) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kP010, kCpuReadWrite);
    const native_handle* second = nullptr;
    ASSERT_EQ(mapper().importBuffer(buffer.get(), &second), 0);

    float smpte[10] = {0.708f, 0.292f, 0.17f, 0.797f, 0.131f, 0.046f, 0.3127f, 0.329f, 1000, 0.01f};
    float cta[2] = {1000, 400};
    std::vector<uint8_t> hdr10p(224);
    for (size_t i = 0; i < hdr10p.size(); ++i) hdr10p[i] = static_cast<uint8_t>(i);
    EXPECT_EQ(mapper().setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2086, smpte, 40),
              0);
    EXPECT_EQ(mapper().setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_CTA861_3, cta, 8), 0);
    EXPECT_EQ(mapper().setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_40, &hdr10p,
                                      12345),
              0);

    float smpteBack[10] = {};
    float ctaBack[2] = {};
    uint8_t hdr10pBack[224] = {};
    EXPECT_EQ(mapper().getGrallocMeta(second, GRALLOC_STANDARD_METADATA_SMPTE2086, smpteBack, 40),
              0);
    EXPECT_EQ(mapper().getGrallocMeta(second, GRALLOC_STANDARD_METADATA_CTA861_3, ctaBack, 8), 0);
    EXPECT_EQ(mapper().getGrallocMeta(second, GRALLOC_STANDARD_METADATA_SMPTE2094_40, hdr10pBack,
                                      224),
              0);
    EXPECT_EQ(memcmp(smpte, smpteBack, 40), 0);
    EXPECT_EQ(memcmp(cta, ctaBack, 8), 0);
    EXPECT_EQ(memcmp(hdr10p.data(), hdr10pBack, 224), 0);

    std::vector<uint8_t> dolby = {0xde, 0xad};
    EXPECT_EQ(mapper().setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_10, &dolby,
                                      0),
              0);
    // Dolby Vision metadata is written but cannot be read through this call.
    uint8_t untouched[4] = {1, 2, 3, 4};
    EXPECT_EQ(mapper().getGrallocMeta(second, GRALLOC_STANDARD_METADATA_SMPTE2094_10, untouched, 4),
              0);
    EXPECT_EQ(untouched[0], 1);
    auto stored = MapperMetadata::getStandardMetadata<StandardMetadataType::SMPTE2094_40>(mapper(),
                                                                                          second);
    ASSERT_TRUE(stored && *stored);
    EXPECT_EQ((*stored)->size(), 224u);
    mapper().freeBuffer(second);
}

TEST(MapperMetadataTest, ArgumentChecks) {
    testkit::SimFaults faults;
    testkit::LogCapture log;
    Buffer buffer(64, 48, kNV21, kCpuReadWrite);
    float record[10] = {7, 7, 7, 7, 7, 7, 7, 7, 7, 7};
    struct Case {
        const native_handle* buffer;
        GRALLOC_STANDARD_METADATA_TYPE type;
        void* data;
        unsigned int size;
        int32_t result;
        const char* line;  // nullptr: no line
    };
    const Case cases[] = {
            {nullptr, GRALLOC_STANDARD_METADATA_SMPTE2086, nullptr, 40, 2, "Null buffer handle"},
            {buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2086, nullptr, 40, 3,
             "Null data pointer"},
            {buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2086, record, 39, 3,
             "data_size(39) != struct size of Smpte2086(40)"},
            {buffer.get(), GRALLOC_STANDARD_METADATA_CTA861_3, record, 40, 3,
             "data_size(40) != struct size of Cta861_3(8)"},
            {buffer.get(), static_cast<GRALLOC_STANDARD_METADATA_TYPE>(7), record, 1, 0, nullptr},
            {buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2086, record, 40, 0, nullptr},
    };
    for (const auto& c : cases) {
        log.clear();
        EXPECT_EQ(mapper().getGrallocMeta(c.buffer, c.type, c.data, c.size), c.result);
        EXPECT_EQ(log.has(c.line ? c.line : "[getGrallocMeta]"), c.line != nullptr);
        if (c.line) {
            EXPECT_TRUE(log.has(std::string("[getGrallocMeta] ") + c.line));
        }
        log.clear();
        if (c.type != GRALLOC_STANDARD_METADATA_SMPTE2086 || c.size == 40) {
            EXPECT_EQ(mapper().setGrallocMeta(c.buffer, c.type, c.data, c.size), c.result);
        }
    }
    // A buffer without SMPTE2086 leaves the caller's record as it was.
    float fresh[10] = {7, 7, 7, 7, 7, 7, 7, 7, 7, 7};
    Buffer other(64, 48, kNV21, kCpuReadWrite);
    EXPECT_EQ(mapper().getGrallocMeta(other.get(), GRALLOC_STANDARD_METADATA_SMPTE2086, fresh, 40),
              0);
    EXPECT_EQ(fresh[0], 7);
    uint8_t hdr[224] = {};
    EXPECT_EQ(
            mapper().getGrallocMeta(other.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_40, hdr, 100),
            3);
    EXPECT_TRUE(log.has("data_size(100) != struct size of ge_hdr10p_dynamic_metadata_t(224)"));
}

TEST(MapperMetadataTest, ReadsOfUnusualAnswers) {
    testkit::SimFaults faults;
    testkit::LogCapture log;
    Buffer buffer(64, 48, kNV21, kCpuReadWrite);
    std::vector<uint8_t> big(600, 0x42);
    EXPECT_EQ(MapperMetadata::setStandardMetadata<StandardMetadataType::SMPTE2094_40>(
                      mapper(), buffer.get(), big),
              0);
    auto before = zyncam::sim::counters().metadataGets;
    auto value = MapperMetadata::getStandardMetadata<StandardMetadataType::SMPTE2094_40>(
            mapper(), buffer.get());
    EXPECT_EQ(zyncam::sim::counters().metadataGets, before + 2);
    ASSERT_TRUE(value && *value);
    EXPECT_EQ(**value, big);

    before = zyncam::sim::counters().metadataGets;
    EXPECT_TRUE(MapperMetadata::getStandardMetadata<StandardMetadataType::CTA861_3>(mapper(),
                                                                                    buffer.get()));
    EXPECT_EQ(zyncam::sim::counters().metadataGets, before + 1);

    log.clear();
    zyncam::sim::setMetadataAnswer(20, -7);
    EXPECT_FALSE(MapperMetadata::getStandardMetadata<StandardMetadataType::CTA861_3>(mapper(),
                                                                                     buffer.get()));
    EXPECT_TRUE(log.android().empty());
    zyncam::sim::setMetadataAnswer(20, -3);
    EXPECT_FALSE(MapperMetadata::getStandardMetadata<StandardMetadataType::CTA861_3>(mapper(),
                                                                                     buffer.get()));
    EXPECT_TRUE(
            log.has("[getStandardMetadata] Received something other than UNSUPPORTED from "
                    "valid getStandardMetadata call (getStandardMetadata){#"));
    zyncam::sim::setMetadataAnswer(15, -2);
    std::vector<common::PlaneLayout> layouts(3);
    EXPECT_EQ(mapper().getPlaneLayouts(buffer.get(), &layouts), 3);
    EXPECT_EQ(layouts.size(), 3u);
}

TEST(MapperMetadataTest, DynamicPayloadDumpFollowsOwnLogLevel) {
    testkit::SimFaults faults;
    (void)mapper();  // the shared adapter keeps its own level of 0
    testkit::ScopedProperty level("debug.zyncam.utils.gralloc.loglevel", "1");
    NSCam::GrallocMapperAidlV2::MapperV5 verbose(
            NSCam::GrallocAllocatorAidlV2::AllocatorAidl::createInstance());
    testkit::LogCapture log;
    Buffer buffer(64, 48, kNV21, kCpuReadWrite);
    std::vector<uint8_t> payload = {0x05, 0x80};
    EXPECT_EQ(verbose.setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_40, &payload,
                                     0),
              0);
    EXPECT_TRUE(log.has("[setGrallocMeta] HDR10P GrallocMeta Dynamic: 00000101 10000000"));
    EXPECT_EQ(verbose.setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_10, &payload,
                                     0),
              0);
    EXPECT_TRUE(log.has("[setGrallocMeta] Set Dolby GrallocMeta Dynamic: 00000101 10000000"));
    log.clear();
    EXPECT_EQ(mapper().setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_40,
                                      &payload, 0),
              0);
    EXPECT_FALSE(log.has("Dynamic:"));  // own level 0
}

// The mapper accepts HDR10+ payloads longer than the extension's 224-byte record; reading one
// back fills the record and nothing after it.
TEST(MapperMetadataTest, LongHdr10PlusPayloadStaysInsideTheRecord) {
    testkit::SimFaults faults;
    testkit::LogCapture log;
    Buffer buffer(64, 48, kNV21, kCpuReadWrite);
    constexpr size_t kRecordSize = 224;
    constexpr uint8_t kGuardByte = 0xEE;
    for (size_t payloadSize : {kRecordSize, size_t{300}}) {
        SCOPED_TRACE(payloadSize);
        log.clear();
        std::vector<uint8_t> payload(payloadSize);
        for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 7);
        ASSERT_EQ(mapper().setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_40,
                                          &payload, 0),
                  AIMAPPER_ERROR_NONE);
        // The record, then a guard region that must come back untouched.
        std::vector<uint8_t> memory(kRecordSize + payloadSize, kGuardByte);
        EXPECT_EQ(mapper().getGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_40,
                                          memory.data(), kRecordSize),
                  AIMAPPER_ERROR_NONE);
        EXPECT_TRUE(std::equal(payload.begin(), payload.begin() + kRecordSize, memory.begin()));
        EXPECT_EQ(std::count(memory.begin() + kRecordSize, memory.end(), kGuardByte),
                  static_cast<ptrdiff_t>(payloadSize));
        EXPECT_EQ(log.has("[getGrallocMeta] payload size(300) > struct size of "
                          "ge_hdr10p_dynamic_metadata_t(224) (getGrallocMeta){#"),
                  payloadSize > kRecordSize);
    }
}

}  // namespace
