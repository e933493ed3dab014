// The gralloc-layout tool's command line and answers.
#include <gtest/gtest.h>

#include <sstream>

#include "LayoutQuery.h"
#include "kit/GrallocKit.h"

namespace {

struct ToolRun {
    int code;
    std::string out, err;
};

ToolRun run(std::vector<const char*> args) {
    args.insert(args.begin(), "gralloc-layout");
    std::ostringstream out, err;
    const int code =
            zyncam::tools::runLayoutQuery(static_cast<int>(args.size()), args.data(), out, err);
    return {code, out.str(), err.str()};
}

TEST(LayoutToolTest, AnswersAndCountsProbes) {
    testkit::SimFaults faults;
    ToolRun r = run({"1920x1080", "YCrCb_420_SP", "--usage", "SW_READ_OFTEN|HW_TEXTURE", "640x480",
                     "0x22", "--usage", "HW_TEXTURE", "1920x1080", "17", "--usage", "0x103"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("request 1920x1080 YCrCb_420_SP (0x11) usage 0x103 "
                         "(0|SW_READ_OFTEN|HW_TEXTURE) batch 0\n"
                         "  format      0x11 (YCrCb_420_SP)\n"
                         "  size        1920x1080\n"
                         "  plane 0     rowStride 1920 B, size 2073600 B\n"
                         "  plane 1     rowStride 1920 B, size 1036800 B\n"
                         "  allocation  3110400 B\n"
                         "  AFBC        no\n"
                         "  answered by probe\n"),
              std::string::npos)
            << r.out;
    EXPECT_NE(r.out.find("  format      0x32315659 (YV12)\n"), std::string::npos);
    EXPECT_NE(r.out.find("answered by cache\n"), std::string::npos);
    EXPECT_NE(r.out.find("3 requests: 2 probes, 1 cache hit\n"), std::string::npos);
    EXPECT_TRUE(r.err.empty()) << r.err;
}

TEST(LayoutToolTest, JsonAndRefresh) {
    testkit::SimFaults faults;
    ToolRun r = run({"--json", "64x48", "nv12", "--usage", "0x10000000", "--batch", "2", "64x48",
                     "NV12", "--usage", "0x10000000", "--refresh"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.rfind("{\"layouts\": [{\"request\": {\"width\": 64, \"height\": 48, "
                          "\"format\": 4096, \"formatName\": \"NV12\", \"usage\": 268435456, "
                          "\"usageName\": \"0\", \"batch\": 2, \"refresh\": false}, ",
                          0),
              0u)
            << r.out;
    EXPECT_NE(r.out.find("\"afbc\": true, \"probed\": true}"), std::string::npos);
    EXPECT_NE(r.out.find("], \"probes\": 2, \"cacheHits\": 0}\n"), std::string::npos);
}

TEST(LayoutToolTest, ProblemsGiveOneLineAndANonZeroExit) {
    testkit::SimFaults faults;
    struct Case {
        std::vector<const char*> args;
        int code;
        const char* message;
    };
    const Case cases[] = {
            {{}, 2, "usage: gralloc-layout"},
            {{"64x", "NV12"}, 2, "bad size '64x'"},
            {{"0x48", "NV12"}, 2, "bad size '0x48'"},
            {{"64x48", "NOPE"}, 2, "unknown format 'NOPE'"},
            {{"64x48"}, 2, "64x48 needs a format"},
            {{"--usage", "3"}, 2, "--usage needs a request"},
            {{"64x48", "NV12", "--usage", "SW_READ_SOMETIMES"}, 2, "bad usage 'SW_READ_SOMETIMES'"},
            {{"64x48", "NV12", "--batch", "many"}, 2, "bad batch 'many'"},
            {{"64x48", "RGBX_8888"},
             1,
             "gralloc-layout: query of 64x48 RGBX_8888 (0x2) usage 0x0 failed: -2\n"},
            {{"names", "colour", "1"}, 2, "cannot name colour '1'"},
    };
    for (const auto& c : cases) {
        ToolRun r = run(c.args);
        EXPECT_EQ(r.code, c.code) << c.message;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_TRUE(r.out.empty()) << r.out;
    }
    // A failed request keeps the answers of the others from looking whole.
    ToolRun partial = run({"64x48", "NV12", "64x48", "RGBX_8888"});
    EXPECT_EQ(partial.code, 1);
    EXPECT_TRUE(partial.out.empty());
}

TEST(LayoutToolTest, Names) {
    testkit::SimFaults faults;
    const std::pair<std::vector<const char*>, std::string> cases[] = {
            {{"names", "format", "YV12"}, "0x32315659 YV12\n"},
            {{"names", "format", "35"}, "0x23 YCbCr_420_888\n"},
            {{"names", "usage", "SW_READ_OFTEN|HW_CAMERA_ZSL"},
             "0x60003 0|SW_READ_OFTEN|HW_CAMERA_ZSL\n"},
            {{"names", "dataspace", "0x11C60000"},
             "0x11c60000 0x11c60000|STANDARD_BT2020|TRANSFER_ST2084|RANGE_LIMITED\n"},
    };
    for (const auto& [args, expected] : cases) {
        ToolRun r = run(args);
        EXPECT_EQ(r.code, 0);
        EXPECT_EQ(r.out, expected);
    }
}

}  // namespace
