// Layout derivation from gralloc-extension attributes, with values chosen through the simulator.
#include <gralloc_extra.h>

#include <zyncam_host/Camera.h>

#include <gmock/gmock.h>
#include <utils/Errors.h>

#include <gtest/gtest.h>

#include <cstring>

#include "GrallocHelperInternal.h"
#include "kit/Codes.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"
#include "logging/GrallocLog.h"

namespace {

using GrallocAidlV2::checkPlaneSize;
using GrallocAidlV2::GrallocHelperAidlV2Imp;
using GrallocAidlV2::MyStaticInfo;
using GrallocAidlV2::queryStaticInfo;
using testkit::bits;
using testkit::Buffer;
using testkit::BufferUsage;
using testkit::fmt;
using testkit::kCpuReadOften;
using testkit::LogCapture;
using testkit::PixelFormat;
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
    const int32_t kImplementationDefined = fmt(PixelFormat::IMPLEMENTATION_DEFINED);
    const int32_t kYuv422 = fmt(PixelFormat::YCBCR_422_I);
    const Case cases[] = {
            {fmt(PixelFormat::RGBA_8888), 1920, 1080, 8294400, {7680, 8294400}},
            {fmt(PixelFormat::BGRA_8888), 100, 10, 4000, {400, 4000}},
            {fmt(PixelFormat::RGB_888), 100, 10, 3000, {300, 3000}},
            {fmt(PixelFormat::RGB_565), 100, 10, 2000, {200, 2000}},
            {fmt(PixelFormat::RAW16), 100, 10, 2000, {200, 2000}},
            {fmt(PixelFormat::Y16), 100, 10, 2000, {200, 2000}},
            {fmt(PixelFormat::BLOB), 5000, 1, 5000, {5000, 5000}},
            {fmt(PixelFormat::RAW_OPAQUE), 128, 10, 1280, {128, 1280}},
            {fmt(PixelFormat::RAW10), 128, 10, 1280, {128, 1280}},
            {fmt(PixelFormat::Y8), 100, 10, 1000, {100, 1000}},
            {kImplementationDefined, 1000, 10, 10240, {1024, 10240}},  // rounded to 32, no packing
            {zcam::kPixelFormatCameraOpaque, 1000, 10, 10240, {1024, 10240}},
            {kYuv422, 100, 10, 2000, {200, 2000}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << "format 0x" << c.format);
        Buffer buffer(64, 48, fmt(PixelFormat::RGBA_8888), kCpuReadOften);
        overrideExtraQuery(GRALLOC_EXTRA_GET_FORMAT, c.format);
        overrideExtraQuery(GRALLOC_EXTRA_GET_STRIDE, c.S);
        overrideExtraQuery(GRALLOC_EXTRA_GET_VERTICAL_STRIDE, c.R);
        overrideExtraQuery(GRALLOC_EXTRA_GET_ALLOC_SIZE, c.A);
        LogCapture log;
        MyStaticInfo info;
        EXPECT_EQ(queryStaticInfo(buffer.get(), info), android::NO_ERROR);
        expectPlanes(info, {c.plane});
        EXPECT_EQ(info.format, c.format);
        EXPECT_EQ(info.allocSize, static_cast<size_t>(c.A));
        EXPECT_FALSE(log.has("!="));  // consistent values pass the plane check
        EXPECT_EQ(log.has("[queryStaticInfo] only in zsl mode: 0x"),
                  c.format == kImplementationDefined || c.format == zcam::kPixelFormatCameraOpaque);
        // YCbCr_422_I's stride 200 is not a multiple of 32, and 2000 < 200 * 16.
        EXPECT_EQ(log.has("[queryStaticInfo] [YCbCr_422_I] rowStrideInBytes:200 is not a multiple "
                          "of 32"),
                  c.format == kYuv422);
        EXPECT_EQ(
                log.has("[queryStaticInfo] [YCbCr_422_I] sizeInBytes:2000<rowStrideInBytes:200*16"),
                c.format == kYuv422);
    }
}

