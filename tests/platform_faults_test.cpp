// The library when platform calls fail or answer oddly, observed through the simulator's hooks
// and call journal; and the acquire fence handed to the mapper.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <aidl/android/hardware/graphics/common/StandardMetadataType.h>
#include <fcntl.h>
#include <gralloc_extra.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "GrallocHelperInternal.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

namespace common = aidl::android::hardware::graphics::common;
using common::BufferUsage;
using common::PixelFormat;
using common::StandardMetadataType;
using GrallocAidlV2::GrallocHelperAidlV2Imp;
using NSCam::GrallocMapperAidlV2::MapperV5;
using testkit::allocator;
using testkit::Buffer;
using testkit::Journal;
using testkit::mapper;
using zyncam::sim::Call;
using zyncam::sim::counters;

constexpr int32_t kNV21 = static_cast<int32_t>(PixelFormat::YCRCB_420_SP);
constexpr uint64_t kCpu = static_cast<uint64_t>(BufferUsage::CPU_READ_OFTEN) |
                          static_cast<uint64_t>(BufferUsage::CPU_WRITE_OFTEN);
constexpr ARect kWhole{0, 0, 0, 0};
constexpr int kDirtyCameraMask = 0xC03;
constexpr int32_t kNoMemory = -12;

int64_t typeNumber(StandardMetadataType type) {
    return static_cast<int64_t>(type);
}

uint32_t sfStatus(buffer_handle_t buffer) {
    GrallocExtraSfInfo info{};
    EXPECT_EQ(gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_SF_INFO, &info), 0);
    return info.status;
}

class PlatformFaultsTest : public ::testing::Test {
protected:
    testkit::SimFaults mFaults;
    GrallocHelperAidlV2Imp mHelper;
};

TEST_F(PlatformFaultsTest, MapperSuffixFailureIsFatal) {
    EXPECT_DEATH(
            {
                zyncam::sim::failMapperSuffix(true);
                MapperV5 doomed(NSCam::GrallocAllocatorAidlV2::AllocatorAidl::createInstance());
            },
            "\\[MapperV5\\] getIMapperLibrarySuffix fail");
}

TEST_F(PlatformFaultsTest, ExtensionWriteFailuresAreTheSettersResults) {
    Buffer buffer(64, 48, kNV21, kCpu);
    const uint32_t before = sfStatus(buffer.get());
    zyncam::sim::failExtraPerform(GRALLOC_EXTRA_SET_SF_INFO, -EIO);
    EXPECT_EQ(mHelper.setDirtyCamera(buffer.get()), -EIO);
    EXPECT_EQ(mHelper.setColorspace(buffer.get(), 0), -EIO);
    EXPECT_EQ(sfStatus(buffer.get()), before);
    EXPECT_EQ(mHelper.setBufferSOF(buffer.get(), 1234), 0);  // another attribute

    zyncam::sim::failExtraPerform(GRALLOC_EXTRA_SET_SF_INFO, std::nullopt);
    zyncam::sim::failExtraPerform(GRALLOC_EXTRA_SET_SOF_TIME, -EPERM);
    EXPECT_EQ(mHelper.setBufferSOF(buffer.get(), 1234), -EPERM);
    EXPECT_EQ(mHelper.setDirtyCamera(buffer.get()), 0);
    EXPECT_EQ(sfStatus(buffer.get()) & kDirtyCameraMask, uint32_t(kDirtyCameraMask));
}

TEST_F(PlatformFaultsTest, FailedStatusUpdateStillWritesTheRecordBack) {
    Buffer buffer(64, 48, kNV21, kCpu);
    const uint32_t before = sfStatus(buffer.get());
    zyncam::sim::failSfSetStatus(-EINVAL);
    Journal journal;
    EXPECT_EQ(mHelper.setDirtyCamera(buffer.get()), 0);  // the write's result
    const auto calls = journal.entries();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].call, Call::ExtraQuery);
    EXPECT_EQ(calls[1].call, Call::ExtraSfSetStatus);
    EXPECT_EQ(calls[1].attribute, kDirtyCameraMask);
    EXPECT_EQ(calls[1].result, -EINVAL);
    EXPECT_EQ(calls[2].call, Call::ExtraPerform);
    EXPECT_EQ(calls[2].attribute, GRALLOC_EXTRA_SET_SF_INFO);
    EXPECT_EQ(calls[2].result, 0);
    EXPECT_EQ(sfStatus(buffer.get()), before);
}

TEST_F(PlatformFaultsTest, PlatformFormatIsPassedThrough) {
    constexpr int32_t kChosen = 0x7F000123;
    // High bits survive where unsigned long has them.
    constexpr unsigned long kUsage = static_cast<unsigned long>(0x1234'0000'0003ull);
    zyncam::sim::overridePlatformFormat(kChosen);
    Journal journal;
    EXPECT_EQ(mHelper.getGrallocExtraFormat(static_cast<int>(PixelFormat::IMPLEMENTATION_DEFINED),
                                            kUsage),
              kChosen);
    const auto calls = journal.of(Call::ExtraPlatformFormat);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].attribute, static_cast<int64_t>(PixelFormat::IMPLEMENTATION_DEFINED));
    EXPECT_EQ(calls[0].usage, kUsage);
}

