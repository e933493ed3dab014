// Several threads on one helper: layout queries (hits and misses), buffer queries, dumpToLog and
// clearMap. Run under ThreadSanitizer in CI; every answer must stay right.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include <zyncam_host/Platform.h>

#include "GrallocHelperAidlV2Imp.h"
#include "kit/Codes.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

using GrallocAidlV2::GrallocHelperAidlV2Imp;
using testkit::kCpuReadOften;

constexpr int32_t kNV21 = testkit::fmt(testkit::PixelFormat::YCRCB_420_SP);

constexpr int kRounds = 150;

TEST(ConcurrencyTest, QueriesDumpsAndClearsOnOneHelper) {
    testkit::SimFaults faults;
    zyncam::host::setLogToStderr(false);
    testkit::LogCapture log;        // every level on: the front end runs from all threads
    GrallocHelperAidlV2Imp helper;  // constructed before the threads share the library

    std::vector<std::unique_ptr<testkit::Buffer>> buffers;
    for (int i = 0; i < 4; ++i) {
        buffers.push_back(std::make_unique<testkit::Buffer>(160 + 32 * i, 120, 0x11, 0x3));
    }
    std::atomic<int> failures{0};

    auto layoutQueries = [&](int seed) {
        zcam::GrallocStaticInfo info;
        for (int round = 0; round < kRounds; ++round) {
            const int width = 64 + 32 * ((round + seed) % 6);
            zcam::GrallocRequest request{kCpuReadOften, kNV21, width, 48, 0};
            if (helper.query(&request, &info, round % 17 == 0) != 0 || info.planes.size() != 2 ||
                info.planes[0].rowStrideInBytes != static_cast<size_t>(width) ||
                info.planes[0].sizeInBytes != static_cast<size_t>(width) * 48) {
                ++failures;
            }
        }
    };
    auto bufferQueries = [&] {
        zcam::GrallocStaticInfo info;
        for (int round = 0; round < kRounds; ++round) {
            const auto& buffer = buffers[round % buffers.size()];
            NSCam::GrallocDynamicInfo dynamic;
            if (helper.query(buffer->get(), &info, &dynamic) != 0 || dynamic.ionFds.size() != 1 ||
                info.planes.size() != 2) {
                ++failures;
            }
        }
    };
    auto maintenance = [&] {
        for (int round = 0; round < kRounds / 10; ++round) {
            helper.dumpToLog();
            helper.clearMap();
            std::this_thread::yield();
        }
    };

    std::vector<std::thread> threads;
    threads.emplace_back(layoutQueries, 0);
    threads.emplace_back(layoutQueries, 3);
    threads.emplace_back(bufferQueries);
    threads.emplace_back(maintenance);
    for (auto& thread : threads) thread.join();
    zyncam::host::setLogToStderr(true);

    EXPECT_EQ(failures.load(), 0);
    EXPECT_GT(log.count("[dumpToLog] +"), 0u);
    buffers.clear();
    EXPECT_EQ(zyncam::sim::counters().liveBuffers, 0);  // every probe was freed
}

}  // namespace
