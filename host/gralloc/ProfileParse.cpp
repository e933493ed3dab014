// Reading a device profile from JSON and refusing one that contradicts itself.
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>
#include <gralloctypes/Gralloc4.h>
#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <numeric>
#include <sstream>

#include "Profile.h"
#include "ProfileJson.h"

namespace zyncam::sim {

namespace {

using aidl::android::hardware::graphics::common::PixelFormat;
using aidl::android::hardware::graphics::common::PlaneLayoutComponentType;
using profile::element;
using profile::FieldReader;
using profile::formatName;
using profile::member;

// Bounds that keep every derived number far from overflow and every profile plausible.
constexpr int64_t kMaxAlignment = 4096;
constexpr int64_t kMaxBitsPerPixel = 256;
constexpr int64_t kVariableSizeInBits = -1;
constexpr int64_t kMaxSubsampling = 16;
constexpr int64_t kMaxFrames = 255;  // the handle carries the frame count in 8 bits
constexpr int64_t kMaxBlockSize = 256;
constexpr int kMaxNesting = 1000;  // arrays and objects within each other
constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t kMaxAllocationCeiling = static_cast<int64_t>(profile::kMaxAllocationCeiling);

struct ComponentName {
    const char* name;
    PlaneLayoutComponentType type;
};
constexpr ComponentName kComponentNames[] = {
        {"Y", PlaneLayoutComponentType::Y},     {"CB", PlaneLayoutComponentType::CB},
        {"CR", PlaneLayoutComponentType::CR},   {"R", PlaneLayoutComponentType::R},
        {"G", PlaneLayoutComponentType::G},     {"B", PlaneLayoutComponentType::B},
        {"RAW", PlaneLayoutComponentType::RAW}, {"A", PlaneLayoutComponentType::A},
};

// The formats whose planes the helper locates through a YCbCr lock, and what such a lock can
// present: one 8-bit Y sample per byte; CB and CR in 8-bit samples, 1 or 2 bytes apart, all on
// one chroma stride; each component once; every component (of any type) at a whole byte. A profile
// laying one of them out otherwise describes a gralloc that does not exist, and the helper's lock
// would fail.
constexpr int32_t kYCbCrLockedFormats[] = {static_cast<int32_t>(PixelFormat::YCRCB_420_SP),
                                           static_cast<int32_t>(PixelFormat::YV12)};
constexpr int64_t kBitsPerByte = 8;
constexpr int64_t kLumaSampleBits = 8;
constexpr int64_t kPlanarChromaBits = 8;
constexpr int64_t kInterleavedChromaBits = 16;

bool lockedThroughYCbCr(int32_t format) {
    return std::find(std::begin(kYCbCrLockedFormats), std::end(kYCbCrLockedFormats), format) !=
           std::end(kYCbCrLockedFormats);
}

// One plane as a YCbCr lock sees it; the stride is compared between chroma planes only, as a
// fraction (a rule knows it relative to plane 0).
struct LockedPlane {
    std::vector<ComponentRule> components;
    int64_t sampleIncrementInBits;
    int64_t strideNumerator;
    int64_t strideDenominator;
};

// Empty when a YCbCr lock can present the planes, else the index of the first it cannot.
std::optional<size_t> firstUnlockablePlane(const std::vector<LockedPlane>& planes) {
    bool y = false, cb = false, cr = false;
    const LockedPlane* chroma = nullptr;
    for (size_t i = 0; i < planes.size(); ++i) {
        const LockedPlane& p = planes[i];
        for (const ComponentRule& c : p.components) {
            // The lock places every standard component, whatever its type, at a whole byte.
            if (c.offsetInBits % kBitsPerByte != 0) return i;
            const auto type = static_cast<PlaneLayoutComponentType>(c.type);
            const bool isChroma =
                    type == PlaneLayoutComponentType::CB || type == PlaneLayoutComponentType::CR;
            if (type != PlaneLayoutComponentType::Y && !isChroma) continue;
            if (type == PlaneLayoutComponentType::Y) {
                if (y || c.sizeInBits != kLumaSampleBits ||
                    p.sampleIncrementInBits != kLumaSampleBits) {
                    return i;
                }
                y = true;
                continue;
            }
            if (p.sampleIncrementInBits != kPlanarChromaBits &&
                p.sampleIncrementInBits != kInterleavedChromaBits) {
                return i;
            }
            if (chroma != nullptr && (chroma->sampleIncrementInBits != p.sampleIncrementInBits ||
                                      chroma->strideNumerator * p.strideDenominator !=
                                              p.strideNumerator * chroma->strideDenominator)) {
                return i;
            }
            chroma = &p;
            bool& seen = type == PlaneLayoutComponentType::CB ? cb : cr;
            if (seen) return i;
            seen = true;
        }
    }
    return std::nullopt;
}

constexpr const char* kUnlockableReason =
        "a YCbCr lock cannot present this plane: every component at a whole byte, Y in 8-bit "
        "samples, CB and CR once each in 8-bit samples 8 or 16 bits apart on one stride";

class Parser {
public:
    explicit Parser(Profile& p) : mProfile(p) {}

