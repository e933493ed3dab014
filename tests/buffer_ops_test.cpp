// Operations on existing buffers: the buffer query, import/lock/unlock/free and the setters.
#include <gralloc_extra.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <gtest/gtest.h>

#include "GrallocHelperInternal.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

using GrallocAidlV2::GrallocHelperAidlV2Imp;
using testkit::Buffer;
using testkit::LogCapture;
using zyncam::sim::counters;

class BufferOpsTest : public ::testing::Test {
protected:
    testkit::SimFaults mFaults;
    GrallocHelperAidlV2Imp mHelper;
};

uint32_t sfStatus(buffer_handle_t buffer) {
    GrallocExtraSfInfo info{};
    EXPECT_EQ(gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_SF_INFO, &info), 0);
    return info.status;
}

TEST_F(BufferOpsTest, QueryOfABufferUsesTheSharedCache) {
    Buffer first(640, 480, 0x11, 0x3), second(640, 480, 0x11, 0x3);
    LogCapture log;
    zcam::GrallocStaticInfo info;
    NSCam::GrallocDynamicInfo dynamic;
    ASSERT_EQ(mHelper.query(first.get(), &info, &dynamic), 0);
    EXPECT_EQ(log.count("[query] Not found: 640x480 YCrCb_420_SP"), 1u);
    const auto locks = counters().locks;
    ASSERT_EQ(mHelper.query(second.get(), &info, &dynamic), 0);
    EXPECT_EQ(log.count("Not found"), 1u);  // the second buffer hits the cache
    EXPECT_EQ(counters().locks, locks);     // and is not derived again
    ASSERT_EQ(dynamic.ionFds.size(), 2u);   // appended, never cleared
    int fd = -1;
    gralloc_extra_query(second.get(), GRALLOC_EXTRA_GET_ION_FD, &fd);
    EXPECT_EQ(dynamic.ionFds[1], fd);
    ASSERT_EQ(info.planes.size(), 2u);
    EXPECT_EQ(info.planes[1].sizeInBytes, 640u * 240);

    // A layout request of that shape does not match the usage-0 key of the buffer query.
    zcam::GrallocRequest r{0, 0x11, 640, 480, 0};
    const auto allocations = counters().allocateCalls;
    ASSERT_EQ(mHelper.query(&r, &info, false), 0);
    EXPECT_EQ(counters().allocateCalls, allocations + 1);
}

TEST_F(BufferOpsTest, AfbcFlagDescribesTheBufferAtHand) {
    Buffer plain(64, 48, 0x11, 0x3), afbc(64, 48, 0x11, 0x3);
    zcam::GrallocStaticInfo info;
    ASSERT_EQ(mHelper.query(plain.get(), &info, nullptr), 0);
    // Same key as the cached entry, but this buffer's own status says AFBC.
    GrallocExtraSfInfo sf{};
    gralloc_extra_query(afbc.get(), GRALLOC_EXTRA_GET_SF_INFO, &sf);
    sf.status |= GRALLOC_EXTRA_BIT_AFBC;
    gralloc_extra_perform(afbc.get(), GRALLOC_EXTRA_SET_SF_INFO, &sf);
    ASSERT_EQ(mHelper.query(afbc.get(), &info, nullptr), 0);
    EXPECT_TRUE(info.isAFBC);
    ASSERT_EQ(mHelper.query(plain.get(), &info, nullptr), 0);
    EXPECT_FALSE(info.isAFBC);
}

TEST_F(BufferOpsTest, QueryFailures) {
    Buffer buffer(64, 48, 0x11, 0x3);
    LogCapture log;
    zcam::GrallocStaticInfo info;
    info.format = 5;
    NSCam::GrallocDynamicInfo dynamic;

    EXPECT_EQ(mHelper.query(static_cast<buffer_handle_t>(nullptr), &info, &dynamic), -22);
    EXPECT_TRUE(log.has("[query] NULL buffer_handle_t (query){#"));

    zyncam::sim::failExtraQuery(14, -1);
    EXPECT_EQ(mHelper.query(buffer.get(), &info, &dynamic), INT32_MIN);
    EXPECT_EQ(info.format, 5);
    zyncam::sim::failExtraQuery(14, std::nullopt);

    // Without a dynamic record the descriptor is never asked for.
    zyncam::sim::failExtraQuery(1, -9);
    EXPECT_EQ(mHelper.query(buffer.get(), &info, nullptr), INT32_MIN);  // derivation needs it
    EXPECT_EQ(info.format, 5);
    zyncam::sim::failExtraQuery(1, std::nullopt);
    ASSERT_EQ(mHelper.query(buffer.get(), &info, nullptr), 0);
    zyncam::sim::failExtraQuery(1, -9);
    EXPECT_EQ(mHelper.query(buffer.get(), &info, nullptr), 0);  // cached, descriptor not needed
    log.clear();
    info.format = 5;
    EXPECT_EQ(mHelper.query(buffer.get(), &info, &dynamic), INT32_MIN);
    EXPECT_EQ(info.format, 0x11);  // already written
    EXPECT_TRUE(log.has("[query] [buffer_handle_t:0x"));
    EXPECT_TRUE(log.has("err:-9 ionFd:-1 (query){#"));
    EXPECT_TRUE(dynamic.ionFds.empty());
}