TEST_F(LayoutTest, RecordFieldsComeFromTheExtension) {
    Buffer buffer(1920, 1080, fmt(PixelFormat::YCRCB_420_SP), kCpuReadOften);
    MyStaticInfo info;
    info.batchNum = 5;
    ASSERT_EQ(queryStaticInfo(buffer.get(), info), android::NO_ERROR);
    EXPECT_EQ(info.format, fmt(PixelFormat::YCRCB_420_SP));
    EXPECT_EQ(info.widthInPixels, 1920);
    EXPECT_EQ(info.heightInPixels, 1080);
    EXPECT_EQ(info.usage, static_cast<uint32_t>(kCpuReadOften));
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
        std::vector<std::pair<GRALLOC_EXTRA_ATTRIBUTE_QUERY, int64_t>> overrides;
        uint32_t batch;
        std::vector<Plane> planes;
    };
    const size_t afbcNv12 = 1280 * (720 * 3 / 2 + 45);  // bodies plus superblock header rows
    const int32_t kNV21 = fmt(PixelFormat::YCRCB_420_SP);
    const int32_t kYV12 = fmt(PixelFormat::YV12);
    const int32_t kP010 = fmt(PixelFormat::YCBCR_P010);
    const int32_t kNV12 = zcam::kPixelFormatNV12;
    const uint64_t kRead = kCpuReadOften;
    const uint64_t kSmvrRead = zcam::kUsageSmvr | kCpuReadOften;
    const uint64_t kAfbcSmvrRead = testkit::kSimUsageAfbc | kSmvrRead;
    const Case cases[] = {
            {"NV21 AFBC",
             kNV21,
             kRead,
             {{GRALLOC_EXTRA_GET_SF_INFO, GRALLOC_EXTRA_BIT_AFBC},
              {GRALLOC_EXTRA_GET_ALLOC_SIZE, 777}},
             1,
             {{1280, 777}}},
            {"NV21 slow motion", kNV21, kSmvrRead, {}, 1, {{1280, 1280 * 736}, {1280, 1280 * 368}}},
            {"YV12", kYV12, kRead, {}, 1, {{1280, 921600}, {640, 230400}, {640, 230400}}},
            {"YV12 slow motion batch 4",
             kYV12,
             kSmvrRead,
             {{GRALLOC_EXTRA_GET_ALLOC_SIZE, 4 * 1382400}},
             4,
             {{1280, 921600}, {640, 230400}, {640, 230400}}},
            {"NV12", kNV12, kRead, {}, 1, {{1280, 921600}, {1280, 460800}}},
            {"NV12 AFBC slow motion, batch 0", kNV12, kAfbcSmvrRead, {}, 0, {{1280, afbcNv12}}},
            {"NV12 AFBC slow motion, batch 2", kNV12, kAfbcSmvrRead, {}, 2, {{1280, afbcNv12 / 2}}},
            {"P010", kP010, kRead, {}, 1, {{2560, 1843200}, {2560, 921600}}},
            {"P010 AFBC slow motion, batch 0",
             kP010,
             kAfbcSmvrRead,
             {},
             0,
             {{2560, 2560 * (1080 + 23)}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Buffer buffer(1280, 720, c.format, c.usage);
        for (auto [attribute, value] : c.overrides) overrideExtraQuery(attribute, value);
        LogCapture log;
        MyStaticInfo info;
        info.batchNum = c.batch;
        EXPECT_EQ(queryStaticInfo(buffer.get(), info), android::NO_ERROR);
        expectPlanes(info, c.planes);
        // Slow-motion sizes are traced in the derivation's own name.
        EXPECT_EQ(log.has("[queryStaticInfo] Extra-info(producerUsage="),
                  (c.usage & zcam::kUsageSmvr) != 0);
        for (auto [attribute, value] : c.overrides) overrideExtraQuery(attribute, std::nullopt);
    }
}

TEST_F(LayoutTest, ProtectedYv12FollowsStrideAndHeight) {
    Buffer buffer(640, 480, fmt(PixelFormat::YV12), bits(BufferUsage::PROTECTED));
    overrideExtraQuery(GRALLOC_EXTRA_GET_STRIDE, 641);
    overrideExtraQuery(GRALLOC_EXTRA_GET_HEIGHT, 481);
    overrideExtraQuery(GRALLOC_EXTRA_GET_VERTICAL_STRIDE, 490);
    LogCapture log;
    MyStaticInfo info;
    const auto locks = zyncam::sim::counters().locks;
    ASSERT_EQ(queryStaticInfo(buffer.get(), info), android::NO_ERROR);
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
        std::optional<GRALLOC_EXTRA_ATTRIBUTE_QUERY> attributeToFail;
        std::optional<int64_t> ionFd;  // what the descriptor query reports instead
        int expected;
        const char* line;
    };
    const int32_t kNV21 = fmt(PixelFormat::YCRCB_420_SP);
    const Case cases[] = {
            {fmt(PixelFormat::YCBCR_420_888),
             {},
             {},
             android::UNKNOWN_ERROR,
             "[queryStaticInfo] format from gralloc_extra_query should not be: 0x23(YCbCr_420_888) "
             "(queryStaticInfo){#995:"},
            {fmt(PixelFormat::RGBX_8888),
             {},
             {},
             android::NAME_NOT_FOUND,
             "[queryStaticInfo] Not support format: 0x2(RGBX_8888) (queryStaticInfo){#999:"},
            {-1, {}, {}, android::NAME_NOT_FOUND, "Not support format: 0xffffffff() "},
            {kNV21, {}, -1, android::UNKNOWN_ERROR, "[queryStaticInfo] [buffer_handle_t:0x"},
            {kNV21,
             GRALLOC_EXTRA_GET_ION_FD,
             {},
             android::UNKNOWN_ERROR,
             "err:-22 ionFd:-1 (queryStaticInfo){#615:"},
            {kNV21,
             GRALLOC_EXTRA_GET_USAGE,
             {},
             android::UNKNOWN_ERROR,
             "[queryStaticInfo] Given buffer_handle_t:0x"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        Buffer buffer(64, 48, fmt(PixelFormat::RGBA_8888), kCpuReadOften);
        overrideExtraQuery(GRALLOC_EXTRA_GET_FORMAT, c.format);
        if (c.ionFd) overrideExtraQuery(GRALLOC_EXTRA_GET_ION_FD, *c.ionFd);
        if (c.attributeToFail) zyncam::sim::failExtraQuery(*c.attributeToFail, -EINVAL);
        LogCapture log;
        MyStaticInfo info;
        info.planes = {{9, 9}};
        EXPECT_EQ(queryStaticInfo(buffer.get(), info), c.expected);
        EXPECT_TRUE(log.has(c.line));
        ASSERT_EQ(info.planes.size(), 1u);  // planes untouched
        EXPECT_EQ(info.planes[0].sizeInBytes, 9u);
        const bool extraFailed = c.attributeToFail == GRALLOC_EXTRA_GET_USAGE;
        EXPECT_EQ(info.format, extraFailed ? 0 : c.format);  // written unless the read failed
        zyncam::sim::resetFaults();
    }
}

TEST(PlaneCheckTest, ComparesSizeWithStrideTimesRows) {
    LogCapture log;
    MyStaticInfo info;
    info.format = fmt(PixelFormat::RGBA_8888);
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

    // Errors only, warnings off: the comparison is made all the same.
    LogCapture quiet(zcam::logging::kModeAndroidLog | zcam::logging::kModeULogger,
                     zcam::logging::kError, 0);
    EXPECT_FALSE(checkPlaneSize(info, 0, 11));
    EXPECT_TRUE(quiet.android().empty());
}

TEST_F(LayoutTest, ExtensionRecord) {
    Buffer buffer(64, 48, fmt(PixelFormat::YCRCB_420_SP), kCpuReadOften);
    GrallocAidlV2::Extra extra{};
    {
        LogCapture log;
        zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_SF_INFO, -1);
        extra.isAFBC = true;
        EXPECT_EQ(GrallocAidlV2::gQueryExtra(buffer.get(), extra), android::UNKNOWN_ERROR);
        EXPECT_TRUE(extra.isAFBC);  // left as it was
        auto first = log.find("gralloc_extra_query returns -1 (gQueryExtra){#472:");
        ASSERT_TRUE(first);
        EXPECT_TRUE(
                log.has("[gQueryExtra] {format:YCrCb_420_SP usage:0|SW_READ_OFTEN "
                        "widthInPixels:64 heightInPixels:48 rowStrideInPixels:64 rowNum:48 "
                        "allocSize:4608 consumerUsage:0|SW_READ_OFTEN producerUsage:0 "
                        "stride:64 height:48 isAFBC:1 id:"));
        EXPECT_TRUE(log.has("} (gQueryExtra){#473:"));
        zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_SF_INFO, std::nullopt);
    }
    {
        // Own level 0 with a stride: no dump; a zero stride always reaches the debug log.
        LogCapture log;
        EXPECT_EQ(GrallocAidlV2::gQueryExtra(buffer.get(), extra), android::NO_ERROR);
        EXPECT_FALSE(extra.isAFBC);
        EXPECT_FALSE(log.has("GrallocExtra:"));
        overrideExtraQuery(GRALLOC_EXTRA_GET_STRIDE, 0);
        EXPECT_EQ(GrallocAidlV2::gQueryExtra(buffer.get(), extra), android::NO_ERROR);
        auto line = log.find("GrallocExtra:{format:");
        ASSERT_TRUE(line);
        EXPECT_TRUE(testing::internal::RE::FullMatch(
                line->text,
                "\\[gQueryExtra\\] Given buffer_handle_t:0x[0-9a-f]+, GrallocExtra:\\{format:.* "
                "isAFBC:0 id:[0-9]+\\}"));
    }
}

