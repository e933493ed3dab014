// Device profiles of the simulated gralloc: refusing bad ones, choosing one, the shipped ones,
// exact answers, and the allocator's limits.
#include <aidl/android/hardware/graphics/allocator/AllocationError.h>
#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>
#include <gralloc_extra.h>
#include <json/reader.h>
#include <json/writer.h>
#include <stdlib.h>
#include <utils/Errors.h>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>

#include <zyncam_host/Platform.h>
#include <zyncam_host/ProfileFormat.h>
#include <zyncam_host/SimGralloc.h>

#include "GrallocFormats.h"
#include "GrallocHelperInternal.h"
#include "Profile.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"
#include "mapper/MapperMetadata.h"

namespace {

namespace common = aidl::android::hardware::graphics::common;
using aidl::android::hardware::graphics::allocator::AllocationError;
using aidl::android::hardware::graphics::allocator::AllocationResult;
using aidl::android::hardware::graphics::allocator::BufferDescriptorInfo;
using GrallocAidlV2::GrallocHelperAidlV2Imp;
using NSCam::GrallocAllocatorAidlV2::AllocatorAidl;
using zyncam::profile::ExactAnswer;

const std::string kProfiles = ZYNCAM_PROFILES_DIR;
const std::vector<std::string> kShipped = {"default", "soc-a64", "soc-b128"};

constexpr int kAndroidLogWarn = 5;
constexpr int32_t fmt(common::PixelFormat format) {
    return static_cast<int32_t>(format);
}
constexpr uint64_t bits(common::BufferUsage usage) {
    return static_cast<uint64_t>(usage);
}
constexpr uint64_t kUsageProtected = bits(common::BufferUsage::PROTECTED);
constexpr uint64_t kCpuReadOften = bits(common::BufferUsage::CPU_READ_OFTEN);
constexpr uint64_t kGpuTexture = bits(common::BufferUsage::GPU_TEXTURE);
constexpr int32_t kNv12 = zcam::kPixelFormatNV12;
constexpr int32_t kNV21 = fmt(common::PixelFormat::YCRCB_420_SP);
constexpr int32_t kRaw10 = fmt(common::PixelFormat::RAW10);
constexpr int32_t kOpaque = fmt(common::PixelFormat::IMPLEMENTATION_DEFINED);
constexpr int32_t kY8 = fmt(common::PixelFormat::Y8);
constexpr int32_t kY16 = fmt(common::PixelFormat::Y16);
// The helper cannot derive them.
constexpr int32_t kRgbx8888 = fmt(common::PixelFormat::RGBX_8888);
constexpr int32_t kYCbCr422Sp = fmt(common::PixelFormat::YCBCR_422_SP);
constexpr int kFullHd = 1920 * 1080;

// Slow-motion batch formats: YCrCb_420_SP frames, and AFBC NV12 frames.
bool isLinearBatch(int32_t format) {
    return format >= 0x2600 && format <= 0x2604;
}
bool isBatch(int32_t format) {
    return isLinearBatch(format) || (format >= 0x2610 && format <= 0x2614);
}
bool isRaw(int32_t format) {
    return format == 0x20 || format == 0x24 || format == 0x25;
}

// Every format a shipped profile lays out, by request: every format the library names (the
// concrete ones and the flexible ones) and the vendor batch formats.
const std::vector<int32_t> kRequestFormats = [] {
    std::vector<int32_t> formats;
    for (const zcam::PixelFormatInfo& info : zcam::pixelFormatTable())
        formats.push_back(info.format);
    for (int32_t batch = zcam::kPixelFormatSmvrBatch2; batch <= zcam::kPixelFormatSmvrBatch32;
         ++batch) {
        formats.push_back(batch);
    }
    for (int32_t batch = zcam::kPixelFormatSmvrBatchCompressed2;
         batch <= zcam::kPixelFormatSmvrBatchCompressed32; ++batch) {
        formats.push_back(batch);
    }
    return formats;
}();

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

Json::Value parse(const std::string& text) {
    Json::Value root;
    std::istringstream in(text);
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &root, nullptr));
    return root;
}

std::string write(const Json::Value& root) {
    return Json::writeString(Json::StreamWriterBuilder(), root);
}

Json::Value defaultProfile() {
    return parse(readFile(kProfiles + "/default.json"));
}

// What the gralloc extension and the mapper report for a buffer, as an exact answer would.
ExactAnswer observe(const native_handle* buffer) {
    ExactAnswer a;
    auto query = [&](GRALLOC_EXTRA_ATTRIBUTE_QUERY attribute, auto* out) {
        EXPECT_EQ(gralloc_extra_query(buffer, attribute, out), 0) << attribute;
    };
    query(GRALLOC_EXTRA_GET_FORMAT, &a.format);
    query(GRALLOC_EXTRA_GET_WIDTH, &a.width);
    query(GRALLOC_EXTRA_GET_HEIGHT, &a.height);
    query(GRALLOC_EXTRA_GET_STRIDE, &a.stride);
    query(GRALLOC_EXTRA_GET_VERTICAL_STRIDE, &a.verticalStride);
    query(GRALLOC_EXTRA_GET_ALLOC_SIZE, &a.allocSize);
    query(GRALLOC_EXTRA_GET_USAGE, &a.usage);
    query(GRALLOC_EXTRA_GET_CONSUMER_USAGE, &a.consumerUsage);
    query(GRALLOC_EXTRA_GET_PRODUCER_USAGE, &a.producerUsage);
    GrallocExtraSfInfo sf{};
    query(GRALLOC_EXTRA_GET_SF_INFO, &sf);
    a.sfStatus = sf.status;
    auto layouts = NSCam::GrallocMapperAidlV2::MapperMetadata::getStandardMetadata<
            common::StandardMetadataType::PLANE_LAYOUTS>(testkit::mapper(), buffer);
    if (layouts) {
        using Encoding = android::hardware::graphics::mapper::StandardMetadata<
                common::StandardMetadataType::PLANE_LAYOUTS>::value;
        std::vector<uint8_t> bytes(Encoding::encode(*layouts, nullptr, 0));
        EXPECT_EQ(Encoding::encode(*layouts, bytes.data(), bytes.size()),
                  static_cast<int32_t>(bytes.size()));
        a.planeLayouts = bytes;
    }
    return a;
}

