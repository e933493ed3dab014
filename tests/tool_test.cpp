// gralloc-layout as an engineer drives it: requests, request files, names, output forms and
// every way its input can be wrong.
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <fstream>
#include <iostream>
#include <sstream>

#include "LayoutQuery.h"
#include "ToolRun.h"
#include "Vocabulary.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

#include <algorithm>
#include <optional>

namespace {

using zyncam::tools::kExitBadInput;
using zyncam::tools::kExitNotAnswered;
using zyncam::tools::kExitOk;
using zyncam::tools::kExitUnnamed;
using zyncam::tools::kExitWarned;

constexpr int kExtraAllocSize = 14;  // gralloc-extension attribute: bytes allocated

using tooltest::parseJson;
using tooltest::run;
using tooltest::ToolRun;

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

TEST(LayoutToolTest, ReadmeRequestShowsProbedUsagePlanesAndProbe) {
    testkit::SimFaults faults;
    const ToolRun r = run({"1920x1080", "YCrCb_420_SP", "--usage", "SW_READ_OFTEN"});
    ASSERT_EQ(r.code, kExitOk) << r.err;
    const std::vector<std::string> got = lines(r.out);
    const std::vector<std::string> expected = {
            "request 1  1920x1080 YCrCb_420_SP (0x11), usage 0x3 (0|SW_READ_OFTEN), batch 0",
            "  probed      usage 0x60003 (0|SW_READ_OFTEN|HW_CAMERA_ZSL)",
            "  allocated   YCrCb_420_SP (0x11) 1920x1080, 3110400 B, AFBC no, 1 frame per buffer",
            "              allocator usage 0x60003 (0|SW_READ_OFTEN|HW_CAMERA_ZSL)",
            "              producer usage 0x20000 (0|HW_CAMERA_WRITE)",
            "  plane 0     stride 1920 B = 1920 px, rows 1080, size 2073600 B, offset 0",
            "  plane 1     stride 1920 B = 1920 samples, rows 540, size 1036800 B, offset 2073600",
            "  memory      3110400 B (3.0 MiB) per buffer x 1 buffer = 3110400 B (3.0 MiB); "
            "padding 0 B per buffer, 0.0%",
    };
    ASSERT_EQ(got.size(), expected.size() + 4) << r.out;
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(got[i], expected[i]);
    EXPECT_EQ(got[8].rfind("  answered by probe, allocation took ", 0), 0u) << got[8];
    EXPECT_EQ(got[9], "session     1 stream, 1 buffer: 3110400 B (3.0 MiB); padding 0 B, 0.0%");
    EXPECT_EQ(
            got[10],
            "  largest   request 1  1920x1080 YCrCb_420_SP (0x11), 1 buffer: 3110400 B (3.0 MiB), "
            "100.0% of the session");
    EXPECT_EQ(got[11], "1 request: 1 probe, 0 cache hits, 0 failed, 0 refused, 0 warnings");
    EXPECT_EQ(r.err, "");
}

TEST(LayoutToolTest, RepeatsComeFromTheCacheUnlessRefreshed) {
    testkit::SimFaults faults;
    const uint64_t before = zyncam::sim::counters().allocateCalls;
    const ToolRun r = run({"--json", "640x480", "NV12", "640x480", "NV12", "--usage", "0",
                           "640x480", "nv12", "--refresh"});
    ASSERT_EQ(r.code, kExitOk) << r.err;
    EXPECT_EQ(zyncam::sim::counters().allocateCalls - before, 2u);
    const Json::Value doc = parseJson(r.out);
    const char* expected[] = {"probe", "cache", "probe"};
    for (Json::ArrayIndex i = 0; i < 3; ++i) {
        EXPECT_EQ(doc["answers"][i]["answeredBy"].asString(), expected[i]) << i;
        EXPECT_GT(doc["answers"][i]["allocationTimeNs"].asInt64(), 0);
    }
    EXPECT_TRUE(doc["requests"][2]["refresh"].asBool());
    EXPECT_EQ(doc["totals"]["probes"].asUInt(), 2u);
    EXPECT_EQ(doc["totals"]["cacheHits"].asUInt(), 1u);
}

TEST(LayoutToolTest, ExampleSessionAnswersEveryStream) {
    testkit::SimFaults faults;
    const ToolRun r = run({"-f", ZYNCAM_LAYOUT_EXAMPLES "/camera-session.txt", "--json"});
    const Json::Value doc = parseJson(r.out);
    const Json::Value& answers = doc["answers"];
    struct Stream {
        const char* format;  // what the allocator made of the request
        int planes;
        unsigned frames;
        bool afbc;
        uint64_t stride0;                       // bytes
        std::optional<uint64_t> strideSamples;  // of plane 0
    };
    const Stream expected[] = {
            {"YV12", 3, 1, false, 1920, 1920},                  // preview
            {"IMPLEMENTATION_DEFINED", 1, 1, false, 4000, {}},  // ZSL ring, opaque
            {"NV12", 2, 1, false, 3840, 3840},                  // video record
            {"YCrCb_420_SP", 2, 1, false, 4000, 4000},          // still YUV
            {"YCrCb_420_SP", 2, 1, false, 640, 640},            // analysis
            {"BLOB", 1, 1, false, 4000, {}},                    // JPEG
            {"RAW16", 1, 1, false, 8000, 4000},
            {"RAW10", 1, 1, false, 5008, {}},  // 5008 bytes hold 4006.4 packed pixels
            {"Y16", 1, 1, false, 1280, 640},   // depth
            {"YCBCR_P010", 2, 1, false, 7680, 3840},
            {"YCrCb_420_SP", 2, 8, false, 1280, 1280},  // slow-motion batch 0x2602
            {"NV12", 1, 4, true, 1920, 1920},           // slow-motion AFBC batch 0x2611
            {"YCrCb_420_SP", 2, 4, false, 1280, 1280},  // slow-motion preview, --batch 4
            {"NV12", 2, 1, false, 640, 640},            // secure stream: no CPU lock
            {"YV12", 3, 1, false, 1920, 1920},          // second preview, from the cache
    };
    ASSERT_EQ(answers.size(), std::size(expected)) << r.out << r.err;
    for (Json::ArrayIndex i = 0; i < answers.size(); ++i) {
        SCOPED_TRACE("stream " + std::to_string(i + 1));
        const Json::Value& a = answers[i];
        ASSERT_EQ(a["outcome"].asString(), "answered") << a["reason"].asString();
        EXPECT_EQ(a["allocated"]["formatName"].asString(), expected[i].format);
        EXPECT_EQ(a["planes"].size(), Json::ArrayIndex(expected[i].planes));
        EXPECT_EQ(a["allocated"]["framesPerBuffer"].asUInt(), expected[i].frames);
        EXPECT_EQ(a["allocated"]["afbc"].asBool(), expected[i].afbc);
        EXPECT_EQ(a["planes"][0]["strideBytes"].asUInt64(), expected[i].stride0);
        const Json::Value& samples = a["planes"][0]["strideSamples"];
        if (expected[i].strideSamples) {
            EXPECT_EQ(samples.asUInt64(), *expected[i].strideSamples);
        } else {
            EXPECT_TRUE(samples.isNull());
        }
    }
    // Planes located through a CPU lock have offsets; the preview's YV12 planes follow one
    // another, Cr before Cb.
    const Json::Value& preview = answers[0]["planes"];
    EXPECT_EQ(preview[1]["offset"].asUInt64(), 2073600u);
    EXPECT_EQ(preview[2]["offset"].asUInt64(), 2073600u + 518400u);
    EXPECT_TRUE(answers[2]["planes"][1]["offset"].isNull());  // NV12: sizes only
    // The batch's chroma plane spans every frame before the slow-motion adjustment, which the
    // library reports.
    EXPECT_EQ(answers[10]["warnings"].size(), 1u);
    EXPECT_EQ(answers[14]["answeredBy"].asString(), "cache");
    EXPECT_EQ(doc["requests"][13]["origin"].asString().substr(
                      doc["requests"][13]["origin"].asString().rfind(':')),
              ":31");
    EXPECT_EQ(doc["totals"]["requests"].asUInt(), 15u);
    EXPECT_EQ(doc["totals"]["cacheHits"].asUInt(), 1u);
    EXPECT_EQ(r.code, kExitOk) << r.err;
}

TEST(LayoutToolTest, FileAndCommandLineRequestsKeepTheirOrder) {
    testkit::SimFaults faults;
    const std::string input =
            "# analysis stream\n"
            "\n"
            "   16x16 Y8 --usage=SW_READ_OFTEN   # trailing comment\n";
    const ToolRun r = run(
            {"--csv", "64x48", "NV12", "-f", "-", "32x32", "RGBA_8888", "8x8", "RGBX_8888"}, input);
    EXPECT_EQ(r.code, kExitNotAnswered) << r.err;  // RGBX_8888 has no layout rule
    const std::vector<std::string> rows = lines(r.out);
    // The header, NV12's two planes, Y8, RGBA, the failed request and the session's totals.
    ASSERT_EQ(rows.size(), 1u + 2 + 1 + 1 + 1 + 1) << r.out;
    const auto columns = [](const std::string& row) {
        return std::count(row.begin(), row.end(), ',');
    };
    for (const std::string& row : rows) EXPECT_EQ(columns(row), columns(rows[0])) << row;
    EXPECT_EQ(rows[1].rfind("1,argument 2,64,48,4096,NV12,", 0), 0u) << rows[1];
    EXPECT_EQ(rows[3].rfind("2,<stdin>:3,16,16,", 0), 0u) << rows[3];
    EXPECT_EQ(rows[4].rfind("3,argument 6,32,32,1,RGBA_8888,", 0), 0u) << rows[4];
    EXPECT_EQ(rows[5].rfind("4,argument 8,8,8,2,RGBX_8888,0,0,0,failed,", 0), 0u) << rows[5];
    EXPECT_NE(rows[5].find(",query failed: -2 (NAME_NOT_FOUND): [queryStaticInfo] Not support "
                           "format: 0x2(RGBX_8888),"),
              std::string::npos)
            << rows[5];
}

TEST(LayoutToolTest, StrictTurnsADerivationWarningIntoAnExitCode) {
    testkit::SimFaults faults;
    // The allocator reports one byte more than stride x rows: plane 0 no longer adds up.
    zyncam::sim::overrideExtraQuery(kExtraAllocSize, 64 * 4 * 48 + 1);
    const ToolRun lenient = run({"64x48", "RGBA_8888"});
    EXPECT_EQ(lenient.code, kExitOk) << lenient.err;
    EXPECT_NE(lenient.out.find("  warning: [checkPlaneSize] [RGBA_8888:0] sizeInBytes:12289 != "
                               "256 x 48\n"),
              std::string::npos)
            << lenient.out;

    const ToolRun strict = run({"--strict", "--json", "64x48", "RGBA_8888"});
    EXPECT_EQ(strict.code, kExitWarned);
    EXPECT_EQ(strict.err,
              "gralloc-layout: --strict: the library warned 1 time while deriving the layouts\n");
    const Json::Value doc = parseJson(strict.out);
    ASSERT_EQ(doc["answers"][0]["warnings"].size(), 1u);
    EXPECT_EQ(doc["totals"]["warnings"].asUInt(), 1u);
    EXPECT_TRUE(doc["answers"][0]["planes"][0]["rows"].isNull());

    zyncam::sim::overrideExtraQuery(kExtraAllocSize, std::nullopt);
    EXPECT_EQ(run({"--strict", "64x48", "RGBA_8888"}).code, kExitOk);
}

TEST(LayoutToolTest, LibraryLinesReachTheServiceSinkAndTheLevelsComeBack) {
    testkit::SimFaults faults;
    testkit::LogCapture capture(/*mode=*/2, /*detailsLevel=*/1, /*normalMask=*/0);
    zyncam::sim::overrideExtraQuery(kExtraAllocSize, 1);
    ASSERT_EQ(run({"64x48", "RGBA_8888"}).code, kExitOk);
    // The tool opened the warning level for its own sink and handed the line on.
    bool forwarded = false;
    for (const auto& line : capture.sink()) forwarded |= line.text.find("checkPlaneSize") == 1;
    EXPECT_TRUE(forwarded);
    EXPECT_FALSE(capture.has("checkPlaneSize"));  // the Android log stays quiet...
    ASSERT_EQ(run({"--verbose", "64x48", "RGBA_8888", "--refresh"}).code, kExitOk);
    EXPECT_TRUE(capture.has("checkPlaneSize"));  // ...unless asked
    using NSCam::Utils::ULog::ULogger;
    EXPECT_EQ(ULogger::sULogger, &capture);
    EXPECT_EQ(ULogger::sMode, 2u);
    EXPECT_EQ(ULogger::sDetailsLevel, 1u);
    EXPECT_EQ(ULogger::sNormalDetailsMask, 0u);
}

TEST(LayoutToolTest, NamesWorkBothWaysForEveryKind) {
    struct Case {
        std::vector<std::string> args;
        int code;
        const char* out;
    };
    const Case cases[] = {
            {{"names", "format", "NV12"}, kExitOk, "0x1000 NV12\n"},
            {{"names", "format", "0x1000"}, kExitOk, "0x1000 NV12\n"},
            {{"names", "format", "ycrcb_420_sp"}, kExitOk, "0x11 YCrCb_420_SP\n"},
            {{"names", "format", "7"}, kExitUnnamed, "0x7 \"\"\n"},
            {{"names", "usage", "SW_READ_OFTEN|HW_CAMERA_ZSL"},
             kExitOk,
             "0x60003 0|SW_READ_OFTEN|HW_CAMERA_ZSL\n"},
            {{"names", "usage", "0x60003"}, kExitOk, "0x60003 0|SW_READ_OFTEN|HW_CAMERA_ZSL\n"},
            {{"names", "usage", "PROTECTED"}, kExitUnnamed, "0x4000 0\n"},
            {{"names", "usage", "SMVR"}, kExitUnnamed, "0x20000000 0\n"},  // shown with others
            {{"names", "dataspace", "BT2020_PQ"},
             kExitOk,
             "0x9c60000 BT2020_PQ|STANDARD_BT2020|TRANSFER_ST2084|RANGE_FULL\n"},
            {{"names", "dataspace", "standard_bt709|transfer_srgb|range_full"},
             kExitOk,
             "0x8810000 V0_SRGB|STANDARD_BT709|TRANSFER_SRGB|RANGE_FULL\n"},
            {{"names", "dataspace", "JFIF"}, kExitOk, "0x101 JFIF\n"},
            {{"names", "dataspace", "0x11C60000"},
             kExitUnnamed,
             "0x11c60000 0x11c60000|STANDARD_BT2020|TRANSFER_ST2084|RANGE_LIMITED\n"},
            {{"--json", "names", "format", "YV12"},
             kExitOk,
             "{\"kind\":\"format\",\"name\":\"YV12\",\"named\":true,\"value\":842094169}\n"},
    };
    for (const Case& c : cases) {
        const ToolRun r = run(c.args);
        EXPECT_EQ(r.code, c.code) << c.args.back() << ": " << r.err;
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err.empty(), c.code == kExitOk) << r.err;
    }
}