TEST_F(BufferOpsTest, ImportReplacesTheHandle) {
    native_handle_t* raw = zyncam::sim::createRawBuffer(64, 48, 0x11, 0x3);
    buffer_handle_t handle = raw;
    ASSERT_TRUE(mHelper.importBuffer(handle, false));
    EXPECT_NE(handle, raw);
    EXPECT_EQ(mHelper.freeBuffer(handle), 0);

    // With deleteRaw the record goes (its descriptors stay the caller's to close).
    native_handle_t* copy = native_handle_clone(raw);
    handle = copy;
    ASSERT_TRUE(mHelper.importBuffer(handle, true));
    EXPECT_EQ(mHelper.freeBuffer(handle), 0);

    // A refused import leaves the caller's handle as it was.
    LogCapture log;
    zyncam::sim::failImportAt(1);
    handle = raw;
    EXPECT_FALSE(mHelper.importBuffer(handle, true));
    EXPECT_EQ(handle, raw);
    EXPECT_TRUE(log.has("[importBuffer] importBuffer(0x"));
    EXPECT_TRUE(log.has("failed: 2 (importBuffer){#"));
    native_handle_close(raw);
    native_handle_delete(raw);

    native_handle_t* empty = native_handle_create(0, 0);
    handle = empty;
    const auto imports = counters().imports;
    EXPECT_TRUE(mHelper.importBuffer(handle, true));
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(counters().imports, imports);
    EXPECT_EQ(native_handle_delete(empty), 0);  // still the caller's

    EXPECT_EQ(mHelper.freeBuffer(nullptr), -1);
}

TEST_F(BufferOpsTest, LockFromTheOriginAndUnlockWaitsForTheFence) {
    Buffer buffer(64, 48, 0x11, 0x3);
    LogCapture log;
    void* data = nullptr;
    EXPECT_EQ(mHelper.lock(buffer.get(), 0x3, 64, 32, &data), 0);
    EXPECT_NE(data, nullptr);
    zyncam::sim::setLateFenceMs(30);
    const int fds = zyncam::host::openFdCount();
    const nsecs_t start = systemTime();
    EXPECT_EQ(mHelper.unlock(buffer.get()), 0);
    EXPECT_GE(systemTime() - start, 25 * 1000000LL);
    EXPECT_EQ(zyncam::host::openFdCount(), fds);  // the fence was closed

    // A region beyond the buffer is refused: the width really reaches the mapper.
    EXPECT_EQ(mHelper.lock(buffer.get(), 0x3, 65, 48, &data), 3);
    EXPECT_TRUE(log.has("[lock] lock(...) failed 3 (Unknown error -3) (lock){#"));
    EXPECT_EQ(mHelper.unlock(buffer.get()), 0);  // not locked: the mapper fails, 0 all the same
}

TEST_F(BufferOpsTest, ColourSpaces) {
    struct Case {
        uint32_t dataspace;
        uint32_t value;
        bool error;
    };
    const Case cases[] = {
            {0x08C20000, 0x40000000, false},  // V0_JFIF
            {0x10C20000, 0x20000000, false},  // V0_BT601_625
            {0x10C10000, 0x60000000, false},  // V0_BT709
            {0x08810000, 0x80000000, false},  // V0_SRGB
            {0x09C60000, 0xC0000000, false},  // BT2020_PQ
            {0x11C60000, 0xA0000000, false},  // BT2020_ITU_PQ
            {0x101, 0x40000000, false},       // JFIF
            {0x102, 0x20000000, false},       // BT601_625
            {0x103, 0x20000000, false},       // BT601_525
            {0x104, 0x60000000, false},       // BT709
            {0x10C50000, 0x20000000, false},  // BT601_525_UNADJUSTED, limited
            {0x08C30000, 0x40000000, false},  // BT601_625_UNADJUSTED, full
            {0x08C70000, 0xC0000000, false},  // BT2020 constant luminance, full
            {0x10C40000, 0x40000000, true},   // V0_BT601_525 is not in the family
            {0x088A0000, 0x40000000, true},   // DISPLAY_P3
            {0x201, 0x40000000, true},        // SRGB
            {0x200, 0x40000000, true},       {0, 0x40000000, true},
            {0x18810000, 0x40000000, true},  // V0_SCRGB: extended range
            {0x00C10000, 0x40000000, true},  // BT709 without a range
    };
    Buffer buffer(64, 48, 0x11, 0x3);
    mHelper.setDirtyCamera(buffer.get());
    for (const auto& c : cases) {
        LogCapture log;
        EXPECT_EQ(mHelper.setColorspace(buffer.get(), static_cast<int>(c.dataspace)), 0);
        EXPECT_EQ(sfStatus(buffer.get()), c.value | 0xC03) << std::hex << c.dataspace;
        const std::string line = "[setColorspace] unknown color space 40000000(" +
                                 zcam::queryDataspaceName(static_cast<int>(c.dataspace)) +
                                 "), set default value, BT601 FULL (setColorspace){#";
        EXPECT_EQ(log.has(line), c.error) << std::hex << c.dataspace;
        EXPECT_FALSE(log.has("GRALLOC_EXTRA_BIT_YUV"));  // own level 0
    }
}

