// A device profile: how the simulated allocator lays buffers out, read from JSON (the format is
// described in host/profiles/README.md). A parsed profile is immutable and shared.
#pragma once

#include <zyncam_host/ProfileFormat.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zyncam::sim {

struct ComponentRule {
    int64_t type = 0;  // PlaneLayoutComponentType
    int64_t offsetInBits = 0;
    int64_t sizeInBits = 0;

    bool operator==(const ComponentRule&) const = default;
};

struct PlaneRule {
    std::vector<ComponentRule> components;
    int64_t sampleIncrementInBits = 0;
    int64_t horizontalSubsampling = 1;
    int64_t verticalSubsampling = 1;

    bool operator==(const PlaneRule&) const = default;
};

// How one concrete format is laid out. Plane 0's row holds stride x bitsPerPixel bits, rounded
// up to whole bytes; plane i's row is plane 0's scaled by its sample increment and horizontal
// subsampling; plane i has rows / verticalSubsampling rows; planes follow each other.
struct FormatRule {
    int32_t format = 0;
    int64_t bitsPerPixel = 0;
    bool strideInBytes = false;     // the reported stride counts bytes, not pixels
    int64_t strideAlignPixels = 1;  // for strides in pixels (a byte alignment is converted)
    int64_t strideAlignBytes = 1;   // for strides in bytes
    int64_t rowAlign = 1;
    std::vector<PlaneRule> planes;

    bool operator==(const FormatRule&) const = default;
};

struct UsageMatch {
    uint64_t any = 0;  // at least one of these bits (when not 0)
    uint64_t all = 0;  // every one of these bits
    bool matches(uint64_t usage) const {
        return (any == 0 || (usage & any) != 0) && (usage & all) == all;
    }
    bool operator==(const UsageMatch&) const = default;
};

// A requested format that the allocator turns into another one, by usage. The first match wins.
struct ResolveRule {
    int32_t format = 0;
    UsageMatch usage;
    int32_t to = 0;
    int32_t frames = 1;  // slow-motion frames one buffer carries
    bool afbc = false;

    bool operator==(const ResolveRule&) const = default;
};

// Requests the allocator refuses (UNSUPPORTED).
struct UnsupportedRule {
    std::optional<int32_t> format;  // the requested format; any when empty
    UsageMatch usage;

    bool operator==(const UnsupportedRule&) const = default;
};

// Compression: one plane of 16-byte-headed superblocks covering the frame.
struct AfbcRule {
    uint64_t usage = 0;  // any of these bits asks for it
    std::vector<int32_t> formats;
    int64_t strideAlignPixels = 1;
    int64_t blockWidth = 1;
    int64_t blockHeight = 1;
    int64_t headerBytesPerBlock = 0;

    bool operator==(const AfbcRule&) const = default;
};

// Slow-motion buffers: those carrying several frames, and those of `formats` asked for with a
// bit of `usage`, align their rows to `rowAlign`.
struct SlowMotionRule {
    uint64_t usage = 0;
    std::vector<int32_t> formats;
    int64_t rowAlign = 1;

    bool operator==(const SlowMotionRule&) const = default;
};

struct Limits {
    int64_t maxWidth = 0;
    int64_t maxHeight = 0;
    uint64_t maxAllocationSize = 0;  // bytes of one buffer, every frame and layer included

    bool operator==(const Limits&) const = default;
};

struct Profile {
    std::string name;
    std::string description;
    std::string source;  // the file it came from
    Limits limits;
    std::map<int32_t, FormatRule> formats;
    std::vector<ResolveRule> resolve;
    std::vector<UnsupportedRule> unsupported;
    std::optional<AfbcRule> afbc;
    std::optional<SlowMotionRule> slowMotion;
    std::map<profile::AllocationRequest, std::shared_ptr<const profile::ExactAnswer>> exact;

    // Exact answers compare by identity.
    bool operator==(const Profile&) const = default;
};

using profile::kExactPlaneLayoutsCapacity;

// The text of host/profiles/default.json, built in, and the name errors give it.
extern const char kBuiltInProfile[];
extern const char kBuiltInProfileSource[];

// The built-in profile's rules as parsing kBuiltInProfile gives them, generated as code at build
// time so that the simulator starts without parsing JSON.
Profile builtInProfileRules();

// Parses and checks a whole profile. Null on failure, with "source: field: reason" in `error`.
std::shared_ptr<const Profile> parseProfile(std::string_view text, const std::string& source,
                                            std::string* error);

// The content of a file, at most profile::kMaxProfileBytes + 1 bytes of it (so that a larger
// one is seen to be too large), or nothing when it cannot be read.
std::optional<std::string> readTextFile(const std::string& path);

// The profile in force: the one loaded last, else $ZYNCAM_GRALLOC_PROFILE, else the built-in one.
std::shared_ptr<const Profile> currentProfile();

}  // namespace zyncam::sim
