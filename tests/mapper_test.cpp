// The mapper adapter against the simulated gralloc: loading, buffer calls and YCbCr locks.
#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <android/log.h>
#include <fcntl.h>
#include <system/graphics.h>
#include <unistd.h>

#include <GrallocRecords.h>
#include <gtest/gtest.h>

#include <cstring>

#include "kit/Codes.h"
#include "kit/GrallocKit.h"
#include "kit/TestKit.h"

namespace {

namespace common = aidl::android::hardware::graphics::common;
using common::PlaneLayout;
using common::PlaneLayoutComponent;
using common::PlaneLayoutComponentType;
using NSCam::GrallocMapperAidlV2::MapperV5;
using testkit::Buffer;
using testkit::mapper;

using testkit::fmt;
constexpr int32_t kNV21 = fmt(common::PixelFormat::YCRCB_420_SP);
constexpr int32_t kRGBA = fmt(common::PixelFormat::RGBA_8888);
constexpr int32_t kBLOB = fmt(common::PixelFormat::BLOB);
constexpr int32_t kYV12 = fmt(common::PixelFormat::YV12);
constexpr int32_t kNV12 = zcam::kPixelFormatNV12;
constexpr uint64_t kCpu = uint64_t(common::BufferUsage::CPU_READ_OFTEN) |
                          uint64_t(common::BufferUsage::CPU_WRITE_OFTEN);
constexpr ARect kWhole{0, 0, 0, 0};

TEST(MapperTest, ThreeLockFormsShareMemoryAcrossImports) {
    testkit::SimFaults faults;
    const int fdsBefore = zyncam::host::openFdCount();
    {
        Buffer buffer(64, 48, kNV21, kCpu);
        ASSERT_NE(buffer.get(), nullptr);
        const native_handle* second = nullptr;
        ASSERT_EQ(mapper().importBuffer(buffer.get(), &second), 0);
        ASSERT_NE(second, buffer.get());

        void* data = nullptr;
        ASSERT_EQ(mapper().lock(buffer.get(), 0x3, ARect{0, 0, 64, 48}, -1, &data), 0);
        memset(data, 0x5A, 64 * 48);
        EXPECT_EQ(mapper().unlock(buffer.get()), -1);

        int bpp = 0, bps = 0;
        void* other = nullptr;
        ASSERT_EQ(mapper().lock(second, 0x3, kWhole, -1, &other, &bpp, &bps), 0);
        EXPECT_NE(other, data);  // a mapping of its own
        EXPECT_EQ(static_cast<uint8_t*>(other)[64 * 48 - 1], 0x5A);
        EXPECT_EQ(bpp, -1);  // Y and chroma planes differ in sample increment
        EXPECT_EQ(bps, 64);
        mapper().unlock(second);

        android_ycbcr ycbcr{};
        ASSERT_EQ(mapper().lock(second, 0x3, kWhole, -1, &ycbcr), 0);
        EXPECT_EQ(static_cast<uint8_t*>(ycbcr.y)[0], 0x5A);
        mapper().unlock(second);
        EXPECT_EQ(mapper().freeBuffer(second), 0);
    }
    EXPECT_EQ(zyncam::host::openFdCount(), fdsBefore);
    EXPECT_EQ(zyncam::sim::counters().liveBuffers, 0);
}

TEST(MapperTest, BytesPerPixelAndStrideOfRgba) {
    testkit::SimFaults faults;
    Buffer buffer(100, 10, kRGBA, kCpu);
    int bpp = 0, bps = 0;
    void* data = nullptr;
    ASSERT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &data, &bpp, &bps), 0);
    EXPECT_EQ(bpp, 4);
    EXPECT_EQ(bps, 4 * 112);  // 100 aligned to 16
    mapper().unlock(buffer.get());
}

