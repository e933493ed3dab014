// What the library knows about each pixel format it names: the log name, how the layout of a
// buffer of that format is derived, and the sample sizes and CPU-lock facts that readers of a
// layout need. One row per format; adding a format starts here.
//
// The table is constant data of the library: read-only, valid for the life of the process,
// safe from any thread. Nothing here fails or ends the process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "GrallocRecords.h"

namespace zcam {

// How a buffer's planes follow from what the allocator reports for it.
enum class LayoutFamily : uint8_t {
    // One plane, laid out by the row's SinglePlaneRule.
    kSinglePlane,
    // YCrCb_420_SP: luma and interleaved chroma, located through one CPU lock.
    kLockedSemiPlanar420,
    // Luma and interleaved chroma of half the rows, from the stride and height alone; the row's
    // bytesPerSample is the sample size (NV12 1, P010 2).
    kTwoPlane420,
    // YV12: Y, Cr, Cb; located through one CPU lock unless the buffer is PROTECTED.
    kThreePlaneYV12,
    // A flexible format the allocator must resolve: a buffer reporting it is UNKNOWN_ERROR.
    kFlexible,
    // Named, but no layout rule: a buffer of it is NAME_NOT_FOUND.
    kNoRule,
};

// The row stride of a single-plane format (S is the allocator's row stride in pixels).
enum class SinglePlaneRule : uint8_t {
    kNotSinglePlane,
    // bytesPerSample × S.
    kPlain,
    // Opaque camera formats: S rounded up to 32, with no packing factor.
    kZslAligned,
    // Packed YUV: bytesPerSample × S, with warnings for a stride off 32 and fewer than 16 rows.
    kPackedYuv,
};

// What a CPU lock of a buffer of the format says about its planes.
enum class PlaneLock : uint8_t {
    // A YCbCr lock does not describe the planes.
    kNone,
    // A YCbCr lock describes the 8-bit planes; the layout derivation does not use it.
    kDescribes,
    // The derivation locates the planes through a YCbCr lock.
    kLocates,
    // As kLocates, except for a PROTECTED buffer, whose planes follow from stride and height.
    kLocatesUnlessProtected,
};

struct PixelFormatInfo {
    int32_t format;          // a PixelFormat value or a vendor format of GrallocRecords.h
    const char* name;        // the log name ("YCrCb_420_SP"); never null
    LayoutFamily family;     // how the derivation lays a buffer of this format out
    SinglePlaneRule rule;    // kSinglePlane only
    uint8_t bytesPerSample;  // bytes per pixel of a single plane, per sample of kTwoPlane420
    uint8_t bitsPerSample;   // bits one pixel or sample takes; 0 when the format does not say
    PlaneLock lock;
};

// Every format the library names, in the order name lists (gralloc-layout --help) show them.
// Values and names are unique.
std::span<const PixelFormatInfo> pixelFormatTable();

// The row of `format`, or null when the library does not name it.
const PixelFormatInfo* findPixelFormat(int32_t format);

// Whether the derivation located the planes of a layout of `format` whose buffer has
// `usage` (so plane offsets follow from the sizes in order): single planes, and the formats
// whose planes a CPU lock located.
bool planesLocatedByDerivation(int32_t format, uint32_t usage, size_t planeCount);

}  // namespace zcam
