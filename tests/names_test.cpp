// Names of pixel formats, usage bits and dataspaces.
#include <gtest/gtest.h>

#include "GrallocHelperInternal.h"

namespace {

using GrallocAidlV2::gQueryDataspaceNameHex;
using GrallocAidlV2::gQueryGrallocUsageName;
using GrallocAidlV2::gQueryPixelFormatName;

TEST(NamesTest, PixelFormats) {
    const std::pair<int, const char*> cases[] = {
            {0x1, "RGBA_8888"},
            {0x2, "RGBX_8888"},
            {0x3, "RGB_888"},
            {0x4, "RGB_565"},
            {0x5, "BGRA_8888"},
            {0x10, "YCbCr_422_SP"},
            {0x11, "YCrCb_420_SP"},
            {0x14, "YCbCr_422_I"},
            {0x20, "RAW16"},
            {0x21, "BLOB"},
            {0x22, "IMPLEMENTATION_DEFINED"},
            {0x23, "YCbCr_420_888"},
            {0x24, "RAW_OPAQUE"},
            {0x25, "RAW10"},
            {0x36, "YCBCR_P010"},
            {0x111, "CAMERA_OPAQUE"},
            {0x1000, "NV12"},
            {0x20203859, "Y8"},
            {0x20363159, "Y16"},
            {0x32315659, "YV12"},
            {0x7, ""},
            {-1, ""},
            {0, ""},
            {0x2600, ""},
    };
    for (const auto& [format, name] : cases) {
        EXPECT_EQ(gQueryPixelFormatName(format), name) << std::hex << format;
    }
}

TEST(NamesTest, UsageBits) {
    const std::pair<int, const char*> cases[] = {
            {0, "0"},
            {0x1, "0"},
            {0x2, "0|SW_READ_RARELY"},
            {0x33, "0|SW_READ_OFTEN|SW_WRITE_OFTEN"},
            {0x23, "0|SW_READ_OFTEN|SW_WRITE_RARELY"},
            {0x60000, "0|HW_CAMERA_ZSL"},
            {0x40000, "0|HW_CAMERA_READ"},
            {0x20000 | 0x100, "0|HW_CAMERA_WRITE|HW_TEXTURE"},
            {0x8000000, "0"},
            {0x20000000, "0"},
            {0x20020000, "0|HW_CAMERA_WRITE|SMVR"},
            {0x8000800, "0|HW_COMPOSER|HW_IMAGE_ENCODER"},
            // Pieces follow the table's order, whatever the bits.
            {0x20011F33,
             "0|SW_READ_OFTEN|SW_WRITE_OFTEN|HW_TEXTURE|HW_RENDER|HW_2D|HW_COMPOSER|HW_FB|"
             "HW_VIDEO_ENCODER|SMVR"},
            {0x103, "0|SW_READ_OFTEN|HW_TEXTURE"},
            {static_cast<int>(0xFFFFFFFF),
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
