// The helper end to end on the simulated gralloc: lifecycle, the layout query and its cache.
#include <aidl/android/hardware/graphics/allocator/AllocationError.h>
#include <gralloc_extra.h>
#include <utils/Errors.h>

#include <gtest/gtest.h>

#include <zyncam_host/SimGralloc.h>

#include "GrallocHelperInternal.h"
#include "kit/Codes.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

using aidl::android::hardware::graphics::allocator::AllocationError;
using GrallocAidlV2::GrallocHelperAidlV2Imp;
using GrallocAidlV2::MyStaticInfo;
using testkit::bits;
using testkit::BufferUsage;
using testkit::fmt;
using testkit::kCpuReadOften;
using testkit::LogCapture;
using testkit::PixelFormat;
using zyncam::sim::counters;

zcam::GrallocRequest request(int32_t w, int32_t h, int32_t format, int32_t usage = 0,
                             int32_t batch = 0) {
    return {usage, format, w, h, batch};
}

size_t cachedPairs(const GrallocHelperAidlV2Imp& helper) {
    return zcam::layoutCacheOf(helper)->cachedLayoutCount();
}

TEST(HelperLifecycleTest, ConstructionReplacesTheAdaptersAndReadsTheLogLevel) {
    testkit::SimFaults faults;
    LogCapture log;
    std::optional<GrallocHelperAidlV2Imp> first;
    {
        testkit::ScopedProperty level("debug.zyncam.utils.gralloc.loglevel", "3");
        first.emplace();
        EXPECT_EQ(GrallocAidlV2::gLogLevel.load(), 3);
    }
    EXPECT_EQ(GrallocAidlV2::gLogLevel.load(), 3);  // read again only by the next construction
    EXPECT_TRUE(log.has("[GrallocHelperAidlV2Imp] +"));
    EXPECT_TRUE(log.has("[initialize] -"));
    const auto* mapper = GrallocAidlV2::gMapperV5.get();
    const auto* allocator = GrallocAidlV2::gAllocatorAidl.get();

    zcam::GrallocStaticInfo info;
    auto r = request(64, 48, fmt(PixelFormat::YCRCB_420_SP));
    ASSERT_EQ(first->query(&r, &info, false), android::NO_ERROR);
    {
        GrallocHelperAidlV2Imp second;
        EXPECT_EQ(GrallocAidlV2::gLogLevel.load(), 0);
        EXPECT_NE(GrallocAidlV2::gMapperV5.get(), mapper);
        EXPECT_NE(GrallocAidlV2::gAllocatorAidl.get(), allocator);
        mapper = GrallocAidlV2::gMapperV5.get();
        // Both helpers work through the new adapters; the first keeps its cache.
        const auto before = counters().allocateCalls;
        ASSERT_EQ(first->query(&r, &info, false), android::NO_ERROR);
        ASSERT_EQ(second.query(&r, &info, false), android::NO_ERROR);
        EXPECT_EQ(counters().allocateCalls, before + 1);
    }
    EXPECT_TRUE(log.has("[~GrallocHelperAidlV2Imp] -"));
    EXPECT_EQ(GrallocAidlV2::gMapperV5.get(), mapper);  // destruction leaves them in place
    EXPECT_NE(GrallocAidlV2::gAllocatorAidl, nullptr);
}

TEST(HelperLifecycleDeathTest, MissingServiceEndsConstruction) {
    EXPECT_DEATH(
            {
                auto service = zyncam::host::removeService(zyncam::sim::kAllocatorInstance);
                GrallocHelperAidlV2Imp helper;
            },
            "getIMapperLibrarySuffix fail");
}

