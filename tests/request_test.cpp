// Records, the cache key's order and request normalisation.
#include <utils/Errors.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <vector>

#include "GrallocHelperInternal.h"
#include "kit/Codes.h"

namespace {

using GrallocAidlV2::GrallocHelperAidlV2Imp;
using GrallocAidlV2::MyStaticInfo;
using MyRequest = GrallocHelperAidlV2Imp::MyRequest;
using testkit::bits;
using testkit::BufferUsage;
using testkit::fmt;
using testkit::PixelFormat;

MyRequest key(int32_t format, int32_t usage, int32_t w, int32_t h, bool afbc, int32_t batch) {
    MyRequest k;
    k.format = format;
    k.usage = usage;
    k.widthInPixels = w;
    k.heightInPixels = h;
    k.isAFBC = afbc;
    k.batchNum = batch;
    return k;
}

TEST(KeyOrderTest, ComparesFieldsInKeyOrder) {
    // Each pair differs in one field; the first element must sort first.
    const std::pair<MyRequest, MyRequest> ordered[] = {
            {key(1, 9, 9, 9, true, 9), key(2, 0, 0, 0, false, 0)},   // format first
            {key(1, 9, 9, 9, true, 9), key(1, 10, 0, 0, false, 0)},  // then usage
            {key(1, std::numeric_limits<int32_t>::min(), 0, 0, false, 0),
             key(1, 0, 0, 0, false, 0)},                            // bit 31 sorts first
            {key(1, 1, 1, 9, true, 9), key(1, 1, 2, 0, false, 0)},  // width
            {key(1, 1, 1, 1, true, 9), key(1, 1, 1, 2, false, 0)},  // height
            {key(1, 1, 1, 1, false, 9), key(1, 1, 1, 1, true, 0)},  // AFBC before batch
            {key(1, 1, 1, 1, true, 1), key(1, 1, 1, 1, true, 2)},   // batch last
            {key(-5, 0, 0, 0, false, 0), key(0, 0, 0, 0, false, 0)},
    };
    for (const auto& [a, b] : ordered) {
        EXPECT_TRUE(a < b);
        EXPECT_FALSE(b < a);
        EXPECT_FALSE(a == b);
    }
    EXPECT_TRUE(key(1, 2, 3, 4, true, 5) == key(1, 2, 3, 4, true, 5));
}

TEST(KeyOrderTest, AfbcKeyIsNotFoundByPlainLookup) {
    const int32_t nv21 = fmt(PixelFormat::YCRCB_420_SP);
    const int32_t cameraWrite = bits(BufferUsage::CAMERA_OUTPUT);
    std::vector<MyRequest> sorted = {key(nv21, cameraWrite, 64, 48, true, 0)};
    auto lookup = key(nv21, cameraWrite, 64, 48, false, 0);
    EXPECT_FALSE(std::binary_search(sorted.begin(), sorted.end(), lookup));
}

TEST(RecordsTest, DefaultAndCopyOut) {
    MyStaticInfo info;
    EXPECT_EQ(info.batchNum, 1u);
    EXPECT_TRUE(info.planes.empty());
    EXPECT_EQ(info.grallocTime, 0);

    info.format = fmt(PixelFormat::YCRCB_420_SP);
    info.widthInPixels = 64;
    info.heightInPixels = 48;
    info.planes = {{3072, 64}, {1536, 64}};
    info.isAFBC = true;
    info.allocSize = 4608;

    zcam::GrallocStaticInfo out;
    out.planes = {{1, 1}, {2, 2}, {3, 3}};
    info.copyTo(out);
    EXPECT_EQ(out.format, fmt(PixelFormat::YCRCB_420_SP));
    EXPECT_EQ(out.widthInPixels, 64);
    EXPECT_EQ(out.heightInPixels, 48);
    ASSERT_EQ(out.planes.size(), 2u);
    EXPECT_EQ(out.planes[1].sizeInBytes, 1536u);
    EXPECT_TRUE(out.isAFBC);

    const auto* before = info.planes.data();
    info.copyTo(info);  // into itself: the planes stay where they are
    EXPECT_EQ(info.planes.data(), before);
    EXPECT_EQ(info.planes.size(), 2u);
}

struct NormaliseCase {
    int32_t format;
    int32_t usage;
    int32_t expectedUsage;
    uint32_t derivationBatch;  // for a request with batchNum 7
};

TEST(NormaliseTest, UsageAndBatchCountByFormat) {
    const int32_t kRead = bits(BufferUsage::CPU_READ_OFTEN);
    const int32_t kWrite = bits(BufferUsage::CPU_WRITE_OFTEN);
    const int32_t kComposer = bits(BufferUsage::COMPOSER_OVERLAY);
    const int32_t kCameraWrite = bits(BufferUsage::CAMERA_OUTPUT);
    const int32_t kCameraBoth = kCameraWrite | bits(BufferUsage::CAMERA_INPUT);
    const int32_t kBlob = fmt(PixelFormat::BLOB);
    const int32_t kNV21 = fmt(PixelFormat::YCRCB_420_SP);
    // Codes between the two groups of batch formats, and just past them, are no batch formats.
    const int32_t kBetweenBatchGroups = zcam::kPixelFormatSmvrBatch32 + 1;
    const int32_t kLastBetween = zcam::kPixelFormatSmvrBatchCompressed2 - 1;
    const int32_t kPastBatchGroups = zcam::kPixelFormatSmvrBatchCompressed32 + 1;
    const NormaliseCase cases[] = {
            {fmt(PixelFormat::YCBCR_420_888), 0, 0, 7},  // untouched
            {fmt(PixelFormat::IMPLEMENTATION_DEFINED), kRead, kRead, 7},
            {kNV21, 0, kCameraWrite, 7},
            {kNV21, kRead, kRead | kCameraBoth, 7},  // CPU access: camera write and read
            {kNV21, 0x80, 0x80 | kCameraBoth, 7},    // any of the low eight bits
            {fmt(PixelFormat::RAW16), kRead, kRead | kCameraWrite, 7},  // camera write only
            {kBlob, kComposer | kRead | kWrite, kRead | kWrite | kCameraBoth, 7},
            {kBlob, kComposer, kCameraWrite, 7},  // BLOB loses the composer bit
            {kBetweenBatchGroups, 0, kCameraWrite, 7},
            {kLastBetween, kRead, kRead | kCameraBoth, 7},
            {zcam::kPixelFormatSmvrBatch2, 0, 0, 2},  // batch formats: untouched, fixed count
            {zcam::kPixelFormatSmvrBatch32, kRead, kRead, 32},
            {zcam::kPixelFormatSmvrBatchCompressed2, 0, 0, 2},
            {zcam::kPixelFormatSmvrBatchCompressed32, zcam::kUsageSmvr, zcam::kUsageSmvr, 32},
            {kPastBatchGroups, 0, kCameraWrite, 7},
            {-1, 0, kCameraWrite, 7},  // negative formats take the general rule
            {std::numeric_limits<int32_t>::min(), 1, 1 | kCameraBoth, 7},
    };
    for (const auto& c : cases) {
        zcam::GrallocRequest request{c.usage, c.format, 640, 480, 7};
        MyRequest out = key(1, 1, 1, 1, true, 1);
        EXPECT_EQ(GrallocHelperAidlV2Imp::determine(request, out), android::NO_ERROR);
        SCOPED_TRACE(::testing::Message() << std::hex << "format 0x" << c.format);
        EXPECT_EQ(out.usage, c.expectedUsage);
        EXPECT_EQ(out.format, c.format);
        EXPECT_EQ(out.widthInPixels, 640);
        EXPECT_EQ(out.heightInPixels, 480);
        EXPECT_EQ(out.batchNum, 7);
        EXPECT_FALSE(out.isAFBC);
        EXPECT_EQ(GrallocAidlV2::batchCountForDerivation(out), c.derivationBatch);
    }
}

TEST(NormaliseTest, BatchTableCoversEveryOffset) {
    const int32_t kFirst = zcam::kPixelFormatSmvrBatch2;
    const int32_t kLast = zcam::kPixelFormatSmvrBatchCompressed32;
    const uint32_t expected[kLast - kFirst + 1] = {2, 4, 8, 16, 32, 2, 2, 2, 2,  2, 2,
                                                   2, 2, 2, 2,  2,  2, 4, 8, 16, 32};
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(GrallocAidlV2::kFormatBatchNum[i], expected[i]) << i;
    }
    const auto& batchFormats = zcam::kPixelFormatsSmvrBatch;
    for (int32_t f = kFirst - 16; f <= kLast + 16; ++f) {
        const bool batch = std::find(std::begin(batchFormats), std::end(batchFormats), f) !=
                           std::end(batchFormats);
        EXPECT_EQ(GrallocAidlV2::isVendorBatchFormat(f), batch) << std::hex << f;
    }
}

}  // namespace