    bool parse(const Json::Value& root) {
        if (!r.object(root, "",
                      {"name", "description", "limits", "formats", "resolve", "unsupported", "afbc",
                       "slowMotion", "exact"})) {
            return false;
        }
        if (auto name = required(root, "", "name"))
            mProfile.name = r.string(*name, "name").value_or("");
        if (root.isMember("description")) {
            mProfile.description = r.string(root["description"], "description").value_or("");
        }
        if (auto limits = required(root, "", "limits")) parseLimits(*limits);
        if (auto formats = required(root, "", "formats")) parseFormats(*formats);
        // Rules below name formats, so they come after the format rules.
        if (root.isMember("afbc")) parseAfbc(root["afbc"]);
        if (root.isMember("slowMotion")) parseSlowMotion(root["slowMotion"]);
        if (root.isMember("resolve")) parseResolve(root["resolve"]);
        if (root.isMember("unsupported")) parseUnsupported(root["unsupported"]);
        if (root.isMember("exact")) parseExact(root["exact"]);
        return r.ok();
    }

    const std::string& error() const { return r.error(); }

private:
    // The member itself, not a copy: profiles are read member by member.
    const Json::Value* required(const Json::Value& object, const std::string& path,
                                const char* name) {
        const Json::Value* value =
                object.isObject() ? object.find(name, name + strlen(name)) : nullptr;
        if (value == nullptr) r.fail(member(path, name), "missing");
        return value;
    }

    // An integer member; `fallback` when absent, or a failure when there is none.
    std::optional<int64_t> integer(const Json::Value& object, const std::string& path,
                                   const char* name, int64_t min, int64_t max,
                                   std::optional<int64_t> fallback = std::nullopt) {
        if (!object.isMember(name) && fallback) return fallback;
        auto value = required(object, path, name);
        return value ? r.integer(*value, member(path, name), min, max) : std::nullopt;
    }

    uint64_t usage(const Json::Value& object, const std::string& path, const char* name) {
        if (!object.isMember(name)) return 0;
        return r.usage(object[name], member(path, name)).value_or(0);
    }

    UsageMatch usageMatch(const Json::Value& object, const std::string& path) {
        return {usage(object, path, "usageAny"), usage(object, path, "usageAll")};
    }

    // A format that must have a rule of its own.
    std::optional<int32_t> ruledFormat(const Json::Value& value, const std::string& field) {
        std::optional<int32_t> format = r.format(value, field);
        if (format && mProfile.formats.count(*format) == 0) {
            r.fail(field, "no rule for format " + formatName(*format) + " in formats");
            return std::nullopt;
        }
        return format;
    }