// allocate2 straight at the service: the AllocationError, or 0 with the stride.
int32_t allocate2(int32_t w, int32_t h, int32_t format, uint64_t usage, int32_t layers = 1,
                  int32_t* stride = nullptr) {
    static auto service = AllocatorAidl::createInstance();
    BufferDescriptorInfo d;
    d.width = w;
    d.height = h;
    d.layerCount = layers;
    d.format = static_cast<common::PixelFormat>(format);
    d.usage = static_cast<common::BufferUsage>(usage);
    AllocationResult result;
    ndk::ScopedAStatus status = service->allocate2(d, 1, &result);
    if (!status.isOk()) return status.getServiceSpecificError();
    if (stride != nullptr) *stride = result.stride;
    return 0;
}

// An answer for a small RGBA request, laid out by the format's rule.
ExactAnswer rgbaAnswer() {
    ExactAnswer a;
    a.request = {64, 64, 0x1, 0x3, 1};
    a.format = 0x1;
    a.width = a.height = 64;
    return a;
}

// An exact answer for a 64x64 YCrCb_420_SP buffer, as the simulator lays it out, with `edit`
// applied to its plane layouts.
ExactAnswer nv21Answer(const std::function<void(std::vector<common::PlaneLayout>&)>& edit) {
    testkit::Buffer buffer(64, 64, 0x11, 0x3);
    ExactAnswer a = observe(buffer.get());
    a.request = {64, 64, 0x11, 0x3, 1};
    using Encoding = android::hardware::graphics::mapper::StandardMetadata<
            common::StandardMetadataType::PLANE_LAYOUTS>::value;
    auto layouts = *Encoding::decode(a.planeLayouts->data(), a.planeLayouts->size());
    edit(layouts);
    a.planeLayouts->resize(Encoding::encode(layouts, nullptr, 0));
    EXPECT_EQ(Encoding::encode(layouts, a.planeLayouts->data(), a.planeLayouts->size()),
              static_cast<int32_t>(a.planeLayouts->size()));
    return a;
}

struct BadProfile {
    const char* what;
    std::function<void(Json::Value&)> edit;  // applied to default.json
    std::string error;                       // the whole line, after "bad.json: "
};

