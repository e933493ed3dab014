// Normalisation of layout requests into cache keys, and slow-motion batch sizes.
#include <cutils/properties.h>

#include "GrallocHelperInternal.h"
#include "LayoutArithmetic.h"
#include "logging/GrallocLog.h"

namespace GrallocAidlV2 {

namespace {

// Size classes of slow-motion streams, by pixel count: up to 640x480, 1280x736 and 1920x1088.
constexpr int32_t kVgaPixels = 640 * 480;
constexpr int32_t kHdPixels = 1280 * 736;
constexpr int32_t kFhdPixels = 1920 * 1088;
// One frame per buffer: not a batch, or no property for the size class.
constexpr int kSingleFrame = 1;

}  // namespace

int GrallocHelperAidlV2Imp::queryBatchNum(const MyRequest& request) const {
    if ((request.usage & zcam::kUsageSmvr) == 0) return kSingleFrame;
    // The 32-bit product wraps; a wrapped negative count falls into the smallest class.
    const int32_t pixels = layout::product32Wrapping(request.widthInPixels, request.heightInPixels);
    int value = kSingleFrame;
    if (pixels <= kVgaPixels) {
        value = property_get_int32("ro.vendor.smvr.p2batch.vga", kSingleFrame);
    } else if (pixels <= kHdPixels) {
        value = property_get_int32("ro.vendor.smvr.p2batch.hd", kSingleFrame);
    } else if (pixels <= kFhdPixels) {
        value = property_get_int32("ro.vendor.smvr.p2batch.fhd", kSingleFrame);
    }
    ZLOGI("[%s] smvr batch number:%d", value);
    return value;
}

}  // namespace GrallocAidlV2
