// What gralloc-layout knows of a pixel format beyond its name: the size of its samples, how its
// chroma is laid out, and whether a CPU lock can say where its planes are.
#pragma once

#include <cstdint>

namespace zyncam::tools {

// Bits one pixel (single-plane formats) or one sample (YUV planes) takes; 0 when the format
// does not say (BLOB, the opaque formats).
unsigned bitsPerSample(int32_t format);

// The 8-bit YCbCr formats whose planes a YCbCr lock describes.
bool lockableAsYCbCr(int32_t format);

// How the chroma of a format the library derives in planes is laid out.
enum class Chroma {
    None,           // one plane
    SemiPlanar420,  // a luma plane, then one plane of interleaved Cb/Cr at half size
    Planar420,      // a luma plane, then a Cr and a Cb plane at half size each
};

struct FormatFacts {
    unsigned bitsPerSample = 0;
    Chroma chroma = Chroma::None;
    bool ycbcrLock = false;        // a YCbCr lock locates its planes
    bool derivationLocks = false;  // the library locates its planes through a CPU lock
};

// The facts of a format as the allocator resolved it.
FormatFacts formatFacts(int32_t format);

}  // namespace zyncam::tools