TEST(ProfileLoadTest, BadProfilesAreRefusedWithFileFieldAndReason) {
    const std::string kFile = "bad.json";
    const std::string kUnlockable =
            "a YCbCr lock cannot present this plane: every component at a whole byte, Y in 8-bit "
            "samples, CB and CR once each in 8-bit samples 8 or 16 bits apart on one stride";
    const BadProfile cases[] = {
            {"unknown field", [](Json::Value& p) { p["colour"] = 1; }, "colour: unknown field"},
            {"unknown nested field",
             [](Json::Value& p) { p["formats"]["NV12"]["strideAligment"] = 1; },
             "formats.NV12.strideAligment: unknown field"},
            {"negative alignment",
             [](Json::Value& p) {
                 p["formats"]["NV12"]["strideAlign"] = parse(R"({"bytes": -64})");
             },
             "formats.NV12.strideAlign.bytes: must be an integer from 1 to 4096, not -64"},
            {"both alignment units",
             [](Json::Value& p) {
                 p["formats"]["NV12"]["strideAlign"] = parse(R"({"bytes": 64, "pixels": 64})");
             },
             "formats.NV12.strideAlign: needs exactly one of \"pixels\" and \"bytes\""},
            {"missing format rule used by a request",
             [](Json::Value& p) { p["formats"].removeMember("YV12"); },
             "resolve[3].to: no rule for format YV12 in formats"},
            {"unknown format", [](Json::Value& p) { p["resolve"][1]["to"] = "NV21X"; },
             "resolve[1].to: unknown format \"NV21X\""},
            {"unknown usage", [](Json::Value& p) { p["resolve"][0]["usageAny"] = "PROTECTD"; },
             "resolve[0].usageAny: unknown usage \"PROTECTD\""},
            {"missing name", [](Json::Value& p) { p.removeMember("name"); }, "name: missing"},
            {"zero limit", [](Json::Value& p) { p["limits"]["maxWidth"] = 0; },
             "limits.maxWidth: must be an integer from 1 to 2147483647, not 0"},
            {"allocation limit beyond what a buffer can be",
             [](Json::Value& p) {
                 p["limits"]["maxAllocationSize"] =
                         Json::UInt64{zyncam::profile::kMaxAllocationCeiling + 1};
             },
             "limits.maxAllocationSize: must be an integer from 1 to 68719476736, not "
             "68719476737"},
            {"rows that do not split into the chroma plane",
             [](Json::Value& p) { p["formats"]["YCRCB_420_SP"]["rowAlign"] = 3; },
             "formats.YCRCB_420_SP.planes[1].verticalSubsampling: 2 does not divide rowAlign 3"},
            {"chroma stride not whole",
             [](Json::Value& p) {
                 p["formats"]["YV12"]["strideAlign"] = parse(R"({"pixels": 1})");
             },
             "formats.YV12.strideAlign: too small for a whole stride of plane 1"},
            {"pixel stride of a packed format",
             [](Json::Value& p) { p["formats"]["RAW10"]["strideUnit"] = "pixels"; },
             "formats.RAW10.bitsPerPixel: a stride counted in pixels needs whole bytes per pixel"},
            {"a component of no bits",
             [](Json::Value& p) { p["formats"]["RAW10"]["planes"][0]["components"][0][2] = 0; },
             "formats.RAW10.planes[0].components[0][2]: must be -1 (variable) or at least 1"},
            {"subsampled first plane",
             [](Json::Value& p) { p["formats"]["Y8"]["planes"][0]["verticalSubsampling"] = 2; },
             "formats.Y8.planes[0]: the first plane cannot be subsampled"},
            {"a format defined twice",
             [](Json::Value& p) { p["formats"]["0x1000"] = p["formats"]["NV12"]; },
             "formats.NV12: format NV12 has a rule already"},
            // Any platform format goes by its PixelFormat name, in any case.
            {"a platform format by number and by name",
             [](Json::Value& p) {
                 p["formats"]["0x38"] = p["formats"]["Y8"];
                 p["formats"]["r_8"] = p["formats"]["Y8"];
             },
             "formats.r_8: format R_8 has a rule already"},
            {"compressed batch without compression", [](Json::Value& p) { p.removeMember("afbc"); },
             "resolve[12].afbc: needs an \"afbc\" section"},
            {"no frames", [](Json::Value& p) { p["resolve"][7]["frames"] = 0; },
             "resolve[7].frames: must be an integer from 1 to 255, not 0"},
            {"slow-motion rows that do not split",
             [](Json::Value& p) { p["slowMotion"]["rowAlign"] = 5; },
             "slowMotion.formats[0]: 5 rows do not split into the planes of YCRCB_420_SP"},
            {"a rule refusing everything", [](Json::Value& p) { p["unsupported"] = parse("[{}]"); },
             "unsupported[0]: refuses every request; name a format or usage bits"},
            {"plane layouts that are not an encoding",
             [](Json::Value& p) {
                 Json::Value e = zyncam::profile::toJson(rgbaAnswer());
                 e["planeLayouts"] = "00ff";
                 p["exact"].append(e);
             },
             "exact[0].planeLayouts: not an encoding of PLANE_LAYOUTS"},
            {"two answers for one request",
             [](Json::Value& p) {
                 p["exact"].append(zyncam::profile::toJson(rgbaAnswer()));
                 p["exact"].append(zyncam::profile::toJson(rgbaAnswer()));
             },
             "exact[1].request: the same request as exact[0]"},
            {"an exact answer of no size",
             [](Json::Value& p) {
                 Json::Value e = zyncam::profile::toJson(rgbaAnswer());
                 e["height"] = 0;
                 p["exact"].append(e);
             },
             "exact[0]: width and height must be positive, stride and verticalStride not "
             "negative"},
            {"more exact answers than a profile may hold",
             [](Json::Value& p) {
                 for (size_t i = 0; i <= zyncam::profile::kMaxExactAnswers; ++i) {
                     ExactAnswer a = rgbaAnswer();
                     a.request.width = a.width = static_cast<int32_t>(1 + i);
                     p["exact"].append(zyncam::profile::toJson(a));
                 }
             },
             "exact: more than 4096 answers"},
            {"a profile larger than a profile may be",
             [](Json::Value& p) {
                 p["description"] = std::string(zyncam::profile::kMaxProfileBytes, 'x');
             },
             "more than 4194304 bytes"},
            {"YV12 chroma a YCbCr lock cannot present",
             [](Json::Value& p) { p["formats"]["YV12"]["planes"][2]["sampleIncrementInBits"] = 6; },
             "formats.YV12.planes[2]: " + kUnlockable},
            {"YCrCb_420_SP with two luma planes",
             [](Json::Value& p) {
                 p["formats"]["YCRCB_420_SP"]["planes"][1]["components"][0][0] = "Y";
             },
             "formats.YCRCB_420_SP.planes[1]: " + kUnlockable},
            {"YCrCb_420_SP with a component off a whole byte",
             [](Json::Value& p) {
                 p["formats"]["YCRCB_420_SP"]["planes"][0]["components"].append(
                         parse(R"(["A", 4, 4])"));
             },
             "formats.YCRCB_420_SP.planes[0]: " + kUnlockable},
            {"an exact YCrCb_420_SP answer whose chroma a YCbCr lock cannot present",
             [](Json::Value& p) {
                 p["exact"].append(zyncam::profile::toJson(
                         nv21Answer([](auto& layouts) { layouts[1].sampleIncrementInBits = 24; })));
             },
             "exact[0].planeLayouts: " + kUnlockable},
            // Any standard component type, even one no format uses, is placed by the lock.
            {"an exact YCrCb_420_SP answer with a component off a whole byte",
             [](Json::Value& p) {
                 p["exact"].append(zyncam::profile::toJson(nv21Answer([](auto& layouts) {
                     layouts[0].components[0].type.value = int64_t{1} << 60;
                     layouts[0].components[0].offsetInBits = -6;
                 })));
             },
             "exact[0].planeLayouts: " + kUnlockable},
            {"a field name that would break the line",
             [](Json::Value& p) { p["odd\nname\x01"] = 1; }, "odd\\nname\\x01: unknown field"},
            {"an exact answer without its attributes",
             [](Json::Value& p) {
                 Json::Value e = zyncam::profile::toJson(rgbaAnswer());
                 e.removeMember("stride");
                 p["exact"].append(e);
             },
             "exact[0].stride: missing"},
    };
    const std::string before = zyncam::sim::profileSource();
    for (const BadProfile& c : cases) {
        SCOPED_TRACE(c.what);
        Json::Value p = defaultProfile();
        c.edit(p);
        std::string error;
        EXPECT_FALSE(zyncam::sim::loadProfileText(write(p), kFile, &error));
        EXPECT_EQ(error, kFile + ": " + c.error);
        EXPECT_EQ(zyncam::sim::profileSource(), before);  // the previous profile stays
    }

    std::string error;
    EXPECT_FALSE(zyncam::sim::loadProfileText("{\"name\": \"x\",\n}", kFile, &error));
    EXPECT_EQ(error, kFile + ": line 2, column 1: Missing '}' or object member name");
    EXPECT_FALSE(zyncam::sim::loadProfileText("{\"name\": 1, \"name\": 2}", kFile, &error));
    EXPECT_EQ(error, kFile + ": line 1, column 13: Duplicate key: 'name'");
    // The JSON reader throws on deep nesting; it is one more refusal.
    const std::string deep = "{\"name\": " + std::string(1001, '[') + std::string(1001, ']') + "}";
    EXPECT_FALSE(zyncam::sim::loadProfileText(deep, kFile, &error));
    EXPECT_EQ(error, kFile + ": nested more than 1000 levels deep");
    EXPECT_FALSE(zyncam::sim::loadProfile("/nonexistent/soc.json", &error));
    EXPECT_EQ(error, "/nonexistent/soc.json: cannot be read");
    // A file without end is read no further than the limit, as the profile or as its base.
    EXPECT_FALSE(zyncam::sim::loadProfile("/dev/zero", &error));
    EXPECT_EQ(error, "/dev/zero: more than 4194304 bytes");
    EXPECT_FALSE(zyncam::sim::loadProfileText(R"({"extends": "/dev/zero"})", kFile, &error));
    EXPECT_EQ(error, "/dev/zero: more than 4194304 bytes");
    EXPECT_EQ(zyncam::sim::profileSource(), before);
    // The simulator still allocates with the profile in force.
    testkit::Buffer buffer(640, 480, kNV21, kCpuReadOften);
    EXPECT_NE(buffer.get(), nullptr);
}

