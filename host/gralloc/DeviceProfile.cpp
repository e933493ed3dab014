// The device profile at work: how the simulated allocator lays out one request, by the profile's
// exact answers first and its rules otherwise (host/profiles/README.md). Every size is computed
// in unsigned 64-bit arithmetic that notices overflow, so no request can wrap a stride or a size.
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <drm_fourcc.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "Profile.h"
#include "SimBuffer.h"

namespace zyncam::sim {

using aidl::android::hardware::graphics::allocator::AllocationError;
using aidl::android::hardware::graphics::common::ExtendableType;
using aidl::android::hardware::graphics::common::PlaneLayout;
using aidl::android::hardware::graphics::common::PlaneLayoutComponent;

namespace {

constexpr uint64_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr uint64_t kUsageHighWord = 0xFFFFFFFF00000000ull;
constexpr int kBitsPerByte = 8;

// Unsigned 64-bit arithmetic that remembers whether any step overflowed.
class Checked {
public:
    constexpr Checked(uint64_t value = 0) : mValue(value) {}  // NOLINT: converting by design

    uint64_t value() const { return mValue; }
    bool overflowed() const { return mOverflow; }
    // The value when it fits in `max` and nothing overflowed.
    std::optional<uint64_t> within(uint64_t max) const {
        if (mOverflow || mValue > max) return std::nullopt;
        return mValue;
    }

