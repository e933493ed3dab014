// Reading the JSON of a device profile: typed values with their field path, and the first
// problem found as "field: reason".
#pragma once

#include <json/value.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zyncam::profile {

// "formats.NV12" + "rowAlign" -> "formats.NV12.rowAlign"; "exact" + 3 -> "exact[3]".
std::string member(const std::string& path, std::string_view name);
std::string element(const std::string& path, size_t index);

// A format's name as profiles spell it ("YCRCB_420_SP", "NV12"), or its number in hex.
std::string formatName(int32_t format);

class FieldReader {
public:
    bool ok() const { return mError.empty(); }
    // "field: reason" of the first problem; empty while there is none.
    const std::string& error() const { return mError; }
    // Keeps the first problem only. Always false, so that callers can `return fail(...)`.
    bool fail(const std::string& field, const std::string& reason);

    // `value` must be an object whose members are all in `known` ("comment" always is).
    bool object(const Json::Value& value, const std::string& field,
                std::initializer_list<std::string_view> known);
    // A JSON array, optionally with at least `minSize` elements.
    bool array(const Json::Value& value, const std::string& field, size_t minSize = 0);

    // An integer in [min, max]: a JSON integer, or a string in C notation ("0x40", "64").
    std::optional<int64_t> integer(const Json::Value& value, const std::string& field, int64_t min,
                                   int64_t max);
    std::optional<uint64_t> unsignedInteger(const Json::Value& value, const std::string& field,
                                            uint64_t max);
    // A pixel format: its number, or a name matched without regard to case ("YCrCb_420_SP").
    std::optional<int32_t> format(const Json::Value& value, const std::string& field);
    // Usage bits: a number, or BufferUsage names and vendor bits joined by '|'.
    std::optional<uint64_t> usage(const Json::Value& value, const std::string& field);
    std::optional<std::string> string(const Json::Value& value, const std::string& field);
    std::optional<bool> boolean(const Json::Value& value, const std::string& field);
    // Bytes written as an even number of hex digits.
    std::optional<std::vector<uint8_t>> hexBytes(const Json::Value& value,
                                                 const std::string& field);

private:
    std::string mError;
};

struct ExactAnswer;
// Reads one exact-answer entry whose field path is `path`; false after a problem (kept in `r`).
bool readExactAnswer(FieldReader& r, const Json::Value& value, const std::string& path,
                     ExactAnswer* out);

// Lowercase hex digits of `bytes`, two per byte.
std::string toHex(const std::vector<uint8_t>& bytes);

}  // namespace zyncam::profile