TEST(MapperTest, YCbCrFromRealLayouts) {
    testkit::SimFaults faults;
    struct Case {
        int32_t format;
        ptrdiff_t crMinusY, cbMinusCr;
        size_t ystride, cstride, step;
    };
    const Case cases[] = {
            {kNV21, 64 * 48, 1, 64, 64, 2},
            {kNV12, 64 * 48 + 1, -1, 64, 64, 2},
            {kYV12, 64 * 48, 32 * 24, 64, 32, 1},
    };
    for (const auto& c : cases) {
        Buffer buffer(64, 48, c.format, kCpu);
        android_ycbcr ycbcr{};
        ASSERT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &ycbcr), 0) << c.format;
        auto* y = static_cast<uint8_t*>(ycbcr.y);
        EXPECT_EQ(static_cast<uint8_t*>(ycbcr.cr) - y, c.crMinusY) << c.format;
        EXPECT_EQ(static_cast<uint8_t*>(ycbcr.cb) - static_cast<uint8_t*>(ycbcr.cr), c.cbMinusCr);
        EXPECT_EQ(ycbcr.ystride, c.ystride);
        EXPECT_EQ(ycbcr.cstride, c.cstride);
        EXPECT_EQ(ycbcr.chroma_step, c.step);
        mapper().unlock(buffer.get());
    }
}

PlaneLayoutComponent comp(
        PlaneLayoutComponentType type, int64_t offset, int64_t size = 8,
        const char* name = "android.hardware.graphics.common.PlaneLayoutComponentType") {
    return {{name, static_cast<int64_t>(type)}, offset, size};
}

PlaneLayout plane(std::vector<PlaneLayoutComponent> components, int64_t offset, int64_t increment,
                  int64_t stride) {
    PlaneLayout p;
    p.components = std::move(components);
    p.offsetInBytes = offset;
    p.sampleIncrementInBits = increment;
    p.strideInBytes = stride;
    return p;
}

TEST(MapperTest, YCbCrDerivationRulesAndFailures) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kBLOB, kCpu);  // layouts come from the override below
    using T = PlaneLayoutComponentType;
    struct Case {
        const char* what;
        std::vector<PlaneLayout> layouts;
        int32_t result;
        ptrdiff_t y = -1, cb = -1, cr = -1;  // offsets from the base, -1 for null
        size_t ystride = 0, cstride = 0, step = 0;
    };
    const Case cases[] = {
            {"single plane without components", {plane({}, 16, 8, 64)}, 0, 16, -1, -1, 64, 0, 0},
            {"non-standard components are skipped",
             {plane({comp(T::Y, 0), comp(T::CB, 3, 8, "vendor")}, 0, 8, 64)},
             0,
             0,
             -1,
             -1,
             64,
             0,
             0},
            {"empty name counts as standard",
             {plane({comp(T::Y, 0, 8, "")}, 0, 8, 64)},
             0,
             0,
             -1,
             -1,
             64,
             0,
             0},
            {"two Y components",
             {plane({comp(T::Y, 0)}, 0, 8, 64), plane({comp(T::Y, 0)}, 100, 8, 64)},
             3},
            {"Y of 16 bits", {plane({comp(T::Y, 0, 16)}, 0, 16, 128)}, 3},
            {"chroma step of 24 bits",
             {plane({comp(T::Y, 0)}, 0, 8, 64),
              plane({comp(T::CB, 0), comp(T::CR, 8)}, 100, 24, 64)},
             3},
            {"Cb and Cr planes with different strides",
             {plane({comp(T::Y, 0)}, 0, 8, 64), plane({comp(T::CB, 0)}, 100, 8, 32),
              plane({comp(T::CR, 0)}, 200, 8, 16)},
             3},
            {"offset not a whole byte", {plane({comp(T::Y, 4)}, 0, 8, 64)}, 3},
            {"two Cb components",
             {plane({comp(T::Y, 0)}, 0, 8, 64),
              plane({comp(T::CB, 0), comp(T::CB, 8)}, 100, 16, 64)},
             3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        zyncam::sim::overridePlaneLayouts(c.layouts);
        const auto before = zyncam::sim::counters();
        android_ycbcr ycbcr{};
        const int32_t result = mapper().lock(buffer.get(), 0x3, kWhole, -1, &ycbcr);
        EXPECT_EQ(result, c.result);
        const auto after = zyncam::sim::counters();
        EXPECT_EQ(after.locks, before.locks + 1);
        if (result != 0) {
            EXPECT_EQ(after.unlocks, before.unlocks + 1);  // already unlocked on failure
            continue;
        }
        void* base = nullptr;
        ASSERT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &base), 0);
        auto at = [&](ptrdiff_t offset) {
            return offset < 0 ? nullptr : static_cast<uint8_t*>(base) + offset;
        };
        EXPECT_EQ(ycbcr.y, at(c.y));
        EXPECT_EQ(ycbcr.cb, at(c.cb));
        EXPECT_EQ(ycbcr.cr, at(c.cr));
        EXPECT_EQ(ycbcr.ystride, c.ystride);
        EXPECT_EQ(ycbcr.cstride, c.cstride);
        EXPECT_EQ(ycbcr.chroma_step, c.step);
        mapper().unlock(buffer.get());
        mapper().unlock(buffer.get());
    }
}

