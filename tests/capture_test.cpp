// Device profiles through gralloc-layout: capturing what an allocator answers, replaying the
// capture, and comparing two profiles.
#include <gtest/gtest.h>
#include <json/json.h>
#include <zyncam_host/SimGralloc.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "ToolRun.h"
#include "kit/Codes.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

using tooltest::layoutsOf;
using tooltest::parseJson;
using tooltest::run;
using tooltest::ToolRun;
using zyncam::tools::kExitBadInput;
using zyncam::tools::kExitDiffer;
using zyncam::tools::kExitNotAnswered;
using zyncam::tools::kExitOk;

constexpr int kExtraId = 50;  // gralloc-extension attribute: the buffer's identity
constexpr int32_t kFormatNv21 = testkit::fmt(testkit::PixelFormat::YCRCB_420_SP);

const std::string kSession = ZYNCAM_LAYOUT_EXAMPLES "/camera-session.txt";
constexpr Json::ArrayIndex kBatchStream = 10;  // the session's 0x2602 stream

std::string profilePath(const std::string& file) {
    return std::string(ZYNCAM_PROFILES_DIR) + "/" + file;
}

Json::Value readJsonFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return parseJson(text.str());
}

void writeJsonFile(const std::string& path, const Json::Value& value) {
    std::ofstream(path) << Json::writeString(Json::StreamWriterBuilder(), value);
}

TEST(ProfileCaptureTest, ReplayingACaptureGivesWhatTheAllocatorAnswered) {
    testkit::SimFaults faults;
    // Each shipped profile, and another one whose rules the capture is then put on.
    const struct {
        const char* file;
        std::string otherRules;
    } cases[] = {
            {"default.json", profilePath("soc-a64.json")},
            {"soc-a64.json", profilePath("soc-b128.json")},
            {"soc-b128.json", "default"},
    };
    testkit::ScratchFolder folder;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const std::string capture = folder.path(c.file);
        const ToolRun device = run(
                {"--json", "--profile", profilePath(c.file), "--capture", capture, "-f", kSession});
        ASSERT_EQ(device.code, kExitOk) << device.err;
        // Every plane passes its check but the chroma plane of the eight-frame batch (0x2602),
        // which the library checks over the whole allocation before its slow-motion adjustment.
        const Json::Value answers = parseJson(device.out)["answers"];
        for (Json::ArrayIndex i = 0; i < answers.size(); ++i) {
            const Json::Value& warnings = answers[i]["warnings"];
            if (i != kBatchStream) {
                EXPECT_EQ(warnings.size(), 0u) << "stream " << i + 1 << ": " << warnings;
                continue;
            }
            ASSERT_EQ(warnings.size(), 1u);
            EXPECT_EQ(warnings[0].asString().rfind("[checkPlaneSize] [YCrCb_420_SP:1] ", 0), 0u);
        }

        // One answer per allocation: the session repeats its preview stream once.
        const Json::Value profile = readJsonFile(capture);
        const Json::Value& exact = profile["exact"];
        EXPECT_EQ(exact.size(), 14u);
        // The rules it builds on: the profile in force, as a path from the capture's folder.
        namespace fs = std::filesystem;
        const fs::path base = fs::path(capture).parent_path() / profile["extends"].asString();
        EXPECT_EQ(fs::weakly_canonical(base), fs::weakly_canonical(profilePath(c.file)));
        EXPECT_NE(profile["comment"].asString().find("simulated gralloc"), std::string::npos);
        for (const Json::Value& entry : exact) {
            EXPECT_TRUE(entry.isMember("planeLayouts")) << entry;
            // The format whose planes the library locates through a YCbCr lock has its offsets.
            if (entry["format"].asInt() == kFormatNv21) {
                EXPECT_TRUE(entry.isMember("ycbcr"));
            }
        }

        const ToolRun replay = run({"--json", "--profile", capture, "-f", kSession});
        ASSERT_EQ(replay.code, kExitOk) << replay.err;
        EXPECT_EQ(layoutsOf(replay), layoutsOf(device));
        for (const Json::Value& answer : parseJson(replay.out)["answers"]) {
            EXPECT_EQ(answer["layoutSource"].asString(), "exactAnswer");
        }

        // On top of other rules the exact answers alone still give every answer.
        Json::Value moved = profile;
        moved["extends"] = c.otherRules;
        const std::string movedPath = capture + ".moved.json";
        writeJsonFile(movedPath, moved);
        const ToolRun elsewhere = run({"--json", "--profile", movedPath, "-f", kSession});
        ASSERT_EQ(elsewhere.code, kExitOk) << elsewhere.err;
        EXPECT_EQ(layoutsOf(elsewhere), layoutsOf(device));
    }
}

