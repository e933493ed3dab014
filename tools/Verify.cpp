#include "Verify.h"

#include <GrallocAllocatorAidlV2.h>
#include <GrallocHelper.h>
#include <GrallocMapperAidlV2.h>
#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <aidl/android/hardware/graphics/common/StandardMetadataType.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>
#include <android/sync.h>
#include <system/graphics.h>
#include <unistd.h>
#include <utils/Errors.h>

#include <algorithm>

#include "Capture.h"
#include "FormatFacts.h"

namespace zyncam::tools {

namespace {

using aidl::android::hardware::graphics::allocator::BufferDescriptorInfo;
using aidl::android::hardware::graphics::allocator::IAllocator;
using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;
using aidl::android::hardware::graphics::common::PlaneLayout;
using aidl::android::hardware::graphics::common::StandardMetadataType;
using android::hardware::graphics::mapper::StandardMetadata;
using NSCam::GrallocAllocatorAidlV2::AllocatorAidl;
using NSCam::GrallocMapperAidlV2::MapperV5;

constexpr uint64_t kLockUsage = static_cast<uint64_t>(BufferUsage::CPU_READ_OFTEN);
constexpr uint64_t kCpuReadMask = static_cast<uint64_t>(BufferUsage::CPU_READ_MASK);
constexpr uint64_t kUsageProtected = static_cast<uint64_t>(BufferUsage::PROTECTED);
constexpr uint64_t kReservedSize = 0;
constexpr const char* kBufferName = "gralloc-layout-verify";
constexpr int kNoFence = -1;
constexpr int kWaitForever = -1;
constexpr int64_t kBitsPerByte = 8;
constexpr int64_t kChromaSubsampling = 2;  // 4:2:0 halves both directions
// A chroma step of two or more bytes: Cb and Cr interleave in one plane.
constexpr size_t kInterleavedChromaStep = 2;
constexpr size_t kAllocationSizeBytes = sizeof(int64_t);

// One plane as a source states it; a figure the source does not state is empty.
struct PlaneView {
    std::optional<int64_t> stride, offset, size;
    int64_t rowsSpan = 0;  // stride x rows, when the source states its rows
};

struct View {
    bool stated = false;
    std::vector<PlaneView> planes;
    std::optional<int64_t> allocation;
};
using Views = std::array<View, kSourceCount>;

constexpr size_t index(Source s) {
    return static_cast<size_t>(s);
}

std::optional<int64_t> nonNegative(int64_t value) {
    return value >= 0 ? std::optional<int64_t>(value) : std::nullopt;
}

int64_t saturatingAdd(int64_t a, int64_t b) {
    int64_t sum;
    return __builtin_add_overflow(a, b, &sum) ? INT64_MAX : sum;
}

int64_t saturatingMul(int64_t a, int64_t b) {
    int64_t product;
    return __builtin_mul_overflow(a, b, &product) ? INT64_MAX : product;
}

int64_t asFigure(uint64_t value) {
    return value > static_cast<uint64_t>(INT64_MAX) ? INT64_MAX : static_cast<int64_t>(value);
}

// `to` - `from` in bytes, without forming a pointer difference across objects.
int64_t distance(const void* from, const void* to) {
    const uint64_t a = reinterpret_cast<uintptr_t>(from);
    const uint64_t b = reinterpret_cast<uintptr_t>(to);
    return b >= a ? asFigure(b - a) : -asFigure(a - b);
}

// A plane's end: where its bytes or its rows end, whichever is later.
int64_t endOf(const PlaneView& p) {
    return saturatingAdd(*p.offset, std::max(p.size.value_or(0), p.rowsSpan));
}

// The planes the helper derived follow one another, as consumers of its answer place them.
// The one plane of a compressed batch buffer is one frame's, and the buffer holds them all.
View helperView(const zcam::GrallocCachedLayout& layout) {
    View v;
    v.stated = true;
    int64_t offset = 0;
    const int64_t frames = layout.info.isAFBC ? std::max<int64_t>(layout.framesPerBuffer, 1) : 1;
    for (const auto& plane : layout.info.planes) {
        PlaneView p;
        p.stride = asFigure(plane.rowStrideInBytes);
        p.size = saturatingMul(asFigure(plane.sizeInBytes), frames);
        p.offset = offset;
        offset = saturatingAdd(offset, *p.size);
        v.planes.push_back(p);
    }
    v.allocation = asFigure(layout.allocSize);
    return v;
}

// The buffer of one verified request: allocated and imported by the allocator adapter, freed
// on every path.
class OwnedBuffer {
public:
    explicit OwnedBuffer(const AllocatorAidl& allocator) : mAllocator(allocator) {}
    ~OwnedBuffer() {
        if (mHandle != nullptr) mAllocator.free(mHandle);
    }
    OwnedBuffer(const OwnedBuffer&) = delete;
    OwnedBuffer& operator=(const OwnedBuffer&) = delete;