TEST(LayoutQueryTest, ProbesOncePerRequestAndNamesTheProbe) {
    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    zyncam::sim::clearDmaBufNameHistory();
    const auto before = counters();
    auto r = request(4000, 3000, fmt(PixelFormat::RAW16), kCpuReadOften);
    zcam::GrallocStaticInfo info;
    ASSERT_EQ(helper.query(&r, &info, false), android::NO_ERROR);
    ASSERT_EQ(helper.query(&r, &info, false), android::NO_ERROR);
    EXPECT_EQ(counters().allocateCalls, before.allocateCalls + 1);
    EXPECT_EQ(counters().liveBuffers, before.liveBuffers);  // the probe was freed
    EXPECT_EQ(zyncam::sim::dmaBufNameHistory(),
              std::vector<std::string>{"GrallocHelper-4000x3000-32"});
    EXPECT_EQ(info.format, fmt(PixelFormat::RAW16));
    ASSERT_EQ(info.planes.size(), 1u);
    EXPECT_EQ(info.planes[0].rowStrideInBytes, 8000u);
    EXPECT_EQ(info.planes[0].sizeInBytes, 24000000u);
    EXPECT_EQ(cachedPairs(helper), 1u);

    // refresh: probes again and still keeps one pair; on an absent key it is a plain miss.
    ASSERT_EQ(helper.query(&r, &info, true), android::NO_ERROR);
    EXPECT_EQ(counters().allocateCalls, before.allocateCalls + 2);
    EXPECT_EQ(cachedPairs(helper), 1u);
    auto other = request(320, 240, fmt(PixelFormat::RAW16));
    ASSERT_EQ(helper.query(&other, &info, true), android::NO_ERROR);
    EXPECT_EQ(cachedPairs(helper), 2u);

    helper.clearMap();
    EXPECT_EQ(cachedPairs(helper), 0u);
    ASSERT_EQ(helper.query(&r, &info, false), android::NO_ERROR);
    EXPECT_EQ(counters().allocateCalls, before.allocateCalls + 4);
}

TEST(LayoutQueryTest, AfbcLayoutsProbeEveryTime) {
    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    const auto before = counters().allocateCalls;
    auto r = request(1920, 1080, zcam::kPixelFormatNV12, testkit::kSimUsageAfbc);
    zcam::GrallocStaticInfo info;
    for (int i = 0; i < 3; ++i) ASSERT_EQ(helper.query(&r, &info, false), android::NO_ERROR);
    EXPECT_TRUE(info.isAFBC);
    EXPECT_EQ(counters().allocateCalls, before + 3);
    EXPECT_EQ(cachedPairs(helper), 1u);
}

TEST(LayoutQueryTest, ImplementationDefinedAddsOneAlias) {
    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    zyncam::sim::clearDmaBufNameHistory();
    zcam::GrallocStaticInfo info;
    auto texture = request(640, 480, fmt(PixelFormat::IMPLEMENTATION_DEFINED),
                           bits(BufferUsage::GPU_TEXTURE));
    ASSERT_EQ(helper.query(&texture, &info, false), android::NO_ERROR);
    EXPECT_EQ(info.format, fmt(PixelFormat::YV12));
    EXPECT_EQ(cachedPairs(helper), 2u);
    // The probe is named after the format it resolved to.
    EXPECT_EQ(zyncam::sim::dmaBufNameHistory().back(), "GrallocHelper-640x480-842094169");

    auto composer = request(640, 480, fmt(PixelFormat::IMPLEMENTATION_DEFINED),
                            bits(BufferUsage::COMPOSER_OVERLAY));
    ASSERT_EQ(helper.query(&composer, &info, false), android::NO_ERROR);
    EXPECT_EQ(cachedPairs(helper), 3u);  // its own key, no second alias

    // A buffer of the resolved format and the requested size finds the alias.
    testkit::Buffer buffer(640, 480, fmt(PixelFormat::YV12), kCpuReadOften);
    zcam::GrallocStaticInfo fromBuffer;
    const auto locks = counters().locks;
    ASSERT_EQ(helper.query(buffer.get(), &fromBuffer, nullptr), android::NO_ERROR);
    EXPECT_EQ(cachedPairs(helper), 3u);  // answered from the alias: nothing added
    EXPECT_EQ(counters().locks, locks);
    EXPECT_EQ(fromBuffer.planes.size(), 3u);
}

