#include "LayoutSession.h"

#include <GrallocFormats.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <utils/Errors.h>

#include "ExitCode.h"
#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;

constexpr uint32_t kUsageProtected = static_cast<uint32_t>(BufferUsage::PROTECTED);
constexpr unsigned kBitsPerByte = 8;

// Whether the derivation locks every buffer of `format` to locate its planes, which a
// PROTECTED buffer refuses.
bool alwaysLocked(int32_t format) {
    const zcam::PixelFormatInfo* info = zcam::findPixelFormat(format);
    return info != nullptr && info->lock == zcam::PlaneLock::kLocates;
}

// Bits one pixel (single-plane formats) or one sample (YUV planes) takes; 0 when the format
// does not say (BLOB, the opaque formats) or the library does not know it.
unsigned bitsPerSample(int32_t format) {
    const zcam::PixelFormatInfo* info = zcam::findPixelFormat(format);
    return info != nullptr ? info->bitsPerSample : 0;
}

std::vector<PlaneAnswer> describePlanes(const zcam::GrallocCachedLayout& layout) {
    const unsigned bits = bitsPerSample(layout.info.format);
    // Offsets follow from the sizes only where the derivation measured the planes.
    const bool measured = zcam::planesLocatedByDerivation(layout.info.format, layout.allocatorUsage,
                                                          layout.info.planes.size());
    std::vector<PlaneAnswer> planes;
    uint64_t offset = 0;
    for (const auto& plane : layout.info.planes) {
        PlaneAnswer p;
        p.strideBytes = plane.rowStrideInBytes;
        p.sizeBytes = plane.sizeInBytes;
        p.sampleUnit = planes.empty() ? "px" : "samples";
        const uint64_t strideBits = uint64_t{plane.rowStrideInBytes} * kBitsPerByte;
        if (bits != 0 && strideBits % bits == 0) p.strideSamples = strideBits / bits;
        if (plane.rowStrideInBytes != 0 && plane.sizeInBytes % plane.rowStrideInBytes == 0) {
            p.rows = plane.sizeInBytes / plane.rowStrideInBytes;
        }
        if (measured) p.offset = offset;
        offset += plane.sizeInBytes;
        planes.push_back(p);
    }
    return planes;
}

// The first error line of the library, to say why a query failed.
std::string libraryReason(const std::vector<std::string>& errors) {
    return errors.empty() ? std::string() : ": " + errors.front();
}

}  // namespace

std::string statusName(int status) {
    switch (status) {
        case android::OK:
            return "OK";
        case android::BAD_VALUE:
            return "BAD_VALUE";
        case android::NO_MEMORY:
            return "NO_MEMORY";
        case android::NAME_NOT_FOUND:
            return "NAME_NOT_FOUND";
        case android::NO_INIT:
            return "NO_INIT";
        case android::UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        default:
            return "";
    }
}

LayoutSession::LayoutSession(zcam::IGrallocHelper& helper, const zcam::IGrallocLayoutCache& cache,
                             LibraryLog& log)
    : mHelper(helper), mCache(cache), mLog(log) {}

std::optional<std::string> LayoutSession::refusal(const zcam::GrallocRequest& request,
                                                  const zcam::GrallocRequest& probed) {
    const uint32_t usage = static_cast<uint32_t>(probed.usage);
    if ((usage & kUsageProtected) == 0) return std::nullopt;
    // The probe allocates with the normalised usage; the allocator decides the format.
    const int32_t resolved = mHelper.getGrallocExtraFormat(probed.format, usage);
    if (!alwaysLocked(resolved)) return std::nullopt;
    std::string reason = "refused: ";
    if (resolved != request.format) {
        reason += formatText(request.format) + " with usage " + hex(usage) + " resolves to " +
                  formatText(resolved) + "; ";
    }
    return reason + "the library locates the planes of " + formatText(resolved) +
           " through a CPU lock, which a PROTECTED buffer refuses, and would end the process";
}

Answer LayoutSession::answer(const RequestSpec& given) {
    Answer a;
    a.probed = zcam::normalizeGrallocRequest(given.request);
    if (auto reason = refusal(given.request, a.probed)) {
        a.outcome = Outcome::Refused;
        a.reason = *reason;
        return a;
    }
    zcam::GrallocCachedLayout cached;
    a.fromCache = !given.refresh && mCache.findCachedLayout(given.request, false, &cached);

    mLog.clear();
    zcam::GrallocStaticInfo info;
    a.status = mHelper.query(&given.request, &info, given.refresh);
    a.warnings = mLog.warnings();
    if (a.status != android::OK) {
        const std::string name = statusName(a.status);
        a.outcome = Outcome::Failed;
        a.reason = "query failed: " + std::to_string(a.status) +
                   (name.empty() ? "" : " (" + name + ")") + libraryReason(mLog.errors());
        return a;
    }
    // The entry the answer came from; AFBC layouts are stored under their own flag.
    if (!mCache.findCachedLayout(given.request, info.isAFBC, &a.layout)) a.layout.info = info;
    a.planes = describePlanes(a.layout);
    return a;
}

std::optional<int> withLayoutSession(
        bool verbose, std::ostream& err,
        const std::function<std::optional<int>(LayoutSession& session)>& body) {
    LibraryLog log(verbose);
    const std::unique_ptr<zcam::IGrallocHelper> helper = zcam::createGrallocHelper();
    const zcam::IGrallocLayoutCache* cache = zcam::layoutCacheOf(*helper);
    if (cache == nullptr) {
        err << kErrorPrefix << "the helper offers no view of its layout cache\n";
        return kExitNotAnswered;
    }
    LayoutSession session(*helper, *cache, log);
    return body(session);
}

}  // namespace zyncam::tools
