// Layout derivation: a buffer's gralloc-extension attributes (and, for two YUV formats, one CPU
// lock) turned into its plane layout, with consistency checks.
#include <GrallocFormats.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <android/hardware/graphics/mapper/IMapper.h>
#include <android/log.h>
#include <android/sync.h>
#include <gralloc_extra.h>
#include <unistd.h>
#include <utils/Errors.h>

#include <cstring>
#include <sstream>

#include "GrallocHelperInternal.h"
#include "GrallocMapperAidlV2.h"
#include "LayoutArithmetic.h"
#include "logging/GrallocLog.h"

namespace GrallocAidlV2 {

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using layout::alignUp32;
using layout::kRowAlignment;
using zcam::LayoutFamily;
using zcam::PixelFormatInfo;
using zcam::SinglePlaneRule;

constexpr uint32_t toBits(BufferUsage usage) {
    return static_cast<uint32_t>(usage);
}

constexpr uint32_t kUsageSmvr = static_cast<uint32_t>(zcam::kUsageSmvr);
constexpr uint32_t kUsageProtected = toBits(BufferUsage::PROTECTED);
// What the plane probe locks for: the CPU reads it, once.
constexpr uint64_t kYCbCrLockUsage = toBits(BufferUsage::CPU_READ_OFTEN);
// The SF-info record's status word and its AFBC bit (bit 22).
constexpr size_t kSfInfoStatusOffset = 56;
constexpr uint32_t kSfInfoAfbcBit = 0x400000;
// YCbCr_422_I keeps at least this many rows per plane.
constexpr size_t kPackedYuvMinRows = 16;

// Zeroes `field` and asks the extension for `attribute` into it.
template <typename T>
int queryInto(buffer_handle_t buffer, GRALLOC_EXTRA_ATTRIBUTE_QUERY attribute, T& field) {
    field = 0;
    return gralloc_extra_query(buffer, attribute, &field);
}

// Bytes from `from` to `to`, as addresses: the mapper's plane pointers need not lie in one
// object that this process can see.
size_t distance(const void* from, const void* to) {
    return static_cast<size_t>(reinterpret_cast<uintptr_t>(to) - reinterpret_cast<uintptr_t>(from));
}

}  // namespace

std::string toString(const Extra& extra) {
    std::ostringstream out;
    out << "{format:" << gQueryPixelFormatName(extra.format)
        << " usage:" << gQueryGrallocUsageName(static_cast<int>(extra.usage))
        << " widthInPixels:" << extra.widthInPixels << " heightInPixels:" << extra.heightInPixels
        << " rowStrideInPixels:" << extra.rowStrideInPixels << " rowNum:" << extra.rowNum
        << " allocSize:" << extra.allocSize
        << " consumerUsage:" << gQueryGrallocUsageName(static_cast<int>(extra.consumerUsage))
        << " producerUsage:" << gQueryGrallocUsageName(static_cast<int>(extra.producerUsage))
        << " stride:" << extra.stride << " height:" << extra.height
        << " isAFBC:" << (extra.isAFBC ? 1 : 0) << " id:" << extra.id << "}";
    return out.str();
}