    bool allocate(const profile::AllocationRequest& r) {
        uint32_t stride = 0;
        const int status = mAllocator.allocate(
                static_cast<uint32_t>(r.width), static_cast<uint32_t>(r.height),
                static_cast<PixelFormat>(r.format), static_cast<uint32_t>(r.layerCount), r.usage,
                &mHandle, &stride, kReservedSize, kBufferName);
        return status == android::NO_ERROR && mHandle != nullptr;
    }
    const native_handle* get() const { return mHandle; }

private:
    const AllocatorAidl& mAllocator;
    const native_handle* mHandle = nullptr;
};

// Unlocks and waits on and closes the release fence.
void unlockAndWait(const MapperV5& mapper, const native_handle* buffer) {
    const int fence = mapper.unlock(buffer);
    if (fence >= 0) {
        sync_wait(fence, kWaitForever);
        close(fence);
    }
}

// A lock locates the planes of uncompressed YCbCr and single-plane buffers that the CPU may
// read; the buffers the derivation itself locks are read whatever their usage says.
bool usesLock(const zcam::GrallocCachedLayout& layout, uint64_t usage, const FormatFacts& facts) {
    if ((usage & kUsageProtected) != 0 || layout.info.isAFBC) return false;
    if ((usage & kCpuReadMask) == 0 && !facts.derivationLocks) return false;
    return facts.ycbcrLock || (layout.info.planes.size() == 1 && facts.chroma == Chroma::None);
}

// The smallest stride and row count plane `i` of a format can have at `width` x `height`;
// 0 when the format does not say.
int64_t minStride(const FormatFacts& facts, size_t i, int64_t width) {
    if (facts.bitsPerSample == 0) return 0;
    int64_t samples = width;
    if (i > 0 && facts.chroma == Chroma::SemiPlanar420) {
        samples = (width + 1) / kChromaSubsampling * kChromaSubsampling;
    } else if (i > 0 && facts.chroma == Chroma::Planar420) {
        samples = (width + 1) / kChromaSubsampling;
    }
    return (saturatingMul(samples, facts.bitsPerSample) + kBitsPerByte - 1) / kBitsPerByte;
}

int64_t minRows(const FormatFacts& facts, size_t i, int64_t height) {
    return i > 0 && facts.chroma != Chroma::None ? (height + 1) / kChromaSubsampling : height;
}

std::string planeField(size_t i) {
    return "planes[" + std::to_string(i) + "]";
}

// Findings of one request, one per check and field, each with the figures of every source.
class Checks {
public:
    explicit Checks(const Views& views) : mViews(views) {}

