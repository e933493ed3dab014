// Plans the buffers of a preview and a still-capture stream and prints them.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>

#include <cstdio>

#include "StreamPlan.h"

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;

int main() {
    const downstream::StreamConfig streams[] = {
            {"preview", 1920, 1080, static_cast<int32_t>(PixelFormat::IMPLEMENTATION_DEFINED),
             static_cast<int64_t>(BufferUsage::CAMERA_OUTPUT) |
                     static_cast<int64_t>(BufferUsage::GPU_TEXTURE)},
            {"capture", 4000, 3000, static_cast<int32_t>(PixelFormat::YCBCR_420_888),
             static_cast<int64_t>(BufferUsage::CAMERA_OUTPUT) |
                     static_cast<int64_t>(BufferUsage::CPU_READ_OFTEN)},
    };
    const auto helper = zcam::createGrallocHelper();
    for (const auto& stream : streams) {
        downstream::StreamPlan plan;
        if (const auto status = downstream::planStream(*helper, stream, &plan);
            status != android::NO_ERROR) {
            std::fprintf(stderr, "%s: layout query failed (%d)\n", stream.name, status);
            return 1;
        }
        std::printf("%s %dx%d: format %s, %zu bytes per buffer, row strides", stream.name,
                    stream.width, stream.height, helper->queryPixelFormatName(plan.format).c_str(),
                    plan.bytesPerBuffer);
        for (const size_t stride : plan.rowStrides) std::printf(" %zu", stride);
        std::printf("\n");
    }
    return 0;
}