TEST(LayoutQueryTest, DumpLines) {
    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    {
        LogCapture log;
        helper.dumpToLog();
        auto lines = log.android();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].text, "[dumpToLog] +");
        EXPECT_EQ(lines[1].text, "[dumpToLog] -");
    }
    auto r = request(64, 48, fmt(PixelFormat::YCRCB_420_SP), kCpuReadOften);
    zcam::GrallocStaticInfo info;
    ASSERT_EQ(helper.query(&r, &info, false), android::NO_ERROR);
    LogCapture log;
    helper.dumpToLog();
    std::vector<std::string> texts;
    for (const auto& line : log.android()) texts.push_back(line.text);
    ASSERT_EQ(texts.size(), 8u);
    EXPECT_EQ(texts[1], "[dump] " + std::string(77, '*'));
    EXPECT_TRUE(
            testing::internal::RE::FullMatch(texts[2], "\\[dump\\] !!!gralloc time: [0-9]+ us"));
    EXPECT_EQ(texts[3],
              "[dump] 64x48 usage:0x00060003(0|SW_READ_OFTEN|HW_CAMERA_ZSL) "
              "format:0x00000011(YCrCb_420_SP) -->");
    EXPECT_EQ(texts[4],
              "[dump] 64x48 usage:0x00060003(0|SW_READ_OFTEN|HW_CAMERA_ZSL) C(0) "
              "format:0x00000011(YCrCb_420_SP)");
    EXPECT_EQ(texts[5], "[dump]   [0] sizeInBytes:3072 rowStrideInBytes:64");
    EXPECT_EQ(texts[6], "[dump]   [1] sizeInBytes:1536 rowStrideInBytes:64");
}

// The request line comes with every layout query, the hit's out-of-line one included, in the
// name of query, and only when debug lines are on.
TEST(LayoutQueryTest, RequestLineOnMissHitAndRefresh) {
    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    auto r = request(64, 48, fmt(PixelFormat::YCRCB_420_SP), kCpuReadOften, 3);
    const std::string line = "[query] Gralloc Request: u(0x3) f(0x11) w(64) h(48) BatchNum(3)";
    zcam::GrallocStaticInfo info;
    for (const bool refresh : {false, false, true}) {
        LogCapture log;
        ASSERT_EQ(helper.query(&r, &info, refresh), android::NO_ERROR);
        EXPECT_EQ(log.count(line), 1u) << "refresh " << refresh;
    }
    LogCapture quiet(3, 2);  // warnings and errors only
    ASSERT_EQ(helper.query(&r, &info, false), android::NO_ERROR);
    EXPECT_FALSE(quiet.has("Gralloc Request"));
}

// An override of the interface's namers changes the dump.
class RenamingHelper : public GrallocHelperAidlV2Imp {
public:
    std::string queryPixelFormatName(int) const override { return "F"; }
    std::string queryGrallocUsageName(int) const override { return "U"; }
};

TEST(LayoutQueryTest, DumpNamesGoThroughTheInterface) {
    testkit::SimFaults faults;
    RenamingHelper helper;
    LogCapture log;
    auto r = request(64, 48, fmt(PixelFormat::YCRCB_420_SP), kCpuReadOften);
    zcam::GrallocStaticInfo info;
    ASSERT_EQ(helper.query(&r, &info, false), android::NO_ERROR);
    EXPECT_TRUE(log.has("[dump] 64x48 usage:0x00060003(U) format:0x00000011(F) -->"));
}

TEST(LayoutQueryTest, FailuresLeaveTheCallersRecordAndTheCache) {
    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    LogCapture log;
    zcam::GrallocStaticInfo info;
    info.format = 77;
    info.planes = {{1, 2}};
    auto r = request(64, 48, fmt(PixelFormat::YCRCB_420_SP), kCpuReadOften);

    EXPECT_EQ(helper.query(nullptr, &info, false), android::BAD_VALUE);
    EXPECT_TRUE(
            log.has("[query] NULL pRequest (query){#1263:utils/gralloc/aidl/v2/GrallocHelper}"));
    EXPECT_EQ(helper.query(&r, nullptr, false), android::BAD_VALUE);
    EXPECT_TRUE(log.has("[query] NULL pStaticInfo (query){#1268:"));

    zyncam::sim::failAllocate(static_cast<int32_t>(AllocationError::NO_RESOURCES));
    EXPECT_EQ(helper.query(&r, &info, false), android::NO_MEMORY);
    EXPECT_TRUE(
            log.has("[determine] Bad allcation handle:(nil) 64x48 format:0x11(YCrCb_420_SP) "
                    "usage:0x60003(0|SW_READ_OFTEN|HW_CAMERA_ZSL) (determine){#1418:"));
    zyncam::sim::failAllocate(std::nullopt);

    // Derivation fails: the probe is still named and freed.
    zyncam::sim::clearDmaBufNameHistory();
    const auto live = counters().liveBuffers;
    auto rgbx = request(64, 48, fmt(PixelFormat::RGBX_8888));
    EXPECT_EQ(helper.query(&rgbx, &info, false), android::NAME_NOT_FOUND);
    EXPECT_EQ(counters().liveBuffers, live);
    EXPECT_EQ(zyncam::sim::dmaBufNameHistory(), std::vector<std::string>{"GrallocHelper-64x48-2"});

    // The descriptor query fails: the probe buffer is left allocated, and only it.
    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_ION_FD, -EIO);
    EXPECT_EQ(helper.query(&r, &info, false), android::UNKNOWN_ERROR);
    EXPECT_TRUE(log.has("err:-5 ionFd:-1 (determine){#1434:"));
    EXPECT_EQ(counters().liveBuffers, live + 1);

    EXPECT_EQ(info.format, 77);
    ASSERT_EQ(info.planes.size(), 1u);
    EXPECT_EQ(info.planes[0].sizeInBytes, 1u);
    EXPECT_EQ(cachedPairs(helper), 0u);
}

