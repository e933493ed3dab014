// What a stream's buffers cost: bytes per buffer and per stream, the part of each buffer the
// visible image does not use (padding), session totals, and the geometry a drawing needs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "LayoutSession.h"

namespace zyncam::tools {

// One plane of one frame, in memory order.
struct PlaneArea {
    uint64_t offset = 0;  // from the frame's start: measured, or the sizes before it
    bool offsetMeasured = false;
    uint64_t strideBytes = 0;
    uint64_t sizeBytes = 0;
    // The visible image's part: the first visibleRowBytes of each of the first visibleRows
    // rows, never more than the plane holds. Both 0 when the image is not known.
    uint64_t visibleRowBytes = 0;
    uint64_t visibleRows = 0;
};

// A compressed frame as AFBC lays it out: a header per 16x16 superblock of the image, the
// superblock bodies (counted as the uncompressed image), then what rounding left over.
struct AfbcFrame {
    uint64_t headerBytes = 0;
    uint64_t bodyBytes = 0;
    uint64_t tailBytes = 0;
};

struct StreamMemory {
    uint32_t buffers = 1;
    uint64_t bytesPerBuffer = 0;  // the allocation size
    uint64_t streamBytes = 0;     // bytesPerBuffer x buffers
    // Frames the allocation holds: the batch the derivation used, or fewer when the
    // allocation has room for fewer frames of the planes it reports.
    uint32_t frames = 1;
    uint64_t frameBytes = 0;  // the planes' sizes, summed
    std::vector<PlaneArea> planes;
    std::optional<AfbcFrame> afbc;  // AFBC layouts
    // Bytes of one buffer the visible image takes, and the rest; empty when the format does
    // not say how big its pixels are.
    std::optional<uint64_t> visibleBytes;
    std::optional<uint64_t> paddingBytes;

    std::optional<double> paddingShare() const;          // of one buffer
    std::optional<uint64_t> streamPaddingBytes() const;  // paddingBytes x buffers
};

// The memory of an answered request; nothing for one that was not answered.
std::optional<StreamMemory> streamMemory(const RequestSpec& given, const Answer& answer);

// The largest consumers a session's totals name.
inline constexpr size_t kLargestConsumers = 3;

struct SessionMemory {
    size_t streams = 0;  // answered requests
    uint64_t buffers = 0;
    uint64_t bytes = 0;
    uint64_t paddingBytes = 0;  // of the streams whose padding is known
    uint64_t bytesWithKnownPadding = 0;
    size_t paddingUnknown = 0;  // streams whose padding is not known
    // Indexes of the answered requests by stream bytes, largest first (the earlier request
    // first among equals); rank[i] is request i's place from 1, 0 when it was not answered.
    std::vector<size_t> byBytes;
    std::vector<size_t> rank;

    std::optional<double> paddingShare() const;
    // A stream's share of the session's bytes; 0 when the session has none.
    double shareOf(uint64_t streamBytes) const;
};

// `memory[i]` is request i's, as streamMemory gives it.
SessionMemory sessionMemory(const std::vector<std::optional<StreamMemory>>& memory);

std::vector<std::optional<StreamMemory>> streamMemories(const std::vector<RequestSpec>& requests,
                                                        const std::vector<Answer>& answers);

// "3133440 B (3.0 MiB)", "23040 B (22.5 KiB)", "512 B".
std::string sizeText(uint64_t bytes);
// "3.0 MiB", "22.5 KiB", "512 B": one decimal from 1 KiB up.
std::string shortSizeText(uint64_t bytes);
// "+12.4 MiB", "-22.5 KiB", "0 B".
std::string signedSizeText(int64_t bytes);
// "0.7%": a share as a percentage with one decimal.
std::string percentText(double share);

}  // namespace zyncam::tools
