// Typed reading of profile JSON, and the exact-answer entry in both directions.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <strings.h>
#include <zyncam_host/ProfileFormat.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <limits>

#include "ProfileJson.h"

namespace zyncam::profile {

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;

// Vendor formats and usage bits that profiles name.
constexpr int32_t kFormatCameraOpaque = 0x111;
constexpr int32_t kFormatNv12 = 0x1000;
constexpr uint64_t kUsageVendorAfbc = 0x10000000;
constexpr uint64_t kUsageVendorSmvr = 0x20000000;

struct FormatName {
    const char* name;
    int32_t format;
};
// The vendor's own formats. The platform's are spelled as its PixelFormat enum names them, so a
// format the platform defines needs no entry here.
constexpr FormatName kVendorFormatNames[] = {
        {"CAMERA_OPAQUE", kFormatCameraOpaque},
        {"NV12", kFormatNv12},
};

struct UsageName {
    const char* name;
    uint64_t bits;
};
constexpr uint64_t bits(BufferUsage usage) {
    return static_cast<uint64_t>(usage);
}
constexpr UsageName kUsageNames[] = {
        {"CPU_READ_RARELY", bits(BufferUsage::CPU_READ_RARELY)},
        {"CPU_READ_OFTEN", bits(BufferUsage::CPU_READ_OFTEN)},
        {"CPU_READ_MASK", bits(BufferUsage::CPU_READ_MASK)},
        {"CPU_WRITE_RARELY", bits(BufferUsage::CPU_WRITE_RARELY)},
        {"CPU_WRITE_OFTEN", bits(BufferUsage::CPU_WRITE_OFTEN)},
        {"CPU_WRITE_MASK", bits(BufferUsage::CPU_WRITE_MASK)},
        {"GPU_TEXTURE", bits(BufferUsage::GPU_TEXTURE)},
        {"GPU_RENDER_TARGET", bits(BufferUsage::GPU_RENDER_TARGET)},
        {"COMPOSER_OVERLAY", bits(BufferUsage::COMPOSER_OVERLAY)},
        {"COMPOSER_CLIENT_TARGET", bits(BufferUsage::COMPOSER_CLIENT_TARGET)},
        {"PROTECTED", bits(BufferUsage::PROTECTED)},
        {"COMPOSER_CURSOR", bits(BufferUsage::COMPOSER_CURSOR)},
        {"VIDEO_ENCODER", bits(BufferUsage::VIDEO_ENCODER)},
        {"CAMERA_OUTPUT", bits(BufferUsage::CAMERA_OUTPUT)},
        {"CAMERA_INPUT", bits(BufferUsage::CAMERA_INPUT)},
        {"RENDERSCRIPT", bits(BufferUsage::RENDERSCRIPT)},
        {"VIDEO_DECODER", bits(BufferUsage::VIDEO_DECODER)},
        {"SENSOR_DIRECT_DATA", bits(BufferUsage::SENSOR_DIRECT_DATA)},
        {"GPU_DATA_BUFFER", bits(BufferUsage::GPU_DATA_BUFFER)},
        {"GPU_CUBE_MAP", bits(BufferUsage::GPU_CUBE_MAP)},
        {"GPU_MIPMAP_COMPLETE", bits(BufferUsage::GPU_MIPMAP_COMPLETE)},
        {"HW_IMAGE_ENCODER", bits(BufferUsage::HW_IMAGE_ENCODER)},
        {"FRONT_BUFFER", bits(BufferUsage::FRONT_BUFFER)},
        {"AFBC", kUsageVendorAfbc},
        {"SMVR", kUsageVendorSmvr},
};

std::string describe(const Json::Value& value) {
    if (value.isString()) return "\"" + value.asString() + "\"";
    std::string text = value.toStyledString();
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

std::string range(int64_t min, int64_t max) {
    return std::to_string(min) + " to " + std::to_string(max);
}

// A whole string in C notation ("0x40", "64"); nothing for anything else.
std::optional<uint64_t> parseUnsigned(const std::string& text) {
    if (text.empty() || text[0] == '-' || text[0] == '+' || text[0] == ' ') return std::nullopt;
    errno = 0;
    char* end = nullptr;
    const unsigned long long v = strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0') return std::nullopt;
    return v;
}

std::optional<int64_t> parseSigned(const std::string& text) {
    if (!text.empty() && text[0] == '-') {
        std::optional<uint64_t> magnitude = parseUnsigned(text.substr(1));
        if (!magnitude || *magnitude > uint64_t{1} << 63) return std::nullopt;
        return static_cast<int64_t>(0 - *magnitude);
    }
    std::optional<uint64_t> v = parseUnsigned(text);
    if (!v || *v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return std::nullopt;
    return static_cast<int64_t>(*v);
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string member(const std::string& path, std::string_view name) {
    return path.empty() ? std::string(name) : path + "." + std::string(name);
}

std::string element(const std::string& path, size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

std::string formatName(int32_t format) {
    for (PixelFormat f : ndk::enum_range<PixelFormat>()) {
        if (static_cast<int32_t>(f) == format) return toString(f);
    }
    for (const FormatName& f : kVendorFormatNames) {
        if (f.format == format) return f.name;
    }
    char text[16];
    snprintf(text, sizeof(text), "0x%" PRIx32, static_cast<uint32_t>(format));
    return text;
}

bool FieldReader::fail(const std::string& field, const std::string& reason) {
    if (mError.empty()) mError = field.empty() ? reason : field + ": " + reason;
    return false;
}

bool FieldReader::object(const Json::Value& value, const std::string& field,
                         std::initializer_list<std::string_view> known) {
    if (!value.isObject()) return fail(field, "must be an object, not " + describe(value));
    for (const std::string& name : value.getMemberNames()) {
        if (name != "comment" && std::find(known.begin(), known.end(), name) == known.end()) {
            return fail(member(field, name), "unknown field");
        }
    }
    return true;
}

bool FieldReader::array(const Json::Value& value, const std::string& field, size_t minSize) {
    if (!value.isArray()) return fail(field, "must be an array, not " + describe(value));
    if (value.size() < minSize) {
        return fail(field, "must have at least " + std::to_string(minSize) + " element(s)");
    }
    return true;
}

std::optional<int64_t> FieldReader::integer(const Json::Value& value, const std::string& field,
                                            int64_t min, int64_t max) {
    std::optional<int64_t> v;
    if (value.isString()) {
        v = parseSigned(value.asString());
    } else if (value.isInt64()) {
        v = value.asInt64();
    }
    if (!v || *v < min || *v > max) {
        fail(field, "must be an integer from " + range(min, max) + ", not " + describe(value));
        return std::nullopt;
    }
    return v;
}

std::optional<uint64_t> FieldReader::unsignedInteger(const Json::Value& value,
                                                     const std::string& field, uint64_t max) {
    std::optional<uint64_t> v;
    if (value.isString()) {
        v = parseUnsigned(value.asString());
    } else if (value.isUInt64()) {
        v = value.asUInt64();
    }
    if (!v || *v > max) {
        fail(field,
             "must be an integer from 0 to " + std::to_string(max) + ", not " + describe(value));
        return std::nullopt;
    }
    return v;
}

std::optional<int32_t> FieldReader::format(const Json::Value& value, const std::string& field) {
    if (value.isString() && !parseSigned(value.asString())) {
        for (PixelFormat f : ndk::enum_range<PixelFormat>()) {
            if (strcasecmp(toString(f).c_str(), value.asCString()) == 0) {
                return static_cast<int32_t>(f);
            }
        }
        for (const FormatName& f : kVendorFormatNames) {
            if (strcasecmp(f.name, value.asCString()) == 0) return f.format;
        }
        fail(field, "unknown format " + describe(value));
        return std::nullopt;
    }
    // Formats are 32-bit codes; the large fourcc ones are often written unsigned.
    std::optional<int64_t> v = integer(value, field, std::numeric_limits<int32_t>::min(),
                                       std::numeric_limits<uint32_t>::max());
    if (!v) return std::nullopt;
    return static_cast<int32_t>(static_cast<uint32_t>(*v));
}

std::optional<uint64_t> FieldReader::usage(const Json::Value& value, const std::string& field) {
    if (!value.isString() || parseUnsigned(value.asString())) {
        return unsignedInteger(value, field, std::numeric_limits<uint64_t>::max());
    }
    const std::string text = value.asString();
    uint64_t usage = 0;
    size_t begin = 0;
    while (begin <= text.size()) {
        size_t end = text.find('|', begin);
        if (end == std::string::npos) end = text.size();
        const std::string name = text.substr(begin, end - begin);
        auto it = std::find_if(std::begin(kUsageNames), std::end(kUsageNames),
                               [&](const UsageName& u) { return name == u.name; });
        if (it == std::end(kUsageNames)) {
            std::optional<uint64_t> number = parseUnsigned(name);
            if (!number) {
                fail(field, "unknown usage \"" + name + "\"");
                return std::nullopt;
            }
            usage |= *number;
        } else {
            usage |= it->bits;
        }
        begin = end + 1;
    }
    return usage;
}

std::optional<std::string> FieldReader::string(const Json::Value& value, const std::string& field) {
    if (!value.isString()) {
        fail(field, "must be a string, not " + describe(value));
        return std::nullopt;
    }
    return value.asString();
}

std::optional<bool> FieldReader::boolean(const Json::Value& value, const std::string& field) {
    if (!value.isBool()) {
        fail(field, "must be true or false, not " + describe(value));
        return std::nullopt;
    }
    return value.asBool();
}

std::optional<std::vector<uint8_t>> FieldReader::hexBytes(const Json::Value& value,
                                                          const std::string& field) {
    std::optional<std::string> text = string(value, field);
    if (!text) return std::nullopt;
    if (text->size() % 2 != 0) {
        fail(field, "must have an even number of hex digits");
        return std::nullopt;
    }
    std::vector<uint8_t> bytes(text->size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        const int high = hexDigit((*text)[2 * i]), low = hexDigit((*text)[2 * i + 1]);
        if (high < 0 || low < 0) {
            fail(field, "must hold hex digits only (offset " + std::to_string(2 * i) + ")");
            return std::nullopt;
        }
        bytes[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return bytes;
}

std::string toHex(const std::vector<uint8_t>& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (uint8_t b : bytes) {
        text += kDigits[b >> 4];
        text += kDigits[b & 0xF];
    }
    return text;
}

Json::Value toJson(const ExactAnswer& a) {
    Json::Value request(Json::objectValue);
    request["width"] = a.request.width;
    request["height"] = a.request.height;
    request["format"] = a.request.format;
    request["usage"] = Json::UInt64{a.request.usage};
    request["layerCount"] = a.request.layerCount;

    Json::Value v(Json::objectValue);
    v["request"] = request;
    v["format"] = a.format;
    v["width"] = a.width;
    v["height"] = a.height;
    v["stride"] = a.stride;
    v["verticalStride"] = a.verticalStride;
    v["allocSize"] = Json::UInt64{a.allocSize};
    v["usage"] = a.usage;
    v["id"] = Json::UInt64{a.id};
    v["consumerUsage"] = a.consumerUsage;
    v["producerUsage"] = a.producerUsage;
    v["sfStatus"] = a.sfStatus;
    if (a.planeLayouts) v["planeLayouts"] = toHex(*a.planeLayouts);
    if (a.ycbcr) {
        Json::Value y(Json::objectValue);
        y["y"] = Json::Int64{a.ycbcr->y};
        y["cb"] = Json::Int64{a.ycbcr->cb};
        y["cr"] = Json::Int64{a.ycbcr->cr};
        y["ystride"] = Json::UInt64{a.ycbcr->ystride};
        y["cstride"] = Json::UInt64{a.ycbcr->cstride};
        y["chromaStep"] = Json::UInt64{a.ycbcr->chromaStep};
        v["ycbcr"] = y;
    }
    return v;
}

bool readExactAnswer(FieldReader& r, const Json::Value& v, const std::string& path,
                     ExactAnswer* out) {
    constexpr int64_t kInt32Min = std::numeric_limits<int32_t>::min();
    constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();
    constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();
    constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
    constexpr uint64_t kUint32Max = std::numeric_limits<uint32_t>::max();
    constexpr uint64_t kUint64Max = std::numeric_limits<uint64_t>::max();

    const bool wasOk = r.ok();
    const std::string requestPath = member(path, "request");
    const std::string ycbcrPath = member(path, "ycbcr");
    ExactAnswer a;
    // Reads member `name` of `object` into `field` when present; `required` ones must be.
    auto read = [&](const Json::Value& object, const std::string& path, const char* name,
                    bool required, auto&& convert, auto& field) {
        if (!object.isMember(name)) {
            if (required) r.fail(member(path, name), "missing");
            return;
        }
        if (auto value = convert(object[name], member(path, name))) {
            field = static_cast<std::remove_reference_t<decltype(field)>>(*value);
        }
    };
    auto i32 = [&](const Json::Value& x, const std::string& f) {
        return r.integer(x, f, kInt32Min, kInt32Max);
    };
    auto u32 = [&](const Json::Value& x, const std::string& f) {
        return r.unsignedInteger(x, f, kUint32Max);
    };
    auto u64 = [&](const Json::Value& x, const std::string& f) {
        return r.unsignedInteger(x, f, kUint64Max);
    };
    auto i64 = [&](const Json::Value& x, const std::string& f) {
        return r.integer(x, f, kInt64Min, kInt64Max);
    };
    auto format = [&](const Json::Value& x, const std::string& f) { return r.format(x, f); };
    auto usage = [&](const Json::Value& x, const std::string& f) { return r.usage(x, f); };

    if (r.object(v, path,
                 {"request", "format", "width", "height", "stride", "verticalStride", "allocSize",
                  "usage", "id", "consumerUsage", "producerUsage", "sfStatus", "planeLayouts",
                  "ycbcr"})) {
        if (!v.isMember("request")) {
            r.fail(requestPath, "missing");
        } else if (r.object(v["request"], requestPath,
                            {"width", "height", "format", "usage", "layerCount"})) {
            const Json::Value& q = v["request"];
            read(q, requestPath, "width", true, i32, a.request.width);
            read(q, requestPath, "height", true, i32, a.request.height);
            read(q, requestPath, "format", true, format, a.request.format);
            read(q, requestPath, "usage", true, usage, a.request.usage);
            read(q, requestPath, "layerCount", false, i32, a.request.layerCount);
        }
        read(v, path, "format", true, format, a.format);
        read(v, path, "width", true, i32, a.width);
        read(v, path, "height", true, i32, a.height);
        read(v, path, "stride", true, i32, a.stride);
        read(v, path, "verticalStride", true, i32, a.verticalStride);
        read(v, path, "allocSize", true, u64, a.allocSize);
        read(v, path, "usage", true, u32, a.usage);
        read(v, path, "id", false, u64, a.id);
        read(v, path, "consumerUsage", true, u32, a.consumerUsage);
        read(v, path, "producerUsage", true, u32, a.producerUsage);
        read(v, path, "sfStatus", true, u32, a.sfStatus);
        if (v.isMember("planeLayouts")) {
            a.planeLayouts = r.hexBytes(v["planeLayouts"], member(path, "planeLayouts"));
        }
        if (v.isMember("ycbcr") &&
            r.object(v["ycbcr"], ycbcrPath,
                     {"y", "cb", "cr", "ystride", "cstride", "chromaStep"})) {
            const Json::Value& y = v["ycbcr"];
            YCbCrOffsets o;
            read(y, ycbcrPath, "y", true, i64, o.y);
            read(y, ycbcrPath, "cb", true, i64, o.cb);
            read(y, ycbcrPath, "cr", true, i64, o.cr);
            read(y, ycbcrPath, "ystride", true, u64, o.ystride);
            read(y, ycbcrPath, "cstride", true, u64, o.cstride);
            read(y, ycbcrPath, "chromaStep", true, u64, o.chromaStep);
            a.ycbcr = o;
        }
    }
    if (!wasOk || !r.ok()) return false;
    *out = std::move(a);
    return true;
}

bool fromJson(const Json::Value& value, ExactAnswer* answer, std::string* error) {
    FieldReader r;
    if (readExactAnswer(r, value, "", answer)) return true;
    if (error != nullptr) *error = r.error();
    return false;
}

}  // namespace zyncam::profile