TEST(ProfileCaptureTest, RequestsOutsideTheCaptureFallBackToTheRules) {
    testkit::SimFaults faults;
    testkit::ScratchFolder folder;
    const std::string capture = folder.path("one.json");
    ASSERT_EQ(run({"--capture", capture, "1920x1080", "YCrCb_420_SP"}).code, kExitOk);

    const ToolRun text = run({"--profile", capture, "1920x1080", "YCrCb_420_SP", "1280x720", "NV12",
                              "1920x1080", "YCrCb_420_SP", "--usage", "HW_CAMERA_WRITE"});
    ASSERT_EQ(text.code, kExitOk) << text.err;
    const std::string exactLine = "  laid out by an exact answer of the profile\n";
    const std::string rulesLine =
            "  laid out by the profile's rules: no exact answer for this allocation\n";
    const size_t first = text.out.find(exactLine);
    const size_t second = text.out.find(rulesLine);
    ASSERT_NE(first, std::string::npos) << text.out;
    ASSERT_NE(second, std::string::npos) << text.out;
    EXPECT_LT(first, second);
    // The third request normalises to the first's allocation.
    EXPECT_NE(text.out.find(exactLine, second), std::string::npos) << text.out;

    const ToolRun json = run({"--json", "--profile", capture, "1280x720", "NV12"});
    EXPECT_EQ(parseJson(json.out)["answers"][0]["layoutSource"].asString(), "rules");
    // A profile without exact answers has nothing to say about them.
    const ToolRun plain = run({"--json", "1280x720", "NV12"});
    EXPECT_FALSE(parseJson(plain.out)["answers"][0].isMember("layoutSource"));
    EXPECT_EQ(plain.out.find("laid out by"), std::string::npos);
}

TEST(ProfileCaptureTest, WhatCannotBeCapturedIsReportedAndLeavesNothingBehind) {
    testkit::SimFaults faults;
    const int64_t liveBefore = zyncam::sim::counters().liveBuffers;
    testkit::ScratchFolder folder;
    const std::string capture = folder.path("partial.json");

    // The allocator answers a format the library does not lay out: captured all the same.
    const ToolRun refused = run({"--capture", capture, "64x48", "RGBX_8888", "64x48", "NV12"});
    EXPECT_EQ(refused.code, kExitNotAnswered);
    EXPECT_EQ(readJsonFile(capture)["exact"].size(), 2u);

    // An attribute the extension does not report: neither answered nor captured, the others
    // are, and every buffer is freed.
    zyncam::sim::failExtraQuery(kExtraId, -1);
    const ToolRun failing = run({"--capture", capture, "64x48", "NV12"});
    zyncam::sim::failExtraQuery(kExtraId, std::nullopt);
    EXPECT_EQ(failing.code, kExitNotAnswered);
    EXPECT_NE(failing.err.find("not captured: the gralloc extension did not report attribute 50"),
              std::string::npos)
            << failing.err;
    EXPECT_EQ(readJsonFile(capture)["exact"].size(), 0u);
    EXPECT_EQ(zyncam::sim::counters().liveBuffers, liveBefore);

    // A file that cannot be written is found before anything is allocated.
    const uint64_t allocations = zyncam::sim::counters().allocateCalls;
    EXPECT_EQ(run({"--capture", "/nonexistent/c.json", "64x48", "NV12"}).code, kExitBadInput);
    EXPECT_EQ(zyncam::sim::counters().allocateCalls, allocations);
}