    void compareAll(const profile::AllocationRequest& r, const FormatFacts& facts) {
        const bool sameCount = comparePlaneCount();
        const size_t count = mViews[index(Source::Helper)].planes.size();
        for (size_t i = 0; sameCount && i < count; ++i) {
            const std::string field = planeField(i);
            compare("strideBytes", field + ".strideBytes",
                    [i](const View& v) { return v.planes[i].stride; });
            compare("offset", field + ".offset", [i](const View& v) { return v.planes[i].offset; });
            compare("sizeBytes", field + ".sizeBytes",
                    [i](const View& v) { return v.planes[i].size; });
        }
        compare("allocationSize", "allocation", [](const View& v) { return v.allocation; });
        for (size_t s = 0; s < kSourceCount; ++s) {
            if (!mViews[s].stated) continue;
            checkInside(s);
            checkOverlap(s);
            checkMinimums(s, r, facts);
        }
    }

    // In the order they were first met.
    const std::vector<Finding>& findings() const { return mFindings; }

private:
    template <typename Get>
    void compare(const char* check, const std::string& field, Get get) {
        std::array<std::optional<Figure>, kSourceCount> figures;
        std::optional<int64_t> first;
        bool differ = false;
        for (size_t s = 0; s < kSourceCount; ++s) {
            if (!mViews[s].stated) continue;
            const std::optional<int64_t> value = get(mViews[s]);
            if (!value) continue;
            figures[s] = Figure{*value, std::nullopt};
            if (first && *first != *value) differ = true;
            if (!first) first = value;
        }
        if (differ) add(check, field).figures = figures;
    }

    bool comparePlaneCount() {
        const size_t helper = mViews[index(Source::Helper)].planes.size();
        bool same = true;
        for (const View& v : mViews) same = same && (!v.stated || v.planes.size() == helper);
        if (same) return true;
        compare("planeCount", "planes", [](const View& v) {
            return std::optional<int64_t>(static_cast<int64_t>(v.planes.size()));
        });
        return false;
    }

    // The lock does not state the allocation: the buffer's, as the mapper (else the helper)
    // reports it, bounds its planes.
    std::optional<int64_t> allocationOf(size_t s) const {
        if (mViews[s].allocation) return mViews[s].allocation;
        if (const auto& mapper = mViews[index(Source::Mapper)].allocation) return mapper;
        return mViews[index(Source::Helper)].allocation;
    }

    void checkInside(size_t s) {
        const std::optional<int64_t> allocation = allocationOf(s);
        if (!allocation) return;
        const auto& planes = mViews[s].planes;
        for (size_t i = 0; i < planes.size(); ++i) {
            if (!planes[i].offset) continue;
            const int64_t end = endOf(planes[i]);
            const bool sized = planes[i].size || planes[i].rowsSpan > 0;
            if (*planes[i].offset < 0 || end > *allocation ||
                (!sized && *planes[i].offset >= *allocation)) {
                add("inside", planeField(i)).figures[s] = Figure{end, *allocation};
            }
        }
    }

    void checkOverlap(size_t s) {
        std::vector<size_t> placed;
        const auto& planes = mViews[s].planes;
        for (size_t i = 0; i < planes.size(); ++i) {
            if (planes[i].offset && (planes[i].size || planes[i].rowsSpan > 0)) placed.push_back(i);
        }
        std::sort(placed.begin(), placed.end(),
                  [&](size_t a, size_t b) { return *planes[a].offset < *planes[b].offset; });
        for (size_t k = 1; k < placed.size(); ++k) {
            const PlaneView& a = planes[placed[k - 1]];
            const PlaneView& b = planes[placed[k]];
            if (endOf(a) <= *b.offset) continue;
            const std::string field = planeField(placed[k - 1]) + "/" + planeField(placed[k]);
            add("overlap", field).figures[s] = Figure{endOf(a), *b.offset};
        }
    }

    void checkMinimums(size_t s, const profile::AllocationRequest& r, const FormatFacts& facts) {
        const auto& planes = mViews[s].planes;
        for (size_t i = 0; i < planes.size(); ++i) {
            const PlaneView& p = planes[i];
            if (!p.stride) continue;
            const int64_t least = minStride(facts, i, r.width);
            if (*p.stride < least) {
                add("minStride", planeField(i) + ".strideBytes").figures[s] =
                        Figure{*p.stride, least};
            }
            if (!p.size || *p.stride <= 0) continue;
            const int64_t rows = *p.size / *p.stride;
            const int64_t needed = minRows(facts, i, r.height);
            if (rows < needed) {
                add("minRows", planeField(i) + ".rows").figures[s] = Figure{rows, needed};
            }
        }
    }

