// Device-profile records that programs write and read: one exact answer of an allocator, as a
// JSON object of the profile format (host/profiles/README.md). Needs only jsoncpp and the
// standard library, so a capture on a device can use it as well as the simulator.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zyncam::profile {

// Plane-layout bytes an exact answer may carry; a profile with more is refused.
inline constexpr uint32_t kExactPlaneLayoutsCapacity = 4096;
// A profile is user input (captures travel between people): a file or text larger than this, or
// one with more exact answers (its base's included), is refused. A capture of every stream of
// a camera session is a few hundred answers of about 1 KiB each.
inline constexpr size_t kMaxProfileBytes = 4 * 1024 * 1024;
inline constexpr size_t kMaxExactAnswers = 4096;
// The largest limits.maxAllocationSize a profile may set: more memory than any device has. A
// real allocator backs what it hands out, so a buffer it makes can always be mapped; the
// simulator's memory is sparse, and a buffer far larger would allocate yet fail every lock.
inline constexpr uint64_t kMaxAllocationCeiling = uint64_t{64} * 1024 * 1024 * 1024;

// One allocation as the allocator receives it (IAllocator::allocate2's descriptor). The helper
// normalises a request's usage before it allocates its probe, so this is the normalised usage.
struct AllocationRequest {
    int32_t width = 0;
    int32_t height = 0;
    int32_t format = 0;
    uint64_t usage = 0;
    int32_t layerCount = 1;

    auto operator<=>(const AllocationRequest&) const = default;
};

// Where a CPU lock for YCbCr put the planes: byte offsets from the start of the buffer, strides
// and chroma step in bytes.
struct YCbCrOffsets {
    int64_t y = 0;
    int64_t cb = 0;
    int64_t cr = 0;
    uint64_t ystride = 0;
    uint64_t cstride = 0;
    uint64_t chromaStep = 0;

    bool operator==(const YCbCrOffsets&) const = default;
};

// What the allocator answered for one request: each gralloc-extension attribute the helper
// reads (the number in brackets), the plane layouts and the YCbCr lock's offsets.
struct ExactAnswer {
    AllocationRequest request;
    int32_t format = 0;          // [15] the format the buffer was allocated in
    int32_t width = 0;           // [10]
    int32_t height = 0;          // [11]
    int32_t stride = 0;          // [12] row stride in pixels (bytes for RAW and BLOB formats)
    int32_t verticalStride = 0;  // [13] rows allocated
    uint64_t allocSize = 0;      // [14] bytes
    uint32_t usage = 0;          // [17]
    uint64_t id = 0;             // [50] the captured buffer's identity; never replayed
    uint32_t consumerUsage = 0;  // [51]
    uint32_t producerUsage = 0;  // [52]
    uint32_t sfStatus = 0;       // [100] the status word of the SF-info record (AFBC: bit 22)
    // PLANE_LAYOUTS standard metadata in the platform's encoding; without it the profile's rules
    // describe the planes.
    std::optional<std::vector<uint8_t>> planeLayouts;
    // Recorded for comparison: a replay yields them through the plane layouts.
    std::optional<YCbCrOffsets> ycbcr;

    bool operator==(const ExactAnswer&) const = default;
};

// The entry as one object of a profile's "exact" array: attributes by name, numbers as JSON
// integers, plane layouts as a lowercase hex string.
Json::Value toJson(const ExactAnswer& answer);

// Reads an entry written by toJson or by hand (numbers may also be strings such as "0x11",
// formats and usages may be names). False with "field: reason" in `error` when it does not fit.
bool fromJson(const Json::Value& value, ExactAnswer* answer, std::string* error);

}  // namespace zyncam::profile
