// A long run of layout queries: memory and descriptors stay flat.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "GrallocHelper.h"
#include "kit/GrallocKit.h"

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;

constexpr int kQueries = 100000;
constexpr int kWarmUp = 10000;
constexpr int kClearEvery = 1000;  // so that probes keep happening all along
constexpr double kRssTolerance = 0.05;

// Resident set size in bytes.
long residentBytes() {
    long pages = 0, resident = 0;
    if (FILE* f = fopen("/proc/self/statm", "r")) {
        if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        fclose(f);
    }
    return resident * sysconf(_SC_PAGESIZE);
}

TEST(SoakTest, ManyQueriesKeepMemoryAndDescriptorsFlat) {
    testkit::SimFaults faults;
    auto helper = zcam::createGrallocHelper();
    ASSERT_NE(helper, nullptr);
    constexpr uint32_t kCpu = static_cast<uint32_t>(BufferUsage::CPU_READ_OFTEN) |
                              static_cast<uint32_t>(BufferUsage::CPU_WRITE_OFTEN);
    const zcam::GrallocRequest requests[] = {
            {kCpu, static_cast<int>(PixelFormat::YCRCB_420_SP), 1920, 1080, 0},
            {kCpu, static_cast<int>(PixelFormat::YV12), 640, 480, 0},
            {kCpu, static_cast<int>(PixelFormat::RGBA_8888), 1280, 720, 0},
            {kCpu, static_cast<int>(PixelFormat::BLOB), 4096, 1, 0},
            {kCpu, static_cast<int>(PixelFormat::IMPLEMENTATION_DEFINED), 320, 240, 0},
            {kCpu, static_cast<int>(PixelFormat::RAW16), 4000, 3000, 0},
    };
    zcam::GrallocStaticInfo info;
    long warmRss = 0;
    int warmFds = 0;
    for (int i = 0; i < kQueries; ++i) {
        if (i % kClearEvery == 0) helper->clearMap();
        const auto& request = requests[i % std::size(requests)];
        ASSERT_EQ(helper->query(&request, &info, false), 0) << i;
        if (i + 1 == kWarmUp) {
            warmRss = residentBytes();
            warmFds = zyncam::host::openFdCount();
        }
    }
    const long rss = residentBytes();
    RecordProperty("rssAfterWarmUp", std::to_string(warmRss));
    RecordProperty("rssAtEnd", std::to_string(rss));
    EXPECT_LE(rss, static_cast<long>(warmRss * (1 + kRssTolerance)))
            << "after warm-up " << warmRss << " bytes, at the end " << rss;
    EXPECT_EQ(zyncam::host::openFdCount(), warmFds);
    EXPECT_EQ(zyncam::sim::counters().liveBuffers, 0);
}

}  // namespace
