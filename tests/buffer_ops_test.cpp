// Operations on existing buffers: the buffer query, import/lock/unlock/free and the setters.
#include <aidl/android/hardware/graphics/common/Dataspace.h>
#include <gralloc_extra.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <utils/Errors.h>

#include <gtest/gtest.h>

#include "GrallocHelperInternal.h"
#include "kit/Codes.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

using aidl::android::hardware::graphics::common::Dataspace;
using GrallocAidlV2::GrallocHelperAidlV2Imp;
using testkit::bits;
using testkit::Buffer;
using testkit::BufferUsage;
using testkit::fmt;
using testkit::kCpuReadOften;
using testkit::LogCapture;
using testkit::PixelFormat;

constexpr int32_t kNV21 = fmt(PixelFormat::YCRCB_420_SP);
// The vendor status word: dirty-by-camera bits and the colour space in the top three bits.
constexpr uint32_t kDirtyCamera = zcam::kGrallocStatusDirtyCamera;
constexpr uint32_t kColorSpaceMask = 0xE0000000;
constexpr uint32_t kBt601Limited = 0x20000000, kBt601Full = 0x40000000, kBt709Limited = 0x60000000,
                   kBt709Full = 0x80000000, kBt2020Limited = 0xA0000000, kBt2020Full = 0xC0000000;
// Legacy whole dataspaces of the HAL, which the AIDL enum does not list.
constexpr int32_t kLegacyJfif = 0x101, kLegacyBt601_625 = 0x102, kLegacyBt601_525 = 0x103,
                  kLegacyBt709 = 0x104, kLegacySrgbLinear = 0x200, kLegacySrgb = 0x201;

constexpr int32_t dataspace(Dataspace value) {
    return static_cast<int32_t>(value);
}
using zyncam::sim::counters;

class BufferOpsTest : public ::testing::Test {
protected:
    testkit::SimFaults mFaults;
    GrallocHelperAidlV2Imp mHelper;
};

uint32_t sfStatus(buffer_handle_t buffer) {
    GrallocExtraSfInfo info{};
    EXPECT_EQ(gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_SF_INFO, &info), android::NO_ERROR);
    return info.status;
}

TEST_F(BufferOpsTest, QueryOfABufferUsesTheSharedCache) {
    Buffer first(640, 480, kNV21, kCpuReadOften), second(640, 480, kNV21, kCpuReadOften);
    LogCapture log;
    zcam::GrallocStaticInfo info;
    NSCam::GrallocDynamicInfo dynamic;
    ASSERT_EQ(mHelper.query(first.get(), &info, &dynamic), android::NO_ERROR);
    EXPECT_EQ(log.count("[query] Not found: 640x480 YCrCb_420_SP"), 1u);
    // The derived layout is cached under the buffer's format and size, with usage 0.
    const zcam::IGrallocLayoutCache& cache = mHelper;
    const std::vector<zcam::GrallocCachedLayout> entries = cache.cachedLayouts();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].key.format, kNV21);
    EXPECT_EQ(entries[0].key.usage, 0);
    EXPECT_EQ(entries[0].key.widthInPixels, 640);
    EXPECT_EQ(entries[0].key.heightInPixels, 480);
    const auto locks = counters().locks;
    ASSERT_EQ(mHelper.query(second.get(), &info, &dynamic), android::NO_ERROR);
    EXPECT_EQ(cache.cachedLayoutCount(), 1u);  // the second buffer hits that entry
    EXPECT_EQ(counters().locks, locks);        // and is not derived again
    ASSERT_EQ(dynamic.ionFds.size(), 2u);      // appended, never cleared
    int fd = -1;
    gralloc_extra_query(second.get(), GRALLOC_EXTRA_GET_ION_FD, &fd);
    EXPECT_EQ(dynamic.ionFds[1], fd);
    ASSERT_EQ(info.planes.size(), 2u);
    EXPECT_EQ(info.planes[1].sizeInBytes, 640u * 240);

    // A layout request of that shape does not match the usage-0 key of the buffer query.
    zcam::GrallocRequest r{0, kNV21, 640, 480, 0};
    const auto allocations = counters().allocateCalls;
    ASSERT_EQ(mHelper.query(&r, &info, false), android::NO_ERROR);
    EXPECT_EQ(counters().allocateCalls, allocations + 1);
}