TEST(ProfileLoadTest, ScopedProfileRestoresThePreviousOne) {
    EXPECT_EQ(zyncam::sim::profileName(), "default");
    int32_t stride = 0;
    {
        testkit::ScopedProfile a64(kProfiles + "/soc-a64.json");
        EXPECT_EQ(zyncam::sim::profileName(), "soc-a64");
        EXPECT_EQ(zyncam::sim::profileSource(), kProfiles + "/soc-a64.json");
        ASSERT_EQ(allocate2(100, 100, kY8, kCpuReadOften, 1, &stride), 0);
        EXPECT_EQ(stride, 128);  // Y8 aligned to 64 bytes
        {
            testkit::ScopedProfile b128(kProfiles + "/soc-b128.json");
            ASSERT_EQ(allocate2(100, 100, kY8, kCpuReadOften, 1, &stride), 0);
            EXPECT_EQ(stride, 128);
            ASSERT_EQ(allocate2(200, 100, kY8, kCpuReadOften, 1, &stride), 0);
            EXPECT_EQ(stride, 256);
        }
        EXPECT_EQ(zyncam::sim::profileName(), "soc-a64");
    }
    EXPECT_EQ(zyncam::sim::profileName(), "default");
    ASSERT_EQ(allocate2(100, 100, kY8, kCpuReadOften, 1, &stride), 0);
    EXPECT_EQ(stride, 112);  // 16-pixel alignment
}

// A captured profile names the profile whose rules answer what it did not capture.
TEST(ProfileLoadTest, AProfileExtendsAnother) {
    int32_t stride = 0;
    ExactAnswer captured = rgbaAnswer();
    captured.stride = 80;
    Json::Value capture;
    capture["name"] = "capture";
    capture["extends"] = "default";
    capture["exact"].append(zyncam::profile::toJson(captured));
    {
        testkit::ScopedProfile profile(write(capture), "capture.json");
        EXPECT_EQ(zyncam::sim::profileName(), "capture");
        ASSERT_EQ(allocate2(64, 64, fmt(common::PixelFormat::RGBA_8888), kCpuReadOften, 1, &stride),
                  0);
        EXPECT_EQ(stride, 80);
        ASSERT_EQ(allocate2(100, 100, kY8, kCpuReadOften, 1, &stride), 0);
        EXPECT_EQ(stride, 112);  // the built-in rules
    }

    // A file beside it, with one format replaced.
    testkit::ScratchFolder folder;
    const std::string dir = folder.path();
    Json::Value a64 = parse(readFile(kProfiles + "/soc-a64.json"));
    a64["formats"]["RGBA_8888"]["colour"] = 1;
    std::ofstream(dir + "/broken-a64.json") << write(a64);
    Json::Value child;
    child["extends"] = kProfiles + "/soc-a64.json";
    child["formats"]["Y8"] = parse(R"({"strideAlign": {"pixels": 256}, "planes": [
            {"components": [["Y", 0, 8]], "sampleIncrementInBits": 8}]})");
    {
        testkit::ScopedProfile profile(write(child), dir + "/child.json");
        EXPECT_EQ(zyncam::sim::profileName(), "soc-a64");
        ASSERT_EQ(allocate2(100, 100, kY8, kCpuReadOften, 1, &stride), 0);
        EXPECT_EQ(stride, 256);
        ASSERT_EQ(allocate2(100, 100, kY16, kCpuReadOften, 1, &stride), 0);
        EXPECT_EQ(stride, 128);  // Y16 as soc-a64 lays it out
    }

    // A base that is missing or refused is named in the error.
    std::string error;
    child["extends"] = "missing.json";
    EXPECT_FALSE(zyncam::sim::loadProfileText(write(child), dir + "/child.json", &error));
    EXPECT_EQ(error, dir + "/child.json: extends: " + dir + "/missing.json cannot be read");
    child["extends"] = "broken-a64.json";
    EXPECT_FALSE(zyncam::sim::loadProfileText(write(child), dir + "/child.json", &error));
    EXPECT_EQ(error, dir + "/broken-a64.json: formats.RGBA_8888.colour: unknown field");
}

