// Buffer description records shared with the camera stack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zcam {

// A layout request: what the buffer would be allocated with.
struct GrallocRequest {
    int32_t usage = 0;  // gralloc usage bits
    int32_t format = 0;
    int32_t widthInPixels = 0;
    int32_t heightInPixels = 0;
    int32_t batchNum = 0;  // frames carried by one slow-motion buffer
};

// The layout a buffer has.
struct GrallocStaticInfo {
    struct Plane {
        size_t sizeInBytes = 0;
        size_t rowStrideInBytes = 0;
    };

    int32_t format = 0;  // the format the allocator resolved
    int32_t widthInPixels = 0;
    int32_t heightInPixels = 0;
    std::vector<Plane> planes;
    bool isAFBC = false;
};

}  // namespace zcam

namespace NSCam {

// Run-time facts of one buffer.
struct GrallocDynamicInfo {
    std::vector<int32_t> ionFds;  // the buffer's dma-buf descriptors, owned by the buffer
};

}  // namespace NSCam