    friend Checked operator+(Checked a, Checked b) {
        Checked r;
        r.mOverflow =
                __builtin_add_overflow(a.mValue, b.mValue, &r.mValue) || a.mOverflow || b.mOverflow;
        return r;
    }
    friend Checked operator*(Checked a, Checked b) {
        Checked r;
        r.mOverflow =
                __builtin_mul_overflow(a.mValue, b.mValue, &r.mValue) || a.mOverflow || b.mOverflow;
        return r;
    }
    // `b` is never 0: profiles refuse zero alignments and subsamplings.
    friend Checked operator/(Checked a, Checked b) {
        Checked r(a.mValue / b.mValue);
        r.mOverflow = a.mOverflow || b.mOverflow;
        return r;
    }
    Checked ceilDiv(Checked b) const {
        Checked r(mValue / b.mValue + (mValue % b.mValue != 0));
        r.mOverflow = mOverflow || b.mOverflow;
        return r;
    }
    Checked alignUp(Checked alignment) const { return ceilDiv(alignment) * alignment; }

private:
    uint64_t mValue;
    bool mOverflow = false;
};

Resolution refused(AllocationError error) {
    Resolution r;
    r.error = error;
    return r;
}

bool contains(const std::vector<int32_t>& formats, int32_t format) {
    return std::find(formats.begin(), formats.end(), format) != formats.end();
}

// Bytes of one row of plane `i`, given plane 0's.
Checked planeStride(const FormatRule& rule, size_t i, Checked rowBytes) {
    if (i == 0) return rowBytes;
    const PlaneRule& p = rule.planes[i];
    return rowBytes * p.sampleIncrementInBits /
           (p.horizontalSubsampling * rule.planes[0].sampleIncrementInBits);
}

Checked frameBytes(const FormatRule& rule, Checked rowBytes, Checked rows) {
    Checked total;
    for (size_t i = 0; i < rule.planes.size(); ++i) {
        total = total +
                planeStride(rule, i, rowBytes) * (rows / rule.planes[i].verticalSubsampling);
    }
    return total;
}

Checked pixelRowBytes(const FormatRule& rule, Checked stride) {
    return stride * rule.bitsPerPixel / kBitsPerByte;
}

// The geometry of one frame of a buffer.
struct Frame {
    Checked stride;    // as reported: pixels, or bytes for byte-stride formats
    Checked rowBytes;  // of plane 0
    Checked rows;
    Checked bytes;
};

Frame linearFrame(const Profile& profile, const FormatRule& rule, int32_t width, int32_t height,
                  bool slowMotion) {
    Frame f;
    if (rule.strideInBytes) {
        f.rowBytes = (Checked(width) * rule.bitsPerPixel)
                             .ceilDiv(kBitsPerByte)
                             .alignUp(rule.strideAlignBytes);
        f.stride = f.rowBytes;
    } else {
        f.stride = Checked(width).alignUp(rule.strideAlignPixels);
        f.rowBytes = pixelRowBytes(rule, f.stride);
    }
    const int64_t rowAlign = slowMotion ? profile.slowMotion->rowAlign : rule.rowAlign;
    f.rows = Checked(height).alignUp(rowAlign);
    f.bytes = frameBytes(rule, f.rowBytes, f.rows);
    return f;
}

// Superblock bodies of every plane, then a header per superblock, in rows of plane 0's stride.
Frame compressedFrame(const AfbcRule& afbc, const FormatRule& rule, int32_t width, int32_t height) {
    Frame f;
    f.stride = Checked(width).alignUp(afbc.strideAlignPixels);
    f.rowBytes = pixelRowBytes(rule, f.stride);
    const Checked blockRows = Checked(height).alignUp(afbc.blockHeight);
    const Checked headers = Checked(width).ceilDiv(afbc.blockWidth) *
                            (blockRows / afbc.blockHeight) * afbc.headerBytesPerBlock;
    f.rows = (frameBytes(rule, f.rowBytes, blockRows) + headers).ceilDiv(f.rowBytes);
    f.bytes = f.rowBytes * f.rows;
    return f;
}

Resolution fromExactAnswer(const profile::ExactAnswer& a, uint64_t usage, int32_t layerCount) {
    Resolution r;
    BufferDesc& d = r.desc.emplace();
    d.width = a.width;
    d.height = a.height;
    d.format = a.format;
    d.requestedFormat = a.request.format;
    // The extension reports 32 usage bits; the high ones stay as asked.
    d.usage = (usage & kUsageHighWord) | a.usage;
    d.stride = a.stride;
    d.rows = a.verticalStride;
    d.allocSize = a.allocSize;
    d.layerCount = layerCount;
    d.afbc = (a.sfStatus & GRALLOC_EXTRA_BIT_AFBC) != 0;
    d.exactAnswer = true;
    return r;
}

}  // namespace

Resolution resolve(int32_t width, int32_t height, int32_t format, uint64_t usage,
                   int32_t layerCount) {
    if (width <= 0 || height <= 0 || layerCount <= 0) {
        return refused(AllocationError::BAD_DESCRIPTOR);
    }
    const std::shared_ptr<const Profile> profile = currentProfile();
    auto exact = profile->exact.find({width, height, format, usage, layerCount});
    if (exact != profile->exact.end()) {
        Resolution r = fromExactAnswer(*exact->second, usage, layerCount);
        r.exact = exact->second;
        return r;
    }
    for (const UnsupportedRule& u : profile->unsupported) {
        if ((!u.format || *u.format == format) && u.usage.matches(usage)) {
            return refused(AllocationError::UNSUPPORTED);
        }
    }
    if (width > profile->limits.maxWidth || height > profile->limits.maxHeight) {
        return refused(AllocationError::BAD_DESCRIPTOR);
    }

    ResolveRule chosen{format, {}, format, 1, false};
    auto rule = std::find_if(
            profile->resolve.begin(), profile->resolve.end(),
            [&](const ResolveRule& r) { return r.format == format && r.usage.matches(usage); });
    if (rule != profile->resolve.end()) chosen = *rule;
    auto formatRule = profile->formats.find(chosen.to);
    if (formatRule == profile->formats.end()) return refused(AllocationError::UNSUPPORTED);
    const FormatRule& f = formatRule->second;
    const AfbcRule* afbc = profile->afbc ? &*profile->afbc : nullptr;
    const bool compressed = chosen.afbc || (afbc != nullptr && (usage & afbc->usage) != 0 &&
                                            contains(afbc->formats, chosen.to));
    const SlowMotionRule* slow = profile->slowMotion ? &*profile->slowMotion : nullptr;
    const bool slowMotion =
            slow != nullptr && (chosen.frames > 1 ||
                                ((usage & slow->usage) != 0 && contains(slow->formats, chosen.to)));

    const Frame frame = compressed ? compressedFrame(*afbc, f, width, height)
                                   : linearFrame(*profile, f, width, height, slowMotion);
    // A compressed batch reports the rows of every frame, so that size = stride x rows holds.
    const Checked rows = compressed ? frame.rows * chosen.frames : frame.rows;
    const Checked size = frame.bytes * chosen.frames * layerCount;
    const std::optional<uint64_t> stride = frame.stride.within(kInt32Max);
    const std::optional<uint64_t> reportedRows = rows.within(kInt32Max);
    if (!stride || !reportedRows || size.overflowed()) {
        return refused(AllocationError::BAD_DESCRIPTOR);
    }
    if (size.value() > profile->limits.maxAllocationSize) {
        return refused(AllocationError::NO_RESOURCES);
    }

    Resolution r;
    BufferDesc& d = r.desc.emplace();
    d.width = width;
    d.height = height;
    d.format = chosen.to;
    d.requestedFormat = format;
    d.usage = usage;
    d.stride = static_cast<int32_t>(*stride);
    d.rows = static_cast<int32_t>(*reportedRows);
    d.allocSize = size.value();
    d.layerCount = layerCount;
    d.afbc = compressed;
    d.frames = chosen.frames;
    return r;
}

namespace {

PlaneLayoutComponent component(const ComponentRule& c) {
    PlaneLayoutComponent out;
    out.type = ExtendableType{"android.hardware.graphics.common.PlaneLayoutComponentType", c.type};
    out.offsetInBits = c.offsetInBits;
    out.sizeInBits = c.sizeInBits;
    return out;
}

PlaneLayout plane(const BufferDesc& d, int64_t offset, int64_t increment, int64_t stride,
                  int64_t total, int64_t hsub, int64_t vsub) {
    PlaneLayout p;
    p.offsetInBytes = offset;
    p.sampleIncrementInBits = increment;
    p.strideInBytes = stride;
    p.widthInSamples = d.width / hsub;
    p.heightInSamples = d.height / vsub;
    p.totalSizeInBytes = total;
    p.horizontalSubsampling = hsub;
    p.verticalSubsampling = vsub;
    return p;
}

}  // namespace

std::vector<PlaneLayout> planeLayouts(const BufferDesc& d) {
    const std::shared_ptr<const Profile> profile = currentProfile();
    auto found = profile->formats.find(d.format);
    // Handles may come from anywhere; a description that cannot be laid out has no planes.
    if (found == profile->formats.end() || d.stride < 0 || d.rows < 0) return {};
    const FormatRule& rule = found->second;
    const Checked rowBytes =
            rule.strideInBytes && !d.afbc ? Checked(d.stride) : pixelRowBytes(rule, d.stride);
    constexpr uint64_t kInt64Max = std::numeric_limits<int64_t>::max();
    if (d.afbc) {
        const auto total = (rowBytes * d.rows).within(kInt64Max);
        if (!total || rowBytes.overflowed()) return {};
        return {plane(d, 0, 0, static_cast<int64_t>(rowBytes.value()), static_cast<int64_t>(*total),
                      1, 1)};
    }
    std::vector<PlaneLayout> planes;
    Checked offset;
    for (size_t i = 0; i < rule.planes.size(); ++i) {
        const PlaneRule& p = rule.planes[i];
        const Checked stride = planeStride(rule, i, rowBytes);
        const Checked total = stride * (Checked(d.rows) / p.verticalSubsampling);
        const Checked end = offset + total;
        if (!end.within(kInt64Max)) return {};
        planes.push_back(plane(d, static_cast<int64_t>(offset.value()), p.sampleIncrementInBits,
                               static_cast<int64_t>(stride.value()),
                               static_cast<int64_t>(total.value()), p.horizontalSubsampling,
                               p.verticalSubsampling));
        std::transform(p.components.begin(), p.components.end(),
                       std::back_inserter(planes.back().components), component);
        offset = end;
    }
    return planes;
}

namespace {

using aidl::android::hardware::graphics::common::PixelFormat;

constexpr int32_t kFormatNv12 = 0x1000;  // the vendor's NV12

struct Fourcc {
    int32_t format;
    uint32_t fourcc;
};
// DRM names bytes from the least significant end: RGBA_8888 (R in the first byte) is ABGR8888.
// One-channel formats (Y8, Y16, RAW16, BLOB) are DRM's single-channel R formats.
constexpr Fourcc kFourccs[] = {
        {static_cast<int32_t>(PixelFormat::RGBA_8888), DRM_FORMAT_ABGR8888},
        {static_cast<int32_t>(PixelFormat::RGBX_8888), DRM_FORMAT_XBGR8888},
        {static_cast<int32_t>(PixelFormat::BGRA_8888), DRM_FORMAT_ARGB8888},
        {static_cast<int32_t>(PixelFormat::RGB_888), DRM_FORMAT_BGR888},
        {static_cast<int32_t>(PixelFormat::RGB_565), DRM_FORMAT_RGB565},
        {static_cast<int32_t>(PixelFormat::RGBA_FP16), DRM_FORMAT_ABGR16161616F},
        {static_cast<int32_t>(PixelFormat::RGBA_1010102), DRM_FORMAT_ABGR2101010},
        {static_cast<int32_t>(PixelFormat::RAW16), DRM_FORMAT_R16},
        {static_cast<int32_t>(PixelFormat::Y8), DRM_FORMAT_R8},
        {static_cast<int32_t>(PixelFormat::Y16), DRM_FORMAT_R16},
        {static_cast<int32_t>(PixelFormat::BLOB), DRM_FORMAT_R8},
        {static_cast<int32_t>(PixelFormat::YCBCR_422_I), DRM_FORMAT_YUYV},
        {static_cast<int32_t>(PixelFormat::YCBCR_422_SP), DRM_FORMAT_NV16},
        {static_cast<int32_t>(PixelFormat::YCRCB_420_SP), DRM_FORMAT_NV21},
        {kFormatNv12, DRM_FORMAT_NV12},
        {static_cast<int32_t>(PixelFormat::YCBCR_P010), DRM_FORMAT_P010},
        {static_cast<int32_t>(PixelFormat::YV12), DRM_FORMAT_YVU420},
};

}  // namespace

uint32_t drmFourcc(int32_t format) {
    for (const Fourcc& f : kFourccs) {
        if (f.format == format) return f.fourcc;
    }
    return DRM_FORMAT_INVALID;
}

bool writeExactMetadata(int metadataFd, const profile::ExactAnswer& a) {
    SharedMetadata* m = mapMetadata(metadataFd);
    if (m == nullptr) return false;
    m->lock();
    m->sfInfo.status = a.sfStatus;
    m->exact.consumerUsage = a.consumerUsage;
    m->exact.producerUsage = a.producerUsage;
    const size_t length = a.planeLayouts ? a.planeLayouts->size() : 0;
    m->exact.planeLayoutsLength = static_cast<uint32_t>(length);
    if (length != 0) memcpy(m->exact.planeLayouts, a.planeLayouts->data(), length);
    m->unlock();
    unmapMetadata(m);
    return true;
}

}  // namespace zyncam::sim