TEST_F(BufferOpsTest, AfbcFlagDescribesTheBufferAtHand) {
    Buffer plain(64, 48, kNV21, kCpuReadOften), afbc(64, 48, kNV21, kCpuReadOften);
    zcam::GrallocStaticInfo info;
    ASSERT_EQ(mHelper.query(plain.get(), &info, nullptr), android::NO_ERROR);
    // Same key as the cached entry, but this buffer's own status says AFBC.
    GrallocExtraSfInfo sf{};
    gralloc_extra_query(afbc.get(), GRALLOC_EXTRA_GET_SF_INFO, &sf);
    sf.status |= GRALLOC_EXTRA_BIT_AFBC;
    gralloc_extra_perform(afbc.get(), GRALLOC_EXTRA_SET_SF_INFO, &sf);
    ASSERT_EQ(mHelper.query(afbc.get(), &info, nullptr), android::NO_ERROR);
    EXPECT_TRUE(info.isAFBC);
    ASSERT_EQ(mHelper.query(plain.get(), &info, nullptr), android::NO_ERROR);
    EXPECT_FALSE(info.isAFBC);
}

TEST_F(BufferOpsTest, QueryFailures) {
    Buffer buffer(64, 48, kNV21, kCpuReadOften);
    LogCapture log;
    zcam::GrallocStaticInfo info;
    info.format = 5;
    NSCam::GrallocDynamicInfo dynamic;

    EXPECT_EQ(mHelper.query(static_cast<buffer_handle_t>(nullptr), &info, &dynamic),
              android::BAD_VALUE);
    EXPECT_TRUE(log.has("[query] NULL buffer_handle_t (query){#"));

    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_ALLOC_SIZE, -1);
    EXPECT_EQ(mHelper.query(buffer.get(), &info, &dynamic), android::UNKNOWN_ERROR);
    EXPECT_EQ(info.format, 5);
    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_ALLOC_SIZE, std::nullopt);

    // Without a dynamic record the descriptor is never asked for.
    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_ION_FD, -EBADF);
    // The derivation needs the descriptor.
    EXPECT_EQ(mHelper.query(buffer.get(), &info, nullptr), android::UNKNOWN_ERROR);
    EXPECT_EQ(info.format, 5);
    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_ION_FD, std::nullopt);
    ASSERT_EQ(mHelper.query(buffer.get(), &info, nullptr), android::NO_ERROR);
    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_ION_FD, -EBADF);
    // Cached: the descriptor is not needed.
    EXPECT_EQ(mHelper.query(buffer.get(), &info, nullptr), android::NO_ERROR);
    log.clear();
    info.format = 5;
    EXPECT_EQ(mHelper.query(buffer.get(), &info, &dynamic), android::UNKNOWN_ERROR);
    EXPECT_EQ(info.format, kNV21);  // already written
    EXPECT_TRUE(log.has("[query] [buffer_handle_t:0x"));
    EXPECT_TRUE(log.has("err:-9 ionFd:-1 (query){#"));
    EXPECT_TRUE(dynamic.ionFds.empty());
}

TEST_F(BufferOpsTest, ImportReplacesTheHandle) {
    native_handle_t* raw = zyncam::sim::createRawBuffer(64, 48, kNV21, kCpuReadOften);
    buffer_handle_t handle = raw;
    ASSERT_TRUE(mHelper.importBuffer(handle, false));
    EXPECT_NE(handle, raw);
    EXPECT_EQ(mHelper.freeBuffer(handle), AIMAPPER_ERROR_NONE);

    // With deleteRaw the record goes (its descriptors stay the caller's to close).
    native_handle_t* copy = native_handle_clone(raw);
    handle = copy;
    ASSERT_TRUE(mHelper.importBuffer(handle, true));
    EXPECT_EQ(mHelper.freeBuffer(handle), AIMAPPER_ERROR_NONE);

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

    EXPECT_EQ(mHelper.freeBuffer(nullptr), -1);  // a null handle, not a mapper code
}