TEST(MapperTest, YCbCrWithoutRecordOrLayouts) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kNV21, kCpu);
    EXPECT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, static_cast<android_ycbcr*>(nullptr)),
              3);
    zyncam::sim::setMetadataAnswer(15, -7);
    android_ycbcr ycbcr{};
    const auto locks = zyncam::sim::counters().locks;
    EXPECT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &ycbcr), 3);
    EXPECT_EQ(zyncam::sim::counters().locks, locks);
}

TEST(MapperTest, AcquireFenceIsGivenUpEvenOnFailure) {
    testkit::SimFaults faults;
    zyncam::sim::setLockClosesAcquireFence(false);  // observe the adapter's own close
    Buffer buffer(64, 48, kNV21, kCpu);
    for (int32_t fault : {0, 5}) {
        zyncam::sim::failLock(fault);
        int fence = open("/dev/null", O_RDONLY);
        void* data = nullptr;
        EXPECT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, fence, &data), fault);
        EXPECT_EQ(fcntl(fence, F_GETFD), -1) << "fence left open, fault " << fault;
        if (fault == 0) mapper().unlock(buffer.get());
    }
    const int before = zyncam::host::openFdCount();
    void* data = nullptr;
    zyncam::sim::failLock(0);
    EXPECT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &data), 0);
    EXPECT_EQ(zyncam::host::openFdCount(), before);
    mapper().unlock(buffer.get());
}

TEST(MapperTest, FailuresAreLoggedAndReturned) {
    testkit::SimFaults faults;
    testkit::LogCapture log;
    Buffer buffer(64, 48, kNV21, kCpu);
    void* data = nullptr;
    zyncam::sim::failLock(5);
    EXPECT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &data), 5);
    EXPECT_TRUE(log.has("[lock] IMapper->lock error happen, err=5 (lock){#"));
    int bpp = 0, bps = 0;
    EXPECT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &data, &bpp, &bps), 5);
    auto warning = log.find("failed: 5");
    ASSERT_TRUE(warning);
    EXPECT_EQ(warning->prio, ANDROID_LOG_WARN);
    EXPECT_EQ(warning->text.rfind("lock(0x", 0), 0u);  // straight to the log, no prefix
    for (const auto& line : log.sink()) EXPECT_EQ(line.text.find("failed: 5"), std::string::npos);

    zyncam::sim::failLock(0);
    ASSERT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &data), 0);
    zyncam::sim::failUnlock(2);
    EXPECT_EQ(mapper().unlock(buffer.get()), -1);
    EXPECT_TRUE(log.has("failed with 2 (unlock){#"));
    zyncam::sim::failUnlock(0);
    zyncam::sim::setLateFenceMs(5);
    const int fence = mapper().unlock(buffer.get());
    EXPECT_GE(fence, 0);
    close(fence);

    native_handle_t* bogus = native_handle_create(0, 0);
    EXPECT_EQ(mapper().freeBuffer(bogus), 2);
    EXPECT_TRUE(log.has("] freeBuffer(0x"));
    native_handle_delete(bogus);
}

TEST(MapperTest, EveryCallFlushesAndMissingThreadStateIsOnlyLogged) {
    testkit::SimFaults faults;
    testkit::LogCapture log;
    Buffer buffer(64, 48, kNV21, kCpu);
    void* data = nullptr;
    const uint64_t before = zyncam::host::binderFlushCount();
    ASSERT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &data), 0);
    mapper().unlock(buffer.get());
    EXPECT_EQ(zyncam::host::binderFlushCount(), before + 2);

    zyncam::host::setBinderThreadStateAvailable(false);
    EXPECT_EQ(mapper().lock(buffer.get(), 0x3, kWhole, -1, &data), 0);
    EXPECT_EQ(log.count("[ipcFlushCommands] get IPCThreadState singleton failed"), 1u);
    zyncam::host::setBinderThreadStateAvailable(true);
    mapper().unlock(buffer.get());
}