    std::vector<int32_t> ruledFormats(const Json::Value& object, const std::string& path) {
        std::vector<int32_t> formats;
        auto list = required(object, path, "formats");
        const std::string field = member(path, "formats");
        if (!list || !r.array(*list, field)) return formats;
        for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
            if (auto f = ruledFormat((*list)[i], element(field, i))) formats.push_back(*f);
        }
        return formats;
    }

    // {"pixels": N} or {"bytes": N}; sets the rule's alignments.
    void strideAlign(const Json::Value& value, const std::string& field, FormatRule& rule) {
        if (!r.object(value, field, {"pixels", "bytes"})) return;
        if (value.isMember("pixels") == value.isMember("bytes")) {
            r.fail(field, "needs exactly one of \"pixels\" and \"bytes\"");
            return;
        }
        const bool pixels = value.isMember("pixels");
        auto n = integer(value, field, pixels ? "pixels" : "bytes", 1, kMaxAlignment);
        if (!n) return;
        if (rule.strideInBytes) {
            if (pixels) {
                r.fail(member(field, "pixels"), "a stride counted in bytes is aligned in bytes");
                return;
            }
            rule.strideAlignBytes = *n;
        } else if (pixels) {
            rule.strideAlignPixels = *n;
        } else {
            // The smallest pixel count whose bytes are a multiple of the alignment.
            const int64_t bytesPerPixel = rule.bitsPerPixel / 8;
            rule.strideAlignPixels = std::lcm(*n, bytesPerPixel) / bytesPerPixel;
        }
    }

    void parseLimits(const Json::Value& v) {
        const std::string path = "limits";
        if (!r.object(v, path, {"maxWidth", "maxHeight", "maxAllocationSize"})) return;
        Limits& l = mProfile.limits;
        l.maxWidth = integer(v, path, "maxWidth", 1, kInt32Max).value_or(0);
        l.maxHeight = integer(v, path, "maxHeight", 1, kInt32Max).value_or(0);
        l.maxAllocationSize =
                integer(v, path, "maxAllocationSize", 1, kMaxAllocationCeiling).value_or(0);
    }

    void parseFormats(const Json::Value& v) {
        // Every member names a format.
        if (!v.isObject()) {
            r.fail("formats", "must be an object");
            return;
        }
        for (const std::string& key : v.getMemberNames()) {
            if (key == "comment") continue;
            const std::string path = member("formats", key);
            std::optional<int32_t> format = r.format(Json::Value(key), path);
            if (!format) return;
            if (mProfile.formats.count(*format) != 0) {
                r.fail(path, "format " + formatName(*format) + " has a rule already");
                return;
            }
            FormatRule rule;
            rule.format = *format;
            if (!parseFormat(v[key], path, rule)) return;
            mProfile.formats[*format] = std::move(rule);
        }
    }

    bool parseFormat(const Json::Value& v, const std::string& path, FormatRule& rule) {
        if (!r.object(v, path,
                      {"bitsPerPixel", "strideUnit", "strideAlign", "rowAlign", "planes"})) {
            return false;
        }
        auto planes = required(v, path, "planes");
        const std::string planesPath = member(path, "planes");
        if (!planes || !r.array(*planes, planesPath, 1)) return false;
        for (Json::ArrayIndex i = 0; i < planes->size(); ++i) {
            rule.planes.push_back(parsePlane((*planes)[i], element(planesPath, i)));
        }
        if (!r.ok()) return false;

        const int64_t firstIncrement = rule.planes[0].sampleIncrementInBits;
        if (v.isMember("bitsPerPixel") || firstIncrement == 0) {
            rule.bitsPerPixel = integer(v, path, "bitsPerPixel", 1, kMaxBitsPerPixel).value_or(0);
        } else {
            rule.bitsPerPixel = firstIncrement;
        }
        if (v.isMember("strideUnit")) {
            const std::string field = member(path, "strideUnit");
            std::optional<std::string> unit = r.string(v["strideUnit"], field);
            if (unit && *unit != "pixels" && *unit != "bytes") {
                return r.fail(field, "must be \"pixels\" or \"bytes\", not \"" + *unit + "\"");
            }
            rule.strideInBytes = unit == "bytes";
        }
        if (!r.ok()) return false;
        if (!rule.strideInBytes && rule.bitsPerPixel % 8 != 0) {
            return r.fail(member(path, "bitsPerPixel"),
                          "a stride counted in pixels needs whole bytes per pixel");
        }
        if (auto align = required(v, path, "strideAlign")) {
            strideAlign(*align, member(path, "strideAlign"), rule);
        }
        rule.rowAlign = integer(v, path, "rowAlign", 1, kMaxAlignment, 1).value_or(1);
        if (!r.ok()) return false;
        return checkPlanes(rule, path) && checkYCbCrLock(rule, path);
    }

