// The device profile of the simulated gralloc, modelled on a camera SoC's allocator.
//
//   format (requested)          resolves to / layout
//   --------------------------  ----------------------------------------------------------------
//   RGBA/RGBX/BGRA_8888, RGB_888  stride = width aligned to 16 px; rows = height; 4/4/4/3 B/px
//   RGB_565, RAW16, Y16         stride aligned to 16 px, 2 B/px;  Y8: 1 B/px
//   BLOB                        stride = width bytes, rows = height (a JPEG: width = size, height
//   1) RAW10, RAW_OPAQUE           stride reported in bytes: width * 10 / 8 aligned to 16 (32 for
//                               RAW_OPAQUE); rows = height
//   CAMERA_OPAQUE               stride = width aligned to 32; one byte per stride unit
//   YCrCb_420_SP (NV21), NV12   stride = width aligned to 32, rows = height aligned to 2; Y plane
//                               then interleaved chroma (CrCb for NV21, CbCr for NV12), same stride
//   YCBCR_P010                  as NV12 with 2 B/sample; stride reported in pixels
//   YV12                        Y stride = width aligned to 32, chroma stride = half of it; planes
//                               Y, Cr, Cb; rows = height aligned to 2
//   YCbCr_422_SP, YCbCr_422_I   stride aligned to 32 / 16 px
//   YCbCr_420_888               -> YCrCb_420_SP
//   IMPLEMENTATION_DEFINED      -> NV12 with VIDEO_ENCODER; stays opaque (like CAMERA_OPAQUE) with
//                                  both camera bits (ZSL); -> YV12 for GPU or composer use;
//                                  -> YCrCb_420_SP otherwise
//   0x2600-0x2604               -> YCrCb_420_SP carrying 2, 4, 8, 16, 32 slow-motion frames
//   0x2610-0x2614               -> NV12, AFBC-compressed, carrying 2 ... 32 frames
//
// Slow-motion (usage bit 0x20000000) YCrCb_420_SP and batch buffers align rows to 32, so that
// one frame is (width aligned to 32) x (height aligned to 32) x 1.5 bytes.
// AFBC (usage bit 0x10000000, or the 0x2610 batch formats) applies to NV21, NV12 and P010: one
// plane without component description; stride = width aligned to 32 samples; rows cover the
// 16x16 superblock bodies and their 16-byte headers, so that size = stride bytes x rows.
// Allocation size = row bytes x rows x layer count (x frames where frames are carried).
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>

#include <tuple>

#include "SimBuffer.h"

