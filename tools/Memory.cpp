#include "Memory.h"

#include <GrallocFormats.h>

#include <algorithm>
#include <cstdio>
#include <numeric>

namespace zyncam::tools {

namespace {

constexpr uint64_t kBitsPerByte = 8;
constexpr uint64_t kKiB = 1024;
constexpr uint64_t kMiB = kKiB * kKiB;
constexpr double kPercent = 100.0;
// AFBC's basic superblock and the header each one has.
constexpr uint64_t kAfbcSuperblockWidth = 16;
constexpr uint64_t kAfbcSuperblockHeight = 16;
constexpr uint64_t kAfbcHeaderBytesPerSuperblock = 16;
// 4:2:0 chroma: half the columns and half the rows, two samples interleaved.
constexpr uint64_t kChromaSubsampling = 2;
constexpr uint64_t kInterleavedSamples = 2;

uint64_t ceilDiv(uint64_t a, uint64_t b) {
    return (a + b - 1) / b;
}

struct ImagePlane {
    uint64_t rowBytes;
    uint64_t rows;
};

// The planes the visible image of `width` x `height` would take in `format`, uncompressed and
// without padding; empty when the format does not say how big its pixels are. A format whose
// pixels have no size of their own (the opaque formats, BLOB) counts one unit of its stride
// per pixel, as the derivation counts its stride.
std::vector<ImagePlane> imagePlanes(int32_t format, uint64_t width, uint64_t height) {
    const zcam::PixelFormatInfo* info = zcam::findPixelFormat(format);
    if (info == nullptr) return {};
    const uint64_t bytes = info->bytesPerSample;
    const uint64_t chromaWidth = ceilDiv(width, kChromaSubsampling);
    const uint64_t chromaRows = ceilDiv(height, kChromaSubsampling);
    switch (info->family) {
        case zcam::LayoutFamily::kSinglePlane:
            return {{info->bitsPerSample != 0 ? ceilDiv(width * info->bitsPerSample, kBitsPerByte)
                                              : width * bytes,
                     height}};
        case zcam::LayoutFamily::kLockedSemiPlanar420:
        case zcam::LayoutFamily::kTwoPlane420:
            return {{width * bytes, height},
                    {chromaWidth * kInterleavedSamples * bytes, chromaRows}};
        case zcam::LayoutFamily::kThreePlaneYV12:
            return {{width * bytes, height},
                    {chromaWidth * bytes, chromaRows},
                    {chromaWidth * bytes, chromaRows}};
        case zcam::LayoutFamily::kFlexible:
        case zcam::LayoutFamily::kNoRule:
            break;
    }
    return {};
}

}  // namespace

std::optional<double> StreamMemory::paddingShare() const {
    if (!paddingBytes || bytesPerBuffer == 0) return std::nullopt;
    return static_cast<double>(*paddingBytes) / static_cast<double>(bytesPerBuffer);
}

std::optional<uint64_t> StreamMemory::streamPaddingBytes() const {
    if (!paddingBytes) return std::nullopt;
    return *paddingBytes * buffers;
}

std::optional<StreamMemory> streamMemory(const RequestSpec& given, const Answer& answer) {
    if (answer.outcome != Outcome::Answered) return std::nullopt;
    const zcam::GrallocCachedLayout& layout = answer.layout;
    StreamMemory m;
    m.buffers = given.buffers;
    m.bytesPerBuffer = layout.allocSize;
    m.streamBytes = m.bytesPerBuffer * m.buffers;

    uint64_t offset = 0;
    for (const PlaneAnswer& p : answer.planes) {
        PlaneArea area;
        area.offsetMeasured = p.offset.has_value();
        area.offset = p.offset.value_or(offset);
        area.strideBytes = p.strideBytes;
        area.sizeBytes = p.sizeBytes;
        offset = area.offset + area.sizeBytes;
        m.frameBytes += area.sizeBytes;
        m.planes.push_back(area);
    }
    const uint64_t batch = std::max(layout.framesPerBuffer, uint32_t{1});
    const uint64_t room =
            m.frameBytes == 0 ? 1 : std::max<uint64_t>(m.bytesPerBuffer / m.frameBytes, 1);
    m.frames = static_cast<uint32_t>(std::min(batch, room));

    const std::vector<ImagePlane> image =
            imagePlanes(layout.info.format, static_cast<uint64_t>(answer.probed.widthInPixels),
                        static_cast<uint64_t>(answer.probed.heightInPixels));
    if (image.empty()) return m;
    uint64_t visibleFrame = 0;
    if (layout.info.isAFBC) {
        const uint64_t width = static_cast<uint64_t>(answer.probed.widthInPixels);
        const uint64_t height = static_cast<uint64_t>(answer.probed.heightInPixels);
        const uint64_t frame =
                m.planes.empty() ? m.bytesPerBuffer / m.frames : m.planes.front().sizeBytes;
        AfbcFrame afbc;
        const uint64_t imageBytes = std::accumulate(
                image.begin(), image.end(), uint64_t{0},
                [](uint64_t sum, const ImagePlane& p) { return sum + p.rowBytes * p.rows; });
        afbc.bodyBytes = std::min(imageBytes, frame);
        afbc.headerBytes = std::min(ceilDiv(width, kAfbcSuperblockWidth) *
                                            ceilDiv(height, kAfbcSuperblockHeight) *
                                            kAfbcHeaderBytesPerSuperblock,
                                    frame - afbc.bodyBytes);
        afbc.tailBytes = frame - afbc.bodyBytes - afbc.headerBytes;
        m.afbc = afbc;
        visibleFrame = afbc.bodyBytes;
    } else {
        if (image.size() != m.planes.size()) return m;
        for (size_t i = 0; i < image.size(); ++i) {
            PlaneArea& area = m.planes[i];
            const uint64_t rows = area.strideBytes == 0 ? 0 : area.sizeBytes / area.strideBytes;
            area.visibleRowBytes = std::min(image[i].rowBytes, area.strideBytes);
            area.visibleRows = std::min(image[i].rows, rows);
            visibleFrame += area.visibleRowBytes * area.visibleRows;
        }
    }
    m.visibleBytes = std::min(visibleFrame * m.frames, m.bytesPerBuffer);
    m.paddingBytes = m.bytesPerBuffer - *m.visibleBytes;
    return m;
}

std::vector<std::optional<StreamMemory>> streamMemories(const std::vector<RequestSpec>& requests,
                                                        const std::vector<Answer>& answers) {
    std::vector<std::optional<StreamMemory>> memory;
    for (size_t i = 0; i < answers.size() && i < requests.size(); ++i) {
        memory.push_back(streamMemory(requests[i], answers[i]));
    }
    return memory;
}

std::optional<double> SessionMemory::paddingShare() const {
    if (bytesWithKnownPadding == 0) return std::nullopt;
    return static_cast<double>(paddingBytes) / static_cast<double>(bytesWithKnownPadding);
}

double SessionMemory::shareOf(uint64_t streamBytes) const {
    return bytes == 0 ? 0.0 : static_cast<double>(streamBytes) / static_cast<double>(bytes);
}

SessionMemory sessionMemory(const std::vector<std::optional<StreamMemory>>& memory) {
    SessionMemory s;
    s.rank.assign(memory.size(), 0);
    for (size_t i = 0; i < memory.size(); ++i) {
        if (!memory[i]) continue;
        const StreamMemory& m = *memory[i];
        ++s.streams;
        s.buffers += m.buffers;
        s.bytes += m.streamBytes;
        if (const auto padding = m.streamPaddingBytes()) {
            s.paddingBytes += *padding;
            s.bytesWithKnownPadding += m.streamBytes;
        } else {
            ++s.paddingUnknown;
        }
        s.byBytes.push_back(i);
    }
    std::stable_sort(s.byBytes.begin(), s.byBytes.end(), [&](size_t a, size_t b) {
        return memory[a]->streamBytes > memory[b]->streamBytes;
    });
    for (size_t place = 0; place < s.byBytes.size(); ++place) s.rank[s.byBytes[place]] = place + 1;
    return s;
}

std::string shortSizeText(uint64_t bytes) {
    if (bytes < kKiB) return std::to_string(bytes) + " B";
    const bool mebi = bytes >= kMiB;
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s",
                  static_cast<double>(bytes) / static_cast<double>(mebi ? kMiB : kKiB),
                  mebi ? "MiB" : "KiB");
    return text;
}

std::string sizeText(uint64_t bytes) {
    if (bytes < kKiB) return shortSizeText(bytes);
    return std::to_string(bytes) + " B (" + shortSizeText(bytes) + ")";
}

std::string signedSizeText(int64_t bytes) {
    if (bytes == 0) return "0 B";
    // The magnitude of INT64_MIN does not fit int64_t; it does fit uint64_t.
    const uint64_t magnitude =
            bytes < 0 ? uint64_t{0} - static_cast<uint64_t>(bytes) : static_cast<uint64_t>(bytes);
    return (bytes < 0 ? "-" : "+") + shortSizeText(magnitude);
}

std::string percentText(double share) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f%%", share * kPercent);
    return text;
}

}  // namespace zyncam::tools