// Sets an environment variable for the scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : mName(name) {
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnv() { unsetenv(mName); }

private:
    const char* mName;
};

TEST(ProfileLoadTest, TheEnvironmentChoosesTheStartUpProfile) {
    {
        ScopedEnv env(zyncam::sim::kProfileVariable, kProfiles + "/soc-b128.json");
        zyncam::sim::resetProfile();
        EXPECT_EQ(zyncam::sim::profileName(), "soc-b128");
    }
    zyncam::sim::resetProfile();
    EXPECT_EQ(zyncam::sim::profileName(), "default");
    EXPECT_EQ(zyncam::sim::profileSource(), "default.json (built in)");
    EXPECT_EQ(zyncam::sim::builtInProfileJson(), readFile(kProfiles + "/default.json"));
}

// The simulator starts from rules generated at build time; they are the built-in text's.
TEST(ProfileLoadTest, TheGeneratedBuiltInRulesAreTheParsedOnes) {
    std::string error;
    const auto parsed = zyncam::sim::parseProfile(zyncam::sim::kBuiltInProfile,
                                                  zyncam::sim::kBuiltInProfileSource, &error);
    ASSERT_NE(parsed, nullptr) << error;
    const zyncam::sim::Profile generated = zyncam::sim::builtInProfileRules();
    EXPECT_EQ(generated.formats, parsed->formats);
    EXPECT_EQ(generated.resolve, parsed->resolve);
    EXPECT_EQ(generated.unsupported, parsed->unsupported);
    EXPECT_EQ(generated.afbc, parsed->afbc);
    EXPECT_EQ(generated.slowMotion, parsed->slowMotion);
    EXPECT_TRUE(generated == *parsed);
}

TEST(ProfileLoadDeathTest, ABadStartUpProfileEndsTheProcess) {
    testkit::ScratchFolder folder;
    const std::string path = folder.path("unknown-field.json");
    Json::Value p = defaultProfile();
    p["formats"]["NV12"]["rowAlgn"] = 2;
    std::ofstream(path) << write(p);
    EXPECT_EXIT(
            {
                ScopedEnv env(zyncam::sim::kProfileVariable, path);
                zyncam::sim::resetProfile();
            },
            ::testing::ExitedWithCode(EXIT_FAILURE),
            "simulated gralloc: " + path + ": formats.NV12.rowAlgn: unknown field\n");
}

// Each shipped profile lays out ordinary buffers so that the helper finds every plane whole: no
// warning, and the mapper's planes follow each other and hold their rows.
TEST(ShippedProfileTest, OrdinaryBuffersPassEveryPlaneCheck) {
    const std::pair<int, int> sizes[] = {{1920, 1080}, {640, 480}, {4000, 3000}, {176, 144}};
    const int32_t usages[] = {0x3, 0x0, 0x60000, 0x10000, 0x900, 0x10000003};
    for (const std::string& name : kShipped) {
        testkit::ScopedProfile profile(kProfiles + "/" + name + ".json");
        testkit::SimFaults faults;
        GrallocHelperAidlV2Imp helper;
        testkit::LogCapture log;
        for (int32_t format : kRequestFormats) {
            for (auto [w, h] : sizes) {
                for (int32_t usage : usages) {
                    SCOPED_TRACE(::testing::Message() << name << " " << std::hex << format << " "
                                                      << usage << std::dec << " " << w << "x" << h);
                    // The helper measures a batch's chroma plane to the end of the last frame.
                    if (format == kRgbx8888 || format == kYCbCr422Sp || isLinearBatch(format) ||
                        (isBatch(format) && w * h > kFullHd)) {
                        continue;
                    }
                    zcam::GrallocRequest request{usage, format, w, h, 0};
                    zcam::GrallocStaticInfo info;
                    // The flagship SoC refuses RAW buffers for the GPU and the display.
                    const bool refused = name == "soc-b128" && isRaw(format) && (usage & 0x900);
                    ASSERT_EQ(helper.query(&request, &info, false), refused ? -12 : 0);
                }
            }
        }
        for (const testkit::AndroidLine& line : log.android()) {
            EXPECT_NE(line.prio, kAndroidLogWarn) << name << ": " << line.text;
        }
    }
}