TEST(LayoutToolTest, UsageWordsAreTheLibrarysNames) {
    for (const std::string& word : zyncam::tools::usageWords()) {
        if (word == "PROTECTED") continue;  // the one word the library does not print
        // A hardware bit in the mask the library tests first, so every word shows.
        const ToolRun r = run({"names", "usage", word + "|HW_2D"});
        EXPECT_NE(r.out.find("|" + word), std::string::npos) << word << ": " << r.out;
    }
}

// Sets up a platform fault for one hostile case and undoes it afterwards.
enum class Platform { Whole, NoMapperLibrary, MapperWithoutEntry, MapperWithoutTable, NoAllocator };

class PlatformFault {
public:
    explicit PlatformFault(Platform p) {
        switch (p) {
            case Platform::Whole:
                break;
            case Platform::NoMapperLibrary:
                zyncam::sim::setMapperSuffix("absent");
                break;
            case Platform::MapperWithoutEntry:
                zyncam::sim::setMapperSuffix("zyncamsim-nosym");
                break;
            case Platform::MapperWithoutTable:
                zyncam::sim::setMapperSuffix("zyncamsim-null");
                break;
            case Platform::NoAllocator:
                mService = zyncam::host::removeService(zyncam::sim::kAllocatorInstance);
                break;
        }
    }
    ~PlatformFault() {
        if (mService.get() != nullptr) {
            EXPECT_EQ(AServiceManager_addService(mService.get(), zyncam::sim::kAllocatorInstance),
                      STATUS_OK);
        }
    }

private:
    testkit::SimFaults mFaults;
    ndk::SpAIBinder mService;
};