namespace zyncam::sim {

using aidl::android::hardware::graphics::common::ExtendableType;
using aidl::android::hardware::graphics::common::PlaneLayout;
using aidl::android::hardware::graphics::common::PlaneLayoutComponent;
using aidl::android::hardware::graphics::common::PlaneLayoutComponentType;

namespace {

enum Format : int32_t {
    RGBA_8888 = 0x1,
    RGBX_8888 = 0x2,
    RGB_888 = 0x3,
    RGB_565 = 0x4,
    BGRA_8888 = 0x5,
    YCBCR_422_SP = 0x10,
    YCRCB_420_SP = 0x11,
    YCBCR_422_I = 0x14,
    RAW16 = 0x20,
    BLOB = 0x21,
    IMPLEMENTATION_DEFINED = 0x22,
    YCBCR_420_888 = 0x23,
    RAW_OPAQUE = 0x24,
    RAW10 = 0x25,
    YCBCR_P010 = 0x36,
    CAMERA_OPAQUE = 0x111,
    NV12 = 0x1000,
    Y8 = 0x20203859,
    Y16 = 0x20363159,
    YV12 = 0x32315659,
};

constexpr uint64_t kVideoEncoder = 0x10000;
constexpr uint64_t kCameraZsl = 0x60000;
constexpr uint64_t kGpuOrComposer = 0x100 | 0x200 | 0x800 | 0x1000;

int64_t align(int64_t value, int64_t alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

bool isYuv420(int32_t format) {
    return format == YCRCB_420_SP || format == NV12 || format == YCBCR_P010 || format == YV12;
}

// The concrete format and the frames one buffer carries.
std::pair<int32_t, int32_t> resolveFormat(int32_t format, uint64_t usage) {
    if (format >= 0x2600 && format <= 0x2604) return {YCRCB_420_SP, 2 << (format - 0x2600)};
    if (format >= 0x2610 && format <= 0x2614) return {NV12, 2 << (format - 0x2610)};
    if (format == YCBCR_420_888) return {YCRCB_420_SP, 1};
    if (format == IMPLEMENTATION_DEFINED) {
        if (usage & kVideoEncoder) return {NV12, 1};
        if ((usage & kCameraZsl) == kCameraZsl) return {IMPLEMENTATION_DEFINED, 1};
        if (usage & kGpuOrComposer) return {YV12, 1};
        return {YCRCB_420_SP, 1};
    }
    return {format, 1};
}

// Bytes per pixel of the single-plane formats that report a pixel stride.
int bytesPerPixel(int32_t format) {
    switch (format) {
        case RGBA_8888:
        case RGBX_8888:
        case BGRA_8888:
            return 4;
        case RGB_888:
            return 3;
        case RGB_565:
        case RAW16:
        case Y16:
        case YCBCR_422_I:
            return 2;
        case Y8:
            return 1;
        default:
            return 0;
    }
}

}  // namespace

std::optional<BufferDesc> resolve(int32_t width, int32_t height, int32_t format, uint64_t usage,
                                  int32_t layerCount) {
    if (width <= 0 || height <= 0 || layerCount <= 0) return std::nullopt;
    BufferDesc d;
    d.width = width;
    d.height = height;
    d.requestedFormat = format;
    d.usage = usage;
    d.layerCount = layerCount;
    std::tie(d.format, d.frames) = resolveFormat(format, usage);
    const bool batch = d.frames > 1;
    d.afbc = (format >= 0x2610 && format <= 0x2614) ||
             ((usage & kUsageAfbc) &&
              (d.format == YCRCB_420_SP || d.format == NV12 || d.format == YCBCR_P010));

    int64_t rowBytes = 0;
    int64_t rows = height;
    if (d.afbc) {
        const int64_t sampleBytes = d.format == YCBCR_P010 ? 2 : 1;
        d.stride = static_cast<int32_t>(align(width, 32));
        rowBytes = d.stride * sampleBytes;
        const int64_t blockRows = align(height, 16);
        const int64_t headerBytes = (align(width, 16) / 16) * (blockRows / 16) * 16;
        rows = blockRows * 3 / 2 + (headerBytes + rowBytes - 1) / rowBytes;
    } else if (int bpp = bytesPerPixel(d.format)) {
        d.stride = static_cast<int32_t>(align(width, 16));
        rowBytes = static_cast<int64_t>(d.stride) * bpp;
    } else {
        switch (d.format) {
            case BLOB:
                d.stride = width;
                rowBytes = width;
                break;
            case RAW10:
            case RAW_OPAQUE:
                d.stride = static_cast<int32_t>(align((static_cast<int64_t>(width) * 10 + 7) / 8,
                                                      d.format == RAW10 ? 16 : 32));
                rowBytes = d.stride;
                break;
            case CAMERA_OPAQUE:
            case IMPLEMENTATION_DEFINED:
                d.stride = static_cast<int32_t>(align(width, 32));
                rowBytes = d.stride;
                break;
            case YCBCR_422_SP:
                d.stride = static_cast<int32_t>(align(width, 32));
                rowBytes = d.stride;
                rows = static_cast<int64_t>(height) * 2;
                break;
            case YCRCB_420_SP:
            case NV12:
            case YCBCR_P010:
            case YV12: {
                const bool smvr = batch || (d.format == YCRCB_420_SP && (usage & kUsageSmvr));
                d.stride = static_cast<int32_t>(align(width, 32));
                rowBytes = d.stride * (d.format == YCBCR_P010 ? 2 : 1);
                rows = smvr ? align(height, 32) : align(height, 2);
                break;
            }
            default:
                return std::nullopt;
        }
    }
    d.rows = static_cast<int32_t>(rows);
    int64_t frameBytes = rowBytes * rows;
    if (!d.afbc && isYuv420(d.format)) frameBytes = frameBytes * 3 / 2;
    d.allocSize = static_cast<uint64_t>(frameBytes) * d.frames * layerCount;
    // AFBC batches report the rows of every frame, so that size = stride x rows still holds.
    if (d.afbc) d.rows *= d.frames;
    return d;
}

namespace {

PlaneLayoutComponent component(PlaneLayoutComponentType type, int64_t offset, int64_t size) {
    PlaneLayoutComponent c;
    c.type = ExtendableType{"android.hardware.graphics.common.PlaneLayoutComponentType",
                            static_cast<int64_t>(type)};
    c.offsetInBits = offset;
    c.sizeInBits = size;
    return c;
}

PlaneLayout plane(std::vector<PlaneLayoutComponent> components, int64_t offset, int64_t increment,
                  int64_t stride, int64_t width, int64_t height, int64_t total, int64_t hsub,
                  int64_t vsub) {
    PlaneLayout p;
    p.components = std::move(components);
    p.offsetInBytes = offset;
    p.sampleIncrementInBits = increment;
    p.strideInBytes = stride;
    p.widthInSamples = width / hsub;
    p.heightInSamples = height / vsub;
    p.totalSizeInBytes = total;
    p.horizontalSubsampling = hsub;
    p.verticalSubsampling = vsub;
    return p;
}

}  // namespace

std::vector<PlaneLayout> planeLayouts(const BufferDesc& d) {
    using T = PlaneLayoutComponentType;
    const int64_t w = d.width, h = d.height;
    const int64_t rows = d.rows / (d.afbc ? d.frames : 1);
    if (d.afbc) {
        return {plane({}, 0, 0, d.stride * (d.format == YCBCR_P010 ? 2 : 1), w, h,
                      static_cast<int64_t>(d.allocSize), 1, 1)};
    }
    const int64_t s = d.stride;
    switch (d.format) {
        case RGBA_8888:
        case RGBX_8888:
        case BGRA_8888: {
            std::vector<PlaneLayoutComponent> c =
                    d.format == BGRA_8888
                            ? std::vector{component(T::B, 0, 8), component(T::G, 8, 8),
                                          component(T::R, 16, 8), component(T::A, 24, 8)}
                            : std::vector{component(T::R, 0, 8), component(T::G, 8, 8),
                                          component(T::B, 16, 8)};
            if (d.format == RGBA_8888) c.push_back(component(T::A, 24, 8));
            return {plane(std::move(c), 0, 32, 4 * s, w, h, 4 * s * rows, 1, 1)};
        }
        case RGB_888:
            return {plane({component(T::R, 0, 8), component(T::G, 8, 8), component(T::B, 16, 8)}, 0,
                          24, 3 * s, w, h, 3 * s * rows, 1, 1)};
        case RGB_565:
            return {plane({component(T::B, 0, 5), component(T::G, 5, 6), component(T::R, 11, 5)}, 0,
                          16, 2 * s, w, h, 2 * s * rows, 1, 1)};
        case RAW16:
            return {plane({component(T::RAW, 0, 16)}, 0, 16, 2 * s, w, h, 2 * s * rows, 1, 1)};
        case Y8:
            return {plane({component(T::Y, 0, 8)}, 0, 8, s, w, h, s * rows, 1, 1)};
        case Y16:
            return {plane({component(T::Y, 0, 16)}, 0, 16, 2 * s, w, h, 2 * s * rows, 1, 1)};
        case YCBCR_422_I:
            return {plane({component(T::Y, 0, 8), component(T::CB, 8, 8), component(T::CR, 24, 8)},
                          0, 16, 2 * s, w, h, 2 * s * rows, 1, 1)};
        case BLOB:
        case RAW10:
        case RAW_OPAQUE:
        case CAMERA_OPAQUE:
        case IMPLEMENTATION_DEFINED:
            return {plane({}, 0, d.format == BLOB ? 8 : 0, s, w, h, s * rows, 1, 1)};
        case YCBCR_422_SP:
            return {plane({component(T::Y, 0, 8)}, 0, 8, s, w, h, s * h, 1, 1),
                    plane({component(T::CB, 0, 8), component(T::CR, 8, 8)}, s * h, 16, s, w, h,
                          s * h, 2, 1)};
        case YCRCB_420_SP:
        case NV12: {
            const T first = d.format == NV12 ? T::CB : T::CR;
            const T second = d.format == NV12 ? T::CR : T::CB;
            return {plane({component(T::Y, 0, 8)}, 0, 8, s, w, h, s * rows, 1, 1),
                    plane({component(first, 0, 8), component(second, 8, 8)}, s * rows, 16, s, w, h,
                          s * rows / 2, 2, 2)};
        }
        case YCBCR_P010:
            return {plane({component(T::Y, 6, 10)}, 0, 16, 2 * s, w, h, 2 * s * rows, 1, 1),
                    plane({component(T::CB, 6, 10), component(T::CR, 22, 10)}, 2 * s * rows, 32,
                          2 * s, w, h, s * rows, 2, 2)};
        case YV12: {
            const int64_t c = s / 2;
            const int64_t ySize = s * rows, cSize = c * rows / 2;
            return {plane({component(T::Y, 0, 8)}, 0, 8, s, w, h, ySize, 1, 1),
                    plane({component(T::CR, 0, 8)}, ySize, 8, c, w, h, cSize, 2, 2),
                    plane({component(T::CB, 0, 8)}, ySize + cSize, 8, c, w, h, cSize, 2, 2)};
        }
    }
    return {};
}

}  // namespace zyncam::sim