    bool checkYCbCrLock(const FormatRule& rule, const std::string& path) {
        if (!lockedThroughYCbCr(rule.format)) return true;
        // Plane i's stride is plane 0's x its increment / (its subsampling x plane 0's).
        std::vector<LockedPlane> planes;
        for (const PlaneRule& p : rule.planes) {
            planes.push_back({p.components, p.sampleIncrementInBits, p.sampleIncrementInBits,
                              p.horizontalSubsampling});
        }
        if (auto bad = firstUnlockablePlane(planes)) {
            return r.fail(element(member(path, "planes"), *bad), kUnlockableReason);
        }
        return true;
    }

    PlaneRule parsePlane(const Json::Value& v, const std::string& path) {
        PlaneRule plane;
        if (!r.object(v, path,
                      {"components", "sampleIncrementInBits", "horizontalSubsampling",
                       "verticalSubsampling"})) {
            return plane;
        }
        plane.sampleIncrementInBits =
                integer(v, path, "sampleIncrementInBits", 0, kMaxBitsPerPixel).value_or(0);
        plane.horizontalSubsampling =
                integer(v, path, "horizontalSubsampling", 1, kMaxSubsampling, 1).value_or(1);
        plane.verticalSubsampling =
                integer(v, path, "verticalSubsampling", 1, kMaxSubsampling, 1).value_or(1);
        if (!v.isMember("components")) return plane;
        const std::string field = member(path, "components");
        if (!r.array(v["components"], field)) return plane;
        for (Json::ArrayIndex i = 0; i < v["components"].size(); ++i) {
            plane.components.push_back(parseComponent(v["components"][i], element(field, i)));
        }
        return plane;
    }

    // ["Y", offsetInBits, sizeInBits]
    ComponentRule parseComponent(const Json::Value& v, const std::string& path) {
        ComponentRule c;
        if (!v.isArray() || v.size() != 3) {
            r.fail(path, "must be [type, offsetInBits, sizeInBits]");
            return c;
        }
        const Json::Value& type = v[0];
        auto named = std::find_if(std::begin(kComponentNames), std::end(kComponentNames),
                                  [&](const ComponentName& n) {
                                      return type.isString() && type.asString() == n.name;
                                  });
        if (named != std::end(kComponentNames)) {
            c.type = static_cast<int64_t>(named->type);
        } else {
            c.type = r.integer(type, element(path, 0), 1, kInt64Max).value_or(0);
        }
        c.offsetInBits = r.integer(v[1], element(path, 1), 0, kMaxBitsPerPixel).value_or(0);
        // -1: no size per sample, as for packed RAW data.
        c.sizeInBits = r.integer(v[2], element(path, 2), kVariableSizeInBits, kMaxBitsPerPixel)
                               .value_or(0);
        if (c.sizeInBits == 0) r.fail(element(path, 2), "must be -1 (variable) or at least 1");
        return c;
    }