TEST(ShippedProfileTest, PlanesFollowEachOtherAndHoldTheirRows) {
    for (const std::string& name : kShipped) {
        testkit::ScopedProfile profile(kProfiles + "/" + name + ".json");
        testkit::SimFaults faults;
        for (int32_t format : kRequestFormats) {
            if (isBatch(format)) continue;  // their planes describe one frame of several
            for (uint64_t usage : {uint64_t{0x3}, uint64_t{0x10000000}}) {
                SCOPED_TRACE(::testing::Message() << name << " " << std::hex << format);
                testkit::Buffer buffer(1280, 720, format, usage);
                ASSERT_NE(buffer.get(), nullptr);
                const ExactAnswer a = observe(buffer.get());
                const auto layouts = android::hardware::graphics::mapper::StandardMetadata<
                        common::StandardMetadataType::PLANE_LAYOUTS>::value::
                        decode(a.planeLayouts->data(), a.planeLayouts->size());
                ASSERT_TRUE(layouts);
                int64_t end = 0;
                for (const auto& plane : *layouts) {
                    EXPECT_EQ(plane.offsetInBytes, end);
                    EXPECT_EQ(plane.totalSizeInBytes,
                              plane.strideInBytes * (a.verticalStride / plane.verticalSubsampling));
                    end = plane.offsetInBytes + plane.totalSizeInBytes;
                }
                EXPECT_EQ(static_cast<uint64_t>(end), a.allocSize);
            }
        }
    }
}

// The profiles differ where a camera pipeline would notice.
TEST(ShippedProfileTest, ProfilesDifferInAlignmentResolutionAndRefusals) {
    struct Expected {
        int32_t nv21Rows;       // 1920x1080 YCrCb_420_SP
        int32_t rawStride;      // 4000x3000 RAW10, bytes
        int32_t previewFormat;  // IMPLEMENTATION_DEFINED for the GPU
        int32_t rawForGpu;      // RAW10 with GPU_TEXTURE
    };
    const std::pair<std::string, Expected> cases[] = {
            {"default", {1080, 5008, fmt(common::PixelFormat::YV12), 0}},
            {"soc-a64", {1088, 5056, kNV21, 0}},
            {"soc-b128", {1088, 5120, kNv12, static_cast<int32_t>(AllocationError::UNSUPPORTED)}},
    };
    for (const auto& [name, e] : cases) {
        SCOPED_TRACE(name);
        testkit::ScopedProfile profile(kProfiles + "/" + name + ".json");
        testkit::Buffer nv21(1920, 1080, kNV21, kCpuReadOften);
        EXPECT_EQ(observe(nv21.get()).verticalStride, e.nv21Rows);
        testkit::Buffer raw(4000, 3000, kRaw10, kCpuReadOften);
        EXPECT_EQ(observe(raw.get()).stride, e.rawStride);
        testkit::Buffer preview(1920, 1080, kOpaque, kGpuTexture);
        EXPECT_EQ(observe(preview.get()).format, e.previewFormat);
        EXPECT_EQ(allocate2(4000, 3000, kRaw10, kGpuTexture), e.rawForGpu);
    }
}

// Secure camera paths: the flexible formats become NV12, whose planes need no CPU lock.
TEST(ShippedProfileTest, ProtectedFlexibleFormatsResolveToNv12) {
    for (const std::string& name : kShipped) {
        testkit::ScopedProfile profile(kProfiles + "/" + name + ".json");
        testkit::SimFaults faults;
        GrallocHelperAidlV2Imp helper;
        for (int32_t format : {0x22, 0x23}) {
            SCOPED_TRACE(::testing::Message() << name << " " << std::hex << format);
            zcam::GrallocRequest request{static_cast<int32_t>(kUsageProtected | 0x60000), format,
                                         1920, 1080, 0};
            zcam::GrallocStaticInfo info;
            const uint64_t locks = zyncam::sim::counters().locks;
            ASSERT_EQ(helper.query(&request, &info, false), 0);
            EXPECT_EQ(info.format, kNv12);
            EXPECT_EQ(zyncam::sim::counters().locks, locks);
        }
    }
}

TEST(ExactAnswerTest, JsonRoundTripKeepsEveryField) {
    ExactAnswer a;
    a.request = {1920, 1080, 0x23, 0x60003, 1};
    a.format = 0x11;
    a.width = 1920;
    a.height = 1080;
    a.stride = 2048;
    a.verticalStride = 1088;
    a.allocSize = 3342336;
    a.usage = 0x60003;
    a.id = 0xFFFFFFFF00000001ull;
    a.consumerUsage = 0x40003;
    a.producerUsage = 0x20000;
    a.sfStatus = 0xA0400000u;
    a.planeLayouts = std::vector<uint8_t>{0x00, 0x7f, 0x80, 0xff};
    a.ycbcr = zyncam::profile::YCbCrOffsets{0, 2228225, 2228224, 2048, 2048, 2};

    const Json::Value v = zyncam::profile::toJson(a);
    EXPECT_EQ(v["planeLayouts"].asString(), "007f80ff");
    EXPECT_EQ(v["request"]["usage"].asUInt64(), 0x60003u);
    ExactAnswer back;
    std::string error;
    ASSERT_TRUE(zyncam::profile::fromJson(parse(write(v)), &back, &error)) << error;
    EXPECT_EQ(back, a);

    // Hand-written entries may use names and hex; a bad value names its field.
    Json::Value hand = v;
    hand["request"]["format"] = "YCbCr_420_888";
    hand["request"]["usage"] = "CAMERA_OUTPUT|CAMERA_INPUT|0x3";
    hand["format"] = "0x11";
    ASSERT_TRUE(zyncam::profile::fromJson(hand, &back, &error)) << error;
    EXPECT_EQ(back, a);
    hand["ycbcr"]["cstride"] = -1;
    EXPECT_FALSE(zyncam::profile::fromJson(hand, &back, &error));
    EXPECT_EQ(error, "ycbcr.cstride: must be an integer from 0 to 18446744073709551615, not -1");
}

