// Normalisation of layout requests into cache keys, and slow-motion batch sizes.
#include <cutils/properties.h>

#include "GrallocHelperInternal.h"
#include "logging/GrallocLog.h"

namespace GrallocAidlV2 {

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