TEST(LayoutToolTest, HostileInputGivesOneLineAndItsExitCode) {
    struct Case {
        std::vector<std::string> args;
        int code;
        const char* error;  // a part of the one line on stderr
        std::string input = "";
        Platform platform = Platform::Whole;
    };
    const Case cases[] = {
            // The command line.
            {{}, kExitBadInput, "no request; try --help"},
            {{"--frob"}, kExitBadInput, "unknown option '--frob'"},
            {{"--frob=3", "64x48", "NV12"}, kExitBadInput, "unknown option '--frob'"},
            {{"-x"}, kExitBadInput, "unknown option '-x'"},
            {{"--json=yes", "64x48", "NV12"}, kExitBadInput, "option '--json' takes no value"},
            {{"64x48", "NV12", "--usage"}, kExitBadInput, "option '--usage' needs a value"},
            {{"64x48", "NV12", "-b"}, kExitBadInput, "option '--batch' needs a value"},
            {{"--usage", "3", "64x48", "NV12"}, kExitBadInput, "--usage needs a request"},
            {{"64x48", "--usage", "3", "NV12"}, kExitBadInput, "--usage needs a request"},
            {{"--json", "--csv", "64x48", "NV12"}, kExitBadInput, "exclude each other"},
            // Sizes.
            {{"64x", "NV12"}, kExitBadInput, "bad size '64x'"},
            {{"x48", "NV12"}, kExitBadInput, "bad size 'x48'"},
            {{"0x48", "NV12"}, kExitBadInput, "bad size '0x48'"},
            {{"64x48x2", "NV12"}, kExitBadInput, "bad size '64x48x2'"},
            {{"2147483648x1", "NV12"}, kExitBadInput, "bad size '2147483648x1'"},
            {{"--", "-64x48", "NV12"}, kExitBadInput, "bad size '-64x48'"},
            {{"+64x48", "NV12"}, kExitBadInput, "bad size '+64x48'"},
            {{"64x48"}, kExitBadInput, "request '64x48' needs a format"},
            // Formats and names.
            {{"64x48", "NOPE"}, kExitBadInput, "unknown format 'NOPE'"},
            {{"64x48", "0x80000000"}, kExitBadInput, "unknown format '0x80000000'"},
            {{"names", "colour", "1"}, kExitBadInput, "not 'colour'"},
            {{"names", "format"}, kExitBadInput, "names takes a kind and a value"},
            {{"names", "format", "NV12", "64x48"}, kExitBadInput, "names takes a kind"},
            {{"names", "format", "NOPE"}, kExitUnnamed, "no format is named 'NOPE'"},
            {{"names", "dataspace", "BT2020|"}, kExitUnnamed, "no dataspace is named"},
            {{"names", "format", "7"}, kExitUnnamed, "no name for format 0x7"},
            // Usages and batches.
            {{"64x48", "NV12", "--usage", ""}, kExitBadInput, "bad usage ''"},
            {{"64x48", "NV12", "--usage=SW_READ_OFTEN|"}, kExitBadInput, "bad usage"},
            {{"64x48", "NV12", "-u", "SW_READ_SOMETIMES"}, kExitBadInput, "bad usage"},
            {{"64x48", "NV12", "--usage", "-1"}, kExitBadInput, "bad usage '-1'"},
            {{"64x48", "NV12", "--usage", "0x100000000"}, kExitBadInput, "bad usage"},
            {{"64x48", "NV12", "--batch", "33"}, kExitBadInput, "bad batch '33' (0..32)"},
            {{"64x48", "NV12", "--batch=-1"}, kExitBadInput, "bad batch '-1'"},
            {{"64x48", "NV12", "--batch", " 2"}, kExitBadInput, "bad batch ' 2'"},
            // Control characters come back escaped.
            {{"64x48\x1b[2J", "NV12"}, kExitBadInput, "bad size '64x48\\x1b[2J'"},
            {{"64x48", "NV12", "--usage", "SW\nREAD"}, kExitBadInput, "'SW\\x0aREAD'"},
            // Request files.
            {{"-f", "/nonexistent/session.txt"}, kExitBadInput, "cannot read"},
            {{"-f", "-"}, kExitBadInput, "<stdin>:3: bad size '64x'", "64x48 NV12\n\n64x NV12\n"},
            {{"-f", "-"}, kExitBadInput, "<stdin>:1: --json is not a request", "1x1 NV12 --json\n"},
            {{"-f", "-"}, kExitBadInput, "<stdin>:1: one request per line", "1x1 NV12 2x2 NV12\n"},
            {{"-f", "-"}, kExitBadInput, "<stdin>:2: --refresh needs a request", "\n--refresh\n"},
            {{"-f", "-"}, kExitBadInput, "<stdin>:1: a NUL byte", std::string("1x1 NV\0", 7)},
            {{"-f", "-"}, kExitBadInput, "<stdin>:1: no request", "--\n"},
            {{"names", "format", "NV12", "-f", "-"}, kExitBadInput, "names takes no requests"},
            // Device profiles: capture and compare.
            {{"--capture", "", "1x1", "NV12"}, kExitBadInput, "--capture needs a file"},
            {{"--capture", "a", "--capture=b", "1x1", "NV12"}, kExitBadInput, "given twice"},
            {{"--capture", "a.json", "names", "format", "1"}, kExitBadInput, "captures nothing"},
            {{"--capture", "/nonexistent/a.json", "1x1", "NV12"},
             kExitBadInput,
             "cannot write '/nonexistent/a.json'"},
            {{"1x1", "NV12", "--compare", "a.json"}, kExitBadInput, "--compare needs two files"},
            {{"--compare", "a.json", "", "1x1", "NV12"}, kExitBadInput, "needs two files"},
            {{"--compare", "a", "b", "--profile", "c", "1x1", "NV12"},
             kExitBadInput,
             "--compare names its own profiles"},
            {{"--compare", "/nonexistent/a.json", "b.json", "1x1", "NV12"},
             kExitBadInput,
             "/nonexistent/a.json: cannot be read"},
            {{"--compare", "a.json", "b.json"}, kExitBadInput, "no request"},
            // Requests the library cannot answer, or would abort on.
            {{"64x48", "RGBX_8888"}, kExitNotAnswered, "query failed: -2 (NAME_NOT_FOUND): "},
            {{"64x48", "YCrCb_420_SP", "--usage", "PROTECTED"}, kExitNotAnswered, "refused"},
            {{"2147483647x2147483647", "YCrCb_420_SP"}, kExitNotAnswered, "-12 (NO_MEMORY)"},
            // verify.
            {{"verify", "64x"}, kExitBadInput, "bad size '64x'"},
            {{"verify", "64x48", "NOPE"}, kExitBadInput, "unknown format 'NOPE'"},
            {{"verify", "--compare", "a", "b"}, kExitBadInput, "verify takes no --compare"},
            {{"verify", "--strict", "1x1", "NV12"}, kExitBadInput, "verify takes no --compare"},
            {{"verify", "names", "format", "1"}, kExitBadInput, "verify takes no --compare"},
            {{"verify", "--profile", "/nonexistent/p.json"}, kExitBadInput, "cannot be read"},
            {{"verify", "--profile", "/dev/null"}, kExitBadInput, "/dev/null: "},
            {{"verify", "64x48", "RGBX_8888"}, kExitNotAnswered, "query failed: -2"},
            {{"verify", "64x48", "YCrCb_420_SP", "--usage", "PROTECTED"},
             kExitNotAnswered,
             "refused"},
            {{"verify"},
             kExitNotAnswered,
             "'mapper.absent.so' cannot be loaded",
             "",
             Platform::NoMapperLibrary},
            {{"verify", "64x48", "NV12"},
             kExitNotAnswered,
             "is not running",
             "",
             Platform::NoAllocator},
            // A platform the helper cannot be built on.
            {{"64x48", "NV12"},
             kExitNotAnswered,
             "'mapper.absent.so' cannot be loaded",
             "",
             Platform::NoMapperLibrary},
            {{"64x48", "NV12"},
             kExitNotAnswered,
             "has no AIMapper_loadIMapper",
             "",
             Platform::MapperWithoutEntry},
            {{"64x48", "NV12"},
             kExitNotAnswered,
             "hands out no mapper",
             "",
             Platform::MapperWithoutTable},
            {{"64x48", "NV12"}, kExitNotAnswered, "is not running", "", Platform::NoAllocator},
    };
    for (const Case& c : cases) {
        const std::string label = c.args.empty() ? "(none)" : c.args.front() + " " + c.error;
        PlatformFault fault(c.platform);
        const ToolRun r = run(c.args, c.input);
        EXPECT_EQ(r.code, c.code) << label << ": " << r.err;
        EXPECT_NE(r.err.find(c.error), std::string::npos) << label << ": " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << label << ": " << r.err;
        EXPECT_EQ(r.err.rfind("gralloc-layout: ", 0), 0u) << r.err;
        for (char ch : r.err.substr(0, r.err.size() - 1)) {
            EXPECT_GE(static_cast<unsigned char>(ch), 0x20) << label << ": " << r.err;
        }
        if (c.code == kExitBadInput) {
            EXPECT_EQ(r.out, "") << label;
        }
    }
    // names and --help need no platform.
    PlatformFault fault(Platform::NoAllocator);
    EXPECT_EQ(run({"names", "format", "NV12"}).code, kExitOk);
    const ToolRun help = run({"--help"});
    EXPECT_EQ(help.code, kExitOk);
    for (const char* part : {"YCrCb_420_SP", "HW_CAMERA_ZSL", "PROTECTED", "ZYNCAM_SPHAL_PATH",
                             "--strict", "Exit codes:", "gralloc-layout verify", "6  verify"}) {
        EXPECT_NE(help.out.find(part), std::string::npos) << part;
    }
}

}  // namespace

