// What verify needs to know of a pixel format beyond its name: the size of its samples, how its
// chroma is laid out, and whether a CPU lock can say where its planes are. Read from the
// library's per-format table.
#pragma once

#include <cstdint>

namespace zyncam::tools {

// How the chroma of a format the library derives in planes is laid out.
enum class Chroma {
    None,           // one plane
    SemiPlanar420,  // a luma plane, then one plane of interleaved Cb/Cr at half size
    Planar420,      // a luma plane, then a Cr and a Cb plane at half size each
};

struct FormatFacts {
    unsigned bitsPerSample = 0;  // of a pixel or sample; 0 when the format does not say
    Chroma chroma = Chroma::None;
    bool ycbcrLock = false;        // a YCbCr lock locates its planes
    bool derivationLocks = false;  // the library locates its planes through a CPU lock
};

// The facts of a format as the allocator resolved it; all empty for a format the library does
// not name.
FormatFacts formatFacts(int32_t format);

}  // namespace zyncam::tools
