// The allocator adapter, the handle conversions and the simulated device profile.
#include <aidl/android/hardware/common/NativeHandle.h>
#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <gralloc_extra.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <zyncam_host/Camera.h>

#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

namespace common = aidl::android::hardware::graphics::common;
using aidl::android::hardware::graphics::allocator::BufferDescriptorInfo;
using common::PixelFormat;
using NSCam::GrallocAllocatorAidlV2::AllocatorAidl;
using testkit::allocator;
using testkit::mapper;

BufferDescriptorInfo descriptor(int32_t w, int32_t h, int32_t format, uint64_t usage) {
    BufferDescriptorInfo d;
    d.width = w;
    d.height = h;
    d.layerCount = 1;
    d.format = static_cast<PixelFormat>(format);
    d.usage = static_cast<common::BufferUsage>(usage);
    return d;
}

TEST(AllocatorTest, FailedImportFreesWhatWasImported) {
    testkit::SimFaults faults;
    testkit::LogCapture log;
    const auto before = zyncam::sim::counters();
    zyncam::sim::failImportAt(3);
    const native_handle* handles[3] = {};
    uint32_t stride = 77;
    EXPECT_EQ(allocator().allocate(descriptor(64, 48, 0x11, 0x3), 3, &stride, handles), 2);
    EXPECT_EQ(handles[0], nullptr);
    EXPECT_EQ(handles[1], nullptr);
    EXPECT_EQ(stride, 77u);
    const auto after = zyncam::sim::counters();
    EXPECT_EQ(after.imports, before.imports + 2);
    EXPECT_EQ(after.frees, before.frees + 2);
    EXPECT_EQ(after.liveBuffers, before.liveBuffers);

    zyncam::sim::failImportAt(1);
    const native_handle* one = nullptr;
    EXPECT_EQ(
            allocator().allocate(64, 48, PixelFormat::YCRCB_420_SP, 1, 0x3, &one, &stride, 0, "x"),
            -12);
    EXPECT_TRUE(
            log.has("[allocate] Failed to allocate (64 x 48) layerCount 1 format 17 usage 3: 2 "
                    "(allocate){#"));
}

TEST(AllocatorTest, ServiceFailureIsNoResources) {
    testkit::SimFaults faults;
    testkit::LogCapture log;
    const native_handle* handle = nullptr;
    uint32_t stride = 0;
    for (int32_t fault : {-1, 1}) {
        zyncam::sim::failAllocate(fault);
        EXPECT_EQ(allocator().allocate(descriptor(64, 48, 0x11, 0x3), 1, &stride, &handle), 5);
    }
    EXPECT_TRUE(log.android().empty());  // the descriptor-level call logs nothing
    zyncam::sim::failAllocate(std::nullopt);
    EXPECT_EQ(allocator().allocate(descriptor(64, 48, 0x12345, 0x3), 1, &stride, &handle), 5);
}

TEST(AllocatorTest, SingleBufferRequestIsAdjusted) {
    testkit::SimFaults faults;
    struct Case {
        uint32_t w, h, layers;
        int32_t width, height, layerCount;
    };
    const Case cases[] = {{0, 480, 1, 1, 1, 1}, {640, 0, 2, 1, 1, 2}, {640, 480, 0, 640, 480, 1}};
    for (const auto& c : cases) {
        const native_handle* handle = nullptr;
        uint32_t stride = 0;
        ASSERT_EQ(allocator().allocate(c.w, c.h, PixelFormat::RGBA_8888, c.layers, 0x3, &handle,
                                       &stride, 4096, "ignored"),
                  0);
        int width = 0, height = 0;
        gralloc_extra_query(handle, GRALLOC_EXTRA_GET_WIDTH, &width);
        gralloc_extra_query(handle, GRALLOC_EXTRA_GET_HEIGHT, &height);
        EXPECT_EQ(width, c.width);
        EXPECT_EQ(height, c.height);
        EXPECT_EQ(allocator().free(handle), 0);
    }
}

TEST(AllocatorTest, FreeIgnoresTheMappersAnswer) {
    testkit::SimFaults faults;
    native_handle_t* bogus = native_handle_create(0, 0);
    EXPECT_EQ(allocator().free(bogus), 0);
    native_handle_delete(bogus);
}

TEST(AllocatorTest, ThousandCyclesLeaveNoDescriptor) {
    testkit::SimFaults faults;
    const int before = zyncam::host::openFdCount();
    const auto counted = zyncam::sim::counters();
    for (int i = 0; i < 1000; ++i) {
        const native_handle* handle = nullptr;
        uint32_t stride = 0;
        ASSERT_EQ(allocator().allocate(320, 240, PixelFormat::YCRCB_420_SP, 1, 0x3, &handle,
                                       &stride, 0, ""),
                  0);
        allocator().free(handle);
    }
    EXPECT_EQ(zyncam::host::openFdCount(), before);
    EXPECT_EQ(zyncam::sim::counters().liveBuffers, counted.liveBuffers);
}

