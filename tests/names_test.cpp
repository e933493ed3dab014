// Names of pixel formats, usage bits and dataspaces.
#include <aidl/android/hardware/graphics/common/Dataspace.h>

#include <gtest/gtest.h>

#include "GrallocHelperInternal.h"
#include "kit/Codes.h"

namespace {

using GrallocAidlV2::gQueryDataspaceNameHex;
using GrallocAidlV2::gQueryGrallocUsageName;
using GrallocAidlV2::gQueryPixelFormatName;
using testkit::bits;
using testkit::BufferUsage;
using testkit::fmt;
using testkit::PixelFormat;

TEST(NamesTest, PixelFormats) {
    const std::pair<int, const char*> cases[] = {
            {fmt(PixelFormat::RGBA_8888), "RGBA_8888"},
            {fmt(PixelFormat::RGBX_8888), "RGBX_8888"},
            {fmt(PixelFormat::RGB_888), "RGB_888"},
            {fmt(PixelFormat::RGB_565), "RGB_565"},
            {fmt(PixelFormat::BGRA_8888), "BGRA_8888"},
            {fmt(PixelFormat::YCBCR_422_SP), "YCbCr_422_SP"},
            {fmt(PixelFormat::YCRCB_420_SP), "YCrCb_420_SP"},
            {fmt(PixelFormat::YCBCR_422_I), "YCbCr_422_I"},
            {fmt(PixelFormat::RAW16), "RAW16"},
            {fmt(PixelFormat::BLOB), "BLOB"},
            {fmt(PixelFormat::IMPLEMENTATION_DEFINED), "IMPLEMENTATION_DEFINED"},
            {fmt(PixelFormat::YCBCR_420_888), "YCbCr_420_888"},
            {fmt(PixelFormat::RAW_OPAQUE), "RAW_OPAQUE"},
            {fmt(PixelFormat::RAW10), "RAW10"},
            {fmt(PixelFormat::YCBCR_P010), "YCBCR_P010"},
            {zcam::kPixelFormatCameraOpaque, "CAMERA_OPAQUE"},
            {zcam::kPixelFormatNV12, "NV12"},
            {fmt(PixelFormat::Y8), "Y8"},
            {fmt(PixelFormat::Y16), "Y16"},
            {fmt(PixelFormat::YV12), "YV12"},
            // Formats without a name, platform and vendor ones alike.
            {fmt(PixelFormat::RAW12), ""},
            {-1, ""},
            {fmt(PixelFormat::UNSPECIFIED), ""},
            {zcam::kPixelFormatSmvrBatch2, ""},
    };
    for (const auto& [format, name] : cases) {
        EXPECT_EQ(gQueryPixelFormatName(format), name) << std::hex << format;
    }
}

TEST(NamesTest, UsageBits) {
    const int kReadRarely = bits(BufferUsage::CPU_READ_RARELY);
    const int kReadOften = bits(BufferUsage::CPU_READ_OFTEN);
    const int kWriteRarely = bits(BufferUsage::CPU_WRITE_RARELY);
    const int kWriteOften = bits(BufferUsage::CPU_WRITE_OFTEN);
    const int kCameraWrite = bits(BufferUsage::CAMERA_OUTPUT);
    const int kCameraRead = bits(BufferUsage::CAMERA_INPUT);
    const int kTexture = bits(BufferUsage::GPU_TEXTURE);
    const int kComposer = bits(BufferUsage::COMPOSER_OVERLAY);
    const int kImageEncoder = bits(BufferUsage::HW_IMAGE_ENCODER);
    const int kSmvr = zcam::kUsageSmvr;
    const int kLegacyHw2d = 0x400;  // legacy gralloc's 2D-engine bit; BufferUsage leaves it unnamed
    // Every hardware bit that has a piece.
    const int kAllHardware = kTexture | bits(BufferUsage::GPU_RENDER_TARGET) | kLegacyHw2d |
                             kComposer | bits(BufferUsage::COMPOSER_CLIENT_TARGET) |
                             bits(BufferUsage::VIDEO_ENCODER);
    const std::pair<int, const char*> cases[] = {
            {0, "0"},
            {1, "0"},  // a read field of 1 has no piece
            {kReadRarely, "0|SW_READ_RARELY"},
            {kReadOften | kWriteOften, "0|SW_READ_OFTEN|SW_WRITE_OFTEN"},
            {kReadOften | kWriteRarely, "0|SW_READ_OFTEN|SW_WRITE_RARELY"},
            {kCameraWrite | kCameraRead, "0|HW_CAMERA_ZSL"},
            {kCameraRead, "0|HW_CAMERA_READ"},
            {kCameraWrite | kTexture, "0|HW_CAMERA_WRITE|HW_TEXTURE"},
            // The image-encoder and SMVR bits show only beside another hardware bit.
            {kImageEncoder, "0"},
            {kSmvr, "0"},
            {kSmvr | kCameraWrite, "0|HW_CAMERA_WRITE|SMVR"},
            {kImageEncoder | kComposer, "0|HW_COMPOSER|HW_IMAGE_ENCODER"},
            // Pieces follow the table's order, whatever the bits.
            {kSmvr | kAllHardware | kReadOften | kWriteOften,
             "0|SW_READ_OFTEN|SW_WRITE_OFTEN|HW_TEXTURE|HW_RENDER|HW_2D|HW_COMPOSER|HW_FB|"
             "HW_VIDEO_ENCODER|SMVR"},
            {kTexture | kReadOften, "0|SW_READ_OFTEN|HW_TEXTURE"},
            {-1,
             "0|HW_CAMERA_ZSL|HW_TEXTURE|HW_RENDER|HW_2D|HW_COMPOSER|HW_FB|HW_VIDEO_ENCODER|"
             "HW_IMAGE_ENCODER|SMVR"},
    };
    for (const auto& [usage, name] : cases) {
        EXPECT_EQ(gQueryGrallocUsageName(usage), name) << std::hex << usage;
    }
}

TEST(NamesTest, DataspacesByBothNamers) {
    struct Case {
        uint32_t value;
        const char* freeName;
        const char* interfaceName;
    };
    const Case cases[] = {
            {0x0, "UNKNOWN", "UNKNOWN"},
            {0x102, "BT601_625", "BT601_625"},
            {0x201, "SRGB", "SRGB"},
            {0x60000, "393216|STANDARD_BT2020", "0x60000|STANDARD_BT2020"},
            {0x11C60000, "BT2020_ITU_PQ|STANDARD_BT2020|TRANSFER_ST2084|RANGE_LIMITED",
             "0x11c60000|STANDARD_BT2020|TRANSFER_ST2084|RANGE_LIMITED"},
            {0x18410000, "406913024|STANDARD_BT709|TRANSFER_LINEAR|RANGE_EXTENDED",
             "V0_SCRGB_LINEAR|STANDARD_BT709|TRANSFER_LINEAR|RANGE_EXTENDED"},
            {0x1005, "JPEG_R", "0x1005"},
            {0x08C20000, "V0_JFIF|STANDARD_BT601_625|TRANSFER_SMPTE_170M|RANGE_FULL",
             "V0_JFIF|STANDARD_BT601_625|TRANSFER_SMPTE_170M|RANGE_FULL"},
            {0x18810000, "V0_SCRGB|STANDARD_BT709|TRANSFER_SRGB|RANGE_EXTENDED",
             "V0_SCRGB|STANDARD_BT709|TRANSFER_SRGB|RANGE_EXTENDED"},
            {0xFFFFFFFF, "-1", "0xffffffff"},
            {0x7, "7", "0x7"},
            // Standard 12, transfer 9 and range 4 have no pieces.
            {0x224C0000, "575406080", "0x224c0000"},
            {0x0A0B0000, "168493056|STANDARD_ADOBE_RGB|TRANSFER_HLG|RANGE_FULL",
             "0xa0b0000|STANDARD_ADOBE_RGB|TRANSFER_HLG|RANGE_FULL"},
    };
    for (const auto& c : cases) {
        const int value = static_cast<int>(c.value);
        EXPECT_EQ(zcam::queryDataspaceName(value), c.freeName) << std::hex << c.value;
        EXPECT_EQ(gQueryDataspaceNameHex(value), c.interfaceName) << std::hex << c.value;
    }
}

}  // namespace
