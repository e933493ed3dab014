// The layout rules' 32-bit wrapping arithmetic at the edges of the 32-bit range: the numbers
// the rules define, without undefined behaviour (the asan preset halts on any UBSan finding).
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <gralloc_extra.h>
#include <utils/Errors.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "GrallocHelperInternal.h"
#include "LayoutArithmetic.h"
#include "kit/GrallocKit.h"

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;
using GrallocAidlV2::MyStaticInfo;
using zyncam::sim::overrideExtraQuery;
namespace layout = GrallocAidlV2::layout;

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr size_t kTwoTo63 = size_t{1} << 63;

// A sign-extended 32-bit value as size_t, written out for the expectations below.
constexpr size_t negative(size_t magnitude) {
    return size_t{0} - magnitude;
}

TEST(LayoutArithmeticTest, SlowMotionFrameSizeWrapsAs32BitArithmetic) {
    struct Case {
        int32_t width, height, frame;
    };
    const Case cases[] = {
            {1280, 720, 1280 * 736 * 3 / 2},
            {1, 1, 32 * 32 + 32 * 32 / 2},
            // 0x7FFFFFE0 x 32 wraps to -1024; half of it, -512, is added.
            {0x7FFFFFE0, 1, -1536},
            // Rounding up past 2^31 wraps to INT32_MIN, and INT32_MIN x 32 to 0.
            {kMax, 1, 0},
            {0x7FFFFFE1, 32, 0},
            // 10^10 wraps to 1410065408, a positive 32-bit value.
            {100000, 100000, 1410065408 + 705032704},
            // Negative widths round up towards zero: -40 to -32.
            {-40, 32, -32 * 32 + (-32 * 32) / 2},
            {kMin, kMin, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(layout::smvrSemiPlanarFrameSize(c.width, c.height), c.frame)
                << c.width << "x" << c.height;
    }
}

TEST(LayoutArithmeticTest, ChromaRulesWrapAs32BitArithmetic) {
    struct Case {
        int32_t stride, height;
        size_t p010, nv12, yv12;
    };
    const Case cases[] = {
            {1280, 720, 921600, 460800, 230400},
            // (2^31 - 1)^2 is 1 modulo 2^32; (2^30 - 1)^2 is 2^31 + 1, negative in 32 bits.
            {kMax, kMax, 1, 0, negative(kMax)},
            {kMin, kMin, 0, 0, 0},
            // 0x10000 x 0x8000 = 2^31: its doubled product loses the top bit, its half is
            // INT32_MIN / 2 sign-extended.
            {0x10000, 0x8000, 0, negative(size_t{1} << 30), size_t{1} << 29},
            // An odd negative product: 1-byte samples halve it by a shift, rounding down.
            {-3, 1, negative(3), negative(2), 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.stride << "x" << c.height);
        EXPECT_EQ(layout::twoPlane420ChromaSize(c.stride, c.height, 2), c.p010);
        EXPECT_EQ(layout::twoPlane420ChromaSize(c.stride, c.height, 1), c.nv12);
        EXPECT_EQ(layout::yv12ChromaSize(c.stride, c.height), c.yv12);
    }
    EXPECT_EQ(layout::product64(kMin, kMin), size_t{1} << 62);
    EXPECT_EQ(layout::alignUp32(size_t{0xFFFFFFF0}), size_t{0x100000000});
    EXPECT_EQ(layout::alignUp32(uint32_t{0xFFFFFFF0}), 0u);
}

struct Plane {
    size_t stride, size;
};

// Derivation of buffers whose extension reports strides and heights at the 32-bit edges.
TEST(LayoutArithmeticTest, ExtremeGeometryFromTheExtension) {
    testkit::SimFaults faults;
    GrallocAidlV2::GrallocHelperAidlV2Imp helper;  // installs the adapters
    struct Case {
        const char* what;
        PixelFormat format;
        uint64_t usage;
        int64_t stride, height;  // attributes GET_STRIDE and GET_HEIGHT
        std::vector<Plane> planes;
    };
    const Case cases[] = {
            // (2^31 x 2^31) x 2 is 2^63 as a byte count; its 32-bit half is 0.
            {"P010 at INT32_MIN",
             PixelFormat::YCBCR_P010,
             0,
             0x80000000,
             0x80000000,
             {{size_t{0x100000000}, kTwoTo63}, {size_t{0x100000000}, 0}}},
            {"NV12 at INT32_MAX",
             static_cast<PixelFormat>(zcam::kPixelFormatNV12),
             0,
             kMax,
             kMax,
             {{static_cast<size_t>(kMax), static_cast<size_t>(kMax) * kMax}, {kMax, 0}}},
            // A protected YV12 buffer: the planes follow from the negative stride and height.
            {"protected YV12 at INT32_MIN",
             PixelFormat::YV12,
             static_cast<uint64_t>(BufferUsage::PROTECTED),
             0x80000000,
             0x80000000,
             {{negative(size_t{1} << 31), size_t{1} << 62},
              {negative(size_t{1} << 30), 0},
              {negative(size_t{1} << 30), 0}}},
            {"IMPLEMENTATION_DEFINED stride rounded past 2^32",
             PixelFormat::IMPLEMENTATION_DEFINED,
             0,
             0xFFFFFFF0,
             64,
             {{size_t{0x100000000}, 0}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        testkit::Buffer buffer(64, 48, static_cast<int32_t>(PixelFormat::RGBA_8888),
                               static_cast<uint64_t>(BufferUsage::CPU_READ_OFTEN));
        overrideExtraQuery(GRALLOC_EXTRA_GET_FORMAT, static_cast<int32_t>(c.format));
        overrideExtraQuery(GRALLOC_EXTRA_GET_USAGE, static_cast<int64_t>(c.usage));
        overrideExtraQuery(GRALLOC_EXTRA_GET_STRIDE, c.stride);
        overrideExtraQuery(GRALLOC_EXTRA_GET_HEIGHT, c.height);
        overrideExtraQuery(GRALLOC_EXTRA_GET_ALLOC_SIZE, 0);
        MyStaticInfo info;
        ASSERT_EQ(GrallocAidlV2::queryStaticInfo(buffer.get(), info), android::NO_ERROR);
        ASSERT_EQ(info.planes.size(), c.planes.size());
        for (size_t i = 0; i < c.planes.size(); ++i) {
            EXPECT_EQ(info.planes[i].rowStrideInBytes, c.planes[i].stride) << "plane " << i;
            EXPECT_EQ(info.planes[i].sizeInBytes, c.planes[i].size) << "plane " << i;
        }
        zyncam::sim::resetFaults();
    }
}

}  // namespace
