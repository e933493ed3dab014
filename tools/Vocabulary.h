// The words gralloc-layout reads and writes: sizes, formats, usage bits and dataspaces, by
// number or by the names the library gives them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zyncam::tools {

// A decimal number, or a hexadecimal one after "0x", that fits 32 bits unsigned. No sign, no
// blanks, no suffix.
std::optional<uint32_t> parseNumber(std::string_view text);

struct Size {
    int32_t width = 0;
    int32_t height = 0;
};
// "WxH" in decimal, each side 1..INT32_MAX.
std::optional<Size> parseSize(std::string_view text);

// A format the library names (in any letter case) or a number 0..INT32_MAX.
std::optional<int32_t> parseFormat(std::string_view text);

// Usage words (the library's usage names and PROTECTED) and numbers, joined by '|'; at least
// one piece, none of them empty.
std::optional<uint32_t> parseUsage(std::string_view text);

// Dataspace: a number, a whole-value name or field pieces the library prints
// (BT2020_PQ, STANDARD_BT709|TRANSFER_SRGB|RANGE_FULL), joined by '|'.
std::optional<uint32_t> parseDataspace(std::string_view text);

// The bits of `usage` that the library's usage name spells out.
uint32_t usageBitsNamed(uint32_t usage);

// "0x" and lower-case hexadecimal digits.
std::string hex(uint32_t value);
// A format as people read it: "YCrCb_420_SP (0x11)", or just the number when the library has
// no name.
std::string formatText(int32_t format);
// "0x60003 (0|SW_READ_OFTEN|HW_CAMERA_ZSL)".
std::string usageText(uint32_t usage);

// Input echoed in an error message: single-quoted, with control characters, quotes,
// backslashes and bytes outside ASCII escaped, and cut short when very long.
std::string quoted(std::string_view text);

// Names accepted as formats and as usage words, for --help.
std::vector<std::string> formatNames();
std::vector<std::string> usageWords();

}  // namespace zyncam::tools
