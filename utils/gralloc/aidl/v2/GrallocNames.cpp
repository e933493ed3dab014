// Readable names of pixel formats, usage bits and dataspaces for log lines, and the row tables
// they are read from.
#include <GrallocFormats.h>
#include <GrallocVocabulary.h>
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
using zcam::LayoutFamily;
using zcam::PixelFormatInfo;
using zcam::PlaneLock;
using zcam::SinglePlaneRule;

constexpr int32_t toInt(PixelFormat format) {
    return static_cast<int32_t>(format);
}
constexpr uint32_t toBits(BufferUsage usage) {
    return static_cast<uint32_t>(usage);
}
constexpr uint32_t toBits(Dataspace value) {
    return static_cast<uint32_t>(value);
}

constexpr auto kSingle = LayoutFamily::kSinglePlane;
constexpr auto kNotSingle = SinglePlaneRule::kNotSinglePlane;

// One row per format the library names (the columns are described in GrallocFormats.h). The log
// names, the layout derivation and gralloc-layout all read this table: a format is added here.
constexpr PixelFormatInfo kPixelFormats[] = {
        {toInt(PixelFormat::RGBA_8888), "RGBA_8888", kSingle, SinglePlaneRule::kPlain, 4, 32,
         PlaneLock::kNone},
        {toInt(PixelFormat::RGBX_8888), "RGBX_8888", LayoutFamily::kNoRule, kNotSingle, 4, 32,
         PlaneLock::kNone},
        {toInt(PixelFormat::RGB_888), "RGB_888", kSingle, SinglePlaneRule::kPlain, 3, 24,
         PlaneLock::kNone},
        {toInt(PixelFormat::RGB_565), "RGB_565", kSingle, SinglePlaneRule::kPlain, 2, 16,
         PlaneLock::kNone},
        {toInt(PixelFormat::BGRA_8888), "BGRA_8888", kSingle, SinglePlaneRule::kPlain, 4, 32,
         PlaneLock::kNone},
        {toInt(PixelFormat::YCBCR_422_SP), "YCbCr_422_SP", LayoutFamily::kNoRule, kNotSingle, 1, 8,
         PlaneLock::kDescribes},
        {toInt(PixelFormat::YCRCB_420_SP), "YCrCb_420_SP", LayoutFamily::kLockedSemiPlanar420,
         kNotSingle, 1, 8, PlaneLock::kLocates},
        {toInt(PixelFormat::YCBCR_422_I), "YCbCr_422_I", kSingle, SinglePlaneRule::kPackedYuv, 2,
         16, PlaneLock::kNone},
        {toInt(PixelFormat::RAW16), "RAW16", kSingle, SinglePlaneRule::kPlain, 2, 16,
         PlaneLock::kNone},
        {toInt(PixelFormat::BLOB), "BLOB", kSingle, SinglePlaneRule::kPlain, 1, 0,
         PlaneLock::kNone},
        {toInt(PixelFormat::IMPLEMENTATION_DEFINED), "IMPLEMENTATION_DEFINED", kSingle,
         SinglePlaneRule::kZslAligned, 1, 0, PlaneLock::kNone},
        {toInt(PixelFormat::YCBCR_420_888), "YCbCr_420_888", LayoutFamily::kFlexible, kNotSingle, 1,
         8, PlaneLock::kDescribes},
        {toInt(PixelFormat::RAW_OPAQUE), "RAW_OPAQUE", kSingle, SinglePlaneRule::kPlain, 1, 0,
         PlaneLock::kNone},
        {toInt(PixelFormat::RAW10), "RAW10", kSingle, SinglePlaneRule::kPlain, 1, 10,
         PlaneLock::kNone},
        {toInt(PixelFormat::YCBCR_P010), "YCBCR_P010", LayoutFamily::kTwoPlane420, kNotSingle, 2,
         16, PlaneLock::kNone},
        {zcam::kPixelFormatCameraOpaque, "CAMERA_OPAQUE", kSingle, SinglePlaneRule::kZslAligned, 1,
         0, PlaneLock::kNone},
        {zcam::kPixelFormatNV12, "NV12", LayoutFamily::kTwoPlane420, kNotSingle, 1, 8,
         PlaneLock::kDescribes},
        {toInt(PixelFormat::Y8), "Y8", kSingle, SinglePlaneRule::kPlain, 1, 8, PlaneLock::kNone},
        {toInt(PixelFormat::Y16), "Y16", kSingle, SinglePlaneRule::kPlain, 2, 16, PlaneLock::kNone},
        {toInt(PixelFormat::YV12), "YV12", LayoutFamily::kThreePlaneYV12, kNotSingle, 1, 8,
         PlaneLock::kLocatesUnlessProtected},
};