    Finding& add(const std::string& check, const std::string& field) {
        for (Finding& f : mFindings) {
            if (f.check == check && f.field == field) return f;
        }
        Finding& f = mFindings.emplace_back();
        f.check = check;
        f.field = field;
        return f;
    }

    const Views& mViews;
    std::vector<Finding> mFindings;
};

bool offered(IAllocator& allocator, const profile::AllocationRequest& r) {
    BufferDescriptorInfo d;
    d.width = r.width;
    d.height = r.height;
    d.layerCount = r.layerCount;
    d.format = static_cast<PixelFormat>(r.format);
    d.usage = static_cast<BufferUsage>(r.usage);
    bool supported = true;
    if (!allocator.isSupported(d, &supported).isOk()) return true;
    return supported;
}

std::optional<std::string> mapperView(const MapperV5& mapper, const AIMapper& table,
                                      const native_handle* buffer, View& v) {
    std::vector<PlaneLayout> layouts;
    if (mapper.getPlaneLayouts(buffer, &layouts) != AIMAPPER_ERROR_NONE) {
        return std::string("the mapper did not report PLANE_LAYOUTS");
    }
    v.stated = true;
    for (const PlaneLayout& l : layouts) {
        PlaneView p;
        p.stride = nonNegative(l.strideInBytes);
        p.offset = nonNegative(l.offsetInBytes);
        p.size = nonNegative(l.totalSizeInBytes);
        if (l.strideInBytes > 0 && l.heightInSamples > 0) {
            p.rowsSpan = saturatingMul(l.strideInBytes, l.heightInSamples);
        }
        v.planes.push_back(p);
    }
    // A mapper need not answer ALLOCATION_SIZE; the allocation is then the helper's alone.
    constexpr auto kType = static_cast<int64_t>(StandardMetadataType::ALLOCATION_SIZE);
    uint8_t bytes[kAllocationSizeBytes] = {};
    const int32_t size = table.v5.getStandardMetadata(buffer, kType, bytes, sizeof bytes);
    if (size > 0 && static_cast<size_t>(size) <= sizeof bytes) {
        using Decoder = StandardMetadata<StandardMetadataType::ALLOCATION_SIZE>::value;
        if (auto allocation = Decoder::decode(bytes, static_cast<size_t>(size))) {
            v.allocation = asFigure(*allocation);
        }
    }
    return std::nullopt;
}

std::optional<std::string> lockView(const MapperV5& mapper, const native_handle* buffer,
                                    const profile::AllocationRequest& r, const FormatFacts& facts,
                                    View& v) {
    const ARect region{0, 0, r.width, r.height};
    void* base = nullptr;
    int bytesPerPixel = -1;
    int bytesPerStride = -1;
    int32_t status = mapper.lock(buffer, kLockUsage, region, kNoFence, &base, &bytesPerPixel,
                                 &bytesPerStride);
    if (status != AIMAPPER_ERROR_NONE) {
        return "the mapper did not lock it for the CPU (" + std::to_string(status) + ")";
    }
    unlockAndWait(mapper, buffer);
    v.stated = true;
    if (!facts.ycbcrLock) {
        PlaneView p;
        p.offset = 0;
        p.stride = nonNegative(bytesPerStride);
        v.planes.push_back(p);
        return std::nullopt;
    }
    android_ycbcr ycbcr{};
    status = mapper.lock(buffer, kLockUsage, region, kNoFence, &ycbcr);
    if (status != AIMAPPER_ERROR_NONE) {
        return "the mapper did not lock it for the CPU as YCbCr (" + std::to_string(status) + ")";
    }
    unlockAndWait(mapper, buffer);
    // Offsets count from the address the plain lock of the same buffer gave.
    PlaneView luma;
    luma.offset = distance(base, ycbcr.y);
    luma.stride = asFigure(ycbcr.ystride);
    v.planes.push_back(luma);
    if (ycbcr.cb == nullptr || ycbcr.cr == nullptr) return std::nullopt;
    const int64_t cb = distance(base, ycbcr.cb);
    const int64_t cr = distance(base, ycbcr.cr);
    PlaneView chroma;
    chroma.stride = asFigure(ycbcr.cstride);
    if (ycbcr.chroma_step >= kInterleavedChromaStep) {
        chroma.offset = std::min(cb, cr);  // one plane of interleaved samples
        v.planes.push_back(chroma);
        return std::nullopt;
    }
    chroma.offset = std::min(cb, cr);  // two planes, in memory order
    v.planes.push_back(chroma);
    chroma.offset = std::max(cb, cr);
    v.planes.push_back(chroma);
    return std::nullopt;
}

}  // namespace

const char* sourceName(Source source) {
    switch (source) {
        case Source::Helper:
            return "helper";
        case Source::Mapper:
            return "mapper";
        case Source::Lock:
            return "lock";
    }
    return "";
}

VerifyTotals count(const std::vector<Verdict>& verdicts) {
    VerifyTotals t;
    for (const Verdict& v : verdicts) {
        ++t.requests;
        t.findings += v.findings.size();
        switch (v.outcome) {
            case VerifyOutcome::Agree:
                ++t.agree;
                break;
            case VerifyOutcome::Disagree:
                ++t.disagree;
                break;
            case VerifyOutcome::Failed:
                ++t.failed;
                break;
            case VerifyOutcome::Skipped:
                ++t.skipped;
                break;
        }
    }
    return t;
}

Verifier::Verifier(const GrallocPlatform& platform, LayoutSession& session)
    : mMapperTable(platform.mapper),
      mMapper(std::make_unique<MapperV5>(platform.allocator)),
      mAllocator(std::make_unique<AllocatorAidl>(platform.allocator, *mMapper)),
      mAllocatorService(platform.allocator),
      mSession(session) {}

Verifier::~Verifier() = default;

Verdict Verifier::check(const RequestSpec& given, bool grid) {
    Verdict verdict;
    const Answer answer = mSession.answer(given);
    verdict.probedUsage = static_cast<uint32_t>(answer.probed.usage);
    const profile::AllocationRequest allocation = probeAllocation(answer.probed);
    if (answer.outcome != Outcome::Answered) {
        const bool skip = grid && (answer.outcome == Outcome::Refused ||
                                   !offered(*mAllocatorService, allocation));
        verdict.outcome = skip ? VerifyOutcome::Skipped : VerifyOutcome::Failed;
        verdict.reason = skip && answer.outcome == Outcome::Failed
                                 ? "the allocator does not offer it"
                                 : answer.reason;
        return verdict;
    }
    verdict.format = answer.layout.info.format;
    const FormatFacts facts = formatFacts(verdict.format);
    Views views;
    views[index(Source::Helper)] = helperView(answer.layout);
    OwnedBuffer buffer(*mAllocator);
    std::optional<std::string> why;
    if (!buffer.allocate(allocation)) {
        why = "the allocator did not allocate the same request again";
    } else if (!(why = mapperView(*mMapper, *mMapperTable, buffer.get(),
                                  views[index(Source::Mapper)])) &&
               usesLock(answer.layout, allocation.usage, facts)) {
        why = lockView(*mMapper, buffer.get(), allocation, facts, views[index(Source::Lock)]);
    }
    if (why) {
        verdict.outcome = VerifyOutcome::Failed;
        verdict.reason = *why;
        return verdict;
    }
    Checks checks(views);
    checks.compareAll(allocation, facts);
    verdict.findings = checks.findings();
    verdict.outcome = verdict.findings.empty() ? VerifyOutcome::Agree : VerifyOutcome::Disagree;
    return verdict;
}

}  // namespace zyncam::tools
