// The stream planner on the simulated gralloc, observed through the package's test kit.
#include <aidl/android/hardware/graphics/allocator/AllocationError.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <zyncam_host/SimGralloc.h>

#include <GrallocKit.h>
#include <TestKit.h>

#include <algorithm>

#include "StreamPlan.h"

namespace {

using aidl::android::hardware::graphics::allocator::AllocationError;
using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;

constexpr int64_t kCameraToGpu = static_cast<int64_t>(BufferUsage::CAMERA_OUTPUT) |
                                 static_cast<int64_t>(BufferUsage::GPU_TEXTURE);
constexpr int64_t kCameraToCpu = static_cast<int64_t>(BufferUsage::CAMERA_OUTPUT) |
                                 static_cast<int64_t>(BufferUsage::CPU_READ_OFTEN);

downstream::StreamConfig stream(int32_t width, int32_t height, PixelFormat format, int64_t usage) {
    return {"test", width, height, static_cast<int32_t>(format), usage};
}

// Flexible formats resolve to a concrete 4:2:0 layout whose luma rows hold the whole width.
TEST(StreamPlanTest, FlexibleFormatsResolveToWholeYuvBuffers) {
    testkit::SimFaults faults;
    const auto helper = zcam::createGrallocHelper();
    const downstream::StreamConfig streams[] = {
            stream(1920, 1080, PixelFormat::IMPLEMENTATION_DEFINED, kCameraToGpu),
            stream(4000, 3000, PixelFormat::YCBCR_420_888, kCameraToCpu),
            stream(640, 480, PixelFormat::YCRCB_420_SP, kCameraToCpu),
    };
    for (const auto& config : streams) {
        SCOPED_TRACE(testing::Message()
                     << config.width << "x" << config.height << " format " << config.format);
        downstream::StreamPlan plan;
        ASSERT_EQ(downstream::planStream(*helper, config, &plan), android::NO_ERROR);
        EXPECT_NE(plan.format, static_cast<int32_t>(PixelFormat::IMPLEMENTATION_DEFINED));
        EXPECT_NE(plan.format, static_cast<int32_t>(PixelFormat::YCBCR_420_888));
        ASSERT_GE(plan.rowStrides.size(), 2u);
        EXPECT_GE(plan.rowStrides[0], static_cast<size_t>(config.width));
        const size_t pixels = static_cast<size_t>(config.width) * config.height;
        EXPECT_GE(plan.bytesPerBuffer, pixels + pixels / 2);
    }
}

// A stream planned again, by any part of the pipeline holding the same helper, costs no
// allocation.
TEST(StreamPlanTest, ReplanningIsAnsweredFromTheCache) {
    testkit::SimFaults faults;
    const auto helper = zcam::createGrallocHelper();
    const auto config = stream(1280, 720, PixelFormat::YCRCB_420_SP, kCameraToCpu);
    downstream::StreamPlan first, second;
    ASSERT_EQ(downstream::planStream(*helper, config, &first), android::NO_ERROR);
    const auto allocations = zyncam::sim::counters().allocateCalls;
    const auto* cache = zcam::layoutCacheOf(*helper);
    ASSERT_NE(cache, nullptr);
    const size_t entries = cache->cachedLayoutCount();

    ASSERT_EQ(downstream::planStream(*helper, config, &second), android::NO_ERROR);
    EXPECT_EQ(zyncam::sim::counters().allocateCalls, allocations);
    EXPECT_EQ(cache->cachedLayoutCount(), entries);
    EXPECT_EQ(second.format, first.format);
    EXPECT_EQ(second.rowStrides, first.rowStrides);
    EXPECT_EQ(second.bytesPerBuffer, first.bytesPerBuffer);
}

// An allocator that cannot make the probe buffer fails the plan with an error line, leaves the
// caller's plan alone and caches nothing: the next attempt probes again.
TEST(StreamPlanTest, AFailedProbeIsReportedAndNotCached) {
    testkit::SimFaults faults;
    const auto helper = zcam::createGrallocHelper();
    const auto config = stream(1280, 720, PixelFormat::YCRCB_420_SP, kCameraToCpu);
    downstream::StreamPlan plan;
    plan.bytesPerBuffer = 1;
    {
        testkit::LogCapture log;
        zyncam::sim::failAllocate(static_cast<int32_t>(AllocationError::NO_RESOURCES));
        EXPECT_EQ(downstream::planStream(*helper, config, &plan), android::NO_MEMORY);
        EXPECT_EQ(plan.bytesPerBuffer, 1u);
        EXPECT_EQ(zcam::layoutCacheOf(*helper)->cachedLayoutCount(), 0u);
        const auto lines = log.android();
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const testkit::AndroidLine& line) {
            return line.prio == ANDROID_LOG_ERROR;
        }));
        zyncam::sim::failAllocate(std::nullopt);
    }
    const auto allocations = zyncam::sim::counters().allocateCalls;
    EXPECT_EQ(downstream::planStream(*helper, config, &plan), android::NO_ERROR);
    EXPECT_EQ(zyncam::sim::counters().allocateCalls, allocations + 1);
    EXPECT_GT(plan.bytesPerBuffer, 1u);
}

}  // namespace