constexpr uint32_t kCpuRead = toBits(BufferUsage::CPU_READ_MASK);
constexpr uint32_t kCpuWrite = toBits(BufferUsage::CPU_WRITE_MASK);
constexpr uint32_t kCameraWrite = toBits(BufferUsage::CAMERA_OUTPUT);
constexpr uint32_t kCameraRead = toBits(BufferUsage::CAMERA_INPUT);
constexpr uint32_t kCamera = kCameraWrite | kCameraRead;
constexpr uint32_t kSmvr = static_cast<uint32_t>(zcam::kUsageSmvr);
constexpr uint32_t kHw2d = static_cast<uint32_t>(zcam::kUsageHw2d);
constexpr uint32_t kProtected = toBits(BufferUsage::PROTECTED);

using Kind = zcam::UsageWordKind;
// The image-encoder and SMVR bits do not open the hardware pieces: they show only beside
// another hardware or camera bit.
constexpr zcam::UsageWord kUsageWords[] = {
        {toBits(BufferUsage::CPU_READ_RARELY), kCpuRead, "SW_READ_RARELY", Kind::kFieldValue,
         false},
        {toBits(BufferUsage::CPU_READ_OFTEN), kCpuRead, "SW_READ_OFTEN", Kind::kFieldValue, false},
        {toBits(BufferUsage::CPU_WRITE_RARELY), kCpuWrite, "SW_WRITE_RARELY", Kind::kFieldValue,
         false},
        {toBits(BufferUsage::CPU_WRITE_OFTEN), kCpuWrite, "SW_WRITE_OFTEN", Kind::kFieldValue,
         false},
        {kCameraWrite, kCamera, "HW_CAMERA_WRITE", Kind::kFieldValue, true},
        {kCameraRead, kCamera, "HW_CAMERA_READ", Kind::kFieldValue, true},
        {kCamera, kCamera, "HW_CAMERA_ZSL", Kind::kFieldValue, true},
        {toBits(BufferUsage::GPU_TEXTURE), toBits(BufferUsage::GPU_TEXTURE), "HW_TEXTURE",
         Kind::kHardwareBit, true},
        {toBits(BufferUsage::GPU_RENDER_TARGET), toBits(BufferUsage::GPU_RENDER_TARGET),
         "HW_RENDER", Kind::kHardwareBit, true},
        {kHw2d, kHw2d, "HW_2D", Kind::kHardwareBit, true},
        {toBits(BufferUsage::COMPOSER_OVERLAY), toBits(BufferUsage::COMPOSER_OVERLAY),
         "HW_COMPOSER", Kind::kHardwareBit, true},
        {toBits(BufferUsage::COMPOSER_CLIENT_TARGET), toBits(BufferUsage::COMPOSER_CLIENT_TARGET),
         "HW_FB", Kind::kHardwareBit, true},
        {toBits(BufferUsage::VIDEO_ENCODER), toBits(BufferUsage::VIDEO_ENCODER), "HW_VIDEO_ENCODER",
         Kind::kHardwareBit, true},
        {toBits(BufferUsage::HW_IMAGE_ENCODER), toBits(BufferUsage::HW_IMAGE_ENCODER),
         "HW_IMAGE_ENCODER", Kind::kHardwareBit, false},
        {kSmvr, kSmvr, "SMVR", Kind::kHardwareBit, false},
        {kProtected, kProtected, "PROTECTED", Kind::kNotShown, false},
};

constexpr uint32_t hardwareGate() {
    uint32_t gate = 0;
    for (const auto& word : kUsageWords) {
        if (word.opensHardwarePieces) gate |= word.mask;
    }
    return gate;
}
constexpr uint32_t kHardwareGate = hardwareGate();

