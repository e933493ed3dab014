// Layout derivation from gralloc-extension attributes, with values chosen through the simulator.
#include <gralloc_extra.h>

#include <zyncam_host/Camera.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "GrallocHelperInternal.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

using GrallocAidlV2::checkPlaneSize;
using GrallocAidlV2::GrallocHelperAidlV2Imp;
using GrallocAidlV2::MyStaticInfo;
using GrallocAidlV2::queryStaticInfo;
using testkit::Buffer;
using testkit::LogCapture;
using zyncam::sim::overrideExtraQuery;

class LayoutTest : public ::testing::Test {
protected:
    testkit::SimFaults mFaults;
    GrallocHelperAidlV2Imp mHelper;  // installs the mapper that the YCbCr lock uses
};

struct Plane {
    size_t stride, size;
};

void expectPlanes(const MyStaticInfo& info, std::vector<Plane> planes) {
    ASSERT_EQ(info.planes.size(), planes.size());
    for (size_t i = 0; i < planes.size(); ++i) {
        EXPECT_EQ(info.planes[i].rowStrideInBytes, planes[i].stride) << "plane " << i;
        EXPECT_EQ(info.planes[i].sizeInBytes, planes[i].size) << "plane " << i;
    }
}

TEST_F(LayoutTest, SinglePlaneFormats) {
    struct Case {
        int32_t format;
        int64_t S, R, A;
        Plane plane;
    };
    const Case cases[] = {
            {0x1, 1920, 1080, 8294400, {7680, 8294400}}, {0x5, 100, 10, 4000, {400, 4000}},
            {0x3, 100, 10, 3000, {300, 3000}},           {0x4, 100, 10, 2000, {200, 2000}},
            {0x20, 100, 10, 2000, {200, 2000}},          {0x20363159, 100, 10, 2000, {200, 2000}},
            {0x21, 5000, 1, 5000, {5000, 5000}},         {0x24, 128, 10, 1280, {128, 1280}},
            {0x25, 128, 10, 1280, {128, 1280}},          {0x20203859, 100, 10, 1000, {100, 1000}},
            {0x22, 1000, 10, 10240, {1024, 10240}},  // rounded to 32, no packing factor
            {0x111, 1000, 10, 10240, {1024, 10240}},     {0x14, 100, 10, 2000, {200, 2000}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << "format 0x" << c.format);
        Buffer buffer(64, 48, 0x1, 0x3);
        overrideExtraQuery(15, c.format);
        overrideExtraQuery(12, c.S);
        overrideExtraQuery(13, c.R);
        overrideExtraQuery(14, c.A);
        LogCapture log;
        MyStaticInfo info;
        EXPECT_EQ(queryStaticInfo(buffer.get(), info), 0);
        expectPlanes(info, {c.plane});
        EXPECT_EQ(info.format, c.format);
        EXPECT_EQ(info.allocSize, static_cast<size_t>(c.A));
        EXPECT_FALSE(log.has("!="));  // consistent values pass the plane check
        EXPECT_EQ(log.has("only in zsl mode"), c.format == 0x22 || c.format == 0x111);
        // YCbCr_422_I's stride 200 is not a multiple of 32, and 2000 < 200 * 16.
        EXPECT_EQ(log.has("[YCbCr_422_I] rowStrideInBytes:200 is not a multiple of 32"),
                  c.format == 0x14);
        EXPECT_EQ(log.has("[YCbCr_422_I] sizeInBytes:2000<rowStrideInBytes:200*16"),
                  c.format == 0x14);
    }
}

TEST_F(LayoutTest, RecordFieldsComeFromTheExtension) {
    Buffer buffer(1920, 1080, 0x11, 0x3);
    MyStaticInfo info;
    info.batchNum = 5;
    ASSERT_EQ(queryStaticInfo(buffer.get(), info), 0);
    EXPECT_EQ(info.format, 0x11);
    EXPECT_EQ(info.widthInPixels, 1920);
    EXPECT_EQ(info.heightInPixels, 1080);
    EXPECT_EQ(info.usage, 0x3u);
    EXPECT_EQ(info.allocSize, 3110400u);
    EXPECT_EQ(info.batchNum, 5u);
    EXPECT_FALSE(info.isAFBC);
    expectPlanes(info, {{1920, 2073600}, {1920, 1036800}});
}

