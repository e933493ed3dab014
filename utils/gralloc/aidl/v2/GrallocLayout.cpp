// Layout derivation: a buffer's gralloc-extension attributes (and, for two YUV formats, one CPU
// lock) turned into its plane layout, with consistency checks.
#include <android/log.h>
#include <android/sync.h>
#include <gralloc_extra.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "GrallocHelperInternal.h"
#include "GrallocMapperAidlV2.h"
#include "logging/GrallocLog.h"

namespace GrallocAidlV2 {

namespace {

constexpr uint32_t kUsageSmvr = 0x20000000;
constexpr uint32_t kUsageProtected = 0x4000;
constexpr uint32_t kSfInfoAfbcBit = 0x400000;
constexpr size_t kSfInfoStatusOffset = 56;
constexpr int kYCbCrSourceLine = 529;

template <typename T>
T alignUp(T value, T alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

// Zeroes `field` and asks the extension for `attribute` into it.
template <typename T>
int queryInto(buffer_handle_t buffer, int attribute, T& field) {
    field = 0;
    return gralloc_extra_query(buffer, static_cast<GRALLOC_EXTRA_ATTRIBUTE_QUERY>(attribute),
                               &field);
}

// 32-bit signed product, as the layout rules compute some chroma sizes.
int32_t product32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

size_t distance(const void* from, const void* to) {
    return static_cast<size_t>(static_cast<const uint8_t*>(to) - static_cast<const uint8_t*>(from));
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
        ZLOGE_AT(472, "[%s] Given buffer_handle_t:%p, gralloc_extra_query returns %d", buffer,
                 error);
        ZLOGE_AT(473, "[%s] %s", toString(extra).c_str());
        return INT32_MIN;
    }
    uint32_t status = 0;
    memcpy(&status, reinterpret_cast<const uint8_t*>(&sfInfo) + kSfInfoStatusOffset,
           sizeof(status));
    extra.isAFBC = (status & kSfInfoAfbcBit) != 0;
    if (extra.rowStrideInPixels == 0 || gLogLevel.load() >= 2) {
        ZLOGD("[%s] Given buffer_handle_t:%p, GrallocExtra:%s", buffer, toString(extra).c_str());
    }
    return 0;
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
    if (afbc == 1 && plane.rowStrideInBytes % 32 != 0) {
        ZLOGW("[%s] AFBC buffer is not 32 aligned, %zu (%zu)", plane.rowStrideInBytes,
              alignUp<size_t>(plane.rowStrideInBytes, 32));
    }
    return plane.sizeInBytes == expected;
}

void gQueryYCbCr(android_ycbcr& ycbcr, buffer_handle_t buffer, size_t width, size_t height) {
    const ARect region{0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)};
    const int32_t status = gMapperV5->lock(buffer, 3, region, -1, &ycbcr);
    const int fence = gMapperV5->unlock(buffer);
    // Only the plane distances are used, and only once the release fence has signalled.
    sync_wait(fence, -1);
    close(fence);
    ZLOGD("[%s] 4.0: cr-y:%zu cb-cr:%zu y:%p cb:%p cr:%p ystride:%zu cstride:%zu "
          "chroma_step:%zu status:%d",
          distance(ycbcr.y, ycbcr.cr), distance(ycbcr.cr, ycbcr.cb), ycbcr.y, ycbcr.cb, ycbcr.cr,
          ycbcr.ystride, ycbcr.cstride, ycbcr.chroma_step, status);
    if (status == 0) return;
    if (zyncam_testLog(LOG_TAG, 'E')) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "[Fatal] [%s] status:%d(%s) (%s){#%d:%s}",
                            "gQueryYCbCr", -status, strerror(-status), "gQueryYCbCr",
                            kYCbCrSourceLine, LOG_FILE);
    }
    __android_log_assert("1", LOG_TAG, "(%s){#%d:%s}\r\n", "gQueryYCbCr", kYCbCrSourceLine,
                         LOG_FILE);
}