    // Every plane's stride and row count must come out whole.
    bool checkPlanes(const FormatRule& rule, const std::string& path) {
        const int64_t first = rule.planes[0].sampleIncrementInBits;
        const int64_t rowBytesStep = rule.strideInBytes
                                             ? rule.strideAlignBytes
                                             : rule.strideAlignPixels * rule.bitsPerPixel / 8;
        for (size_t i = 0; i < rule.planes.size(); ++i) {
            const PlaneRule& p = rule.planes[i];
            const std::string planePath = element(member(path, "planes"), i);
            if (i == 0) {
                if (p.horizontalSubsampling != 1 || p.verticalSubsampling != 1) {
                    return r.fail(planePath, "the first plane cannot be subsampled");
                }
                continue;
            }
            if (rule.rowAlign % p.verticalSubsampling != 0) {
                return r.fail(member(planePath, "verticalSubsampling"),
                              std::to_string(p.verticalSubsampling) + " does not divide rowAlign " +
                                      std::to_string(rule.rowAlign));
            }
            if (first == 0) {
                return r.fail(member(element(member(path, "planes"), 0), "sampleIncrementInBits"),
                              "must not be 0 when further planes follow");
            }
            if ((rowBytesStep * p.sampleIncrementInBits) % (p.horizontalSubsampling * first) != 0) {
                return r.fail(member(path, "strideAlign"),
                              "too small for a whole stride of plane " + std::to_string(i));
            }
        }
        return true;
    }

    // Rows of a slow-motion or compressed buffer of `format` must split evenly into its planes.
    bool checkRowDivisor(int32_t format, int64_t rows, const std::string& field) {
        for (const PlaneRule& p : mProfile.formats.at(format).planes) {
            if (rows % p.verticalSubsampling != 0) {
                return r.fail(field, std::to_string(rows) +
                                             " rows do not split into the planes of " +
                                             formatName(format));
            }
        }
        return true;
    }

    void parseAfbc(const Json::Value& v) {
        const std::string path = "afbc";
        if (!r.object(v, path,
                      {"usage", "formats", "strideAlign", "superblock", "headerBytesPerBlock"})) {
            return;
        }
        AfbcRule a;
        a.usage = usage(v, path, "usage");
        a.formats = ruledFormats(v, path);
        if (auto align = required(v, path, "strideAlign")) {
            const std::string field = member(path, "strideAlign");
            if (r.object(*align, field, {"pixels"})) {
                a.strideAlignPixels =
                        integer(*align, field, "pixels", 1, kMaxAlignment).value_or(1);
            }
        }
        if (auto block = required(v, path, "superblock")) {
            const std::string field = member(path, "superblock");
            if (r.object(*block, field, {"width", "height"})) {
                a.blockWidth = integer(*block, field, "width", 1, kMaxBlockSize).value_or(1);
                a.blockHeight = integer(*block, field, "height", 1, kMaxBlockSize).value_or(1);
            }
        }
        a.headerBytesPerBlock =
                integer(v, path, "headerBytesPerBlock", 0, kMaxAlignment).value_or(0);
        if (!r.ok()) return;
        for (size_t i = 0; i < a.formats.size(); ++i) {
            checkAfbcFormat(a, a.formats[i], element(member(path, "formats"), i));
        }
        mProfile.afbc = a;
    }

    bool checkAfbcFormat(const AfbcRule& a, int32_t format, const std::string& field) {
        const FormatRule& rule = mProfile.formats.at(format);
        if (rule.strideInBytes) {
            return r.fail(field, formatName(format) + " has a stride in bytes; AFBC counts pixels");
        }
        return checkRowDivisor(format, a.blockHeight, field);
    }

