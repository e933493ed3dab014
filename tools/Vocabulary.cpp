#include "Vocabulary.h"

#include <GrallocFormats.h>
#include <GrallocHelper.h>
#include <GrallocVocabulary.h>
#include <strings.h>

#include <charconv>
#include <climits>
#include <cstdio>

namespace zyncam::tools {

namespace {

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

std::optional<uint32_t> dataspacePiece(std::string_view piece) {
    if (auto number = parseNumber(piece)) return number;
    // The whole-value names dataspaceName() gives, then field values alone.
    for (const zcam::DataspaceWord& word : zcam::dataspaceWordTable()) {
        if (word.namer != zcam::DataspaceNamer::kSetterOnly && sameWord(word.name, piece)) {
            return static_cast<uint32_t>(word.value);
        }
    }
    for (const zcam::DataspaceFieldWord& word : zcam::dataspaceFieldWordTable()) {
        if (sameWord(word.name, piece)) return word.value;
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
    for (const zcam::PixelFormatInfo& info : zcam::pixelFormatTable()) {
        if (sameWord(info.name, text)) return info.format;
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
        for (const zcam::UsageWord& word : zcam::usageWordTable()) {
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
        for (const zcam::UsageWord& word : zcam::usageWordTable()) {
            if (word.kind != zcam::UsageWordKind::kNotShown && piece == word.name) {
                named |= word.bits;
            }
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
    for (const zcam::PixelFormatInfo& info : zcam::pixelFormatTable())
        names.emplace_back(info.name);
    return names;
}

std::vector<std::string> usageWords() {
    std::vector<std::string> words;
    for (const zcam::UsageWord& word : zcam::usageWordTable()) words.emplace_back(word.name);
    return words;
}

}  // namespace zyncam::tools