TEST(ProfileCompareTest, ShippedProfilesDifferWhereTheirRulesDo) {
    testkit::SimFaults faults;
    const ToolRun r = run({"--json", "--compare", profilePath("soc-a64.json"),
                           profilePath("soc-b128.json"), "-f", kSession});
    ASSERT_EQ(r.code, kExitDiffer) << r.err;
    const Json::Value doc = parseJson(r.out);
    // request -> field -> {A, B}
    std::map<unsigned, std::map<std::string, std::pair<std::string, std::string>>> found;
    for (const Json::Value& d : doc["differences"]) {
        for (const Json::Value& f : d["fields"]) {
            found[d["request"].asUInt()][f["field"].asString()] = {f["a"].asString(),
                                                                   f["b"].asString()};
        }
    }
    const struct {
        unsigned request;
        const char* field;
        const char* a;
        const char* b;
    } expected[] = {
            // Previews: NV21 on one SoC, NV12 on the other; rows to 16 against none.
            {1, "allocated.format", "YCrCb_420_SP (0x11)", "NV12 (0x1000)"},
            {1, "planes[0].rows", "1088", "1080"},
            // Strides: 64-byte against 128-byte alignment.
            {2, "planes[0].strideBytes", "4032", "4096"},
            {4, "planes[0].strideBytes", "4032", "4096"},
            {7, "planes[0].strideBytes", "8000", "8064"},
            {8, "planes[0].strideBytes", "5056", "5120"},
    };
    for (const auto& e : expected) {
        SCOPED_TRACE("request " + std::to_string(e.request) + " " + e.field);
        const auto& fields = found[e.request];
        const auto it = fields.find(e.field);
        ASSERT_NE(it, fields.end());
        EXPECT_EQ(it->second.first, e.a);
        EXPECT_EQ(it->second.second, e.b);
    }
    // How a layout was reached is never a difference; streams laid out alike are not listed.
    for (const auto& [request, fields] : found) {
        EXPECT_EQ(fields.count("answeredBy"), 0u);
        EXPECT_EQ(fields.count("allocationTimeNs"), 0u);
    }
    // Slow-motion rows are aligned to 32 on both, as the library sizes their chroma.
    for (unsigned alike : {3u, 5u, 6u, 9u, 10u, 11u, 13u, 14u}) {
        EXPECT_EQ(found.count(alike), 0u) << alike;
    }
    EXPECT_EQ(doc["totals"]["differing"].asUInt(), 7u);
    EXPECT_EQ(doc["totals"]["alike"].asUInt(), 8u);
    EXPECT_EQ(zyncam::sim::profileName(), "default");  // the profile in force is back
}

TEST(ProfileCompareTest, AProfileAndItsCaptureAgree) {
    testkit::SimFaults faults;
    testkit::ScratchFolder folder;
    const std::string capture = folder.path("compare.json");
    const std::string b128 = profilePath("soc-b128.json");
    ASSERT_EQ(run({"--profile", b128, "--capture", capture, "-f", kSession}).code, kExitOk);
    const ToolRun same = run({"--compare", b128, capture, "-f", kSession});
    EXPECT_EQ(same.code, kExitOk) << same.err;
    EXPECT_NE(same.out.find("15 requests: 0 laid out differently, 15 alike"), std::string::npos)
            << same.out;
    // The capture against other rules: only what it did not capture differs.
    const ToolRun other = run({"--csv", "--compare", profilePath("default.json"), capture, "-f",
                               kSession, "1100x700", "NV12"});
    EXPECT_EQ(other.code, kExitDiffer);
    EXPECT_EQ(other.out.rfind("request,origin,field,a,b\n", 0), 0u);
}

}  // namespace
