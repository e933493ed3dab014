// Normalisation of layout requests into cache keys, and slow-motion batch sizes.
#include <cutils/properties.h>

#include <tuple>

#include "GrallocHelperInternal.h"
#include "logging/GrallocLog.h"

namespace GrallocAidlV2 {

bool GrallocHelperAidlV2Imp::MyRequest::operator<(const MyRequest& other) const {
    return std::forward_as_tuple(format, usage, widthInPixels, heightInPixels,
                                 static_cast<uint8_t>(isAFBC), batchNum) <
           std::forward_as_tuple(other.format, other.usage, other.widthInPixels,
                                 other.heightInPixels, static_cast<uint8_t>(other.isAFBC),
                                 other.batchNum);
}

int GrallocHelperAidlV2Imp::determine(const zcam::GrallocRequest& request, MyRequest& out) {
    constexpr int32_t kCpuBits = 0xFF;
    constexpr int32_t kComposer = 0x800;
    constexpr int32_t kCameraWrite = 0x20000;
    constexpr int32_t kCameraReadWrite = 0x60000;

    out.usage = request.usage;
    out.format = request.format;
    out.widthInPixels = request.widthInPixels;
    out.heightInPixels = request.heightInPixels;
    out.batchNum = request.batchNum;
    out.isAFBC = false;

    const int32_t format = request.format;
    if (format >= 0x2600) {
        if (isVendorBatchFormat(format)) return 0;
    } else {
        switch (format) {
            case 0x22:  // IMPLEMENTATION_DEFINED
            case 0x23:  // YCbCr_420_888
                return 0;
            case 0x20:  // RAW16
                out.usage |= kCameraWrite;
                return 0;
            case 0x21:  // BLOB never goes to the composer
                out.usage &= ~kComposer;
                break;
        }
    }
    out.usage |= (request.usage & kCpuBits) ? kCameraReadWrite : kCameraWrite;
    return 0;
}

int GrallocHelperAidlV2Imp::queryBatchNum(const MyRequest& request) const {
    if ((request.usage & 0x20000000) == 0) return 1;
    const int32_t pixels = static_cast<int32_t>(static_cast<uint32_t>(request.widthInPixels) *
                                                static_cast<uint32_t>(request.heightInPixels));
    int value = 1;
    if (pixels <= 307200) {
        value = property_get_int32("ro.vendor.smvr.p2batch.vga", 1);
    } else if (pixels < 942081) {
        value = property_get_int32("ro.vendor.smvr.p2batch.hd", 1);
    } else if (pixels < 2088961) {
        value = property_get_int32("ro.vendor.smvr.p2batch.fhd", 1);
    }
    ZLOGI("[%s] smvr batch number:%d", value);
    return value;
}

}  // namespace GrallocAidlV2