TEST_F(LayoutTest, SemiPlanarAndPlanarYuv) {
    struct Case {
        const char* what;
        int32_t format;
        uint64_t usage;
        std::vector<std::pair<int, int64_t>> overrides;
        uint32_t batch;
        std::vector<Plane> planes;
    };
    const size_t afbcNv12 = 1280 * (720 * 3 / 2 + 45);  // bodies plus superblock header rows
    const Case cases[] = {
            {"NV21 AFBC", 0x11, 0x3, {{100, 0x400000}, {14, 777}}, 1, {{1280, 777}}},
            {"NV21 slow motion", 0x11, 0x20000003, {}, 1, {{1280, 1280 * 736}, {1280, 1280 * 368}}},
            {"YV12", 0x32315659, 0x3, {}, 1, {{1280, 921600}, {640, 230400}, {640, 230400}}},
            {"YV12 slow motion batch 4",
             0x32315659,
             0x20000003,
             {{14, 4 * 1382400}},
             4,
             {{1280, 921600}, {640, 230400}, {640, 230400}}},
            {"NV12", 0x1000, 0x3, {}, 1, {{1280, 921600}, {1280, 460800}}},
            {"NV12 AFBC slow motion, batch 0", 0x1000, 0x30000003, {}, 0, {{1280, afbcNv12}}},
            {"NV12 AFBC slow motion, batch 2", 0x1000, 0x30000003, {}, 2, {{1280, afbcNv12 / 2}}},
            {"P010", 0x36, 0x3, {}, 1, {{2560, 1843200}, {2560, 921600}}},
            {"P010 AFBC slow motion, batch 0",
             0x36,
             0x30000003,
             {},
             0,
             {{2560, 2560 * (1080 + 23)}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Buffer buffer(1280, 720, c.format, c.usage);
        for (auto [attribute, value] : c.overrides) overrideExtraQuery(attribute, value);
        MyStaticInfo info;
        info.batchNum = c.batch;
        EXPECT_EQ(queryStaticInfo(buffer.get(), info), 0);
        expectPlanes(info, c.planes);
        for (auto [attribute, value] : c.overrides) overrideExtraQuery(attribute, std::nullopt);
    }
}

TEST_F(LayoutTest, ProtectedYv12FollowsStrideAndHeight) {
    Buffer buffer(640, 480, 0x32315659, 0x4000);
    overrideExtraQuery(12, 641);
    overrideExtraQuery(11, 481);
    overrideExtraQuery(13, 490);
    LogCapture log;
    MyStaticInfo info;
    const auto locks = zyncam::sim::counters().locks;
    ASSERT_EQ(queryStaticInfo(buffer.get(), info), 0);
    EXPECT_EQ(zyncam::sim::counters().locks, locks);
    expectPlanes(info, {{641, 308321}, {320, 76800}, {320, 76800}});
    // Checked against 490 rows: plane 1 twice, plane 2 never.
    EXPECT_EQ(log.count("[YV12:0] sizeInBytes:308321 != 641 x 490"), 1u);
    EXPECT_EQ(log.count("[YV12:1] sizeInBytes:76800 != 320 x 245"), 2u);
    EXPECT_FALSE(log.has("[YV12:2]"));
}

TEST_F(LayoutTest, RefusedFormatsAndDescriptorFailures) {
    struct Case {
        int32_t format;
        int attributeToFail;  // 0: none
        int64_t ionFd;        // override of attribute 1, or -2 for none
        int expected;
        const char* line;
    };
    const Case cases[] = {
            {0x23, 0, -2, INT32_MIN,
             "[queryStaticInfo] format from gralloc_extra_query should not be: 0x23(YCbCr_420_888) "
             "(queryStaticInfo){#995:"},
            {0x2, 0, -2, -2,
             "[queryStaticInfo] Not support format: 0x2(RGBX_8888) (queryStaticInfo){#999:"},
            {-1, 0, -2, -2, "Not support format: 0xffffffff() "},
            {0x11, 0, -1, INT32_MIN, "[queryStaticInfo] [buffer_handle_t:0x"},
            {0x11, 1, -2, INT32_MIN, "err:-22 ionFd:-1 (queryStaticInfo){#615:"},
            {0x11, 17, -2, INT32_MIN, "[queryStaticInfo] Given buffer_handle_t:0x"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        Buffer buffer(64, 48, 0x1, 0x3);
        overrideExtraQuery(15, c.format);
        if (c.ionFd != -2) overrideExtraQuery(1, c.ionFd);
        if (c.attributeToFail) zyncam::sim::failExtraQuery(c.attributeToFail, -22);
        LogCapture log;
        MyStaticInfo info;
        info.planes = {{9, 9}};
        EXPECT_EQ(queryStaticInfo(buffer.get(), info), c.expected);
        EXPECT_TRUE(log.has(c.line));
        ASSERT_EQ(info.planes.size(), 1u);  // planes untouched
        EXPECT_EQ(info.planes[0].sizeInBytes, 9u);
        const bool extraFailed = c.attributeToFail == 17;
        EXPECT_EQ(info.format, extraFailed ? 0 : c.format);  // written unless the read failed
        zyncam::sim::resetFaults();
    }
}

TEST(PlaneCheckTest, ComparesSizeWithStrideTimesRows) {
    LogCapture log;
    MyStaticInfo info;
    info.format = 0x1;
    info.planes = {{8294400, 7680}};
    EXPECT_TRUE(checkPlaneSize(info, 0, 1080));
    EXPECT_TRUE(log.android().empty());
    EXPECT_FALSE(checkPlaneSize(info, 0, 1088));
    EXPECT_TRUE(log.has("[checkPlaneSize] [RGBA_8888:0] sizeInBytes:8294400 != 7680 x 1088"));

    log.clear();
    info.isAFBC = true;
    info.planes = {{10000, 1000}};
    EXPECT_TRUE(checkPlaneSize(info, 0, 10));
    EXPECT_TRUE(log.has("[checkPlaneSize] AFBC buffer is not 32 aligned, 1000 (1024)"));
    log.clear();
    const uint8_t two = 2;
    memcpy(&info.isAFBC, &two, 1);
    EXPECT_TRUE(checkPlaneSize(info, 0, 10));
    EXPECT_TRUE(log.android().empty());

    LogCapture quiet(3, 1, 0);  // warnings off: the comparison is made all the same
    EXPECT_FALSE(checkPlaneSize(info, 0, 11));
    EXPECT_TRUE(quiet.android().empty());
}

TEST_F(LayoutTest, ExtensionRecord) {
    Buffer buffer(64, 48, 0x11, 0x3);
    GrallocAidlV2::Extra extra{};
    {
        LogCapture log;
        zyncam::sim::failExtraQuery(100, -1);
        extra.isAFBC = true;
        EXPECT_EQ(GrallocAidlV2::gQueryExtra(buffer.get(), extra), INT32_MIN);
        EXPECT_TRUE(extra.isAFBC);  // left as it was
        auto first = log.find("gralloc_extra_query returns -1 (gQueryExtra){#472:");
        ASSERT_TRUE(first);
        EXPECT_TRUE(
                log.has("[gQueryExtra] {format:YCrCb_420_SP usage:0|SW_READ_OFTEN "
                        "widthInPixels:64 heightInPixels:48 rowStrideInPixels:64 rowNum:48 "
                        "allocSize:4608 consumerUsage:0|SW_READ_OFTEN producerUsage:0 "
                        "stride:64 height:48 isAFBC:1 id:"));
        EXPECT_TRUE(log.has("} (gQueryExtra){#473:"));
        zyncam::sim::failExtraQuery(100, std::nullopt);
    }
    {
        // Own level 0 with a stride: no dump; a zero stride always reaches the debug log.
        LogCapture log;
        EXPECT_EQ(GrallocAidlV2::gQueryExtra(buffer.get(), extra), 0);
        EXPECT_FALSE(extra.isAFBC);
        EXPECT_FALSE(log.has("GrallocExtra:"));
        overrideExtraQuery(12, 0);
        EXPECT_EQ(GrallocAidlV2::gQueryExtra(buffer.get(), extra), 0);
        auto line = log.find("GrallocExtra:{format:");
        ASSERT_TRUE(line);
        EXPECT_TRUE(testing::internal::RE::FullMatch(
                line->text,
                "\\[gQueryExtra\\] Given buffer_handle_t:0x[0-9a-f]+, GrallocExtra:\\{format:.* "
                "isAFBC:0 id:[0-9]+\\}"));
    }
}

TEST_F(LayoutTest, AfbcFlagIsBit22OfTheStatusWord) {
    Buffer buffer(64, 48, 0x11, 0x3);
    GrallocAidlV2::Extra extra{};
    for (int64_t status : {0x400000LL, 0xFFBFFFFFLL, 0x400C03LL}) {
        overrideExtraQuery(100, status);
        ASSERT_EQ(GrallocAidlV2::gQueryExtra(buffer.get(), extra), 0);
        EXPECT_EQ(extra.isAFBC, (status & 0x400000) != 0) << std::hex << status;
    }
}

TEST(LayoutDeathTest, FailedYCbCrLockIsFatal) {
    const char* kReport =
            "\\[Fatal\\] \\[gQueryYCbCr\\] status:-5\\(Unknown error -5\\) "
            "\\(gQueryYCbCr\\)\\{#529:utils/gralloc/aidl/v2/GrallocHelper\\}";
    auto probe = [] {
        GrallocHelperAidlV2Imp helper;
        zyncam::sim::failLock(5);
        zcam::GrallocRequest r{0x3, 0x11, 64, 48, 0};
        zcam::GrallocStaticInfo info;
        helper.query(&r, &info, false);
    };
    EXPECT_DEATH(probe(), kReport);
    EXPECT_DEATH(
            {
                zyncam::host::setTestLogAnswer(0);
                probe();
            },
            testing::AllOf(
                    testing::HasSubstr("(gQueryYCbCr){#529:utils/gralloc/aidl/v2/GrallocHelper}"),
                    testing::Not(testing::HasSubstr("[Fatal]"))));
}

}  // namespace