// Whole-value dataspace names. Most are known to both namers; the colour-space setter's log lines
// and the interface each know a few of their own.
using Namer = zcam::DataspaceNamer;
constexpr zcam::DataspaceWord kDataspaceWords[] = {
        {0x00000000, "UNKNOWN", false, Namer::kBoth},
        {0x00000001, "ARBITRARY", false, Namer::kBoth},
        {zcam::kDataspaceLegacyJfif, "JFIF", false, Namer::kBoth},
        {zcam::kDataspaceLegacyBt601_625, "BT601_625", false, Namer::kBoth},
        {zcam::kDataspaceLegacyBt601_525, "BT601_525", false, Namer::kBoth},
        {zcam::kDataspaceLegacyBt709, "BT709", false, Namer::kBoth},
        {zcam::kDataspaceLegacySrgbLinear, "SRGB_LINEAR", false, Namer::kBoth},
        {zcam::kDataspaceLegacySrgb, "SRGB", false, Namer::kBoth},
        {0x00001000, "DEPTH", false, Namer::kBoth},
        {0x00001001, "SENSOR", false, Namer::kBoth},
        {0x00001003, "JPEG_APP_SEGMENTS", false, Namer::kBoth},
        {0x00001004, "HEIF", false, Namer::kBoth},
        {0x08410000, "V0_SRGB_LINEAR", true, Namer::kBoth},
        {0x08460000, "BT2020_LINEAR", true, Namer::kBoth},
        {0x084A0000, "DCI_P3_LINEAR", true, Namer::kBoth},
        {0x08810000, "V0_SRGB", true, Namer::kBoth},
        {0x088A0000, "DISPLAY_P3", true, Namer::kBoth},
        {0x08C20000, "V0_JFIF", true, Namer::kBoth},
        {0x08C60000, "BT2020", true, Namer::kBoth},
        {0x090B0000, "ADOBE_RGB", true, Namer::kBoth},
        {0x094A0000, "DCI_P3", true, Namer::kBoth},
        {0x09C60000, "BT2020_PQ", true, Namer::kBoth},
        {0x10C10000, "V0_BT709", true, Namer::kBoth},
        {0x10C20000, "V0_BT601_625", true, Namer::kBoth},
        {0x10C40000, "V0_BT601_525", true, Namer::kBoth},
        {0x18810000, "V0_SCRGB", true, Namer::kBoth},
        {0x00001005, "JPEG_R", false, Namer::kSetterOnly},
        {0x11C60000, "BT2020_ITU_PQ", true, Namer::kSetterOnly},
        {0x18410000, "V0_SCRGB_LINEAR", true, Namer::kInterfaceOnly},
};

constexpr uint32_t kStandardMask = toBits(Dataspace::STANDARD_MASK);
constexpr uint32_t kTransferMask = toBits(Dataspace::TRANSFER_MASK);
constexpr uint32_t kRangeMask = toBits(Dataspace::RANGE_MASK);

constexpr zcam::DataspaceFieldWord standard(Dataspace value, const char* name) {
    return {kStandardMask, toBits(value), name};
}
constexpr zcam::DataspaceFieldWord transfer(Dataspace value, const char* name) {
    return {kTransferMask, toBits(value), name};
}
constexpr zcam::DataspaceFieldWord range(Dataspace value, const char* name) {
    return {kRangeMask, toBits(value), name};
}

constexpr zcam::DataspaceFieldWord kDataspaceFieldWords[] = {
        standard(Dataspace::STANDARD_BT709, "STANDARD_BT709"),
        standard(Dataspace::STANDARD_BT601_625, "STANDARD_BT601_625"),
        standard(Dataspace::STANDARD_BT601_625_UNADJUSTED, "STANDARD_BT601_625_UNADJUSTED"),
        standard(Dataspace::STANDARD_BT601_525, "STANDARD_BT601_525"),
        standard(Dataspace::STANDARD_BT601_525_UNADJUSTED, "STANDARD_BT601_525_UNADJUSTED"),
        standard(Dataspace::STANDARD_BT2020, "STANDARD_BT2020"),
        standard(Dataspace::STANDARD_BT2020_CONSTANT_LUMINANCE,
                 "STANDARD_BT2020_CONSTANT_LUMINANCE"),
        standard(Dataspace::STANDARD_BT470M, "STANDARD_BT470M"),
        standard(Dataspace::STANDARD_FILM, "STANDARD_FILM"),
        standard(Dataspace::STANDARD_DCI_P3, "STANDARD_DCI_P3"),
        standard(Dataspace::STANDARD_ADOBE_RGB, "STANDARD_ADOBE_RGB"),
        transfer(Dataspace::TRANSFER_LINEAR, "TRANSFER_LINEAR"),
        transfer(Dataspace::TRANSFER_SRGB, "TRANSFER_SRGB"),
        transfer(Dataspace::TRANSFER_SMPTE_170M, "TRANSFER_SMPTE_170M"),
        transfer(Dataspace::TRANSFER_GAMMA2_2, "TRANSFER_GAMMA2_2"),
        transfer(Dataspace::TRANSFER_GAMMA2_6, "TRANSFER_GAMMA2_6"),
        transfer(Dataspace::TRANSFER_GAMMA2_8, "TRANSFER_GAMMA2_8"),
        transfer(Dataspace::TRANSFER_ST2084, "TRANSFER_ST2084"),
        transfer(Dataspace::TRANSFER_HLG, "TRANSFER_HLG"),
        range(Dataspace::RANGE_FULL, "RANGE_FULL"),
        range(Dataspace::RANGE_LIMITED, "RANGE_LIMITED"),
        range(Dataspace::RANGE_EXTENDED, "RANGE_EXTENDED"),
};