    void parseSlowMotion(const Json::Value& v) {
        const std::string path = "slowMotion";
        if (!r.object(v, path, {"usage", "formats", "rowAlign"})) return;
        SlowMotionRule s;
        s.usage = usage(v, path, "usage");
        s.formats = ruledFormats(v, path);
        s.rowAlign = integer(v, path, "rowAlign", 1, kMaxAlignment).value_or(1);
        if (!r.ok()) return;
        for (size_t i = 0; i < s.formats.size(); ++i) {
            checkRowDivisor(s.formats[i], s.rowAlign, element(member(path, "formats"), i));
        }
        mProfile.slowMotion = s;
    }

    void parseResolve(const Json::Value& v) {
        if (!r.array(v, "resolve")) return;
        for (Json::ArrayIndex i = 0; i < v.size() && r.ok(); ++i) {
            const std::string path = element("resolve", i);
            const Json::Value& e = v[i];
            if (!r.object(e, path, {"format", "usageAny", "usageAll", "to", "frames", "afbc"})) {
                return;
            }
            ResolveRule rule;
            if (auto f = required(e, path, "format")) {
                rule.format = r.format(*f, member(path, "format")).value_or(0);
            }
            rule.usage = usageMatch(e, path);
            if (auto to = required(e, path, "to")) {
                rule.to = ruledFormat(*to, member(path, "to")).value_or(0);
            }
            rule.frames =
                    static_cast<int32_t>(integer(e, path, "frames", 1, kMaxFrames, 1).value_or(1));
            if (e.isMember("afbc")) {
                rule.afbc = r.boolean(e["afbc"], member(path, "afbc")).value_or(false);
            }
            if (!r.ok()) return;
            if (rule.afbc) {
                if (!mProfile.afbc) {
                    r.fail(member(path, "afbc"), "needs an \"afbc\" section");
                    return;
                }
                checkAfbcFormat(*mProfile.afbc, rule.to, member(path, "to"));
            } else if (rule.frames > 1 && mProfile.slowMotion) {
                checkRowDivisor(rule.to, mProfile.slowMotion->rowAlign, member(path, "to"));
            }
            mProfile.resolve.push_back(rule);
        }
    }

    void parseUnsupported(const Json::Value& v) {
        if (!r.array(v, "unsupported")) return;
        for (Json::ArrayIndex i = 0; i < v.size() && r.ok(); ++i) {
            const std::string path = element("unsupported", i);
            const Json::Value& e = v[i];
            if (!r.object(e, path, {"format", "usageAny", "usageAll"})) return;
            if (!e.isMember("format") && !e.isMember("usageAny") && !e.isMember("usageAll")) {
                r.fail(path, "refuses every request; name a format or usage bits");
                return;
            }
            UnsupportedRule rule;
            if (e.isMember("format")) rule.format = r.format(e["format"], member(path, "format"));
            rule.usage = usageMatch(e, path);
            mProfile.unsupported.push_back(rule);
        }
    }

