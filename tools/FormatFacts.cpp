// The one place gralloc-layout's verify learns per-format facts from.
#include "FormatFacts.h"

#include <GrallocRecords.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>

namespace zyncam::tools {

namespace {

using aidl::android::hardware::graphics::common::PixelFormat;

Chroma chromaOf(int32_t format) {
    switch (static_cast<PixelFormat>(format)) {
        case PixelFormat::YCRCB_420_SP:
        case PixelFormat::YCBCR_P010:
            return Chroma::SemiPlanar420;
        case PixelFormat::YV12:
            return Chroma::Planar420;
        default:
            return format == zcam::kPixelFormatNV12 ? Chroma::SemiPlanar420 : Chroma::None;
    }
}

// The derivation measures the planes of these as distances between a CPU lock's addresses.
bool derivationLocks(int32_t format) {
    return format == static_cast<int32_t>(PixelFormat::YCRCB_420_SP) ||
           format == static_cast<int32_t>(PixelFormat::YV12);
}

}  // namespace

FormatFacts formatFacts(int32_t format) {
    FormatFacts f;
    f.bitsPerSample = bitsPerSample(format);
    f.chroma = chromaOf(format);
    f.ycbcrLock = lockableAsYCbCr(format);
    f.derivationLocks = derivationLocks(format);
    return f;
}

}  // namespace zyncam::tools