const zcam::DataspaceWord* findDataspaceWord(int32_t value, Namer except) {
    for (const auto& word : kDataspaceWords) {
        if (word.value == value && word.namer != except) return &word;
    }
    return nullptr;
}

// The piece of each field value the table names; 0 (unspecified) and unnamed values add nothing.
void appendFieldPieces(std::string& name, int dataspace) {
    const uint32_t bits = static_cast<uint32_t>(dataspace);
    for (const uint32_t mask : {kStandardMask, kTransferMask, kRangeMask}) {
        for (const auto& word : kDataspaceFieldWords) {
            if (word.fieldMask == mask && word.value == (bits & mask)) {
                name += '|';
                name += word.name;
            }
        }
    }
}

// Shared design of both namers; they differ in the rows they know and the unknown-value text.
std::string dataspaceName(int dataspace, Namer except, bool hexUnknown) {
    const zcam::DataspaceWord* word = findDataspaceWord(dataspace, except);
    if (word != nullptr && !word->composite) return word->name;
    std::string name;
    if (word != nullptr) {
        name = word->name;
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

std::string gQueryPixelFormatName(int format) {
    const PixelFormatInfo* info = zcam::findPixelFormat(format);
    return info != nullptr ? std::string(info->name) : std::string();
}

std::string gQueryGrallocUsageName(int usage) {
    const uint32_t bits = static_cast<uint32_t>(usage);
    const bool hardware = (bits & kHardwareGate) != 0;
    std::string name = "0";
    for (const auto& word : kUsageWords) {
        const bool shown =
                word.kind == Kind::kFieldValue
                        ? (bits & word.mask) == word.bits
                        : word.kind == Kind::kHardwareBit && hardware && (bits & word.bits) != 0;
        if (shown) {
            name += '|';
            name += word.name;
        }
    }
    return name;
}

std::string gQueryDataspaceNameHex(int dataspace) {
    return dataspaceName(dataspace, Namer::kSetterOnly, true);
}

}  // namespace GrallocAidlV2

namespace zcam {

std::string queryDataspaceName(int dataspace) {
    return GrallocAidlV2::dataspaceName(dataspace, DataspaceNamer::kInterfaceOnly, false);
}

std::span<const PixelFormatInfo> pixelFormatTable() {
    return GrallocAidlV2::kPixelFormats;
}

const PixelFormatInfo* findPixelFormat(int32_t format) {
    for (const auto& info : GrallocAidlV2::kPixelFormats) {
        if (info.format == format) return &info;
    }
    return nullptr;
}

bool planesLocatedByDerivation(int32_t format, uint32_t usage, size_t planeCount) {
    if (planeCount == 1) return true;
    const PixelFormatInfo* info = findPixelFormat(format);
    if (info == nullptr) return false;
    const bool isProtected = (usage & GrallocAidlV2::kProtected) != 0;
    return info->lock == PlaneLock::kLocates ||
           (info->lock == PlaneLock::kLocatesUnlessProtected && !isProtected);
}

std::span<const UsageWord> usageWordTable() {
    return GrallocAidlV2::kUsageWords;
}

std::span<const DataspaceWord> dataspaceWordTable() {
    return GrallocAidlV2::kDataspaceWords;
}

std::span<const DataspaceFieldWord> dataspaceFieldWordTable() {
    return GrallocAidlV2::kDataspaceFieldWords;
}

}  // namespace zcam