TEST_F(LayoutTest, AfbcFlagIsBit22OfTheStatusWord) {
    Buffer buffer(64, 48, fmt(PixelFormat::YCRCB_420_SP), kCpuReadOften);
    GrallocAidlV2::Extra extra{};
    constexpr int64_t kAfbcBit = GRALLOC_EXTRA_BIT_AFBC;
    constexpr int64_t kDirtyCamera = 0xC03;
    constexpr int64_t kAllButAfbc = static_cast<uint32_t>(~GRALLOC_EXTRA_BIT_AFBC);
    for (int64_t status : {kAfbcBit, kAllButAfbc, kAfbcBit | kDirtyCamera}) {
        overrideExtraQuery(GRALLOC_EXTRA_GET_SF_INFO, status);
        ASSERT_EQ(GrallocAidlV2::gQueryExtra(buffer.get(), extra), android::NO_ERROR);
        EXPECT_EQ(extra.isAFBC, (status & kAfbcBit) != 0) << std::hex << status;
    }
}

TEST(LayoutDeathTest, FailedYCbCrLockIsFatal) {
    const char* kReport =
            "\\[Fatal\\] \\[gQueryYCbCr\\] status:-5\\(Unknown error -5\\) "
            "\\(gQueryYCbCr\\)\\{#529:utils/gralloc/aidl/v2/GrallocHelper\\}";
    auto probe = [] {
        GrallocHelperAidlV2Imp helper;
        zyncam::sim::failLock(AIMAPPER_ERROR_NO_RESOURCES);
        zcam::GrallocRequest r{kCpuReadOften, fmt(PixelFormat::YCRCB_420_SP), 64, 48, 0};
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
