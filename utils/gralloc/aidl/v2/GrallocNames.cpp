// Readable names of pixel formats, usage bits and dataspaces for log lines.
#include <sstream>
#include <string>

#include "GrallocHelperInternal.h"

namespace GrallocAidlV2 {

std::string gQueryPixelFormatName(int format) {
    switch (format) {
#define FORMAT_NAME(value, text)             \
    case value: {                            \
        static const std::string name(text); \
        return name;                         \
    }
        FORMAT_NAME(0x1, "RGBA_8888")
        FORMAT_NAME(0x2, "RGBX_8888")
        FORMAT_NAME(0x3, "RGB_888")
        FORMAT_NAME(0x4, "RGB_565")
        FORMAT_NAME(0x5, "BGRA_8888")
        FORMAT_NAME(0x10, "YCbCr_422_SP")
        FORMAT_NAME(0x11, "YCrCb_420_SP")
        FORMAT_NAME(0x14, "YCbCr_422_I")
        FORMAT_NAME(0x20, "RAW16")
        FORMAT_NAME(0x21, "BLOB")
        FORMAT_NAME(0x22, "IMPLEMENTATION_DEFINED")
        FORMAT_NAME(0x23, "YCbCr_420_888")
        FORMAT_NAME(0x24, "RAW_OPAQUE")
        FORMAT_NAME(0x25, "RAW10")
        FORMAT_NAME(0x36, "YCBCR_P010")
        FORMAT_NAME(0x111, "CAMERA_OPAQUE")
        FORMAT_NAME(0x1000, "NV12")
        FORMAT_NAME(0x20203859, "Y8")
        FORMAT_NAME(0x20363159, "Y16")
        FORMAT_NAME(0x32315659, "YV12")
#undef FORMAT_NAME
        default:
            return std::string();
    }
}

std::string gQueryGrallocUsageName(int usage) {
    static constexpr struct {
        int bit;
        const char* piece;
    } kHardwareBits[] = {
            {0x100, "|HW_TEXTURE"},           {0x200, "|HW_RENDER"}, {0x400, "|HW_2D"},
            {0x800, "|HW_COMPOSER"},          {0x1000, "|HW_FB"},    {0x10000, "|HW_VIDEO_ENCODER"},
            {0x8000000, "|HW_IMAGE_ENCODER"}, {0x20000000, "|SMVR"},
    };
    std::string name = "0";
    switch (usage & 0xF) {
        case 2:
            name += "|SW_READ_RARELY";
            break;
        case 3:
            name += "|SW_READ_OFTEN";
            break;
    }
    switch (usage & 0xF0) {
        case 0x20:
            name += "|SW_WRITE_RARELY";
            break;
        case 0x30:
            name += "|SW_WRITE_OFTEN";
            break;
    }
    switch ((usage >> 17) & 3) {
        case 1:
            name += "|HW_CAMERA_WRITE";
            break;
        case 2:
            name += "|HW_CAMERA_READ";
            break;
        case 3:
            name += "|HW_CAMERA_ZSL";
            break;
    }
    // The image-encoder and SMVR bits show only beside another hardware or camera bit.
    if (usage & 0x71F00) {
        for (const auto& bit : kHardwareBits) {
            if (usage & bit.bit) name += bit.piece;
        }
    }
    return name;
}

namespace {

struct DataspaceRow {
    int value;
    const char* name;
    bool composite;  // followed by its field pieces
};

// Rows known to both namers.
constexpr DataspaceRow kCommonRows[] = {
        {0x00000000, "UNKNOWN", false},
        {0x00000001, "ARBITRARY", false},
        {0x00000101, "JFIF", false},
        {0x00000102, "BT601_625", false},
        {0x00000103, "BT601_525", false},
        {0x00000104, "BT709", false},
        {0x00000200, "SRGB_LINEAR", false},
        {0x00000201, "SRGB", false},
        {0x00001000, "DEPTH", false},
        {0x00001001, "SENSOR", false},
        {0x00001003, "JPEG_APP_SEGMENTS", false},
        {0x00001004, "HEIF", false},
        {0x08410000, "V0_SRGB_LINEAR", true},
        {0x08460000, "BT2020_LINEAR", true},
        {0x084A0000, "DCI_P3_LINEAR", true},
        {0x08810000, "V0_SRGB", true},
        {0x088A0000, "DISPLAY_P3", true},
        {0x08C20000, "V0_JFIF", true},
        {0x08C60000, "BT2020", true},
        {0x090B0000, "ADOBE_RGB", true},
        {0x094A0000, "DCI_P3", true},
        {0x09C60000, "BT2020_PQ", true},
        {0x10C10000, "V0_BT709", true},
        {0x10C20000, "V0_BT601_625", true},
        {0x10C40000, "V0_BT601_525", true},
        {0x18810000, "V0_SCRGB", true},
};
constexpr DataspaceRow kFreeOnlyRows[] = {
        {0x00001005, "JPEG_R", false},
        {0x11C60000, "BT2020_ITU_PQ", true},
};
constexpr DataspaceRow kInterfaceOnlyRows[] = {
        {0x18410000, "V0_SCRGB_LINEAR", true},
};

const char* const kStandardPieces[] = {
        nullptr,
        "|STANDARD_BT709",
        "|STANDARD_BT601_625",
        "|STANDARD_BT601_625_UNADJUSTED",
        "|STANDARD_BT601_525",
        "|STANDARD_BT601_525_UNADJUSTED",
        "|STANDARD_BT2020",
        "|STANDARD_BT2020_CONSTANT_LUMINANCE",
        "|STANDARD_BT470M",
        "|STANDARD_FILM",
        "|STANDARD_DCI_P3",
        "|STANDARD_ADOBE_RGB",
};
const char* const kTransferPieces[] = {
        nullptr,
        "|TRANSFER_LINEAR",
        "|TRANSFER_SRGB",
        "|TRANSFER_SMPTE_170M",
        "|TRANSFER_GAMMA2_2",
        "|TRANSFER_GAMMA2_6",
        "|TRANSFER_GAMMA2_8",
        "|TRANSFER_ST2084",
        "|TRANSFER_HLG",
};
const char* const kRangePieces[] = {nullptr, "|RANGE_FULL", "|RANGE_LIMITED", "|RANGE_EXTENDED"};

template <size_t N>
const DataspaceRow* findRow(const DataspaceRow (&rows)[N], int value) {
    for (const auto& row : rows) {
        if (row.value == value) return &row;
    }
    return nullptr;
}

void appendFieldPieces(std::string& name, int dataspace) {
    uint32_t bits = static_cast<uint32_t>(dataspace);
    uint32_t standard = (bits & 0x003F0000u) >> 16;
    uint32_t transfer = (bits & 0x07C00000u) >> 22;
    uint32_t range = (bits & 0x38000000u) >> 27;
    if (standard >= 1 && standard <= 11) name += kStandardPieces[standard];
    if (transfer >= 1 && transfer <= 8) name += kTransferPieces[transfer];
    if (range >= 1 && range <= 3) name += kRangePieces[range];
}

// Shared design of both namers; they differ in their extra rows and the unknown-value text.
template <size_t N>
std::string dataspaceName(int dataspace, const DataspaceRow (&extraRows)[N], bool hexUnknown) {
    const DataspaceRow* row = findRow(kCommonRows, dataspace);
    if (row == nullptr) row = findRow(extraRows, dataspace);
    if (row != nullptr && !row->composite) return row->name;
    std::string name;
    if (row != nullptr) {
        name = row->name;
    } else if (hexUnknown) {
        std::ostringstream out;
        out << "0x" << std::hex << static_cast<uint32_t>(dataspace);
        name = out.str();
    } else {
        name = std::to_string(dataspace);
    }
    appendFieldPieces(name, dataspace);
    return name;
}

}  // namespace

std::string gQueryDataspaceNameHex(int dataspace) {
    return dataspaceName(dataspace, kInterfaceOnlyRows, true);
}

}  // namespace GrallocAidlV2

namespace zcam {

std::string queryDataspaceName(int dataspace) {
    return GrallocAidlV2::dataspaceName(dataspace, GrallocAidlV2::kFreeOnlyRows, false);
}

}  // namespace zcam
