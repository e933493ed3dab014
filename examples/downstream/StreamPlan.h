// What the buffers of a camera stream will look like, asked of the platform's gralloc helper
// before the stream is configured.
#pragma once

#include <GrallocHelper.h>
#include <utils/Errors.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace downstream {

struct StreamConfig {
    const char* name;
    int32_t width;
    int32_t height;
    int32_t format;  // a PixelFormat
    int64_t usage;   // BufferUsage bits
};

struct StreamPlan {
    int32_t format = 0;  // what the allocator resolved the stream's format to
    std::vector<size_t> rowStrides;
    size_t bytesPerBuffer = 0;  // the planes together
};

// NO_ERROR with *plan filled, or the helper's status (plan untouched).
android::status_t planStream(const zcam::IGrallocHelper& helper, const StreamConfig& stream,
                             StreamPlan* plan);

}  // namespace downstream