int gQueryExtra(buffer_handle_t buffer, Extra& extra) {
    GrallocExtraSfInfo sfInfo;
    memset(&sfInfo, 0, sizeof(sfInfo));
    int error = 0;
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_ID, extra.id);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_FORMAT, extra.format);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_WIDTH, extra.widthInPixels);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_HEIGHT, extra.heightInPixels);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_STRIDE, extra.rowStrideInPixels);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_VERTICAL_STRIDE, extra.rowNum);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_ALLOC_SIZE, extra.allocSize);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_USAGE, extra.usage);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_PRODUCER_USAGE, extra.producerUsage);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_CONSUMER_USAGE, extra.consumerUsage);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_STRIDE, extra.stride);
    error |= queryInto(buffer, GRALLOC_EXTRA_GET_HEIGHT, extra.height);
    error |= gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_SF_INFO, &sfInfo);
    if (error != 0) {
        ZLOGE_AT(kLogLineExtraQueryFailed,
                 "[%s] Given buffer_handle_t:%p, gralloc_extra_query returns %d", buffer, error);
        ZLOGE_AT(kLogLineExtraRecord, "[%s] %s", toString(extra).c_str());
        return android::UNKNOWN_ERROR;
    }
    uint32_t status = 0;
    memcpy(&status, reinterpret_cast<const uint8_t*>(&sfInfo) + kSfInfoStatusOffset,
           sizeof(status));
    extra.isAFBC = (status & kSfInfoAfbcBit) != 0;
    if (extra.rowStrideInPixels == 0 || gLogLevel.load() >= kOwnLogLevelDetails) {
        ZLOGD("[%s] Given buffer_handle_t:%p, GrallocExtra:%s", buffer, toString(extra).c_str());
    }
    return android::NO_ERROR;
}

bool checkPlaneSize(const MyStaticInfo& info, size_t index, size_t rows) {
    const auto& plane = info.planes[index];
    const size_t expected = plane.rowStrideInBytes * rows;
    if (plane.sizeInBytes != expected) {
        ZLOGW("[%s] [%s:%zu] sizeInBytes:%zu != %zu x %zu",
              gQueryPixelFormatName(info.format).c_str(), index, plane.sizeInBytes,
              plane.rowStrideInBytes, rows);
    }
    // The flag byte is compared as stored: only exactly 1 means AFBC here.
    uint8_t afbc = 0;
    memcpy(&afbc, &info.isAFBC, sizeof(afbc));
    if (afbc == 1 && plane.rowStrideInBytes % kRowAlignment != 0) {
        ZLOGW("[%s] AFBC buffer is not 32 aligned, %zu (%zu)", plane.rowStrideInBytes,
              alignUp32(plane.rowStrideInBytes));
    }
    return plane.sizeInBytes == expected;
}

void gQueryYCbCr(android_ycbcr& ycbcr, buffer_handle_t buffer, size_t width, size_t height) {
    const ARect region{0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)};
    const int32_t status = gMapperV5->lock(buffer, kYCbCrLockUsage, region, kNoFence, &ycbcr);
    const int fence = gMapperV5->unlock(buffer);
    // Only the plane distances are used, and only once the release fence has signalled.
    sync_wait(fence, kSyncWaitForever);
    close(fence);
    ZLOGD("[%s] 4.0: cr-y:%zu cb-cr:%zu y:%p cb:%p cr:%p ystride:%zu cstride:%zu "
          "chroma_step:%zu status:%d",
          distance(ycbcr.y, ycbcr.cr), distance(ycbcr.cr, ycbcr.cb), ycbcr.y, ycbcr.cb, ycbcr.cr,
          ycbcr.ystride, ycbcr.cstride, ycbcr.chroma_step, status);
    if (status == AIMAPPER_ERROR_NONE) return;
    if (zyncam_testLog(LOG_TAG, kTestLogError)) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "[Fatal] [%s] status:%d(%s) (%s){#%d:%s}",
                            "gQueryYCbCr", -status, strerror(-status), "gQueryYCbCr",
                            kLogLineYCbCrLockFailed, LOG_FILE);
    }
    __android_log_assert("1", LOG_TAG, "(%s){#%d:%s}\r\n", "gQueryYCbCr", kLogLineYCbCrLockFailed,
                         LOG_FILE);
}