TEST_F(PlatformFaultsTest, FailedDmaBufNamingDoesNotFailTheProbe) {
    zyncam::sim::clearDmaBufNameHistory();
    zyncam::sim::failDmaBufName(ENOTTY);
    const auto live = counters().liveBuffers;
    const zcam::GrallocRequest request{kCpu, kNV21, 320, 240, 0};
    zcam::GrallocStaticInfo info;
    EXPECT_EQ(mHelper.query(&request, &info, false), 0);
    EXPECT_EQ(info.widthInPixels, 320u);
    EXPECT_TRUE(zyncam::sim::dmaBufNameHistory().empty());
    EXPECT_EQ(counters().liveBuffers, live);  // freed all the same
}

TEST_F(PlatformFaultsTest, ShortAllocationFreesWhatWasImported) {
    zyncam::sim::setAllocateShortfall(1);
    const auto live = counters().liveBuffers;
    const int fds = zyncam::host::openFdCount();
    aidl::android::hardware::graphics::allocator::BufferDescriptorInfo descriptor;
    descriptor.width = 64;
    descriptor.height = 48;
    descriptor.layerCount = 1;
    descriptor.format = PixelFormat::YCRCB_420_SP;
    descriptor.usage = static_cast<BufferUsage>(kCpu);
    const native_handle* handles[3] = {};
    uint32_t stride = 0xDEAD;
    EXPECT_EQ(allocator().allocate(descriptor, 3, &stride, handles), AIMAPPER_ERROR_BAD_BUFFER);
    for (const native_handle* h : handles) EXPECT_EQ(h, nullptr);
    EXPECT_EQ(stride, 0xDEADu);
    EXPECT_EQ(counters().liveBuffers, live);
    EXPECT_EQ(zyncam::host::openFdCount(), fds);

    testkit::LogCapture log;
    const zcam::GrallocRequest request{kCpu, kNV21, 64, 48, 0};
    zcam::GrallocStaticInfo info;
    EXPECT_EQ(mHelper.query(&request, &info, false), kNoMemory);
    EXPECT_TRUE(log.has("[determine] Bad allcation handle:"));
}

TEST_F(PlatformFaultsTest, RefusedFreeIsReportedAndTheBufferStays) {
    const native_handle* handle = nullptr;
    uint32_t stride = 0;
    ASSERT_EQ(allocator().allocate(64, 48, PixelFormat::YCRCB_420_SP, 1, kCpu, &handle, &stride, 0,
                                   "test"),
              0);
    const auto live = counters().liveBuffers;
    testkit::LogCapture log;
    zyncam::sim::failFree(AIMAPPER_ERROR_NO_RESOURCES);
    EXPECT_EQ(mHelper.freeBuffer(handle), AIMAPPER_ERROR_NO_RESOURCES);
    EXPECT_TRUE(log.has("] freeBuffer(0x"));
    EXPECT_EQ(allocator().free(handle), 0);  // the allocator adapter swallows it
    EXPECT_EQ(counters().liveBuffers, live);
    zyncam::sim::failFree(0);
    EXPECT_EQ(mHelper.freeBuffer(handle), 0);
    EXPECT_EQ(counters().liveBuffers, live - 1);
}

TEST_F(PlatformFaultsTest, RefusedMetadataWriteIsTheResult) {
    using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2086;
    Buffer buffer(64, 48, kNV21, kCpu);
    float smpte2086[10] = {0.68f, 0.32f, 0.265f, 0.69f, 0.15f, 0.06f, 0.3127f, 0.329f, 1000, 0.01f};
    zyncam::sim::failSetMetadata(typeNumber(StandardMetadataType::SMPTE2086),
                                 AIMAPPER_ERROR_UNSUPPORTED);
    EXPECT_EQ(mapper().setGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2086, smpte2086,
                                      sizeof(smpte2086)),
              AIMAPPER_ERROR_UNSUPPORTED);
    float read[10] = {};
    EXPECT_EQ(mapper().getGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2086, read,
                                      sizeof(read)),
              0);
    EXPECT_EQ(read[8], 0.0f);  // nothing was stored
}