// A profile's exact answer wins over its rules: the simulator reports it attribute for attribute,
// the mapper answers its plane layouts, and the helper lays the buffer out from them.
TEST(ExactAnswerTest, AnExactAnswerWinsOverTheRules) {
    testkit::SimFaults faults;
    const zyncam::profile::AllocationRequest request{1920, 1080, 0x11, 0x60003, 1};
    ExactAnswer a;
    {
        testkit::Buffer ruled(request.width, request.height, request.format, request.usage);
        EXPECT_FALSE(zyncam::sim::answeredFromExactTable(ruled.get()));
        a = observe(ruled.get());
    }
    // A device that pads rows to 2048 bytes and 1088 rows, and reports its own usages and status.
    a.request = request;
    a.stride = 2048;
    a.verticalStride = 1088;
    a.allocSize = 2048 * 1088 * 3 / 2;
    a.consumerUsage = 0x40003;
    a.producerUsage = 0x20000;
    a.sfStatus = 0x20000000;
    using Encoding = android::hardware::graphics::mapper::StandardMetadata<
            common::StandardMetadataType::PLANE_LAYOUTS>::value;
    auto layouts = *Encoding::decode(a.planeLayouts->data(), a.planeLayouts->size());
    ASSERT_EQ(layouts.size(), 2u);
    layouts[0].strideInBytes = layouts[1].strideInBytes = 2048;
    layouts[0].totalSizeInBytes = 2048 * 1088;
    layouts[1].offsetInBytes = 2048 * 1088;
    layouts[1].totalSizeInBytes = 2048 * 544;
    a.planeLayouts->resize(Encoding::encode(layouts, nullptr, 0));
    ASSERT_EQ(Encoding::encode(layouts, a.planeLayouts->data(), a.planeLayouts->size()),
              static_cast<int32_t>(a.planeLayouts->size()));

    Json::Value p = defaultProfile();
    p["exact"].append(zyncam::profile::toJson(a));
    testkit::ScopedProfile profile(write(p), "exact.json");
    {
        testkit::Buffer exact(request.width, request.height, request.format, request.usage);
        ASSERT_NE(exact.get(), nullptr);
        EXPECT_TRUE(zyncam::sim::answeredFromExactTable(exact.get()));
        ASSERT_NE(zyncam::sim::exactAnswerFor(request), nullptr);
        EXPECT_EQ(*zyncam::sim::exactAnswerFor(request), a);
        EXPECT_EQ(exact.stride(), 2048u);
        ExactAnswer seen = observe(exact.get());
        seen.request = request;
        EXPECT_EQ(seen, a);
        // Another usage is laid out by the rules.
        testkit::Buffer ruled(request.width, request.height, request.format, 0x20003);
        EXPECT_FALSE(zyncam::sim::answeredFromExactTable(ruled.get()));
        EXPECT_EQ(zyncam::sim::exactAnswerFor({1920, 1080, 0x11, 0x20003, 1}), nullptr);
        EXPECT_EQ(ruled.stride(), 1920u);
    }

    GrallocHelperAidlV2Imp helper;
    testkit::LogCapture log;
    zcam::GrallocRequest query{static_cast<int32_t>(kCpuReadOften), request.format, request.width,
                               request.height, 0};
    zcam::GrallocStaticInfo info;
    ASSERT_EQ(helper.query(&query, &info, false), 0);
    ASSERT_EQ(info.planes.size(), 2u);
    EXPECT_EQ(info.planes[0].rowStrideInBytes, 2048u);
    EXPECT_EQ(info.planes[0].sizeInBytes, 2048u * 1088);
    EXPECT_EQ(info.planes[1].sizeInBytes, 2048u * 544);
    EXPECT_FALSE(log.has("checkPlaneSize"));
}

// The limit counts the answers of the profile and of its base together.
TEST(ExactAnswerTest, AProfileHoldsAtMostTheLimitOfExactAnswers) {
    const size_t limit = zyncam::profile::kMaxExactAnswers;
    auto answers = [](size_t first, size_t count) {
        Json::Value list(Json::arrayValue);
        for (size_t i = first; i < first + count; ++i) {
            ExactAnswer a = rgbaAnswer();
            a.request.width = a.width = static_cast<int32_t>(1 + i);
            list.append(zyncam::profile::toJson(a));
        }
        return list;
    };
    Json::Value full = defaultProfile();
    full["exact"] = answers(0, limit);
    {
        testkit::ScopedProfile profile(write(full), "full.json");
        EXPECT_EQ(zyncam::sim::profileExactAnswerCount(), limit);
        EXPECT_NE(zyncam::sim::exactAnswerFor({static_cast<int32_t>(limit), 64, 0x1, 0x3, 1}),
                  nullptr);
    }
    testkit::ScratchFolder folder;
    full["exact"] = answers(0, limit - 1);
    std::ofstream(folder.path("base.json")) << write(full);
    Json::Value child;
    child["extends"] = "base.json";
    child["exact"] = answers(limit - 1, 2);
    std::string error;
    EXPECT_FALSE(zyncam::sim::loadProfileText(write(child), folder.path("child.json"), &error));
    EXPECT_EQ(error, folder.path("child.json") + ": exact: more than 4096 answers");
}