namespace {

// The derivation's lines are written in the name of the function callers know.
constexpr const char* kStaticInfoFunction = "queryStaticInfo";

// What the layout rules read: the extension's attributes and the record's batch count.
struct Geometry {
    buffer_handle_t buffer;
    uint32_t usage;    // U
    size_t stride;     // S: row stride in pixels
    size_t rows;       // R: rows allocated
    size_t allocSize;  // A
    int32_t stride32;  // s: the row stride as a signed 32-bit value
    int32_t height32;  // h
    int32_t width;     // W: the record's width
    int32_t height;    // H
    uint32_t batch;    // B, at least 1
    bool afbc;
};

void setPlane(MyStaticInfo& info, size_t index, size_t stride, size_t size) {
    info.planes[index].rowStrideInBytes = stride;
    info.planes[index].sizeInBytes = size;
}

// One plane, checked against all rows.
void setSinglePlane(MyStaticInfo& info, const Geometry& g, size_t stride, size_t size) {
    info.planes.resize(1);
    setPlane(info, 0, stride, size);
    checkPlaneSize(info, 0, g.rows);
}

void deriveSinglePlane(const PixelFormatInfo& entry, const Geometry& g, MyStaticInfo& info) {
    switch (entry.rule) {
        case SinglePlaneRule::kNotSinglePlane:
        case SinglePlaneRule::kPlain:
            setSinglePlane(info, g, entry.bytesPerSample * g.stride, g.allocSize);
            break;
        case SinglePlaneRule::kZslAligned:
            ZLOGD_FN(kStaticInfoFunction, "[%s] only in zsl mode: %#x(%s)", entry.format,
                     gQueryPixelFormatName(entry.format).c_str());
            setSinglePlane(info, g, alignUp32(g.stride), g.allocSize);
            break;
        case SinglePlaneRule::kPackedYuv: {
            setSinglePlane(info, g, entry.bytesPerSample * g.stride, g.allocSize);
            const size_t stride = info.planes[0].rowStrideInBytes;
            const size_t size = info.planes[0].sizeInBytes;
            if (stride % kRowAlignment != 0) {
                ZLOGW_FN(kStaticInfoFunction,
                         "[%s] [YCbCr_422_I] rowStrideInBytes:%zu is not a multiple of 32", stride);
            }
            if (size < stride * kPackedYuvMinRows) {
                ZLOGW_FN(kStaticInfoFunction,
                         "[%s] [YCbCr_422_I] sizeInBytes:%zu<rowStrideInBytes:%zu*16", size,
                         stride);
            }
            break;
        }
    }
}

// A luma plane and an interleaved chroma plane of half the rows, with one row stride.
void setLumaAndChroma(MyStaticInfo& info, const Geometry& g, size_t rowBytes, size_t lumaSize,
                      size_t chromaSize) {
    info.planes.resize(2);
    setPlane(info, 0, rowBytes, lumaSize);
    checkPlaneSize(info, 0, g.rows);
    setPlane(info, 1, rowBytes, chromaSize);
    checkPlaneSize(info, 1, g.rows >> 1);
}

// A compressed slow-motion buffer holds the whole batch in its one plane; the layout describes
// one frame's share of it. Returns the plane's size before.
size_t keepOneFrameOfBatch(const Geometry& g, MyStaticInfo& info) {
    const size_t before = info.planes[0].sizeInBytes;
    info.planes[0].sizeInBytes = g.allocSize / g.batch;
    return before;
}

// YCrCb_420_SP: luma, then interleaved chroma from cr on; the planes come from one CPU lock.
void deriveSemiPlanar420(const Geometry& g, MyStaticInfo& info) {
    android_ycbcr ycbcr{};
    gQueryYCbCr(ycbcr, g.buffer, layout::toSize(g.width), layout::toSize(g.height));
    if (g.afbc) {
        setSinglePlane(info, g, ycbcr.ystride, g.allocSize);
        return;
    }
    const size_t luma = distance(ycbcr.y, ycbcr.cr);
    info.planes.resize(2);
    setPlane(info, 0, ycbcr.ystride, luma);
    checkPlaneSize(info, 0, g.rows);
    setPlane(info, 1, ycbcr.cstride, g.allocSize - luma);
    checkPlaneSize(info, 1, g.rows >> 1);
    if (g.usage & kUsageSmvr) {
        // One frame of the batch: its chroma is what a 32-aligned frame has beyond the luma.
        const size_t before = info.planes[1].sizeInBytes;
        info.planes[1].sizeInBytes =
                layout::toSize(layout::smvrSemiPlanarFrameSize(g.width, g.height)) - luma;
        ZLOGD_FN(kStaticInfoFunction,
                 "[%s] Extra-info(producerUsage=%u, %dx%d, plane-y(rsb=%zu, sib=%lx), "
                 "plane-crcb(rsb=%zu, sib-ori=%lx, sib-adjusted=%lx), extra.allocSize=%zu",
                 info.producerUsage, g.width, g.height, ycbcr.ystride,
                 static_cast<unsigned long>(luma), ycbcr.cstride,
                 static_cast<unsigned long>(before),
                 static_cast<unsigned long>(info.planes[1].sizeInBytes), g.allocSize);
    }
}

// NV12 and P010: luma then interleaved chroma of half the rows, both from the stride and height.
// P010's row stride is read from the unsigned stride attribute, NV12's from the signed one: the
// two differ only for a stride past INT32_MAX, where each keeps the value its rule gives.
void deriveTwoPlane420(const PixelFormatInfo& entry, const Geometry& g, MyStaticInfo& info) {
    const size_t bytes = entry.bytesPerSample;
    const size_t rowBytes = bytes == 1 ? layout::toSize(g.stride32) : bytes * g.stride;
    if (g.afbc) {
        setSinglePlane(info, g, rowBytes, g.allocSize);
        if (g.usage & kUsageSmvr) {
            const size_t before = keepOneFrameOfBatch(g, info);
            ZLOGD_FN(kStaticInfoFunction,
                     "[%s] Extra-info(producerUsage=%u, %dx%d, plane-crcb(sib-ori=%zu, "
                     "sib-adjusted=%zu), extra.allocSize=%zu, batch=%d",
                     info.producerUsage, g.width, g.height, before, info.planes[0].sizeInBytes,
                     g.allocSize, static_cast<int>(info.batchNum));
        }
        return;
    }
    setLumaAndChroma(info, g, rowBytes, layout::product64(g.stride32, g.height32) * bytes,
                     layout::twoPlane420ChromaSize(g.stride32, g.height32, entry.bytesPerSample));
}

// YV12: planes Y, Cr, Cb as they lie in memory.
void deriveYV12(const Geometry& g, MyStaticInfo& info) {
    info.planes.resize(3);
    if (info.usage & kUsageProtected) {
        // A protected buffer cannot be locked: the planes follow from the stride and height.
        const size_t chromaStride = layout::toSize(g.stride32 / 2);
        const size_t chromaSize = layout::yv12ChromaSize(g.stride32, g.height32);
        setPlane(info, 0, layout::toSize(g.stride32), layout::product64(g.stride32, g.height32));
        checkPlaneSize(info, 0, g.rows);
        setPlane(info, 1, chromaStride, chromaSize);
        checkPlaneSize(info, 1, g.rows >> 1);
        setPlane(info, 2, chromaStride, chromaSize);
        // The Cr plane is checked twice and the Cb plane never, as the layout rule has it.
        checkPlaneSize(info, 1, g.rows >> 1);
        return;
    }
    android_ycbcr ycbcr{};
    gQueryYCbCr(ycbcr, g.buffer, layout::toSize(g.width), layout::toSize(g.height));
    const size_t luma = distance(ycbcr.y, ycbcr.cr);
    const size_t cr = distance(ycbcr.cr, ycbcr.cb);
    const size_t beforeCb = distance(ycbcr.y, ycbcr.cb);
    setPlane(info, 0, ycbcr.ystride, luma);
    checkPlaneSize(info, 0, g.rows);
    setPlane(info, 1, ycbcr.cstride, cr);
    checkPlaneSize(info, 1, g.rows >> 1);
    setPlane(info, 2, ycbcr.cstride, g.allocSize - beforeCb);
    checkPlaneSize(info, 2, g.rows >> 1);
    if (g.usage & kUsageSmvr) {
        const size_t before = info.planes[2].sizeInBytes;
        info.planes[2].sizeInBytes = g.allocSize / g.batch - beforeCb;
        ZLOGD_FN(kStaticInfoFunction,
                 "[%s] Extra-info(producerUsage=%u, %dx%d, plane-y(rsb=%zu, sib=%zd), "
                 "plane-cr(rsb=%zu, sid=%zd), plane-cb(rsb=%zu, sib-ori=%zu, "
                 "sib-adjusted=%zu), extra.allocSize=%zu",
                 info.producerUsage, g.width, g.height, ycbcr.ystride, static_cast<ssize_t>(luma),
                 ycbcr.cstride, static_cast<ssize_t>(cr), ycbcr.cstride, before,
                 info.planes[2].sizeInBytes, g.allocSize);
    }
}

}  // namespace

