// The simulated gralloc as a test double: locks it cannot serve, the dma-buf name history and
// the call journal.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <android/sync.h>
#include <fcntl.h>
#include <gralloc_extra.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;
using testkit::Buffer;
using testkit::Journal;
using testkit::mapper;
using zyncam::sim::Call;

constexpr int32_t kNV21 = static_cast<int32_t>(PixelFormat::YCRCB_420_SP);
constexpr uint64_t kCpu = static_cast<uint64_t>(BufferUsage::CPU_READ_OFTEN) |
                          static_cast<uint64_t>(BufferUsage::CPU_WRITE_OFTEN);
constexpr uint64_t kCpuRead = static_cast<uint64_t>(BufferUsage::CPU_READ_RARELY);
constexpr uint64_t kProtected = static_cast<uint64_t>(BufferUsage::PROTECTED) |
                                static_cast<uint64_t>(BufferUsage::GPU_TEXTURE);
constexpr ARect kWhole{0, 0, 0, 0};
constexpr unsigned long kDmaBufSetName = 0x40086201;

int pixelFdOf(const native_handle* buffer) {
    int fd = -1;
    EXPECT_EQ(gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_ION_FD, &fd), 0);
    return fd;
}

int32_t lockWhole(const native_handle* buffer, uint64_t usage = kCpu, ARect region = kWhole) {
    void* data = nullptr;
    const int32_t error = mapper().lock(buffer, usage, region, -1, &data);
    if (error == AIMAPPER_ERROR_NONE) mapper().unlock(buffer);
    return error;
}

TEST(SimulatorTest, LocksThatCannotBeServedAnswerTheirCode) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kNV21, kCpu);
    ASSERT_NE(buffer.get(), nullptr);
    const uint64_t locks = zyncam::sim::counters().locks;
    struct RegionCase {
        ARect region;
        int32_t error;
    };
    const RegionCase regions[] = {
            {{0, 0, 64, 48}, AIMAPPER_ERROR_NONE},
            {{0, 0, 65, 48}, AIMAPPER_ERROR_BAD_VALUE},
            {{0, 0, 64, 49}, AIMAPPER_ERROR_BAD_VALUE},
            {{-1, 0, 8, 8}, AIMAPPER_ERROR_BAD_VALUE},
            {{8, 8, 4, 16}, AIMAPPER_ERROR_BAD_VALUE},
            {{8, 8, 16, 8}, AIMAPPER_ERROR_BAD_VALUE},
            {{0, 0, INT32_MAX, 1}, AIMAPPER_ERROR_BAD_VALUE},
    };
    for (const auto& c : regions) {
        EXPECT_EQ(lockWhole(buffer.get(), kCpu, c.region), c.error)
                << c.region.left << "," << c.region.top << "," << c.region.right << ","
                << c.region.bottom;
    }

    Buffer secure(64, 48, kNV21, kProtected);
    ASSERT_NE(secure.get(), nullptr);
    EXPECT_EQ(lockWhole(secure.get(), kCpuRead), AIMAPPER_ERROR_BAD_VALUE);

    Buffer unmapped(64, 48, kNV21, kCpu);  // mapped on its first lock
    zyncam::sim::failLockMapping(true);
    EXPECT_EQ(lockWhole(unmapped.get()), AIMAPPER_ERROR_NO_RESOURCES);
    zyncam::sim::failLockMapping(false);
    EXPECT_EQ(zyncam::sim::counters().locks, locks + 1);  // only the lock inside the buffer
}

TEST(SimulatorTest, MemoryThatIsNotTheBuffersIsNeverMapped) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kNV21, kCpu);
    const int pixels = buffer.get()->data[0];  // the imported handle's own copy
    const uint64_t locks = zyncam::sim::counters().locks;

    // Shrunk behind the mapper's back, mapped or not: touching the memory would raise SIGBUS.
    ASSERT_EQ(lockWhole(buffer.get()), AIMAPPER_ERROR_NONE);
    const int original = dup(pixels);
    ASSERT_EQ(ftruncate(pixels, 16), 0);
    EXPECT_EQ(lockWhole(buffer.get()), AIMAPPER_ERROR_BAD_BUFFER);

    // The descriptor number now names other memory, large enough.
    const int other = memfd_create("other", MFD_CLOEXEC);
    ASSERT_EQ(ftruncate(other, 1 << 20), 0);
    ASSERT_EQ(dup2(other, pixels), pixels);
    EXPECT_EQ(lockWhole(buffer.get()), AIMAPPER_ERROR_BAD_BUFFER);
    close(other);

    // Gone altogether.
    close(pixels);
    EXPECT_EQ(lockWhole(buffer.get()), AIMAPPER_ERROR_BAD_BUFFER);
    ASSERT_EQ(dup2(original, pixels), pixels);  // the buffer's free closes it
    close(original);
    EXPECT_EQ(zyncam::sim::counters().locks, locks + 1);
}

