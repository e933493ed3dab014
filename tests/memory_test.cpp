// What a session's buffers cost, as gralloc-layout reports it: per-stream figures that add up
// to the session's totals under every shipped profile, padding where the layout leaves it, the
// --buffers option, the memory change --compare reports, the --svg file's errors, and the
// figures of hand-made answers at the edges (short allocations, missing rows, unknown formats).
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <sstream>

#include "Memory.h"
#include "ToolRun.h"
#include "kit/Codes.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

using tooltest::parseJson;
using tooltest::run;
using tooltest::ToolRun;
using zyncam::tools::kExitBadInput;
using zyncam::tools::kExitDiffer;
using zyncam::tools::kExitOk;

constexpr const char* kSession = ZYNCAM_LAYOUT_EXAMPLES "/camera-session.txt";

std::vector<std::string> shippedProfiles() {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(ZYNCAM_PROFILES_DIR)) {
        if (entry.path().extension() == ".json") paths.push_back(entry.path().string());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::string profilePath(const char* name) {
    return std::string(ZYNCAM_PROFILES_DIR) + "/" + name;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

std::vector<std::string> csvCells(const std::string& row) {
    std::vector<std::string> cells;
    std::istringstream in(row);
    for (std::string cell; std::getline(in, cell, ',');) cells.push_back(cell);
    if (!row.empty() && row.back() == ',') cells.emplace_back();
    return cells;
}

TEST(SessionMemoryTest, TotalsAreTheSumsOfTheAnswersUnderEveryShippedProfile) {
    const std::vector<std::string> profiles = shippedProfiles();
    ASSERT_GE(profiles.size(), 3u);
    for (const std::string& profile : profiles) {
        SCOPED_TRACE(profile);
        testkit::SimFaults faults;
        const ToolRun r = run({"--profile", profile, "-f", kSession, "--json"});
        ASSERT_EQ(r.code, kExitOk) << r.err;
        const Json::Value doc = parseJson(r.out);
        uint64_t bytes = 0, padding = 0, buffers = 0, streams = 0;
        std::vector<std::pair<uint64_t, unsigned>> bySize;  // stream bytes, request
        for (Json::ArrayIndex i = 0; i < doc["answers"].size(); ++i) {
            const Json::Value& a = doc["answers"][i];
            ASSERT_EQ(a["outcome"].asString(), "answered");
            const uint64_t allocation = a["allocated"]["allocationSize"].asUInt64();
            const uint64_t count = doc["requests"][i]["buffers"].asUInt64();
            const Json::Value& m = a["memory"];
            EXPECT_EQ(m["buffers"].asUInt64(), count);
            EXPECT_EQ(m["bytesPerBuffer"].asUInt64(), allocation);
            EXPECT_EQ(m["streamBytes"].asUInt64(), allocation * count);
            EXPECT_EQ(m["visibleBytes"].asUInt64() + m["paddingBytes"].asUInt64(), allocation);
            EXPECT_EQ(m["streamPaddingBytes"].asUInt64(), m["paddingBytes"].asUInt64() * count);
            EXPECT_NEAR(m["paddingShare"].asDouble(),
                        static_cast<double>(m["paddingBytes"].asUInt64()) / allocation, 1e-12);
            bytes += allocation * count;
            padding += m["paddingBytes"].asUInt64() * count;
            buffers += count;
            ++streams;
            bySize.emplace_back(allocation * count, i + 1);
        }
        const Json::Value& totals = doc["totals"]["memory"];
        EXPECT_EQ(totals["bytes"].asUInt64(), bytes);
        EXPECT_EQ(totals["paddingBytes"].asUInt64(), padding);
        EXPECT_EQ(totals["buffers"].asUInt64(), buffers);
        EXPECT_EQ(totals["streams"].asUInt64(), streams);
        EXPECT_EQ(totals["paddingUnknown"].asUInt64(), 0u);
        EXPECT_NEAR(totals["paddingShare"].asDouble(), static_cast<double>(padding) / bytes, 1e-12);
        // The largest consumers, the earlier request first among equals.
        std::stable_sort(bySize.begin(), bySize.end(),
                         [](const auto& a, const auto& b) { return a.first > b.first; });
        ASSERT_EQ(totals["largest"].size(), zyncam::tools::kLargestConsumers);
        for (Json::ArrayIndex place = 0; place < totals["largest"].size(); ++place) {
            EXPECT_EQ(totals["largest"][place]["request"].asUInt(), bySize[place].second);
            EXPECT_EQ(totals["largest"][place]["streamBytes"].asUInt64(), bySize[place].first);
            EXPECT_EQ(doc["answers"][bySize[place].second - 1]["memory"]["rank"].asUInt(),
                      place + 1);
        }

        // The text and the CSV come to the same totals.
        const ToolRun text = run({"--profile", profile, "-f", kSession});
        const std::string sessionLine = "session     " + std::to_string(streams) + " streams, " +
                                        std::to_string(buffers) +
                                        " buffers: " + std::to_string(bytes) + " B (";
        EXPECT_NE(text.out.find(sessionLine), std::string::npos) << text.out;
        EXPECT_NE(text.out.find("; padding " + std::to_string(padding) + " B"), std::string::npos);
        const ToolRun csv = run({"--profile", profile, "-f", kSession, "--csv"});
        const std::vector<std::string> rows = lines(csv.out);
        ASSERT_GE(rows.size(), 2u);
        const std::vector<std::string> header = csvCells(rows.front());
        const std::vector<std::string> total = csvCells(rows.back());
        ASSERT_EQ(header.size(), total.size()) << rows.back();
        std::map<std::string, std::string> cell;
        for (size_t c = 0; c < header.size(); ++c) cell[header[c]] = total[c];
        EXPECT_EQ(cell["request"], "total");
        EXPECT_EQ(cell["stream_bytes"], std::to_string(bytes));
        EXPECT_EQ(cell["stream_padding_bytes"], std::to_string(padding));
        EXPECT_EQ(cell["buffers"], std::to_string(buffers));
    }
}

TEST(SessionMemoryTest, PaddingIsWhatTheLayoutAllocatesBeyondTheVisibleImage) {
    const struct {
        const char* profile;
        std::vector<std::string> request;
        uint64_t padding;  // per buffer
        const char* why;
    } cases[] = {
            {"soc-a64.json", {"1100x700", "NV12"}, 52 * 700 + 52 * 350, "1152-byte strides"},
            {"soc-a64.json",
             {"4000x3000", "RAW10", "--usage", "SW_READ_OFTEN"},
             (5056 - 5000) * 3000,
             "5000 bytes of packed pixels in a 5056-byte stride"},
            {"soc-a64.json",
             {"4000x3000", "IMPLEMENTATION_DEFINED", "--usage", "HW_CAMERA_ZSL"},
             4032 * 3008 - 4000 * 3000,
             "opaque: a byte per pixel, stride and rows aligned"},
            {"soc-a64.json",
             {"1920x1080", "YCbCr_420_888", "--usage", "HW_TEXTURE"},
             1920 * (1088 - 1080) + 1920 * (544 - 540),
             "rows to 16, chroma rows too"},
            {"default.json",
             {"1920x1080", "0x2611", "--usage", "HW_CAMERA_WRITE|HW_VIDEO_ENCODER|SMVR"},
             13056000 - 4 * 1920 * 1080 * 3 / 2,
             "AFBC headers and tail over four frames"},
            {"default.json",
             {"1280x720", "0x2602", "--usage", "HW_CAMERA_WRITE|HW_VIDEO_ENCODER|SMVR"},
             8 * (1280 * 16 + 1280 * 8),
             "eight frames with rows aligned to 32"},
            {"default.json",
             {"1280x720", "YCrCb_420_SP", "--usage", "HW_CAMERA_WRITE|SMVR", "--batch", "4"},
             1280 * 16 + 1280 * 8,
             "a batch request the allocator gave one frame's room"},
            {"default.json", {"640x480", "Y16", "--usage", "SW_READ_OFTEN"}, 0, "nothing to pad"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.profile) + " " + c.request[0] + " " + c.request[1] + ": " +
                     c.why);
        testkit::SimFaults faults;
        std::vector<std::string> args = {"--profile", profilePath(c.profile), "--json"};
        args.insert(args.end(), c.request.begin(), c.request.end());
        const ToolRun r = run(args);
        ASSERT_EQ(r.code, kExitOk) << r.err;
        const Json::Value doc = parseJson(r.out);
        EXPECT_EQ(doc["answers"][0]["memory"]["paddingBytes"].asUInt64(), c.padding);
    }
}

TEST(SessionMemoryTest, BuffersOptionCountsAStreamsBuffers) {
    testkit::SimFaults faults;
    const ToolRun r = run({"--json", "64x48", "NV12", "--buffers", "3", "-f", "-", "32x32",
                           "RGBA_8888", "16x16", "RGBX_8888"},
                          "64x48 NV12 --buffers=1024\n");
    const Json::Value doc = parseJson(r.out);
    ASSERT_EQ(doc["requests"].size(), 4u) << r.err;
    const uint64_t expected[] = {3, 1024, 1, 1};
    for (Json::ArrayIndex i = 0; i < 4; ++i) {
        EXPECT_EQ(doc["requests"][i]["buffers"].asUInt64(), expected[i]) << i;
    }
    const uint64_t allocation = doc["answers"][0]["allocated"]["allocationSize"].asUInt64();
    EXPECT_EQ(doc["answers"][1]["memory"]["streamBytes"].asUInt64(), allocation * 1024);
    // RGBX_8888 has no layout rule: not answered, no memory, not in the totals.
    EXPECT_FALSE(doc["answers"][3].isMember("memory"));
    EXPECT_EQ(doc["totals"]["memory"]["streams"].asUInt(), 3u);
    EXPECT_EQ(doc["totals"]["memory"]["buffers"].asUInt(), 3u + 1024 + 1);

    const struct {
        std::vector<std::string> args;
        const char* input;
        const char* error;
    } bad[] = {
            {{"64x48", "NV12", "--buffers", "0"}, "", "bad buffer count '0' (1..1024)"},
            {{"64x48", "NV12", "--buffers", "1025"}, "", "bad buffer count '1025' (1..1024)"},
            {{"64x48", "NV12", "--buffers", "-1"}, "", "bad buffer count '-1'"},
            {{"64x48", "NV12", "--buffers"}, "", "option '--buffers' needs a value"},
            {{"--buffers", "2", "64x48", "NV12"}, "", "--buffers needs a request"},
            {{"-f", "-"}, "64x48 NV12 --buffers two\n", "bad buffer count 'two'"},
            {{"--svg", "a.svg", "--svg", "b.svg", "1x1", "NV12"}, "", "--svg is given twice"},
            {{"--svg=", "1x1", "NV12"}, "", "--svg needs a file"},
            {{"--svg", "a.svg", "names", "format", "NV12"}, "", "names draws nothing"},
    };
    for (const auto& b : bad) {
        const ToolRun e = run(b.args, b.input);
        EXPECT_EQ(e.code, kExitBadInput) << b.error;
        EXPECT_NE(e.err.find(b.error), std::string::npos) << e.err;
        EXPECT_EQ(e.out, "");
    }
}

TEST(SessionMemoryTest, CompareReportsTheMemoryChangePerRequestAndInTotal) {
    testkit::SimFaults faults;
    const std::string a = profilePath("soc-a64.json");
    const std::string b = profilePath("soc-b128.json");
    const ToolRun r = run({"--json", "--compare", a, b, "-f", kSession});
    ASSERT_EQ(r.code, kExitDiffer) << r.err;
    const Json::Value doc = parseJson(r.out);
    // Each side's figures are what a run under that profile alone reports.
    const Json::Value alone[] = {parseJson(run({"--profile", a, "-f", kSession, "--json"}).out),
                                 parseJson(run({"--profile", b, "-f", kSession, "--json"}).out)};
    const Json::Value& perRequest = doc["memory"]["requests"];
    ASSERT_EQ(perRequest.size(), alone[0]["answers"].size());
    int64_t sum = 0;
    for (Json::ArrayIndex i = 0; i < perRequest.size(); ++i) {
        const uint64_t bytesA = alone[0]["answers"][i]["memory"]["streamBytes"].asUInt64();
        const uint64_t bytesB = alone[1]["answers"][i]["memory"]["streamBytes"].asUInt64();
        EXPECT_EQ(perRequest[i]["request"].asUInt(), i + 1);
        EXPECT_EQ(perRequest[i]["a"].asUInt64(), bytesA);
        EXPECT_EQ(perRequest[i]["b"].asUInt64(), bytesB);
        EXPECT_EQ(perRequest[i]["difference"].asInt64(),
                  static_cast<int64_t>(bytesB) - static_cast<int64_t>(bytesA));
        sum += perRequest[i]["difference"].asInt64();
    }
    const Json::Value& total = doc["memory"]["total"];
    EXPECT_EQ(total["a"].asUInt64(), alone[0]["totals"]["memory"]["bytes"].asUInt64());
    EXPECT_EQ(total["b"].asUInt64(), alone[1]["totals"]["memory"]["bytes"].asUInt64());
    EXPECT_EQ(total["difference"].asInt64(), sum);
    EXPECT_NE(sum, 0);

    // The text: a memory line under each request laid out differently, and the total.
    const ToolRun text = run({"--compare", a, b, "-f", kSession});
    const std::vector<std::string> out = lines(text.out);
    ASSERT_GE(out.size(), 2u);
    const std::string& totalLine = out[out.size() - 2];
    EXPECT_EQ(totalLine.rfind("memory      A 15 streams " + total["a"].asString() + " B (", 0), 0u)
            << totalLine;
    EXPECT_NE(totalLine.find(", B 15 streams " + total["b"].asString() + " B ("),
              std::string::npos);
    EXPECT_EQ(totalLine.substr(totalLine.size() - 9), " MiB on B") << totalLine;
    EXPECT_EQ(totalLine[totalLine.rfind(": ") + 2], sum > 0 ? '+' : '-') << totalLine;
    const size_t requestMemoryLines = std::count_if(out.begin(), out.end(), [](const auto& line) {
        return line.rfind("  memory      A ", 0) == 0;
    });
    EXPECT_EQ(requestMemoryLines, doc["totals"]["differing"].asUInt());
}

TEST(SessionMemoryTest, SizesReadInBytesKibAndMib) {
    using zyncam::tools::signedSizeText;
    using zyncam::tools::sizeText;
    const struct {
        uint64_t bytes;
        const char* text;
    } sizes[] = {
            {0, "0 B"},
            {1023, "1023 B"},
            {1024, "1024 B (1.0 KiB)"},
            {23040, "23040 B (22.5 KiB)"},
            {1048575, "1048575 B (1024.0 KiB)"},
            {1048576, "1048576 B (1.0 MiB)"},
            {703211520, "703211520 B (670.6 MiB)"},
    };
    for (const auto& s : sizes) EXPECT_EQ(sizeText(s.bytes), s.text);
    const struct {
        int64_t bytes;
        const char* text;
    } deltas[] = {
            {0, "0 B"},
            {-23040, "-22.5 KiB"},
            {13002342, "+12.4 MiB"},
            {-1, "-1 B"},
            {std::numeric_limits<int64_t>::min(), "-8796093022208.0 MiB"},
    };
    for (const auto& d : deltas) EXPECT_EQ(signedSizeText(d.bytes), d.text);
}

TEST(SessionMemoryTest, AnSvgFileThatCannotBeWrittenStopsTheRunBeforeAnyAllocation) {
    testkit::SimFaults faults;
    const uint64_t allocations = zyncam::sim::counters().allocateCalls;
    const ToolRun r = run({"--svg", "/nonexistent/out.svg", "64x48", "NV12"});
    EXPECT_EQ(r.code, kExitBadInput);
    EXPECT_EQ(r.err.rfind("gralloc-layout: cannot write '/nonexistent/out.svg': ", 0), 0u) << r.err;
    EXPECT_EQ(zyncam::sim::counters().allocateCalls, allocations);
    const ToolRun compare =
            run({"--compare", profilePath("soc-a64.json"), profilePath("soc-b128.json"), "--svg",
                 "/nonexistent/c.svg", "64x48", "NV12"});
    EXPECT_EQ(compare.code, kExitBadInput);
    EXPECT_EQ(zyncam::sim::counters().allocateCalls, allocations);
}

}  // namespace