TEST_F(BufferOpsTest, ColourSpaceTraceFollowsOwnLogLevel) {
    Buffer buffer(64, 48, 0x11, 0x3);
    {
        testkit::ScopedProperty level("debug.zyncam.utils.gralloc.loglevel", "2");
        GrallocHelperAidlV2Imp verbose;
    }
    LogCapture log;
    mHelper.setColorspace(buffer.get(), 0x10C10000);
    EXPECT_TRUE(
            log.has("[setColorspace] GRALLOC_EXTRA_BIT_YUV=0x60000000(V0_BT709|STANDARD_BT709|"
                    "TRANSFER_SMPTE_170M|RANGE_LIMITED)"));
    GrallocAidlV2::gLogLevel = 0;
}

TEST_F(BufferOpsTest, StatusAndStartOfFrame) {
    Buffer buffer(64, 48, 0x11, 0x3);
    EXPECT_EQ(mHelper.setBufferStatus(buffer.get(), 0xF0, 0x35), 0);
    EXPECT_EQ(sfStatus(buffer.get()), 0x30u);
    EXPECT_EQ(mHelper.setDirtyCamera(buffer.get()), 0);
    EXPECT_EQ(sfStatus(buffer.get()), 0xC33u);

    // A failed read still writes a record: zero but for the changed bits.
    zyncam::sim::failExtraQuery(100, -1);
    EXPECT_EQ(mHelper.setBufferStatus(buffer.get(), 0x3, 0x1), 0);
    zyncam::sim::failExtraQuery(100, std::nullopt);
    EXPECT_EQ(sfStatus(buffer.get()), 0x1u);

    const auto performs = counters().extraPerforms;
    EXPECT_EQ(mHelper.setBufferSOF(buffer.get(), 123456789UL), 0);
    EXPECT_EQ(counters().extraPerforms, performs + 1);
    native_handle_t* bogus = native_handle_create(0, 0);
    EXPECT_NE(mHelper.setBufferSOF(bogus, 1), 0);
    EXPECT_NE(mHelper.setDirtyCamera(bogus), 0);
    native_handle_delete(bogus);

    EXPECT_EQ(mHelper.getGrallocExtraFormat(0x22, 0x10000), 0x1000);
    EXPECT_EQ(mHelper.getGrallocExtraFormat(0x23, 0), 0x11);
}

// A derived helper that replaces setBufferStatus changes the two setters built on it.
class RecordingHelper : public GrallocHelperAidlV2Imp {
public:
    int setBufferStatus(buffer_handle_t, int mask, int value) const override {
        calls.emplace_back(mask, value);
        return 42;
    }
    mutable std::vector<std::pair<int, int>> calls;
};

TEST(BufferSetterDispatchTest, SettersGoThroughTheInterface) {
    testkit::SimFaults faults;
    RecordingHelper helper;
    EXPECT_EQ(helper.setDirtyCamera(nullptr), 42);
    EXPECT_EQ(helper.setColorspace(nullptr, 0x10C10000), 42);
    ASSERT_EQ(helper.calls.size(), 2u);
    EXPECT_EQ(helper.calls[0], std::make_pair(0xC03, 0xC03));
    EXPECT_EQ(helper.calls[1], std::make_pair(static_cast<int>(0xE0000000), 0x60000000));
}

TEST_F(BufferOpsTest, InterfaceNames) {
    EXPECT_EQ(mHelper.queryPixelFormatName(0x23), "YCbCr_420_888");
    EXPECT_EQ(mHelper.queryGrallocUsageName(0x20020000), "0|HW_CAMERA_WRITE|SMVR");
    EXPECT_EQ(mHelper.queryDataspaceName(0x60000), "0x60000|STANDARD_BT2020");
    EXPECT_EQ(mHelper.queryDataspaceName(0x1005), "0x1005");
}

}  // namespace
