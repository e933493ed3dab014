// Records, the cache key's order and request normalisation.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "GrallocHelperInternal.h"

namespace {

using GrallocAidlV2::GrallocHelperAidlV2Imp;
using GrallocAidlV2::MyStaticInfo;
using MyRequest = GrallocHelperAidlV2Imp::MyRequest;

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
            {key(1, static_cast<int32_t>(0x80000000), 0, 0, false, 0),
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
    std::vector<MyRequest> sorted = {key(0x11, 0x20000, 64, 48, true, 0)};
    auto lookup = key(0x11, 0x20000, 64, 48, false, 0);
    EXPECT_FALSE(std::binary_search(sorted.begin(), sorted.end(), lookup));
}

TEST(RecordsTest, DefaultAndCopyOut) {
    MyStaticInfo info;
    EXPECT_EQ(info.batchNum, 1u);
    EXPECT_TRUE(info.planes.empty());
    EXPECT_EQ(info.grallocTime, 0);

    info.format = 0x11;
    info.widthInPixels = 64;
    info.heightInPixels = 48;
    info.planes = {{3072, 64}, {1536, 64}};
    info.isAFBC = true;
    info.allocSize = 4608;

    zcam::GrallocStaticInfo out;
    out.planes = {{1, 1}, {2, 2}, {3, 3}};
    info.copyTo(out);
    EXPECT_EQ(out.format, 0x11);
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
    const NormaliseCase cases[] = {
            {0x23, 0, 0, 7},            // YCbCr_420_888 untouched
            {0x22, 0x3, 0x3, 7},        // IMPLEMENTATION_DEFINED untouched
            {0x11, 0, 0x20000, 7},      // camera write
            {0x11, 0x3, 0x60003, 7},    // CPU access: camera write and read
            {0x11, 0x80, 0x60080, 7},   // any of the low eight bits
            {0x20, 0x3, 0x20003, 7},    // RAW16: camera write only
            {0x21, 0x833, 0x60033, 7},  // BLOB loses the composer bit
            {0x21, 0x800, 0x20000, 7},  //
            {0x2605, 0, 0x20000, 7},    // not a batch format
            {0x260F, 0x3, 0x60003, 7},  //
            {0x2600, 0, 0, 2},          // batch formats: untouched, fixed count
            {0x2604, 0x3, 0x3, 32},     //
            {0x2610, 0, 0, 2},          //
            {0x2614, 0x20000000, 0x20000000, 32},
            {0x2615, 0, 0x20000, 7},  //
            {-1, 0, 0x20000, 7},      // negative formats take the general rule
            {static_cast<int32_t>(0x80000000), 0x1, 0x60001, 7},
    };
    for (const auto& c : cases) {
        zcam::GrallocRequest request{c.usage, c.format, 640, 480, 7};
        MyRequest out = key(1, 1, 1, 1, true, 1);
        EXPECT_EQ(GrallocHelperAidlV2Imp::determine(request, out), 0);
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
    const uint32_t expected[21] = {2, 4, 8, 16, 32, 2, 2, 2, 2,  2, 2,
                                   2, 2, 2, 2,  2,  2, 4, 8, 16, 32};
    for (int i = 0; i < 21; ++i) EXPECT_EQ(GrallocAidlV2::kFormatBatchNum[i], expected[i]) << i;
    for (int f = 0x25F0; f < 0x2620; ++f) {
        bool batch = (f >= 0x2600 && f <= 0x2604) || (f >= 0x2610 && f <= 0x2614);
        EXPECT_EQ(GrallocAidlV2::isVendorBatchFormat(f), batch) << std::hex << f;
    }
}

}  // namespace