TEST_F(BufferOpsTest, LockFromTheOriginAndUnlockWaitsForTheFence) {
    Buffer buffer(64, 48, kNV21, kCpuReadOften);
    LogCapture log;
    void* data = nullptr;
    EXPECT_EQ(mHelper.lock(buffer.get(), kCpuReadOften, 64, 32, &data), AIMAPPER_ERROR_NONE);
    EXPECT_NE(data, nullptr);
    zyncam::sim::setLateFenceMs(30);
    const int fds = zyncam::host::openFdCount();
    const nsecs_t start = systemTime();
    EXPECT_EQ(mHelper.unlock(buffer.get()), android::NO_ERROR);
    EXPECT_GE(systemTime() - start, 25 * 1000000LL);
    EXPECT_EQ(zyncam::host::openFdCount(), fds);  // the fence was closed

    // A region beyond the buffer is refused: the width really reaches the mapper.
    EXPECT_EQ(mHelper.lock(buffer.get(), kCpuReadOften, 65, 48, &data), AIMAPPER_ERROR_BAD_VALUE);
    EXPECT_TRUE(log.has("[lock] lock(...) failed 3 (Unknown error -3) (lock){#"));
    EXPECT_EQ(mHelper.unlock(buffer.get()),
              android::NO_ERROR);  // not locked: the mapper fails, 0 all the same
}

TEST_F(BufferOpsTest, ColourSpaces) {
    struct Case {
        int32_t dataspace;
        uint32_t value;
        bool error;
    };
    const auto composite = [](Dataspace standard, Dataspace transfer, Dataspace range) {
        return dataspace(standard) | dataspace(transfer) | dataspace(range);
    };
    const Case cases[] = {
            {dataspace(Dataspace::JFIF), kBt601Full, false},
            {dataspace(Dataspace::BT601_625), kBt601Limited, false},
            {dataspace(Dataspace::BT709), kBt709Limited, false},
            {dataspace(Dataspace::SRGB), kBt709Full, false},
            {dataspace(Dataspace::BT2020_PQ), kBt2020Full, false},
            {dataspace(Dataspace::BT2020_ITU_PQ), kBt2020Limited, false},
            {kLegacyJfif, kBt601Full, false},
            {kLegacyBt601_625, kBt601Limited, false},
            {kLegacyBt601_525, kBt601Limited, false},
            {kLegacyBt709, kBt709Limited, false},
            {composite(Dataspace::STANDARD_BT601_525_UNADJUSTED, Dataspace::TRANSFER_SMPTE_170M,
                       Dataspace::RANGE_LIMITED),
             kBt601Limited, false},
            {composite(Dataspace::STANDARD_BT601_625_UNADJUSTED, Dataspace::TRANSFER_SMPTE_170M,
                       Dataspace::RANGE_FULL),
             kBt601Full, false},
            {composite(Dataspace::STANDARD_BT2020_CONSTANT_LUMINANCE,
                       Dataspace::TRANSFER_SMPTE_170M, Dataspace::RANGE_FULL),
             kBt2020Full, false},
            // BT601_525 (not its unadjusted sibling) is not in the BT.601 family.
            {dataspace(Dataspace::BT601_525), kBt601Full, true},
            {dataspace(Dataspace::DISPLAY_P3), kBt601Full, true},
            {kLegacySrgb, kBt601Full, true},
            {kLegacySrgbLinear, kBt601Full, true},
            {dataspace(Dataspace::UNKNOWN), kBt601Full, true},
            {dataspace(Dataspace::SCRGB), kBt601Full, true},  // extended range
            {composite(Dataspace::STANDARD_BT709, Dataspace::TRANSFER_SMPTE_170M,
                       Dataspace::RANGE_UNSPECIFIED),
             kBt601Full, true},
    };
    Buffer buffer(64, 48, kNV21, kCpuReadOften);
    mHelper.setDirtyCamera(buffer.get());
    for (const auto& c : cases) {
        LogCapture log;
        EXPECT_EQ(mHelper.setColorspace(buffer.get(), c.dataspace), 0);
        EXPECT_EQ(sfStatus(buffer.get()), c.value | kDirtyCamera) << std::hex << c.dataspace;
        const std::string line = "[setColorspace] unknown color space 40000000(" +
                                 zcam::queryDataspaceName(c.dataspace) +
                                 "), set default value, BT601 FULL (setColorspace){#";
        EXPECT_EQ(log.has(line), c.error) << std::hex << c.dataspace;
        EXPECT_FALSE(log.has("GRALLOC_EXTRA_BIT_YUV"));  // own level 0
    }
}