TEST(LayoutQueryTest, BatchFormatsAndSlowMotionSizes) {
    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    zcam::GrallocStaticInfo info;
    // Here a batch of 8 frames is NV21; the SMVR rule sizes the chroma plane of one frame.
    auto batch = request(1280, 720, zcam::kPixelFormatSmvrBatch8, zcam::kUsageSmvr | kCpuReadOften);
    ASSERT_EQ(helper.query(&batch, &info, false), android::NO_ERROR);
    EXPECT_EQ(info.format, fmt(PixelFormat::YCRCB_420_SP));
    ASSERT_EQ(info.planes.size(), 2u);
    EXPECT_EQ(info.planes[0].sizeInBytes, 1280u * 736);
    EXPECT_EQ(info.planes[1].sizeInBytes, 1280u * 736 / 2);
    EXPECT_EQ(cachedPairs(helper), 2u);  // the request and its alias

    // Here a compressed batch of 8 frames is AFBC NV12; the plane is one frame of the batch.
    auto afbc = request(1280, 720, zcam::kPixelFormatSmvrBatchCompressed8, zcam::kUsageSmvr);
    ASSERT_EQ(helper.query(&afbc, &info, false), android::NO_ERROR);
    EXPECT_TRUE(info.isAFBC);
    zcam::GrallocCachedLayout cached;
    ASSERT_TRUE(helper.findCachedLayout(afbc, true, &cached));
    EXPECT_EQ(cached.framesPerBuffer, 8u);
    EXPECT_EQ(info.planes[0].sizeInBytes, cached.allocSize / 8);
}

TEST(BatchNumTest, ReadsThePropertyOfTheSizeClass) {
    testkit::SimFaults faults;
    GrallocHelperAidlV2Imp helper;
    testkit::ScopedProperty vga("ro.vendor.smvr.p2batch.vga", "2");
    testkit::ScopedProperty hd("ro.vendor.smvr.p2batch.hd", "4");
    testkit::ScopedProperty fhd("ro.vendor.smvr.p2batch.fhd", "-3");
    struct Case {
        int32_t w, h, usage, expected;
    };
    constexpr int32_t kSmvr = zcam::kUsageSmvr;
    const Case cases[] = {
            {640, 480, kSmvr, 2},         {1280, 720, kSmvr, 4},    {1280, 736, kSmvr, 4},
            {1920, 1080, kSmvr, -3},      {1920, 1088, kSmvr, -3},  {3840, 2160, kSmvr, 1},
            {640, 480, kCpuReadOften, 1}, {65536, 65536, kSmvr, 2},  // the product wraps to 0
    };
    for (const auto& c : cases) {
        GrallocHelperAidlV2Imp::MyRequest key;
        key.usage = c.usage;
        key.widthInPixels = c.w;
        key.heightInPixels = c.h;
        LogCapture log;
        EXPECT_EQ(helper.queryBatchNum(key), c.expected) << c.w << "x" << c.h;
        EXPECT_EQ(log.has("[queryBatchNum] smvr batch number:"), (c.usage & kSmvr) != 0);
    }
    testkit::ScopedProperty unset("ro.vendor.smvr.p2batch.vga", "x");
    GrallocHelperAidlV2Imp::MyRequest key;
    key.usage = zcam::kUsageSmvr;
    key.widthInPixels = 640;
    key.heightInPixels = 480;
    EXPECT_EQ(helper.queryBatchNum(key), 1);
}

}  // namespace
