#include "Vocabulary.h"

#include <GrallocHelper.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/Dataspace.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <strings.h>

#include <charconv>
#include <climits>
#include <cstdio>

namespace zyncam::tools {

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::Dataspace;
using aidl::android::hardware::graphics::common::PixelFormat;

constexpr int32_t value(PixelFormat f) {
    return static_cast<int32_t>(f);
}
constexpr uint32_t value(BufferUsage u) {
    return static_cast<uint32_t>(static_cast<uint64_t>(u));
}
constexpr uint32_t value(Dataspace d) {
    return static_cast<uint32_t>(d);
}

// Vendor formats the library names beside the platform's.
constexpr int32_t kFormatCameraOpaque = 0x111;
constexpr int32_t kFormatNv12 = 0x1000;

// Every format that may have a name; the library decides which do.
constexpr int32_t kFormatCandidates[] = {
        value(PixelFormat::RGBA_8888),
        value(PixelFormat::RGBX_8888),
        value(PixelFormat::RGB_888),
        value(PixelFormat::RGB_565),
        value(PixelFormat::BGRA_8888),
        value(PixelFormat::YCBCR_422_SP),
        value(PixelFormat::YCRCB_420_SP),
        value(PixelFormat::YCBCR_422_I),
        value(PixelFormat::RGBA_FP16),
        value(PixelFormat::RAW16),
        value(PixelFormat::BLOB),
        value(PixelFormat::IMPLEMENTATION_DEFINED),
        value(PixelFormat::YCBCR_420_888),
        value(PixelFormat::RAW_OPAQUE),
        value(PixelFormat::RAW10),
        value(PixelFormat::RAW12),
        value(PixelFormat::RGBA_1010102),
        value(PixelFormat::DEPTH_16),
        value(PixelFormat::YCBCR_P010),
        kFormatCameraOpaque,
        kFormatNv12,
        value(PixelFormat::Y8),
        value(PixelFormat::Y16),
        value(PixelFormat::YV12),
};

// Usage bits the library names that the platform's BufferUsage does not.
constexpr uint32_t kUsageHw2d = 0x400;                  // legacy gralloc 2D engine
constexpr uint32_t kUsageSlowMotionBatch = 0x20000000;  // vendor: slow-motion batch buffer

struct UsageWord {
    const char* name;
    uint32_t bits;
};
// The pieces of the library's usage names, and PROTECTED, which it does not name.
constexpr UsageWord kUsageWords[] = {
        {"SW_READ_RARELY", value(BufferUsage::CPU_READ_RARELY)},
        {"SW_READ_OFTEN", value(BufferUsage::CPU_READ_OFTEN)},
        {"SW_WRITE_RARELY", value(BufferUsage::CPU_WRITE_RARELY)},
        {"SW_WRITE_OFTEN", value(BufferUsage::CPU_WRITE_OFTEN)},
        {"HW_CAMERA_WRITE", value(BufferUsage::CAMERA_OUTPUT)},
        {"HW_CAMERA_READ", value(BufferUsage::CAMERA_INPUT)},
        {"HW_CAMERA_ZSL", value(BufferUsage::CAMERA_OUTPUT) | value(BufferUsage::CAMERA_INPUT)},
        {"HW_TEXTURE", value(BufferUsage::GPU_TEXTURE)},
        {"HW_RENDER", value(BufferUsage::GPU_RENDER_TARGET)},
        {"HW_2D", kUsageHw2d},
        {"HW_COMPOSER", value(BufferUsage::COMPOSER_OVERLAY)},
        {"HW_FB", value(BufferUsage::COMPOSER_CLIENT_TARGET)},
        {"HW_VIDEO_ENCODER", value(BufferUsage::VIDEO_ENCODER)},
        {"HW_IMAGE_ENCODER", value(BufferUsage::HW_IMAGE_ENCODER)},
        {"SMVR", kUsageSlowMotionBatch},
        {"PROTECTED", value(BufferUsage::PROTECTED)},
};

// Legacy whole-value dataspaces the library names (before the field encoding existed).
constexpr uint32_t kLegacyDataspaces[] = {0x101, 0x102, 0x103, 0x104, 0x200, 0x201};

constexpr uint32_t kDataspaceCandidates[] = {
        value(Dataspace::UNKNOWN),
        value(Dataspace::ARBITRARY),
        value(Dataspace::SRGB_LINEAR),
        value(Dataspace::SCRGB_LINEAR),
        value(Dataspace::SRGB),
        value(Dataspace::SCRGB),
        value(Dataspace::JFIF),
        value(Dataspace::BT601_625),
        value(Dataspace::BT601_525),
        value(Dataspace::BT709),
        value(Dataspace::DCI_P3_LINEAR),
        value(Dataspace::DCI_P3),
        value(Dataspace::DISPLAY_P3),
        value(Dataspace::ADOBE_RGB),
        value(Dataspace::ADOBE_RGB_LINEAR),
        value(Dataspace::BT2020_LINEAR),
        value(Dataspace::BT2020),
        value(Dataspace::BT2020_PQ),
        value(Dataspace::BT2020_LINEAR_EXTENDED),
        value(Dataspace::DEPTH),
        value(Dataspace::SENSOR),
        value(Dataspace::BT2020_ITU),
        value(Dataspace::BT2020_ITU_PQ),
        value(Dataspace::BT2020_ITU_HLG),
        value(Dataspace::BT2020_HLG),
        value(Dataspace::DISPLAY_BT2020),
        value(Dataspace::DYNAMIC_DEPTH),
        value(Dataspace::JPEG_APP_SEGMENTS),
        value(Dataspace::HEIF),
        value(Dataspace::JPEG_R),
        value(Dataspace::BT709_FULL_RANGE),
};

// The three fields of a dataspace, as their masks.
constexpr uint32_t kDataspaceFields[] = {value(Dataspace::STANDARD_MASK),
                                         value(Dataspace::TRANSFER_MASK),
                                         value(Dataspace::RANGE_MASK)};

constexpr size_t kQuotedMaxBytes = 64;

bool sameWord(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Calls `piece` for every '|'-separated piece; false when a piece is empty or `piece` refuses.
template <typename F>
bool forEachPiece(std::string_view text, F piece) {
    while (true) {
        const size_t bar = text.find('|');
        const std::string_view head = text.substr(0, bar);
        if (head.empty() || !piece(head)) return false;
        if (bar == std::string_view::npos) return true;
        text.remove_prefix(bar + 1);
    }
}

std::string_view beforeBar(std::string_view name) {
    return name.substr(0, name.find('|'));
}

std::optional<uint32_t> dataspacePiece(std::string_view piece) {
    if (auto number = parseNumber(piece)) return number;
    for (uint32_t candidate : kLegacyDataspaces) {
        if (sameWord(zcam::dataspaceName(static_cast<int>(candidate)), piece)) return candidate;
    }
    for (uint32_t candidate : kDataspaceCandidates) {
        const std::string name = zcam::dataspaceName(static_cast<int>(candidate));
        if (name.rfind("0x", 0) != 0 && sameWord(beforeBar(name), piece)) return candidate;
    }
    // A field value alone prints as its number followed by its piece.
    for (uint32_t mask : kDataspaceFields) {
        const uint32_t step = mask & -mask;
        for (uint32_t field = step; field != 0 && field <= mask; field += step) {
            const std::string name = zcam::dataspaceName(static_cast<int>(field));
            const size_t bar = name.find('|');
            if (bar != std::string::npos && sameWord(std::string_view(name).substr(bar + 1), piece))
                return field;
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<uint32_t> parseNumber(std::string_view text) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    uint32_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    if (text.empty() || error != std::errc() || stop != end) return std::nullopt;
    return number;
}

std::optional<Size> parseSize(std::string_view text) {
    const size_t x = text.find_first_of("xX");
    if (x == std::string_view::npos) return std::nullopt;
    auto side = [](std::string_view digits) -> std::optional<int32_t> {
        uint32_t number = 0;
        const char* end = digits.data() + digits.size();
        const auto [stop, error] = std::from_chars(digits.data(), end, number, 10);
        if (digits.empty() || error != std::errc() || stop != end || number == 0 ||
            number > INT32_MAX) {
            return std::nullopt;
        }
        return static_cast<int32_t>(number);
    };
    const auto width = side(text.substr(0, x));
    const auto height = side(text.substr(x + 1));
    if (!width || !height) return std::nullopt;
    return Size{*width, *height};
}

std::optional<int32_t> parseFormat(std::string_view text) {
    if (auto number = parseNumber(text)) {
        if (*number > INT32_MAX) return std::nullopt;
        return static_cast<int32_t>(*number);
    }
    for (int32_t format : kFormatCandidates) {
        const std::string name = zcam::pixelFormatName(format);
        if (!name.empty() && sameWord(name, text)) return format;
    }
    return std::nullopt;
}

std::optional<uint32_t> parseUsage(std::string_view text) {
    uint32_t bits = 0;
    const bool ok = forEachPiece(text, [&](std::string_view piece) {
        if (auto number = parseNumber(piece)) {
            bits |= *number;
            return true;
        }
        for (const UsageWord& word : kUsageWords) {
            if (sameWord(word.name, piece)) {
                bits |= word.bits;
                return true;
            }
        }
        return false;
    });
    if (!ok) return std::nullopt;
    return bits;
}

std::optional<uint32_t> parseDataspace(std::string_view text) {
    uint32_t bits = 0;
    const bool ok = forEachPiece(text, [&](std::string_view piece) {
        const auto part = dataspacePiece(piece);
        if (part) bits |= *part;
        return part.has_value();
    });
    if (!ok) return std::nullopt;
    return bits;
}

uint32_t usageBitsNamed(uint32_t usage) {
    const std::string name = zcam::grallocUsageName(static_cast<int>(usage));
    uint32_t named = 0;
    // The name is "0" followed by "|PIECE" for each piece.
    forEachPiece(name, [&](std::string_view piece) {
        for (const UsageWord& word : kUsageWords) {
            if (piece == word.name) named |= word.bits;
        }
        return true;
    });
    return named;
}

std::string hex(uint32_t number) {
    char text[sizeof "0xffffffff"];
    snprintf(text, sizeof text, "0x%x", number);
    return text;
}

std::string formatText(int32_t format) {
    const std::string name = zcam::pixelFormatName(format);
    const std::string number = hex(static_cast<uint32_t>(format));
    return name.empty() ? number : name + " (" + number + ")";
}

std::string usageText(uint32_t usage) {
    return hex(usage) + " (" + zcam::grallocUsageName(static_cast<int>(usage)) + ")";
}

std::string quoted(std::string_view text) {
    std::string out = "'";
    for (size_t i = 0; i < text.size() && i < kQuotedMaxBytes; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\'' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c >= 0x7f) {
            char escaped[sizeof "\\xff"];
            snprintf(escaped, sizeof escaped, "\\x%02x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '\'';
    if (text.size() > kQuotedMaxBytes) out += "...";
    return out;
}

std::vector<std::string> formatNames() {
    std::vector<std::string> names;
    for (int32_t format : kFormatCandidates) {
        std::string name = zcam::pixelFormatName(format);
        if (!name.empty()) names.push_back(std::move(name));
    }
    return names;
}

std::vector<std::string> usageWords() {
    std::vector<std::string> words;
    for (const UsageWord& word : kUsageWords) words.emplace_back(word.name);
    return words;
}

}  // namespace zyncam::tools