namespace {

using zyncam::tools::Answer;
using zyncam::tools::Outcome;
using zyncam::tools::PlaneAnswer;
using zyncam::tools::RequestSpec;
using zyncam::tools::StreamMemory;

constexpr int32_t kFormatNv21 = testkit::fmt(testkit::PixelFormat::YCRCB_420_SP);
constexpr int32_t kFormatUnnamed = 0x7fff0001;  // no row in the library's table

// An answered request of `width` x `height` whose allocation holds `planes` (stride, size).
Answer answered(int32_t format, int32_t width, int32_t height, uint64_t allocation,
                std::vector<std::pair<size_t, size_t>> planes, uint32_t frames = 1) {
    Answer a;
    a.probed.widthInPixels = width;
    a.probed.heightInPixels = height;
    a.layout.info.format = format;
    a.layout.allocSize = allocation;
    a.layout.framesPerBuffer = frames;
    for (const auto& [stride, size] : planes) {
        PlaneAnswer p;
        p.strideBytes = stride;
        p.sizeBytes = size;
        a.planes.push_back(p);
    }
    return a;
}

TEST(StreamMemoryTest, TheVisibleImageNeverExceedsWhatTheLayoutHolds) {
    RequestSpec given;
    given.buffers = 2;
    const struct {
        const char* what;
        Answer answer;
        std::optional<uint64_t> padding;
        uint32_t frames;
    } cases[] = {
            {"chroma rows fewer than the image's: only the rows there are count",
             answered(kFormatNv21, 64, 48, 64 * 48 + 64 * 20, {{64, 64 * 48}, {64, 64 * 20}}), 0,
             1},
            {"a batch whose allocation has room for two of its eight frames",
             answered(kFormatNv21, 64, 48, 2 * (64 * 64 + 64 * 32), {{64, 64 * 64}, {64, 64 * 32}},
                      8),
             2 * (64 * 16 + 64 * 8), 2},
            {"an allocation smaller than its planes: all of it is image",
             answered(kFormatNv21, 64, 48, 1000, {{64, 64 * 48}, {64, 64 * 24}}), 0, 1},
            {"a format the library has no sizes for",
             answered(kFormatUnnamed, 64, 48, 4096, {{64, 4096}}), std::nullopt, 1},
            {"planes the format does not have", answered(kFormatNv21, 64, 48, 4608, {{64, 4608}}),
             std::nullopt, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const std::optional<StreamMemory> m = zyncam::tools::streamMemory(given, c.answer);
        ASSERT_TRUE(m.has_value());
        EXPECT_EQ(m->streamBytes, 2 * c.answer.layout.allocSize);
        EXPECT_EQ(m->frames, c.frames);
        EXPECT_EQ(m->paddingBytes, c.padding);
        if (m->paddingBytes) {
            EXPECT_EQ(*m->visibleBytes + *m->paddingBytes, m->bytesPerBuffer);
        }
        for (const auto& p : m->planes) {
            EXPECT_LE(p.visibleRowBytes, p.strideBytes);
            EXPECT_LE(p.visibleRowBytes * p.visibleRows, p.sizeBytes);
        }
    }
    Answer failed;
    failed.outcome = Outcome::Failed;
    EXPECT_FALSE(zyncam::tools::streamMemory(given, failed).has_value());
}

TEST(StreamMemoryTest, SessionRanksByBytesTheEarlierFirstAndCountsUnknownPadding) {
    RequestSpec one, three;
    three.buffers = 3;
    const std::vector<std::optional<StreamMemory>> memory = {
            zyncam::tools::streamMemory(one, answered(kFormatNv21, 64, 48, 6000, {{64, 4608}})),
            std::nullopt,  // not answered
            zyncam::tools::streamMemory(three, answered(kFormatUnnamed, 8, 8, 2000, {{8, 64}})),
            zyncam::tools::streamMemory(one, answered(kFormatUnnamed, 8, 8, 6000, {{8, 64}})),
    };
    const zyncam::tools::SessionMemory s = zyncam::tools::sessionMemory(memory);
    EXPECT_EQ(s.streams, 3u);
    EXPECT_EQ(s.buffers, 5u);
    EXPECT_EQ(s.bytes, 6000u + 6000 + 6000);
    EXPECT_EQ(s.paddingUnknown, 3u);  // two unnamed formats and one plane too few for NV21
    EXPECT_FALSE(s.paddingShare().has_value());
    EXPECT_EQ(s.byBytes, (std::vector<size_t>{0, 2, 3}));
    EXPECT_EQ(s.rank, (std::vector<size_t>{1, 0, 2, 3}));
    EXPECT_DOUBLE_EQ(s.shareOf(6000), 1.0 / 3);
    EXPECT_DOUBLE_EQ(zyncam::tools::sessionMemory({}).shareOf(1), 0.0);
}

}  // namespace