TEST(SimulatorTest, ImportRefusesHandlesWithoutTheirMemory) {
    testkit::SimFaults faults;
    struct Case {
        const char* what;
        int closedFd;  // index of the descriptor closed, or -1: the pixels shrink instead
    };
    const Case cases[] = {{"pixels shrunk", -1}, {"pixels closed", 0}, {"metadata closed", 1}};
    const auto live = zyncam::sim::counters().liveBuffers;
    for (const auto& c : cases) {
        const int fds = zyncam::host::openFdCount();
        native_handle_t* raw = zyncam::sim::createRawBuffer(64, 48, kNV21, kCpu);
        ASSERT_NE(raw, nullptr);
        if (c.closedFd < 0) {
            ASSERT_EQ(ftruncate(raw->data[0], 1), 0);
        } else {
            close(raw->data[c.closedFd]);
        }
        const native_handle* imported = nullptr;
        EXPECT_EQ(mapper().importBuffer(raw, &imported), AIMAPPER_ERROR_BAD_BUFFER) << c.what;
        EXPECT_EQ(imported, nullptr) << c.what;
        if (c.closedFd >= 0) raw->data[c.closedFd] = -1;  // its number may be reused by now
        native_handle_close(raw);
        native_handle_delete(raw);
        EXPECT_EQ(zyncam::host::openFdCount(), fds) << c.what;
    }
    EXPECT_EQ(zyncam::sim::counters().liveBuffers, live);
}

TEST(SimulatorTest, DmaBufNameHistoryKeepsOnlyTheLastNames) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kNV21, kCpu);
    const int fd = pixelFdOf(buffer.get());
    zyncam::sim::clearDmaBufNameHistory();
    const size_t kExtra = 36, kTotal = zyncam::sim::kDmaBufNameHistoryLimit + kExtra;
    for (size_t i = 0; i < kTotal; ++i) {
        const std::string name = "name-" + std::to_string(i);
        ASSERT_EQ(ioctl(fd, kDmaBufSetName, name.c_str()), 0);
    }
    auto history = zyncam::sim::dmaBufNameHistory();
    ASSERT_EQ(history.size(), zyncam::sim::kDmaBufNameHistoryLimit);
    EXPECT_EQ(history.front(), "name-" + std::to_string(kExtra));
    EXPECT_EQ(history.back(), "name-" + std::to_string(kTotal - 1));

    zyncam::sim::failDmaBufName(EBUSY);
    errno = 0;
    EXPECT_EQ(ioctl(fd, kDmaBufSetName, "refused"), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(zyncam::sim::dmaBufNameHistory(), history);
}

TEST(SimulatorTest, JournalRecordsArgumentsAndResultsInOrder) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kNV21, kCpu);
    lockWhole(buffer.get());  // not journaled: the journal is off by default
    Journal journal;
    EXPECT_TRUE(journal.entries().empty());

    void* data = nullptr;
    const ARect region{0, 0, 32, 16};
    ASSERT_EQ(mapper().lock(buffer.get(), kCpuRead, region, -1, &data), 0);
    EXPECT_EQ(mapper().unlock(buffer.get()), -1);
    GrallocExtraSfInfo info{};
    EXPECT_EQ(gralloc_extra_query(buffer.get(), GRALLOC_EXTRA_GET_SF_INFO, &info), 0);
    zyncam::sim::failExtraQuery(GRALLOC_EXTRA_GET_FORMAT, -EIO);
    int format = 0;
    EXPECT_EQ(gralloc_extra_query(buffer.get(), GRALLOC_EXTRA_GET_FORMAT, &format), -EIO);
    uint64_t sof = 7;
    EXPECT_EQ(gralloc_extra_perform(buffer.get(), GRALLOC_EXTRA_SET_SOF_TIME, &sof), 0);
    const uint64_t usage = uint64_t{1} << 40 | kCpu;
    const int platform = gralloc_extra_get_platform_format(kNV21, usage);

    using E = zyncam::sim::JournalEntry;
    const auto entries = journal.entries();
    ASSERT_EQ(entries.size(), 6u);
    const E& lock = entries[0];
    EXPECT_EQ(lock.call, Call::Lock);
    EXPECT_EQ(lock.handle, buffer.get());
    EXPECT_EQ(lock.usage, kCpuRead);
    EXPECT_EQ(lock.region.right, 32);
    EXPECT_EQ(lock.region.bottom, 16);
    EXPECT_EQ(lock.fd, -1);
    EXPECT_EQ(lock.result, 0);
    EXPECT_EQ(entries[1].call, Call::Unlock);
    EXPECT_EQ(entries[1].fd, -1);
    struct Extension {
        Call call;
        int64_t attribute;
        int32_t result;
        size_t bytes;
    };
    const Extension expected[] = {
            {Call::ExtraQuery, GRALLOC_EXTRA_GET_SF_INFO, 0, sizeof(GrallocExtraSfInfo)},
            {Call::ExtraQuery, GRALLOC_EXTRA_GET_FORMAT, -EIO, 0},
            {Call::ExtraPerform, GRALLOC_EXTRA_SET_SOF_TIME, 0, sizeof(uint64_t)},
            {Call::ExtraPlatformFormat, kNV21, platform, 0},
    };
    for (size_t i = 0; i < std::size(expected); ++i) {
        const E& e = entries[2 + i];
        EXPECT_EQ(e.call, expected[i].call) << i;
        EXPECT_EQ(e.attribute, expected[i].attribute) << i;
        EXPECT_EQ(e.result, expected[i].result) << i;
        EXPECT_EQ(e.bytesWritten, expected[i].bytes) << i;
    }
    EXPECT_EQ(entries[5].usage, usage);
}

TEST(SimulatorTest, JournalObservesWaitsAndClosesOfAnyDescriptor) {
    Journal journal;
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(sync_wait(fd, 5), 0);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(close(fd), -1);
    const auto entries = journal.entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].call, Call::SyncWait);
    EXPECT_EQ(entries[0].fd, fd);
    EXPECT_EQ(entries[0].attribute, 5);
    EXPECT_EQ(entries[1].call, Call::Close);
    EXPECT_EQ(entries[1].result, 0);
    EXPECT_EQ(entries[2].result, -1);
    EXPECT_EQ(journal.closed(), (std::vector<int>{fd, fd}));
}

}  // namespace