    void parseExact(const Json::Value& v) {
        using aidl::android::hardware::graphics::common::StandardMetadataType;
        using android::hardware::graphics::mapper::StandardMetadata;
        if (!r.array(v, "exact")) return;
        if (v.size() > profile::kMaxExactAnswers) {
            r.fail("exact", "more than " + std::to_string(profile::kMaxExactAnswers) + " answers");
            return;
        }
        std::map<profile::AllocationRequest, size_t> seen;
        for (Json::ArrayIndex i = 0; i < v.size(); ++i) {
            const std::string path = element("exact", i);
            auto answer = std::make_shared<profile::ExactAnswer>();
            if (!profile::readExactAnswer(r, v[i], path, answer.get())) return;
            const profile::AllocationRequest& q = answer->request;
            if (q.width <= 0 || q.height <= 0 || q.layerCount <= 0) {
                r.fail(member(path, "request"), "width, height and layerCount must be positive");
                return;
            }
            if (answer->width <= 0 || answer->height <= 0 || answer->stride < 0 ||
                answer->verticalStride < 0) {
                r.fail(path,
                       "width and height must be positive, stride and verticalStride not "
                       "negative");
                return;
            }
            if (auto [it, fresh] = seen.emplace(q, i); !fresh) {
                r.fail(member(path, "request"),
                       "the same request as exact[" + std::to_string(it->second) + "]");
                return;
            }
            if (answer->allocSize > mProfile.limits.maxAllocationSize) {
                r.fail(member(path, "allocSize"), "more than limits.maxAllocationSize");
                return;
            }
            if (!answer->planeLayouts && mProfile.formats.count(answer->format) == 0) {
                r.fail(member(path, "format"), "no planeLayouts and no rule for format " +
                                                       formatName(answer->format) + " in formats");
                return;
            }
            if (answer->planeLayouts) {
                const std::vector<uint8_t>& bytes = *answer->planeLayouts;
                if (bytes.size() > kExactPlaneLayoutsCapacity) {
                    r.fail(member(path, "planeLayouts"),
                           "more than " + std::to_string(kExactPlaneLayoutsCapacity) + " bytes");
                    return;
                }
                const auto layouts =
                        StandardMetadata<StandardMetadataType::PLANE_LAYOUTS>::value::decode(
                                bytes.data(), bytes.size());
                if (!layouts) {
                    r.fail(member(path, "planeLayouts"), "not an encoding of PLANE_LAYOUTS");
                    return;
                }
                if (lockedThroughYCbCr(answer->format) && !ycbcrLockable(*layouts)) {
                    r.fail(member(path, "planeLayouts"), kUnlockableReason);
                    return;
                }
            }
            mProfile.exact.emplace(q, std::move(answer));
        }
    }

    template <typename Layouts>
    static bool ycbcrLockable(const Layouts& layouts) {
        std::vector<LockedPlane> planes;
        for (const auto& layout : layouts) {
            LockedPlane p{{}, layout.sampleIncrementInBits, layout.strideInBytes, 1};
            for (const auto& c : layout.components) {
                // The lock skips components it does not take for standard ones.
                if (!android::gralloc4::isStandardPlaneLayoutComponentType(c.type)) continue;
                p.components.push_back({c.type.value, c.offsetInBits, c.sizeInBits});
            }
            planes.push_back(std::move(p));
        }
        return !firstUnlockablePlane(planes);
    }