TEST(LayoutToolProfileTest, RunsFollowTheProfileAndPutTheOneBeforeBack) {
    testkit::SimFaults faults;
    const std::vector<std::string> requests = {
            "1100x700",  "NV12",  "--usage", "HW_TEXTURE", "1100x700", "YCrCb_420_SP",
            "4000x3000", "RAW16", "641x481", "YV12",       "--usage",  "HW_COMPOSER"};
    const std::string before = zyncam::sim::profileName();
    std::vector<Json::Value> answersPerProfile;
    for (const char* file : {"default.json", "soc-a64.json", "soc-b128.json"}) {
        SCOPED_TRACE(file);
        const std::string path = std::string(ZYNCAM_PROFILES_DIR) + "/" + file;
        std::vector<std::string> args = {"--json", "--profile", path};
        args.insert(args.end(), requests.begin(), requests.end());
        const ToolRun chosen = run(args);
        ASSERT_EQ(chosen.code, kExitOk) << chosen.err;
        EXPECT_EQ(zyncam::sim::profileName(), before);

        // The same requests with the profile put in force by the test kit answer alike.
        testkit::ScopedProfile inForce(path);
        std::vector<std::string> plain = {"--json"};
        plain.insert(plain.end(), requests.begin(), requests.end());
        const ToolRun reference = run(plain);
        ASSERT_EQ(reference.code, kExitOk) << reference.err;
        EXPECT_EQ(tooltest::layoutsOf(chosen), tooltest::layoutsOf(reference));
        answersPerProfile.push_back(tooltest::layoutsOf(chosen));
    }
    // The profiles align rows differently, so the choice shows in the answers.
    EXPECT_NE(answersPerProfile[0], answersPerProfile[1]);
    EXPECT_NE(answersPerProfile[1], answersPerProfile[2]);
}

TEST(LayoutToolProfileTest, AProfileThatCannotBeUsedIsOneLineAndChangesNothing) {
    testkit::SimFaults faults;
    testkit::ScratchFolder folder;
    const std::string bad = folder.path("unknown-field.json");
    std::ofstream(bad) << R"({"name": "odd", "bogus": 1})";
    const std::string before = zyncam::sim::profileName();
    const struct {
        std::string path;
        std::string error;
    } cases[] = {
            {"/nonexistent/profile.json",
             "gralloc-layout: /nonexistent/profile.json: cannot be read\n"},
            {bad, "gralloc-layout: " + bad + ": bogus: unknown field\n"},
    };
    for (const auto& c : cases) {
        const ToolRun r = run({"--profile", c.path, "64x64", "NV12"});
        EXPECT_EQ(r.code, kExitBadInput);
        EXPECT_EQ(r.err, c.error);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(zyncam::sim::profileName(), before);
    }
    EXPECT_EQ(run({"--profile", "", "64x64", "NV12"}).err,
              "gralloc-layout: --profile needs a file\n");
}