int queryStaticInfo(buffer_handle_t buffer, MyStaticInfo& info) {
    Extra extra{};
    const int status = gQueryExtra(buffer, extra);
    if (status != android::NO_ERROR) {
        ZLOGE_AT(kLogLineStaticInfoExtraFailed,
                 "[%s] Given buffer_handle_t:%p, gralloc_extra_query returns %d", buffer, status);
        return android::UNKNOWN_ERROR;
    }
    info.format = extra.format;
    info.usage = extra.usage;
    info.widthInPixels = static_cast<int32_t>(extra.widthInPixels);
    info.heightInPixels = static_cast<int32_t>(extra.heightInPixels);
    info.allocSize = extra.allocSize;
    info.producerUsage = extra.producerUsage;
    info.isAFBC = extra.isAFBC;

    int fd = kNoFd;
    const int error = gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_ION_FD, &fd);
    if (error != 0 || fd < 0) {
        ZLOGE_AT(kLogLineStaticInfoIonFd, "[%s] [buffer_handle_t:%p] err:%d ionFd:%d", buffer,
                 error, fd);
        return android::UNKNOWN_ERROR;
    }

    const Geometry g{buffer,
                     extra.usage,
                     extra.rowStrideInPixels,
                     extra.rowNum,
                     extra.allocSize,
                     extra.stride,
                     extra.height,
                     info.widthInPixels,
                     info.heightInPixels,
                     info.batchNum > 1 ? info.batchNum : 1,
                     info.isAFBC};
    const int32_t format = extra.format;
    const PixelFormatInfo* entry = zcam::findPixelFormat(format);
    switch (entry != nullptr ? entry->family : LayoutFamily::kNoRule) {
        case LayoutFamily::kSinglePlane:
            deriveSinglePlane(*entry, g, info);
            break;
        case LayoutFamily::kLockedSemiPlanar420:
            deriveSemiPlanar420(g, info);
            break;
        case LayoutFamily::kTwoPlane420:
            deriveTwoPlane420(*entry, g, info);
            break;
        case LayoutFamily::kThreePlaneYV12:
            deriveYV12(g, info);
            break;
        case LayoutFamily::kFlexible:
            // A flexible format: the allocator must have resolved it for a real buffer.
            ZLOGE_AT(kLogLineFlexibleFormat,
                     "[%s] format from gralloc_extra_query should not be: %#x(%s)", format,
                     gQueryPixelFormatName(format).c_str());
            return android::UNKNOWN_ERROR;
        case LayoutFamily::kNoRule:
            ZLOGE_AT(kLogLineUnsupportedFormat, "[%s] Not support format: %#x(%s)", format,
                     gQueryPixelFormatName(format).c_str());
            return android::NAME_NOT_FOUND;
    }
    return android::NO_ERROR;
}

}  // namespace GrallocAidlV2
