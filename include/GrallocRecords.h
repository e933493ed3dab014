// Buffer description records shared with the camera stack, and the vendor codes their format
// and usage fields may carry beside the platform's PixelFormat and BufferUsage values.
//
// Plain copyable values: no operations beyond construction and copy, no resources but their
// vectors (deep-copied). Not synchronised: a record belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zcam {

// Vendor pixel formats. The platform's formats keep their PixelFormat values
// (aidl::android::hardware::graphics::common::PixelFormat).
inline constexpr int32_t kPixelFormatCameraOpaque = 0x111;  // named "CAMERA_OPAQUE" in logs
inline constexpr int32_t kPixelFormatNV12 = 0x1000;         // named "NV12" in logs
// Slow-motion batch formats: one buffer carries 2, 4, 8, 16 or 32 frames. The allocator decides
// which YUV layout each resolves to (the compressed group typically to an AFBC layout).
inline constexpr int32_t kPixelFormatSmvrBatch2 = 0x2600;
inline constexpr int32_t kPixelFormatSmvrBatch4 = 0x2601;
inline constexpr int32_t kPixelFormatSmvrBatch8 = 0x2602;
inline constexpr int32_t kPixelFormatSmvrBatch16 = 0x2603;
inline constexpr int32_t kPixelFormatSmvrBatch32 = 0x2604;
inline constexpr int32_t kPixelFormatSmvrBatchCompressed2 = 0x2610;
inline constexpr int32_t kPixelFormatSmvrBatchCompressed4 = 0x2611;
inline constexpr int32_t kPixelFormatSmvrBatchCompressed8 = 0x2612;
inline constexpr int32_t kPixelFormatSmvrBatchCompressed16 = 0x2613;
inline constexpr int32_t kPixelFormatSmvrBatchCompressed32 = 0x2614;
// Every slow-motion batch format, plain first, each group by frame count.
inline constexpr int32_t kPixelFormatsSmvrBatch[] = {
        kPixelFormatSmvrBatch2,
        kPixelFormatSmvrBatch4,
        kPixelFormatSmvrBatch8,
        kPixelFormatSmvrBatch16,
        kPixelFormatSmvrBatch32,
        kPixelFormatSmvrBatchCompressed2,
        kPixelFormatSmvrBatchCompressed4,
        kPixelFormatSmvrBatchCompressed8,
        kPixelFormatSmvrBatchCompressed16,
        kPixelFormatSmvrBatchCompressed32,
};

// Vendor usage bit: a slow-motion batch buffer ("|SMVR" in logs).
inline constexpr int32_t kUsageSmvr = 0x20000000;
// The dirty-by-camera bits (0, 1, 10 and 11) of a buffer's vendor status word.
inline constexpr int32_t kGrallocStatusDirtyCamera = 0xC03;

// The legacy gralloc 2D-engine bit ("|HW_2D" in logs), which the AIDL BufferUsage leaves unnamed.
inline constexpr int32_t kUsageHw2d = 0x400;

// A layout request: what a buffer would be allocated with. Read only by the helper.
struct GrallocRequest {
    int32_t usage = 0;   // gralloc usage bits (BufferUsage values, kUsageSmvr); logged in hex
    int32_t format = 0;  // a PixelFormat value or a vendor format above
    int32_t widthInPixels = 0;
    int32_t heightInPixels = 0;
    int32_t batchNum = 0;  // frames one slow-motion buffer carries; logged as "BatchNum"
};

// The layout of a buffer, as a layout query or a buffer query answers it.
struct GrallocStaticInfo {
    // One plane, in the order the planes lie in memory.
    struct Plane {
        size_t sizeInBytes = 0;       // bytes the plane occupies
        size_t rowStrideInBytes = 0;  // bytes from the start of one row to the next
    };

    int32_t format = 0;          // the format the allocator resolved; may differ from the request's
    int32_t widthInPixels = 0;   // of the allocated buffer
    int32_t heightInPixels = 0;  // of the allocated buffer
    std::vector<Plane> planes;   // one per plane; how many depends on the format
    bool isAFBC = false;         // the buffer is AFBC-compressed
};

}  // namespace zcam

namespace NSCam {

// Run-time facts about one existing buffer.
struct GrallocDynamicInfo {
    // The buffer's dma-buf descriptors. A buffer query appends and never clears. The descriptors
    // stay owned by the buffer: do not close them, and do not use them after it is freed.
    std::vector<int32_t> ionFds;
};

}  // namespace NSCam