TEST_F(BufferOpsTest, ColourSpaceTraceFollowsOwnLogLevel) {
    Buffer buffer(64, 48, kNV21, kCpuReadOften);
    {
        testkit::ScopedProperty level("debug.zyncam.utils.gralloc.loglevel", "2");
        GrallocHelperAidlV2Imp verbose;
    }
    LogCapture log;
    mHelper.setColorspace(buffer.get(), dataspace(Dataspace::BT709));
    EXPECT_TRUE(
            log.has("[setColorspace] GRALLOC_EXTRA_BIT_YUV=0x60000000(V0_BT709|STANDARD_BT709|"
                    "TRANSFER_SMPTE_170M|RANGE_LIMITED)"));
    GrallocAidlV2::gLogLevel = 0;
}

TEST_F(BufferOpsTest, StatusAndStartOfFrame) {
    Buffer buffer(64, 48, kNV21, kCpuReadOften);
    // Only the bits of the mask change.
    EXPECT_EQ(mHelper.setBufferStatus(buffer.get(), 0xF0, 0x35), 0);
    EXPECT_EQ(sfStatus(buffer.get()), 0x30u);
    EXPECT_EQ(mHelper.setDirtyCamera(buffer.get()), 0);
    EXPECT_EQ(sfStatus(buffer.get()), 0x30u | kDirtyCamera);

    // A failed read still writes a record: zero but for the changed bits.
    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_SF_INFO, -1);
    EXPECT_EQ(mHelper.setBufferStatus(buffer.get(), 0x3, 0x1), 0);
    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_SF_INFO, std::nullopt);
    EXPECT_EQ(sfStatus(buffer.get()), 0x1u);

    const auto performs = counters().extraPerforms;
    EXPECT_EQ(mHelper.setBufferSOF(buffer.get(), 123456789UL), 0);
    EXPECT_EQ(counters().extraPerforms, performs + 1);
    // A null handle, or one the extension does not know, is refused with a negative result.
    native_handle_t* bogus = native_handle_create(0, 0);
    const buffer_handle_t handles[] = {nullptr, bogus};
    for (buffer_handle_t handle : handles) {
        SCOPED_TRACE(handle == nullptr ? "null handle" : "unknown handle");
        EXPECT_LT(mHelper.setBufferStatus(handle, 0x3, 0x1), 0);
        EXPECT_LT(mHelper.setDirtyCamera(handle), 0);
        EXPECT_LT(mHelper.setColorspace(handle, dataspace(Dataspace::BT709)), 0);
        EXPECT_LT(mHelper.setBufferSOF(handle, 1), 0);
    }
    native_handle_delete(bogus);

    EXPECT_EQ(mHelper.getGrallocExtraFormat(fmt(PixelFormat::IMPLEMENTATION_DEFINED),
                                            bits(BufferUsage::VIDEO_ENCODER)),
              zcam::kPixelFormatNV12);
    EXPECT_EQ(mHelper.getGrallocExtraFormat(fmt(PixelFormat::YCBCR_420_888), 0), kNV21);
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
    EXPECT_EQ(helper.setColorspace(nullptr, dataspace(Dataspace::BT709)), 42);
    ASSERT_EQ(helper.calls.size(), 2u);
    const int dirty = static_cast<int>(kDirtyCamera);
    EXPECT_EQ(helper.calls[0], std::make_pair(dirty, dirty));
    EXPECT_EQ(helper.calls[1],
              std::make_pair(static_cast<int>(kColorSpaceMask), static_cast<int>(kBt709Limited)));
}

TEST_F(BufferOpsTest, InterfaceNames) {
    EXPECT_EQ(mHelper.queryPixelFormatName(fmt(PixelFormat::YCBCR_420_888)), "YCbCr_420_888");
    EXPECT_EQ(mHelper.queryGrallocUsageName(zcam::kUsageSmvr | bits(BufferUsage::CAMERA_OUTPUT)),
              "0|HW_CAMERA_WRITE|SMVR");
    EXPECT_EQ(mHelper.queryDataspaceName(dataspace(Dataspace::STANDARD_BT2020)),
              "0x60000|STANDARD_BT2020");
    EXPECT_EQ(mHelper.queryDataspaceName(dataspace(Dataspace::JPEG_R)), "0x1005");
}

}  // namespace
