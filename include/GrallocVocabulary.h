// The words of the library's usage and dataspace names, as constant row tables: the namers of
// GrallocHelper.h and IGrallocHelper.h read them, and tools that parse names back read the same
// rows. Pixel format names are in GrallocFormats.h.
//
// The tables are constant data of the library: read-only, valid for the life of the process,
// safe from any thread. Nothing here fails or ends the process.
#pragma once

#include <cstdint>
#include <span>

#include "GrallocRecords.h"

namespace zcam {

// Legacy whole-value dataspaces of the HAL, which the AIDL Dataspace leaves out.
inline constexpr int32_t kDataspaceLegacyJfif = 0x101;
inline constexpr int32_t kDataspaceLegacyBt601_625 = 0x102;
inline constexpr int32_t kDataspaceLegacyBt601_525 = 0x103;
inline constexpr int32_t kDataspaceLegacyBt709 = 0x104;
inline constexpr int32_t kDataspaceLegacySrgbLinear = 0x200;
inline constexpr int32_t kDataspaceLegacySrgb = 0x201;

// How a usage row shows in a usage name.
enum class UsageWordKind : uint8_t {
    // "|NAME" when (usage & mask) == bits: one value of a multi-bit field.
    kFieldValue,
    // "|NAME" when the bit is set and the usage has a bit of a row that opensHardwarePieces.
    kHardwareBit,
    // A word for a bit that usage names never show (PROTECTED); accepted where words are parsed.
    kNotShown,
};

struct UsageWord {
    uint32_t bits;
    uint32_t mask;     // kFieldValue: the field; otherwise equal to bits
    const char* name;  // without the "|" that separates pieces
    UsageWordKind kind;
    bool opensHardwarePieces;  // a set bit of this row lets kHardwareBit rows show
};

// Every usage word, in the order their pieces appear in a usage name.
std::span<const UsageWord> usageWordTable();

// Which namer knows a whole-value dataspace row.
enum class DataspaceNamer : uint8_t {
    kBoth,
    // Only the colour-space setter's log lines (unknown values in decimal).
    kSetterOnly,
    // Only the interface's and dataspaceName() (unknown values in hexadecimal).
    kInterfaceOnly,
};

struct DataspaceWord {
    int32_t value;
    const char* name;
    bool composite;  // the name is followed by the pieces of its standard, transfer and range
    DataspaceNamer namer;
};

// Whole-value dataspace names.
std::span<const DataspaceWord> dataspaceWordTable();

// One named value of a dataspace field (standard, transfer or range), in place in the word.
struct DataspaceFieldWord {
    uint32_t fieldMask;
    uint32_t value;    // (dataspace & fieldMask) == value
    const char* name;  // without the "|" that separates pieces
};

// Field-value names: standards, then transfers, then ranges, the order pieces appear in.
std::span<const DataspaceFieldWord> dataspaceFieldWordTable();

}  // namespace zcam
