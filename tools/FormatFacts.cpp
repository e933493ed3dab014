#include "FormatFacts.h"

#include <GrallocFormats.h>

namespace zyncam::tools {

namespace {

Chroma chromaOf(zcam::LayoutFamily family) {
    switch (family) {
        case zcam::LayoutFamily::kLockedSemiPlanar420:
        case zcam::LayoutFamily::kTwoPlane420:
            return Chroma::SemiPlanar420;
        case zcam::LayoutFamily::kThreePlaneYV12:
            return Chroma::Planar420;
        default:
            return Chroma::None;
    }
}

}  // namespace

FormatFacts formatFacts(int32_t format) {
    FormatFacts f;
    const zcam::PixelFormatInfo* info = zcam::findPixelFormat(format);
    if (info == nullptr) return f;
    f.bitsPerSample = info->bitsPerSample;
    f.chroma = chromaOf(info->family);
    f.ycbcrLock = info->lock != zcam::PlaneLock::kNone;
    f.derivationLocks = info->lock == zcam::PlaneLock::kLocates ||
                        info->lock == zcam::PlaneLock::kLocatesUnlessProtected;
    return f;
}

}  // namespace zyncam::tools