TEST_F(PlatformFaultsTest, ChosenMetadataBytesAreDecodedOrRefused) {
    using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2086;
    using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2094_40;
    Buffer buffer(64, 48, kNV21, kCpu);

    // Bytes that decode to no layout list: every lock form that needs the layouts refuses.
    zyncam::sim::setMetadataBytes(typeNumber(StandardMetadataType::PLANE_LAYOUTS),
                                  std::vector<uint8_t>{1, 2, 3});
    std::vector<common::PlaneLayout> layouts;
    EXPECT_EQ(mapper().getPlaneLayouts(buffer.get(), &layouts), AIMAPPER_ERROR_BAD_VALUE);
    android_ycbcr ycbcr{};
    EXPECT_EQ(mapper().lock(buffer.get(), kCpu, kWhole, -1, &ycbcr), AIMAPPER_ERROR_BAD_VALUE);

    // Undecodable static metadata leaves the caller's record alone.
    zyncam::sim::setMetadataBytes(typeNumber(StandardMetadataType::SMPTE2086),
                                  std::vector<uint8_t>(7, 0xFF));
    float record[10] = {42};
    EXPECT_EQ(mapper().getGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2086, record,
                                      sizeof(record)),
              0);
    EXPECT_EQ(record[0], 42.0f);

    // An answer over the first read's 512 bytes is read again with a buffer of its size.
    constexpr size_t kLarge = 600;
    const int64_t hdr10p = typeNumber(StandardMetadataType::SMPTE2094_40);
    zyncam::sim::setMetadataBytes(hdr10p, std::vector<uint8_t>(kLarge, 0));
    Journal journal;
    uint8_t payload[224] = {};
    EXPECT_EQ(mapper().getGrallocMeta(buffer.get(), GRALLOC_STANDARD_METADATA_SMPTE2094_40, payload,
                                      sizeof(payload)),
              0);
    const auto reads = journal.of(Call::GetStandardMetadata);
    ASSERT_EQ(reads.size(), 2u);
    for (const auto& read : reads) {
        EXPECT_EQ(read.attribute, hdr10p);
        EXPECT_EQ(read.result, static_cast<int32_t>(kLarge));
    }
    EXPECT_EQ(reads[0].bytesWritten, 0u);
    EXPECT_EQ(reads[1].bytesWritten, kLarge);
}

// The plain and the bytes-per-pixel lock, with a given acquire fence.
using LockForm = std::function<int32_t(const native_handle*, int fence)>;
struct Form {
    const char* name;
    LockForm lock;
};
const Form kForms[] = {
        {"plain",
         [](const native_handle* b, int fence) {
             void* data = nullptr;
             return mapper().lock(b, kCpu, kWhole, fence, &data);
         }},
        {"bytes per pixel",
         [](const native_handle* b, int fence) {
             void* data = nullptr;
             int bpp = 0, bps = 0;
             return mapper().lock(b, kCpu, kWhole, fence, &data, &bpp, &bps);
         }},
};

TEST(AcquireFenceTest, MapperGetsItsOwnDuplicateAndTheCallersFenceIsClosedOnce) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kNV21, kCpu);
    for (const Form& form : kForms) {
        for (int32_t fault : {AIMAPPER_ERROR_NONE, AIMAPPER_ERROR_NO_RESOURCES}) {
            SCOPED_TRACE(testing::Message() << form.name << ", fault " << fault);
            zyncam::sim::failLock(fault);
            const int fence = open("/dev/null", O_RDONLY | O_CLOEXEC);
            const int fds = zyncam::host::openFdCount();
            Journal journal;
            EXPECT_EQ(form.lock(buffer.get(), fence), fault);
            const auto locks = journal.of(Call::Lock);
            ASSERT_EQ(locks.size(), 1u);
            EXPECT_GE(locks[0].fd, 0);
            EXPECT_NE(locks[0].fd, fence);
            // The mapper closes its duplicate, the adapter the caller's fence; nothing else.
            EXPECT_EQ(journal.closed(), (std::vector<int>{locks[0].fd, fence}));
            for (const auto& close : journal.of(Call::Close)) EXPECT_EQ(close.result, 0);
            EXPECT_EQ(zyncam::host::openFdCount(), fds - 1);
            if (fault == AIMAPPER_ERROR_NONE) mapper().unlock(buffer.get());
        }
    }
}

TEST(AcquireFenceTest, WithoutADuplicateTheAdapterWaitsAndPassesNone) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kNV21, kCpu);
    for (const Form& form : kForms) {
        SCOPED_TRACE(form.name);
        const int fence = open("/dev/null", O_RDONLY | O_CLOEXEC);
        Journal journal;
        std::vector<zyncam::sim::JournalEntry> calls;
        {
            testkit::NoFreeDescriptors full;
            EXPECT_EQ(form.lock(buffer.get(), fence), 0);
            calls = journal.entries();
        }
        std::erase_if(calls, [](const auto& c) { return c.call == Call::GetStandardMetadata; });
        ASSERT_EQ(calls.size(), 3u);
        EXPECT_EQ(calls[0].call, Call::SyncWait);
        EXPECT_EQ(calls[0].fd, fence);
        EXPECT_EQ(calls[0].attribute, -1);  // no time-out
        EXPECT_EQ(calls[1].call, Call::Lock);
        EXPECT_EQ(calls[1].fd, -1);
        EXPECT_EQ(calls[2].call, Call::Close);
        EXPECT_EQ(calls[2].fd, fence);
        EXPECT_EQ(calls[2].result, 0);
        mapper().unlock(buffer.get());
    }
}

}  // namespace