    Profile& mProfile;
    FieldReader r;
};

// jsoncpp's first error, on one line: "line 3, column 5: Syntax error: ...".
std::string syntaxError(const std::string& errors) {
    std::istringstream in(errors);
    std::string where, what;
    std::getline(in, where);
    std::getline(in, what);
    auto trim = [](std::string s) {
        s.erase(0, s.find_first_not_of(" *"));
        return s;
    };
    // "Line 3, Column 5" -> "line 3, column 5"
    where = trim(where);
    for (size_t i = 0; i < where.size(); ++i) {
        if (i == 0 || where[i - 1] == ' ') where[i] = static_cast<char>(tolower(where[i]));
    }
    return where + ": " + trim(what);
}

std::optional<Json::Value> readJson(std::string_view text, const std::string& source,
                                    std::string* error) {
    if (text.size() > profile::kMaxProfileBytes) {
        *error = source + ": more than " + std::to_string(profile::kMaxProfileBytes) + " bytes";
        return std::nullopt;
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder.settings_["stackLimit"] = kMaxNesting;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    bool parsed = false;
    try {
        parsed = reader->parse(text.data(), text.data() + text.size(), &root, &errors);
    } catch (const Json::Exception& e) {
        // jsoncpp throws, rather than failing, on input nested deeper than its stack limit.
        const bool tooDeep = std::string_view(e.what()).find("stackLimit") != std::string::npos;
        *error = source + ": " +
                 (tooDeep ? "nested more than " + std::to_string(kMaxNesting) + " levels deep"
                          : std::string(e.what()));
        return std::nullopt;
    }
    if (!parsed) {
        *error = source + ": " + syntaxError(errors);
        return std::nullopt;
    }
    return root;
}

// A profile that "extends" another is that one with its own fields on top: each of its formats
// replaces or adds one, its exact answers follow the base's, every other field replaces the
// base's. The base must be a whole profile; "default" is the built-in one, anything else a file
// beside this one.
std::optional<Json::Value> withBase(Json::Value root, const std::string& source, int depth,
                                    std::string* error) {
    constexpr int kMaxDepth = 8;
    if (!root.isObject() || !root.isMember("extends")) return root;
    FieldReader r;
    std::optional<std::string> name = r.string(root["extends"], "extends");
    if (name && name->empty()) r.fail("extends", "must name a profile");
    if (name && depth == kMaxDepth) r.fail("extends", "more than 8 profiles deep");
    if (!r.ok()) {
        *error = source + ": " + r.error();
        return std::nullopt;
    }
    std::string baseText, baseSource = kBuiltInProfileSource;
    if (*name == "default") {
        baseText = kBuiltInProfile;
    } else {
        const size_t slash = source.rfind('/');
        baseSource = name->front() == '/' || slash == std::string::npos
                             ? *name
                             : source.substr(0, slash + 1) + *name;
        std::optional<std::string> text = readTextFile(baseSource);
        if (!text) {
            *error = source + ": extends: " + baseSource + " cannot be read";
            return std::nullopt;
        }
        baseText = std::move(*text);
    }
    std::optional<Json::Value> base = readJson(baseText, baseSource, error);
    if (base) base = withBase(std::move(*base), baseSource, depth + 1, error);
    if (!base) return std::nullopt;
    Profile checked;
    Parser parser(checked);
    if (!parser.parse(*base)) {
        *error = baseSource + ": " + parser.error();
        return std::nullopt;
    }
    for (const std::string& key : root.getMemberNames()) {
        const Json::Value& value = root[key];
        if (key == "extends") continue;
        if (key == "formats" && value.isObject() && (*base)[key].isObject()) {
            for (const std::string& format : value.getMemberNames()) {
                (*base)[key][format] = value[format];
            }
        } else if (key == "exact" && value.isArray() && (*base)[key].isArray()) {
            for (const Json::Value& entry : value) (*base)[key].append(entry);
        } else {
            (*base)[key] = value;
        }
    }
    return base;
}

// Field names and values in a reason come from the file; a control character among them is
// written as an escape, so that the reason stays one line.
std::string oneLine(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            out += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            char escaped[5];
            snprintf(escaped, sizeof(escaped), "\\x%02x", byte);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace

std::optional<std::string> readTextFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    // Reading stops one byte past the limit: an endless file (/dev/zero) or a huge one costs no
    // more than that.
    std::string text;
    constexpr size_t kChunk = 64 * 1024;
    while (text.size() <= profile::kMaxProfileBytes) {
        const size_t before = text.size();
        const size_t want = std::min(kChunk, profile::kMaxProfileBytes + 1 - before);
        text.resize(before + want);
        in.read(text.data() + before, static_cast<std::streamsize>(want));
        text.resize(before + static_cast<size_t>(in.gcount()));
        if (in.eof()) return text;
        if (!in) return std::nullopt;
    }
    return text;
}

std::shared_ptr<const Profile> parseProfile(std::string_view text, const std::string& source,
                                            std::string* error) {
    std::string problem;
    std::optional<Json::Value> root = readJson(text, source, &problem);
    if (root) root = withBase(std::move(*root), source, 0, &problem);
    auto profile = std::make_shared<Profile>();
    profile->source = source;
    Parser parser(*profile);
    if (root && !parser.parse(*root)) problem = source + ": " + parser.error();
    if (!problem.empty()) {
        if (error != nullptr) *error = oneLine(problem);
        return nullptr;
    }
    return profile;
}

}  // namespace zyncam::sim