TEST(MapperTest, LoaderThatReportsErrorButFillsTableIsAccepted) {
    testkit::SimFaults faults;
    zyncam::sim::setMapperSuffix("zyncamsim-errfill");
    MapperV5 errfill(NSCam::GrallocAllocatorAidlV2::AllocatorAidl::createInstance());
    Buffer buffer(16, 16, kNV21, kCpu);
    const native_handle* imported = nullptr;
    EXPECT_EQ(errfill.importBuffer(buffer.get(), &imported), 0);
    EXPECT_EQ(errfill.freeBuffer(imported), 0);
}

struct FatalCase {
    const char* suffix;  // nullptr: the allocator service is absent
    const char* message;
};

TEST(MapperDeathTest, LoadingFailuresAreFatal) {
    const FatalCase cases[] = {
            {nullptr, "getIMapperLibrarySuffix fail"},
            {"missing", "android_load_sphal_library fail"},
            {"zyncamsim-nosym", "AIMapper_loadIMapper missing"},
            {"zyncamsim-null", "AIMapper_loadIMapper fail"},
    };
    for (const auto& c : cases) {
        EXPECT_DEATH(
                {
                    std::shared_ptr<MapperV5::IAllocator> service;
                    if (c.suffix != nullptr) {
                        zyncam::sim::setMapperSuffix(c.suffix);
                        service = NSCam::GrallocAllocatorAidlV2::AllocatorAidl::createInstance();
                    }
                    MapperV5 doomed(service);
                },
                std::string("\\[MapperV5\\] ") + c.message +
                        " \\(MapperV5\\)\\{#[0-9]+:utils/gralloc/aidl/v2/mapper/mapper\\}");
    }
}

// Offsets a hostile mapper may report: addresses far outside the mapping, or wrapping around.
// The adapter hands them on unchanged (base + offset, modulo the address space) without
// forming an out-of-range pointer, which UBSan's pointer-overflow check would report.
TEST(MapperTest, YCbCrWithHugeOffsetsKeepsTheirDifferences) {
    testkit::SimFaults faults;
    Buffer buffer(64, 48, kBLOB, kCpu);
    using T = PlaneLayoutComponentType;
    constexpr int64_t kFar = INT64_C(0x7000000000000000);
    const struct {
        const char* what;
        int64_t lumaOffset, chromaOffset;
    } cases[] = {
            {"far beyond the mapping", kFar, kFar + 2},
            {"before the mapping", 0, -kFar},
            {"largest offsets", INT64_MAX, INT64_MIN},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        zyncam::sim::overridePlaneLayouts(std::vector<PlaneLayout>{
                plane({comp(T::Y, 0)}, c.lumaOffset, 8, 64),
                plane({comp(T::CR, 0), comp(T::CB, 8)}, c.chromaOffset, 16, 64)});
        android_ycbcr ycbcr{};
        ASSERT_EQ(mapper().lock(buffer.get(), kCpu, kWhole, -1, &ycbcr), AIMAPPER_ERROR_NONE);
        void* data = nullptr;
        ASSERT_EQ(mapper().lock(buffer.get(), kCpu, kWhole, -1, &data), AIMAPPER_ERROR_NONE);
        const auto base = reinterpret_cast<uintptr_t>(data);
        auto offsetOf = [&](void* address) { return reinterpret_cast<uintptr_t>(address) - base; };
        EXPECT_EQ(offsetOf(ycbcr.y), static_cast<uintptr_t>(c.lumaOffset));
        EXPECT_EQ(offsetOf(ycbcr.cr), static_cast<uintptr_t>(c.chromaOffset));
        EXPECT_EQ(offsetOf(ycbcr.cb), static_cast<uintptr_t>(c.chromaOffset) + 1);
        mapper().unlock(buffer.get());
        mapper().unlock(buffer.get());
    }
    // A single plane without components takes the same way.
    zyncam::sim::overridePlaneLayouts(std::vector<PlaneLayout>{plane({}, -kFar, 8, 64)});
    android_ycbcr ycbcr{};
    ASSERT_EQ(mapper().lock(buffer.get(), kCpu, kWhole, -1, &ycbcr), AIMAPPER_ERROR_NONE);
    void* data = nullptr;
    ASSERT_EQ(mapper().lock(buffer.get(), kCpu, kWhole, -1, &data), AIMAPPER_ERROR_NONE);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(ycbcr.y) - reinterpret_cast<uintptr_t>(data),
              static_cast<uintptr_t>(-kFar));
    mapper().unlock(buffer.get());
    mapper().unlock(buffer.get());
}

}  // namespace