TEST(AllocatorTest, CreateInstanceReportsAMissingService) {
    testkit::SimFaults faults;
    ndk::SpAIBinder service = zyncam::host::removeService(zyncam::sim::kAllocatorInstance);
    ASSERT_NE(service.get(), nullptr);
    const int reports = zyncam::host::kreReportCount();
    EXPECT_EQ(AllocatorAidl::createInstance(), nullptr);
    EXPECT_EQ(zyncam::host::kreReportCount(), reports + 1);
    auto report = zyncam::host::lastKreReport();
    EXPECT_EQ(report.module, "ZynCam/GrallocAllocatorAidlV2");
    EXPECT_EQ(report.message, "\nCRDISPATCH_KEY:get null IAllocator ptr, gralloc issue");
    AServiceManager_addService(service.get(), zyncam::sim::kAllocatorInstance);
    EXPECT_NE(AllocatorAidl::createInstance(), nullptr);
}

TEST(AllocatorDeathTest, MissingServiceEndsTheProcess) {
    EXPECT_DEATH(AllocatorAidl(nullptr, mapper()),
                 "\\[Fatal\\] \\[AllocatorAidl\\] gralloc-alloc is missing  \\(AllocatorAidl\\)"
                 "\\{#[0-9]+:utils/gralloc/aidl/v2/allocator/allocator\\}");
    EXPECT_DEATH(
            {
                zyncam::host::setTestLogAnswer(0);
                AllocatorAidl(nullptr, mapper());
            },
            testing::AllOf(testing::ContainsRegex("\\(AllocatorAidl\\)\\{#[0-9]+:utils/gralloc/"
                                                  "aidl/v2/allocator/allocator\\}"),
                           testing::Not(testing::HasSubstr("[Fatal]"))));
}

TEST(NativeHandleConversionTest, OwnershipRules) {
    const int before = zyncam::host::openFdCount();
    {
        android::AidlNativeHandle aidl;
        aidl.fds.emplace_back(open("/dev/null", O_RDONLY));
        aidl.ints = {7, 8};
        native_handle_t* borrowed = android::makeFromAidl(aidl);
        EXPECT_EQ(borrowed->data[0], aidl.fds[0].get());
        EXPECT_EQ(borrowed->data[1], 7);
        native_handle_delete(borrowed);
        native_handle_t* owned = android::dupFromAidl(aidl);
        EXPECT_NE(owned->data[0], aidl.fds[0].get());
        EXPECT_EQ(fcntl(owned->data[0], F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(owned->data[2], 8);

        android::AidlNativeHandle copy = android::dupToAidl(owned);
        EXPECT_NE(copy.fds[0].get(), owned->data[0]);
        android::AidlNativeHandle takenOver = android::makeToAidl(owned);
        EXPECT_EQ(takenOver.fds[0].get(), owned->data[0]);
        EXPECT_EQ(takenOver.ints, (std::vector<int32_t>{7, 8}));
        native_handle_delete(owned);  // the descriptor now belongs to takenOver
    }
    EXPECT_EQ(zyncam::host::openFdCount(), before);

    android::AidlNativeHandle empty;
    EXPECT_TRUE(android::isAidlNativeHandleEmpty(empty));
    native_handle_t* none = android::makeFromAidl(empty);
    ASSERT_NE(none, nullptr);
    native_handle_delete(none);
    empty.ints = {1};
    EXPECT_FALSE(android::isAidlNativeHandleEmpty(empty));
}

// Under the documented profile, every plane of an ordinary buffer holds exactly its rows.
TEST(DeviceProfileTest, OrdinaryBuffersHaveConsistentPlanes) {
    testkit::SimFaults faults;
    const int32_t formats[] = {0x1,  0x3,   0x4,    0x5,        0x11,       0x14,
                               0x20, 0x21,  0x22,   0x23,       0x24,       0x25,
                               0x36, 0x111, 0x1000, 0x20203859, 0x20363159, 0x32315659};
    const std::pair<int, int> sizes[] = {{1920, 1080}, {640, 480}, {4000, 3000}, {176, 144}};
    for (int32_t format : formats) {
        for (auto [w, h] : sizes) {
            SCOPED_TRACE(::testing::Message()
                         << std::hex << format << std::dec << " " << w << "x" << h);
            testkit::Buffer buffer(w, h, format, 0x3);
            ASSERT_NE(buffer.get(), nullptr);
            int rows = 0;
            uint64_t size = 0;
            gralloc_extra_query(buffer.get(), GRALLOC_EXTRA_GET_VERTICAL_STRIDE, &rows);
            gralloc_extra_query(buffer.get(), GRALLOC_EXTRA_GET_ALLOC_SIZE, &size);
            std::vector<common::PlaneLayout> layouts;
            ASSERT_EQ(mapper().getPlaneLayouts(buffer.get(), &layouts), 0);
            int64_t end = 0;
            for (const auto& plane : layouts) {
                EXPECT_EQ(plane.offsetInBytes, end);  // planes follow each other
                EXPECT_EQ(plane.totalSizeInBytes,
                          plane.strideInBytes * (rows / plane.verticalSubsampling));
                end = plane.offsetInBytes + plane.totalSizeInBytes;
            }
            EXPECT_EQ(static_cast<uint64_t>(end), size);
        }
    }
}

}  // namespace