int queryStaticInfo(buffer_handle_t buffer, MyStaticInfo& info) {
    Extra extra{};
    const int status = gQueryExtra(buffer, extra);
    if (status != 0) {
        ZLOGE_AT(600, "[%s] Given buffer_handle_t:%p, gralloc_extra_query returns %d", buffer,
                 status);
        return INT32_MIN;
    }
    info.format = extra.format;
    info.usage = extra.usage;
    info.widthInPixels = static_cast<int32_t>(extra.widthInPixels);
    info.heightInPixels = static_cast<int32_t>(extra.heightInPixels);
    info.allocSize = extra.allocSize;
    info.producerUsage = extra.producerUsage;
    info.isAFBC = extra.isAFBC;

    int fd = -1;
    const int error = gralloc_extra_query(buffer, GRALLOC_EXTRA_GET_ION_FD, &fd);
    if (error != 0 || fd < 0) {
        ZLOGE_AT(615, "[%s] [buffer_handle_t:%p] err:%d ionFd:%d", buffer, error, fd);
        return INT32_MIN;
    }

    const int32_t F = extra.format;
    const uint32_t U = extra.usage;
    const size_t S = extra.rowStrideInPixels;
    const size_t R = extra.rowNum;
    const size_t A = extra.allocSize;
    const int32_t s = extra.stride;
    const int32_t h = extra.height;
    const int32_t W = info.widthInPixels;
    const int32_t H = info.heightInPixels;
    const uint32_t B = info.batchNum > 1 ? info.batchNum : 1;
    const bool afbc = info.isAFBC;
    auto& planes = info.planes;
    auto setPlane = [&](size_t index, size_t stride, size_t size) {
        planes[index].rowStrideInBytes = stride;
        planes[index].sizeInBytes = size;
    };
    auto onePlane = [&](size_t stride, size_t size) {
        planes.resize(1);
        setPlane(0, stride, size);
        checkPlaneSize(info, 0, R);
    };

    switch (F) {
        case 0x1:  // RGBA_8888
        case 0x5:  // BGRA_8888
            onePlane(4 * S, A);
            break;
        case 0x3:  // RGB_888
            onePlane(3 * S, A);
            break;
        case 0x4:         // RGB_565
        case 0x20:        // RAW16
        case 0x20363159:  // Y16
            onePlane(2 * S, A);
            break;
        case 0x21:        // BLOB
        case 0x24:        // RAW_OPAQUE
        case 0x25:        // RAW10
        case 0x20203859:  // Y8
            onePlane(S, A);
            break;
        case 0x22:   // IMPLEMENTATION_DEFINED
        case 0x111:  // CAMERA_OPAQUE
            // The stride is the pixel stride rounded to 32, with no packing factor applied.
            ZLOGD("[%s] only in zsl mode: %#x(%s)", F, gQueryPixelFormatName(F).c_str());
            onePlane(alignUp<size_t>(S, 32), A);
            break;
        case 0x14: {  // YCbCr_422_I
            onePlane(2 * S, A);
            const size_t stride = planes[0].rowStrideInBytes, size = planes[0].sizeInBytes;
            if (stride % 32 != 0) {
                ZLOGW("[%s] [YCbCr_422_I] rowStrideInBytes:%zu is not a multiple of 32", stride);
            }
            if (size < stride * 16) {
                ZLOGW("[%s] [YCbCr_422_I] sizeInBytes:%zu<rowStrideInBytes:%zu*16", size, stride);
            }
            break;
        }
        case 0x11: {  // YCrCb_420_SP
            android_ycbcr ycbcr{};
            gQueryYCbCr(ycbcr, buffer, W, H);
            if (afbc) {
                onePlane(ycbcr.ystride, A);
                break;
            }
            const size_t luma = distance(ycbcr.y, ycbcr.cr);
            planes.resize(2);
            setPlane(0, ycbcr.ystride, luma);
            checkPlaneSize(info, 0, R);
            setPlane(1, ycbcr.cstride, A - luma);
            checkPlaneSize(info, 1, R >> 1);
            if (U & kUsageSmvr) {
                // One frame: a 32-aligned luma plane and half of it, less the luma reported.
                const int32_t M = product32(alignUp(W, 32), alignUp(H, 32));
                const int32_t frame = static_cast<int32_t>(static_cast<uint32_t>(M) +
                                                           static_cast<uint32_t>(M >> 1));
                const size_t before = planes[1].sizeInBytes;
                planes[1].sizeInBytes = static_cast<size_t>(static_cast<int64_t>(frame)) - luma;
                ZLOGD("[%s] Extra-info(producerUsage=%u, %dx%d, plane-y(rsb=%zu, sib=%lx), "
                      "plane-crcb(rsb=%zu, sib-ori=%lx, sib-adjusted=%lx), extra.allocSize=%zu",
                      info.producerUsage, W, H, ycbcr.ystride, luma, ycbcr.cstride, before,
                      planes[1].sizeInBytes, A);
            }
            break;
        }
        case 0x36:  // YCBCR_P010
            if (afbc) {
                onePlane(2 * S, A);
                if (U & kUsageSmvr) {
                    const size_t before = planes[0].sizeInBytes;
                    planes[0].sizeInBytes = A / B;
                    ZLOGD("[%s] Extra-info(producerUsage=%u, %dx%d, plane-crcb(sib-ori=%zu, "
                          "sib-adjusted=%lu), extra.allocSize=%zu, batch=%d",
                          info.producerUsage, W, H, before, planes[0].sizeInBytes, A,
                          info.batchNum);
                }
            } else {
                planes.resize(2);
                setPlane(0, 2 * S, static_cast<size_t>(static_cast<int64_t>(s) * h * 2));
                checkPlaneSize(info, 0, R);
                setPlane(1, 2 * S,
                         static_cast<size_t>(
                                 static_cast<int64_t>(product32(product32(s, h), 2) / 2)));
                checkPlaneSize(info, 1, R >> 1);
            }
            break;
        case 0x1000:  // NV12
            if (afbc) {
                onePlane(static_cast<size_t>(s), A);
                if (U & kUsageSmvr) {
                    const size_t before = planes[0].sizeInBytes;
                    planes[0].sizeInBytes = A / B;
                    ZLOGD("[%s] Extra-info(producerUsage=%u, %dx%d, plane-crcb(sib-ori=%zu, "
                          "sib-adjusted=%zu), extra.allocSize=%zu, batch=%d",
                          info.producerUsage, W, H, before, planes[0].sizeInBytes, A,
                          info.batchNum);
                }
            } else {
                planes.resize(2);
                setPlane(0, static_cast<size_t>(s),
                         static_cast<size_t>(static_cast<int64_t>(s) * h));
                checkPlaneSize(info, 0, R);
                setPlane(1, static_cast<size_t>(s),
                         static_cast<size_t>(static_cast<int64_t>(product32(s, h) >> 1)));
                checkPlaneSize(info, 1, R >> 1);
            }
            break;
        case 0x32315659: {  // YV12: planes Y, Cr, Cb as they lie in memory
            planes.resize(3);
            if (info.usage & kUsageProtected) {
                // A protected buffer cannot be locked: the planes follow from s and h.
                const size_t chromaStride = static_cast<size_t>(s / 2);
                const size_t chromaSize =
                        static_cast<size_t>(static_cast<int64_t>(product32(h / 2, s / 2)));
                setPlane(0, static_cast<size_t>(s),
                         static_cast<size_t>(static_cast<int64_t>(s) * h));
                checkPlaneSize(info, 0, R);
                setPlane(1, chromaStride, chromaSize);
                checkPlaneSize(info, 1, R >> 1);
                setPlane(2, chromaStride, chromaSize);
                checkPlaneSize(info, 1, R >> 1);
                break;
            }
            android_ycbcr ycbcr{};
            gQueryYCbCr(ycbcr, buffer, W, H);
            const size_t luma = distance(ycbcr.y, ycbcr.cr);
            const size_t cr = distance(ycbcr.cr, ycbcr.cb);
            const size_t beforeCb = distance(ycbcr.y, ycbcr.cb);
            setPlane(0, ycbcr.ystride, luma);
            checkPlaneSize(info, 0, R);
            setPlane(1, ycbcr.cstride, cr);
            checkPlaneSize(info, 1, R >> 1);
            setPlane(2, ycbcr.cstride, A - beforeCb);
            checkPlaneSize(info, 2, R >> 1);
            if (U & kUsageSmvr) {
                const size_t before = planes[2].sizeInBytes;
                planes[2].sizeInBytes = A / B - beforeCb;
                ZLOGD("[%s] Extra-info(producerUsage=%u, %dx%d, plane-y(rsb=%zu, sib=%zd), "
                      "plane-cr(rsb=%zu, sid=%zd), plane-cb(rsb=%zu, sib-ori=%zu, "
                      "sib-adjusted=%zu), extra.allocSize=%zu",
                      info.producerUsage, W, H, ycbcr.ystride, static_cast<ssize_t>(luma),
                      ycbcr.cstride, static_cast<ssize_t>(cr), ycbcr.cstride, before,
                      planes[2].sizeInBytes, A);
            }
            break;
        }
        case 0x23:  // YCbCr_420_888 is flexible: a real buffer never has it
            ZLOGE_AT(995, "[%s] format from gralloc_extra_query should not be: %#x(%s)", F,
                     gQueryPixelFormatName(F).c_str());
            return INT32_MIN;
        default:
            ZLOGE_AT(999, "[%s] Not support format: %#x(%s)", F, gQueryPixelFormatName(F).c_str());
            return -2;
    }
    return 0;
}

}  // namespace GrallocAidlV2
