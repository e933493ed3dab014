// Readable names of pixel formats, usage bits and dataspaces for log lines.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/Dataspace.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>

#include <sstream>
#include <string>

#include "GrallocHelperInternal.h"

namespace GrallocAidlV2 {

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::Dataspace;
using aidl::android::hardware::graphics::common::PixelFormat;

constexpr int toBits(BufferUsage usage) {
    return static_cast<int>(usage);
}

// The 2D-engine bit of the legacy gralloc usage; the AIDL BufferUsage leaves bit 10 unnamed.
constexpr int kUsageHw2d = 0x400;

}  // namespace

std::string gQueryPixelFormatName(int format) {
    switch (format) {
#define FORMAT_NAME(value, text)             \
    case static_cast<int>(value): {          \
        static const std::string name(text); \
        return name;                         \
    }
        FORMAT_NAME(PixelFormat::RGBA_8888, "RGBA_8888")
        FORMAT_NAME(PixelFormat::RGBX_8888, "RGBX_8888")
        FORMAT_NAME(PixelFormat::RGB_888, "RGB_888")
        FORMAT_NAME(PixelFormat::RGB_565, "RGB_565")
        FORMAT_NAME(PixelFormat::BGRA_8888, "BGRA_8888")
        FORMAT_NAME(PixelFormat::YCBCR_422_SP, "YCbCr_422_SP")
        FORMAT_NAME(PixelFormat::YCRCB_420_SP, "YCrCb_420_SP")
        FORMAT_NAME(PixelFormat::YCBCR_422_I, "YCbCr_422_I")
        FORMAT_NAME(PixelFormat::RAW16, "RAW16")
        FORMAT_NAME(PixelFormat::BLOB, "BLOB")
        FORMAT_NAME(PixelFormat::IMPLEMENTATION_DEFINED, "IMPLEMENTATION_DEFINED")
        FORMAT_NAME(PixelFormat::YCBCR_420_888, "YCbCr_420_888")
        FORMAT_NAME(PixelFormat::RAW_OPAQUE, "RAW_OPAQUE")
        FORMAT_NAME(PixelFormat::RAW10, "RAW10")
        FORMAT_NAME(PixelFormat::YCBCR_P010, "YCBCR_P010")
        FORMAT_NAME(zcam::kPixelFormatCameraOpaque, "CAMERA_OPAQUE")
        FORMAT_NAME(zcam::kPixelFormatNV12, "NV12")
        FORMAT_NAME(PixelFormat::Y8, "Y8")
        FORMAT_NAME(PixelFormat::Y16, "Y16")
        FORMAT_NAME(PixelFormat::YV12, "YV12")
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
            {toBits(BufferUsage::GPU_TEXTURE), "|HW_TEXTURE"},
            {toBits(BufferUsage::GPU_RENDER_TARGET), "|HW_RENDER"},
            {kUsageHw2d, "|HW_2D"},
            {toBits(BufferUsage::COMPOSER_OVERLAY), "|HW_COMPOSER"},
            {toBits(BufferUsage::COMPOSER_CLIENT_TARGET), "|HW_FB"},
            {toBits(BufferUsage::VIDEO_ENCODER), "|HW_VIDEO_ENCODER"},
            {toBits(BufferUsage::HW_IMAGE_ENCODER), "|HW_IMAGE_ENCODER"},
            {zcam::kUsageSmvr, "|SMVR"},
    };
    constexpr int kCameraWrite = toBits(BufferUsage::CAMERA_OUTPUT);
    constexpr int kCameraRead = toBits(BufferUsage::CAMERA_INPUT);
    // The pieces above are looked at only when one of these is set: the image-encoder and SMVR
    // bits show only beside another hardware or camera bit.
    constexpr int kHardwareGate =
            toBits(BufferUsage::GPU_TEXTURE) | toBits(BufferUsage::GPU_RENDER_TARGET) | kUsageHw2d |
            toBits(BufferUsage::COMPOSER_OVERLAY) | toBits(BufferUsage::COMPOSER_CLIENT_TARGET) |
            toBits(BufferUsage::VIDEO_ENCODER) | kCameraWrite | kCameraRead;

    std::string name = "0";
    switch (usage & toBits(BufferUsage::CPU_READ_MASK)) {
        case toBits(BufferUsage::CPU_READ_RARELY):
            name += "|SW_READ_RARELY";
            break;
        case toBits(BufferUsage::CPU_READ_OFTEN):
            name += "|SW_READ_OFTEN";
            break;
    }
    switch (usage & toBits(BufferUsage::CPU_WRITE_MASK)) {
        case toBits(BufferUsage::CPU_WRITE_RARELY):
            name += "|SW_WRITE_RARELY";
            break;
        case toBits(BufferUsage::CPU_WRITE_OFTEN):
            name += "|SW_WRITE_OFTEN";
            break;
    }
    switch (usage & (kCameraWrite | kCameraRead)) {
        case kCameraWrite:
            name += "|HW_CAMERA_WRITE";
            break;
        case kCameraRead:
            name += "|HW_CAMERA_READ";
            break;
        case kCameraWrite | kCameraRead:
            name += "|HW_CAMERA_ZSL";
            break;
    }
    if (usage & kHardwareGate) {
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

// The value of one field of a dataspace.
uint32_t field(int dataspace, Dataspace mask, Dataspace shift) {
    return (static_cast<uint32_t>(dataspace) & static_cast<uint32_t>(mask)) >>
           static_cast<uint32_t>(shift);
}

// Appends the piece of a field value that the table names; 0 (unspecified) and values past the
// table add nothing.
template <size_t N>
void appendPiece(std::string& name, const char* const (&pieces)[N], uint32_t value) {
    if (value < N && pieces[value] != nullptr) name += pieces[value];
}

void appendFieldPieces(std::string& name, int dataspace) {
    appendPiece(name, kStandardPieces,
                field(dataspace, Dataspace::STANDARD_MASK, Dataspace::STANDARD_SHIFT));
    appendPiece(name, kTransferPieces,
                field(dataspace, Dataspace::TRANSFER_MASK, Dataspace::TRANSFER_SHIFT));
    appendPiece(name, kRangePieces,
                field(dataspace, Dataspace::RANGE_MASK, Dataspace::RANGE_SHIFT));
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
