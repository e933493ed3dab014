// gralloc-layout verify: shipped profiles agree with the library, planted disagreements are
// found one each, and a request that fails midway leaves nothing behind.
#include <GrallocHelper.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <aidl/android/hardware/graphics/common/StandardMetadataType.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <zyncam_host/SimGralloc.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "Capture.h"
#include "LibraryLog.h"
#include "ToolRun.h"
#include "Verify.h"
#include "kit/GrallocKit.h"

namespace {

namespace fs = std::filesystem;
using aidl::android::hardware::graphics::common::PixelFormat;
using aidl::android::hardware::graphics::common::PlaneLayout;
using aidl::android::hardware::graphics::common::StandardMetadataType;
using android::hardware::graphics::mapper::StandardMetadata;
using tooltest::parseJson;
using tooltest::run;
using tooltest::ToolRun;
using zyncam::tools::kExitDisagree;
using zyncam::tools::kExitNotAnswered;
using zyncam::tools::kExitOk;
using PlaneLayouts = StandardMetadata<StandardMetadataType::PLANE_LAYOUTS>::value;
using Answer = zyncam::profile::ExactAnswer;

constexpr int32_t kNv12 = zcam::kPixelFormatNV12;
constexpr int32_t kRgba = static_cast<int32_t>(PixelFormat::RGBA_8888);
constexpr int32_t kCpuRead = 0x3;        // SW_READ_OFTEN
constexpr int64_t kRowsLower = 16;       // a chroma plane placed this many rows lower
constexpr int64_t kRowsRunOver = 8;      // luma rows that run into the chroma plane
constexpr int64_t kStridePadding = 256;  // bytes a stride is rounded differently by
constexpr int64_t kBitsPerByte = 8;
constexpr int64_t kRgbaBytes = 4;
constexpr int64_t kPixelsShort = 64;  // a stride this many pixels narrower than the width

const std::string kPlantedProfile = ZYNCAM_TEST_PROFILES_DIR "/planted-disagreements.json";

std::string profilePath(const std::string& file) {
    return std::string(ZYNCAM_PROFILES_DIR) + "/" + file;
}

size_t openDescriptors() {
    return static_cast<size_t>(
            std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

// One planted disagreement: the request it is planted on, how the device's answer is changed
// from what the default profile answers, and the one finding it must produce.
struct Plant {
    const char* kind;
    int32_t width, height, format;
    // Changes the mapper's plane layouts and the extension's attributes; `s` is the luma
    // stride in bytes, `h` the height.
    std::function<void(std::vector<PlaneLayout>&, Answer& answer, int64_t s, int64_t h)> plant;
    const char* check;
    const char* field;
    // Per source (helper, mapper, lock): the figure expected, as a function of s and h; null
    // when the source must not appear in the finding.
    std::array<std::function<int64_t(int64_t s, int64_t h)>, zyncam::tools::kSourceCount> figures;
};

const std::vector<Plant>& plants() {
    static const std::vector<Plant> table = {
            {"plane count",
             320,
             240,
             kNv12,
             [](auto& p, Answer&, int64_t, int64_t) {
                 p[0].totalSizeInBytes += p[1].totalSizeInBytes;
                 p.resize(1);
             },
             "planeCount",
             "planes",
             {[](int64_t, int64_t) { return 2; }, [](int64_t, int64_t) { return 1; },
              [](int64_t, int64_t) { return 1; }}},
            {"stride",
             640,
             480,
             kRgba,
             [](auto& p, Answer& a, int64_t, int64_t h) {
                 p[0].strideInBytes += kStridePadding;
                 p[0].totalSizeInBytes = p[0].strideInBytes * h;
                 a.allocSize = static_cast<uint64_t>(p[0].totalSizeInBytes);
             },
             "strideBytes",
             "planes[0].strideBytes",
             {[](int64_t s, int64_t) { return s; },
              [](int64_t s, int64_t) { return s + kStridePadding; },
              [](int64_t s, int64_t) { return s + kStridePadding; }}},
            {"offset",
             640,
             480,
             kNv12,
             [](auto& p, Answer& a, int64_t s, int64_t) {
                 p[1].offsetInBytes += kRowsLower * s;
                 a.allocSize += static_cast<uint64_t>(kRowsLower * s);
             },
             "offset",
             "planes[1].offset",
             {[](int64_t s, int64_t h) { return s * h; },
              [](int64_t s, int64_t h) { return s * (h + kRowsLower); },
              [](int64_t s, int64_t h) { return s * (h + kRowsLower); }}},
            {"size",
             800,
             600,
             kNv12,
             [](auto& p, Answer& a, int64_t s, int64_t) {
                 p[1].totalSizeInBytes += kRowsLower * s;
                 a.allocSize += static_cast<uint64_t>(kRowsLower * s);
             },
             "sizeBytes",
             "planes[1].sizeBytes",
             {[](int64_t s, int64_t h) { return s * h / 2; },
              [](int64_t s, int64_t h) { return s * h / 2 + kRowsLower * s; }, nullptr}},
            {"plane outside the allocation",
             1280,
             720,
             kNv12,
             [](auto&, Answer& a, int64_t s, int64_t) { a.allocSize -= static_cast<uint64_t>(s); },
             "inside",
             "planes[1]",
             {[](int64_t s, int64_t h) { return s * h * 3 / 2; },
              [](int64_t s, int64_t h) { return s * h * 3 / 2; }, nullptr}},
            {"overlapping planes",
             960,
             540,
             kNv12,
             [](auto& p, Answer&, int64_t, int64_t) { p[0].heightInSamples += kRowsRunOver; },
             "overlap",
             "planes[0]/planes[1]",
             {nullptr, [](int64_t s, int64_t h) { return s * (h + kRowsRunOver); }, nullptr}},
            {"a lock that disagrees",
             1024,
             768,
             kNv12,
             [](auto& p, Answer&, int64_t s, int64_t) {
                 for (auto& c : p[1].components) c.offsetInBits += kRowsLower * s * kBitsPerByte;
             },
             "offset",
             "planes[1].offset",
             {[](int64_t s, int64_t h) { return s * h; },
              [](int64_t s, int64_t h) { return s * h; },
              [](int64_t s, int64_t h) { return s * (h + kRowsLower); }}},
            {"a stride narrower than the width",
             1280,
             720,
             kRgba,
             [](auto& p, Answer& a, int64_t s, int64_t h) {
                 a.stride -= kPixelsShort;
                 p[0].strideInBytes = s - kPixelsShort * kRgbaBytes;
                 p[0].totalSizeInBytes = p[0].strideInBytes * h;
                 a.allocSize = static_cast<uint64_t>(p[0].totalSizeInBytes);
             },
             "minStride",
             "planes[0].strideBytes",
             {[](int64_t s, int64_t) { return s - kPixelsShort * kRgbaBytes; },
              [](int64_t s, int64_t) { return s - kPixelsShort * kRgbaBytes; },
              [](int64_t s, int64_t) { return s - kPixelsShort * kRgbaBytes; }}},
            {"fewer rows than the height",
             1920,
             1080,
             kRgba,
             [](auto& p, Answer& a, int64_t s, int64_t h) {
                 p[0].heightInSamples = h - kRowsRunOver;
                 p[0].totalSizeInBytes = s * (h - kRowsRunOver);
                 a.allocSize = static_cast<uint64_t>(p[0].totalSizeInBytes);
             },
             "minRows",
             "planes[0].rows",
             {[](int64_t, int64_t h) { return h - kRowsRunOver; },
              [](int64_t, int64_t h) { return h - kRowsRunOver; }, nullptr}},
    };
    return table;
}

zcam::GrallocRequest requestOf(const Plant& p) {
    zcam::GrallocRequest r;
    r.widthInPixels = p.width;
    r.heightInPixels = p.height;
    r.format = p.format;
    r.usage = kCpuRead;
    return r;
}

// The planted profile as the plants make it from what the default profile answers.
Json::Value plantedProfile() {
    testkit::ScopedProfile rules(profilePath("default.json"));
    zyncam::tools::GrallocPlatform platform;
    EXPECT_EQ(zyncam::tools::openGrallocPlatform(&platform), std::nullopt);
    zyncam::tools::Capture capture(platform);
    Json::Value profile(Json::objectValue);
    profile["name"] = "planted-disagreements";
    profile["description"] =
            "the default SoC with one disagreement planted per request, for gralloc-layout verify";
    profile["extends"] = "default";
    Json::Value& exact = profile["exact"] = Json::Value(Json::arrayValue);
    for (const Plant& plant : plants()) {
        EXPECT_EQ(capture.record(zcam::normalizeGrallocRequest(requestOf(plant))), std::nullopt);
        zyncam::profile::ExactAnswer answer = capture.answers().back();
        const std::vector<uint8_t> bytes = answer.planeLayouts.value_or(std::vector<uint8_t>());
        std::optional<std::vector<PlaneLayout>> decoded =
                PlaneLayouts::decode(bytes.data(), bytes.size());
        EXPECT_TRUE(decoded.has_value()) << plant.kind;
        if (!decoded) continue;
        std::vector<PlaneLayout>& layouts = *decoded;
        plant.plant(layouts, answer, layouts[0].strideInBytes, plant.height);
        std::vector<uint8_t> encoded(zyncam::profile::kExactPlaneLayoutsCapacity);
        encoded.resize(
                static_cast<size_t>(PlaneLayouts::encode(layouts, encoded.data(), encoded.size())));
        answer.planeLayouts = encoded;
        answer.ycbcr.reset();
        answer.id = 0;  // every buffer gets its own; the profile keeps none
        Json::Value entry = zyncam::profile::toJson(answer);
        entry["comment"] = std::string("planted: ") + plant.kind;
        exact.append(entry);
    }
    return profile;
}

TEST(VerifyTest, ShippedProfilesAgreeOverTheGrid) {
    testkit::SimFaults faults;
    for (const char* file : {"default.json", "soc-a64.json", "soc-b128.json"}) {
        SCOPED_TRACE(file);
        const ToolRun r = run({"verify", "--json", "--profile", profilePath(file)});
        EXPECT_EQ(r.code, kExitOk) << r.err;
        const Json::Value totals = parseJson(r.out)["totals"];
        EXPECT_TRUE(totals["grid"].asBool());
        EXPECT_GT(totals["agree"].asUInt64(), 0u);
        EXPECT_EQ(totals["disagree"].asUInt64(), 0u);
        EXPECT_EQ(totals["failed"].asUInt64(), 0u);
    }
}

// The shipped planted profile is what the plants make of the default profile's answers.
TEST(VerifyTest, PlantedProfileIsWhatThePlantsMake) {
    testkit::SimFaults faults;
    std::ifstream in(kPlantedProfile);
    std::stringstream text;
    text << in.rdbuf();
    // Compared as read back from text, where numbers have one type whatever wrote them.
    const std::string made = Json::writeString(Json::StreamWriterBuilder(), plantedProfile());
    EXPECT_EQ(parseJson(text.str()), parseJson(made)) << "refresh " << kPlantedProfile << " with:\n"
                                                      << made;
}

TEST(VerifyTest, EachPlantGivesExactlyItsFinding) {
    testkit::SimFaults faults;
    std::vector<std::string> args = {"verify", "--json", "--profile", kPlantedProfile};
    for (const Plant& p : plants()) {
        const zcam::GrallocRequest r = requestOf(p);
        args.insert(args.end(),
                    {std::to_string(r.widthInPixels) + "x" + std::to_string(r.heightInPixels),
                     std::to_string(r.format), "--usage", std::to_string(r.usage)});
    }
    const ToolRun run = tooltest::run(args);
    ASSERT_EQ(run.code, kExitDisagree) << run.err;
    const Json::Value requests = parseJson(run.out)["requests"];
    ASSERT_EQ(requests.size(), plants().size());
    for (Json::ArrayIndex i = 0; i < requests.size(); ++i) {
        const Plant& p = plants()[i];
        SCOPED_TRACE(p.kind);
        const Json::Value& findings = requests[i]["findings"];
        ASSERT_EQ(findings.size(), 1u) << findings;
        EXPECT_EQ(findings[0]["check"].asString(), p.check);
        EXPECT_EQ(findings[0]["field"].asString(), p.field);
        // The default profile's strides hold these widths whole: 4 bytes a pixel of RGBA_8888,
        // 1 of NV12's luma.
        const int64_t s = int64_t{p.width} * (p.format == kRgba ? kRgbaBytes : 1);
        for (size_t source = 0; source < zyncam::tools::kSourceCount; ++source) {
            const char* name =
                    zyncam::tools::sourceName(static_cast<zyncam::tools::Source>(source));
            if (!p.figures[source]) {
                EXPECT_FALSE(findings[0].isMember(name)) << name;
                continue;
            }
            EXPECT_EQ(findings[0][name]["value"].asInt64(), p.figures[source](s, p.height)) << name;
        }
    }
}

// A fault injected after the helper answered: the request fails with its reason, and every
// buffer, lock and fence it took is given back.
TEST(VerifyTest, FaultMidwayFailsTheRequestAndLeavesNothing) {
    using zyncam::sim::Call;
    static constexpr int32_t kNoResources = 5;  // AIMAPPER_ERROR_NO_RESOURCES
    constexpr int kFenceMs = 1;
    const struct {
        const char* fault;
        std::function<void()> inject;
        const char* reason;
    } cases[] = {
            {"allocation", [] { zyncam::sim::failAllocate(kNoResources); },
             "the allocator did not allocate the same request again"},
            {"import", [] { zyncam::sim::failImportAt(1); },
             "the allocator did not allocate the same request again"},
            {"metadata read",
             [] {
                 zyncam::sim::setMetadataAnswer(
                         static_cast<int64_t>(StandardMetadataType::PLANE_LAYOUTS), -kNoResources);
             },
             "the mapper did not report PLANE_LAYOUTS"},
            {"lock", [] { zyncam::sim::failLock(kNoResources); },
             "the mapper did not lock it for the CPU (5)"},
    };
    testkit::SimFaults faults;
    zyncam::tools::GrallocPlatform platform;
    ASSERT_EQ(zyncam::tools::openGrallocPlatform(&platform), std::nullopt);
    zyncam::tools::LibraryLog log(false);
    const auto helper = zcam::createGrallocHelper();
    zyncam::tools::LayoutSession session(*helper, *zcam::layoutCacheOf(*helper), log);
    zyncam::tools::Verifier verifier(platform, session);
    zyncam::tools::RequestSpec given;
    given.request = requestOf(plants().front());
    zyncam::sim::setLateFenceMs(kFenceMs);  // each unlock hands back a fence to close
    ASSERT_EQ(verifier.check(given, false).outcome, zyncam::tools::VerifyOutcome::Agree);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        const auto before = zyncam::sim::counters();
        const size_t descriptors = openDescriptors();
        testkit::Journal journal;
        c.inject();
        const zyncam::tools::Verdict verdict = verifier.check(given, false);
        zyncam::sim::resetFaults();
        zyncam::sim::setLateFenceMs(kFenceMs);
        EXPECT_EQ(verdict.outcome, zyncam::tools::VerifyOutcome::Failed);
        EXPECT_EQ(verdict.reason, c.reason);
        const auto after = zyncam::sim::counters();
        EXPECT_EQ(after.liveBuffers, before.liveBuffers);
        EXPECT_EQ(after.locks - before.locks, after.unlocks - before.unlocks);
        EXPECT_EQ(openDescriptors(), descriptors);
        for (const auto& unlock : journal.of(Call::Unlock)) {
            const auto closed = journal.closed();
            EXPECT_NE(std::find(closed.begin(), closed.end(), unlock.fd), closed.end());
        }
    }
}

TEST(VerifyTest, ARunGivesBackEveryBufferAndDescriptor) {
    testkit::SimFaults faults;
    zyncam::sim::setLateFenceMs(1);
    const int64_t buffers = zyncam::sim::counters().liveBuffers;
    const size_t descriptors = openDescriptors();
    const ToolRun r = run({"verify", "--json", "--profile", kPlantedProfile, "1920x1080", "NV12",
                           "--usage", "SW_READ_OFTEN", "640x480", "YV12", "--usage",
                           "SW_READ_OFTEN", "320x240", "NV12", "--usage", "SW_READ_OFTEN"});
    EXPECT_EQ(r.code, kExitDisagree) << r.err;
    EXPECT_EQ(parseJson(r.out)["totals"]["requests"].asUInt64(), 3u);
    EXPECT_EQ(zyncam::sim::counters().liveBuffers, buffers);
    EXPECT_EQ(openDescriptors(), descriptors);
}

// Agreeing, disagreeing and failed requests fill every CSV row to the header's width.
TEST(VerifyTest, CsvRowsHaveTheHeadersFields) {
    testkit::SimFaults faults;
    const ToolRun r = run({"verify", "--csv", "--profile", kPlantedProfile, "640x480", "NV12",
                           "--usage", "SW_READ_OFTEN", "64x48", "RGBX_8888", "1920x1080", "NV12",
                           "1280x720", "NV12", "--usage", "SW_READ_OFTEN"});
    EXPECT_EQ(r.code, kExitDisagree) << r.err;
    std::istringstream lines(r.out);
    std::string line;
    std::vector<size_t> commas;
    while (std::getline(lines, line)) {
        // No field here holds a quoted comma but the reason, which this run quotes whole.
        std::string unquoted;
        bool quoted = false;
        for (char c : line) {
            if (c == '"') quoted = !quoted;
            if (!quoted) unquoted += c;
        }
        commas.push_back(static_cast<size_t>(std::count(unquoted.begin(), unquoted.end(), ',')));
    }
    ASSERT_EQ(commas.size(), 5u) << r.out;  // the header and one row per request
    for (size_t n : commas) EXPECT_EQ(n, commas.front()) << r.out;
}

TEST(VerifyTest, ImportFailingMidwayGivesTheNotAnsweredCode) {
    testkit::SimFaults faults;
    zyncam::sim::failImportAt(2);  // the helper's probe imports first, verify's buffer second
    const ToolRun r = run({"verify", "640x480", "NV12"});
    EXPECT_EQ(r.code, kExitNotAnswered);
    EXPECT_NE(r.err.find("the allocator did not allocate the same request again"),
              std::string::npos)
            << r.err;
}

}  // namespace