// Requests beyond what the allocator can make are refused with a code, whatever the format:
// never a wrapped stride, never a huge memory object.
TEST(AllocatorLimitsTest, OversizedRequestsAreRefusedForEveryFormat) {
    constexpr int32_t kMax = 0x7fffffff;
    const int32_t bad = static_cast<int32_t>(AllocationError::BAD_DESCRIPTOR);
    const int32_t noResources = static_cast<int32_t>(AllocationError::NO_RESOURCES);
    struct Case {
        int32_t width, height, layers;
    };
    const Case oversized[] = {{kMax, kMax, 1}, {100000, 100000, 1}, {1920, kMax, 1}, {kMax, 1, 1},
                              {16385, 16, 1},  {0, 16, 1},          {16, -1, 1},     {16, 16, 0}};
    // A profile without size limits reaches the arithmetic itself.
    Json::Value unlimited = defaultProfile();
    unlimited["limits"]["maxWidth"] = kMax;
    unlimited["limits"]["maxHeight"] = kMax;

    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    const int fds = zyncam::host::openFdCount();
    const uint64_t buffers = zyncam::sim::counters().buffersAllocated;
    for (bool limited : {true, false}) {
        std::optional<testkit::ScopedProfile> profile;
        if (!limited) profile.emplace(write(unlimited), "unlimited.json");
        for (int32_t format : kRequestFormats) {
            for (const Case& c : oversized) {
                if (!limited && c.width > 0 && c.width < 100000 && c.height > 0 &&
                    c.height < 100000) {
                    continue;  // small enough to be made without limits
                }
                SCOPED_TRACE(::testing::Message()
                             << (limited ? "" : "unlimited ") << std::hex << format << std::dec
                             << " " << c.width << "x" << c.height << "x" << c.layers);
                const int32_t error = allocate2(c.width, c.height, format, kCpuReadOften, c.layers);
                EXPECT_TRUE(error == bad || (!limited && error == noResources)) << error;
                if (c.width <= 0 || c.height <= 0 || c.layers != 1) continue;
                // Through the adapter and the helper's layout query.
                const native_handle* handle = nullptr;
                uint32_t stride = 0;
                EXPECT_EQ(testkit::allocator().allocate(c.width, c.height,
                                                        static_cast<common::PixelFormat>(format), 1,
                                                        0x3, &handle, &stride, 0, "limits"),
                          -12);
                zcam::GrallocRequest request{static_cast<int32_t>(kCpuReadOften), format, c.width,
                                             c.height, 0};
                zcam::GrallocStaticInfo info;
                EXPECT_EQ(helper.query(&request, &info, false), -12);
            }
        }
    }
    EXPECT_EQ(zyncam::sim::counters().buffersAllocated, buffers);
    EXPECT_EQ(zyncam::host::openFdCount(), fds);
}

TEST(AllocatorLimitsTest, SizeCapAndOverflowAnswerTheirOwnCodes) {
    const int32_t bad = static_cast<int32_t>(AllocationError::BAD_DESCRIPTOR);
    const int32_t noResources = static_cast<int32_t>(AllocationError::NO_RESOURCES);
    constexpr int32_t kRgba = fmt(common::PixelFormat::RGBA_8888);
    constexpr int32_t kBatch32 = zcam::kPixelFormatSmvrBatch32;
    // 16384 x 16384 x 4 bytes is exactly the default cap of 1 GiB.
    EXPECT_EQ(allocate2(16384, 16384, kRgba, kCpuReadOften), 0);
    EXPECT_EQ(allocate2(16384, 16384, kRgba, kCpuReadOften, 2), noResources);
    EXPECT_EQ(allocate2(16384, 16384, kBatch32, kCpuReadOften), noResources);
    // Frames x layers x bytes beyond 64 bits.
    EXPECT_EQ(allocate2(16384, 16384, kBatch32, kCpuReadOften, INT32_MAX), bad);
    // A format without a rule, and a refused combination.
    EXPECT_EQ(allocate2(64, 64, kBatch32 + 1, kCpuReadOften),
              static_cast<int32_t>(AllocationError::UNSUPPORTED));
}

// The largest buffer a profile may allow is still one the mapper can map: the helper locates
// YCrCb_420_SP planes through a CPU lock, and a lock that fails there ends the process.
TEST(AllocatorLimitsTest, TheLargestAllowedBufferCanBeLocked) {
    constexpr int32_t kMax = 0x7fffffff;
    constexpr int32_t kWidth = 1 << 18;
    // kWidth x rows x 1.5 bytes: the most rows under the ceiling, then one step of rowAlign more.
    constexpr int32_t kRowsWithin =
            static_cast<int32_t>(zyncam::profile::kMaxAllocationCeiling * 2 / 3 / kWidth) & ~1;
    Json::Value largest = defaultProfile();
    largest["limits"]["maxWidth"] = kMax;
    largest["limits"]["maxHeight"] = kMax;
    largest["limits"]["maxAllocationSize"] = Json::UInt64{zyncam::profile::kMaxAllocationCeiling};
    testkit::ScopedProfile profile(write(largest), "largest.json");

    GrallocHelperAidlV2Imp helper;
    const uint64_t live = zyncam::sim::counters().liveBuffers;
    zcam::GrallocRequest request{static_cast<int32_t>(kCpuReadOften), kNV21, kWidth, kRowsWithin,
                                 0};
    zcam::GrallocStaticInfo info;
    ASSERT_EQ(helper.query(&request, &info, false), android::OK);
    ASSERT_EQ(info.planes.size(), 2u);
    EXPECT_EQ(info.planes[0].rowStrideInBytes, static_cast<size_t>(kWidth));
    request.heightInPixels = kRowsWithin + 2;
    EXPECT_EQ(helper.query(&request, &info, false), android::NO_MEMORY);
    EXPECT_EQ(zyncam::sim::counters().liveBuffers, live);
}

}  // namespace
