// The mapper adapter: the device's AIMapper (stable C mapper, version 5) with the library's
// conventions on top. Camera modules reach the process-wide instance as GrallocAidlV2::gMapperV5.
//
// Results are AIMapper_Error values (IMapper.h) as 32-bit integers, passed through from the
// mapper unchanged; the adapter itself adds only AIMAPPER_ERROR_BAD_BUFFER and
// AIMAPPER_ERROR_BAD_VALUE. Every call into the mapper is followed by a flush of the calling
// thread's hardware-binder commands; a thread without binder state only loses the flush (an
// error line), never the call's result.
//
// Thread safety: the object is immutable after construction and takes no lock; any thread may
// call any operation. Callers that get and set one buffer's metadata from several threads order
// those calls themselves.
//
// This header needs only what the library exports (IMapper.h with ARect and native_handle).
// The AIDL types appear as declarations: code that calls the constructor or getPlaneLayouts
// includes IAllocator.h or PlaneLayout.h itself. The typed standard-metadata accessors live in
// the library's private mapper/MapperMetadata.h.
#pragma once

#include <cstddef>  // IMapper.h uses size_t and max_align_t without including it

#include <android/hardware/graphics/mapper/IMapper.h>
#include <android/rect.h>
#include <cutils/native_handle.h>

#include <cstdint>
#include <memory>
#include <vector>

struct android_ycbcr;

namespace aidl::android::hardware::graphics::allocator {
class IAllocator;
}  // namespace aidl::android::hardware::graphics::allocator

namespace aidl::android::hardware::graphics::common {
class PlaneLayout;
}  // namespace aidl::android::hardware::graphics::common

namespace NSCam::GrallocMapperAidlV2 {

// HDR metadata that camera code gets and sets as raw records.
enum GRALLOC_STANDARD_METADATA_TYPE : int32_t {
    GRALLOC_STANDARD_METADATA_SMPTE2086 = 0,     // Smpte2086, 40 bytes
    GRALLOC_STANDARD_METADATA_CTA861_3 = 1,      // Cta861_3, 8 bytes
    GRALLOC_STANDARD_METADATA_SMPTE2094_40 = 2,  // get: 224 bytes; set: std::vector<uint8_t>
    GRALLOC_STANDARD_METADATA_SMPTE2094_10 = 3,  // set only: std::vector<uint8_t>
};

class MapperV5 {
public:
    using IAllocator = aidl::android::hardware::graphics::allocator::IAllocator;
    using PlaneLayout = aidl::android::hardware::graphics::common::PlaneLayout;

    // Loads the device's mapper: asks `allocator` (shared, kept) for the library suffix, opens
    // mapper.<suffix>.so from the sphal search path (never closed) and copies its AIMapper
    // table. Reads "debug.zyncam.utils.gralloc.loglevel" once as the own log level, which
    // enables the plane-layout and HDR payload dumps.
    // Ends the process (fatal line, then abort) when `allocator` is empty or cannot name the
    // suffix, the library does not load, it lacks AIMapper_loadIMapper, or the loader yields
    // no table. A loader that reports an error but fills the table is accepted.
    explicit MapperV5(std::shared_ptr<IAllocator> allocator);

    // Imports a raw handle (one received from the allocator or another process) into a new
    // handle stored in `*outBuffer`, owned by the caller until freeBuffer. `raw` stays the
    // caller's. The mapper's code: AIMAPPER_ERROR_NONE, AIMAPPER_ERROR_BAD_BUFFER (not a
    // valid raw handle) or AIMAPPER_ERROR_NO_RESOURCES. Nothing is logged.
    int32_t importBuffer(const native_handle* raw, const native_handle** outBuffer) const;
    // Releases an imported handle and everything importBuffer made for it. The mapper's code
    // (AIMAPPER_ERROR_BAD_BUFFER for a handle it did not import), with an error line on failure.
    int32_t freeBuffer(const native_handle* buffer) const;

    // Locks `region` of `buffer` (all zeros: the whole buffer) for `cpuUsage` and stores the
    // address of the buffer's top-left pixel in `*outData`. `acquireFence` is a descriptor or
    // -1; the caller gives it up in every case, whatever the result. The mapper's code
    // (AIMAPPER_ERROR_BAD_BUFFER, AIMAPPER_ERROR_BAD_VALUE, AIMAPPER_ERROR_NO_RESOURCES, ...),
    // with an error line on failure. A locked buffer stays locked until unlock.
    int32_t lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                 int acquireFence, void** outData) const;
    // As above; first reads the plane layouts and, when there are any, stores the bytes per
    // pixel and per row shared by all planes in the optional outputs (-1 when the planes
    // differ or the value is not whole). Neither output is touched without layouts. A failed
    // lock writes a warning straight to the Android log.
    int32_t lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                 int acquireFence, void** outData, int* outBytesPerPixel,
                 int* outBytesPerStride) const;
    // Locks and fills `*outYcbcr` (y, cb, cr, strides, chroma step; reserved words zero) from
    // the buffer's plane layouts. AIMAPPER_ERROR_BAD_VALUE without locking (the fence is then
    // not closed: it stays the caller's) when `outYcbcr` is null or the layouts cannot be read;
    // the lock's code when it fails; AIMAPPER_ERROR_BAD_VALUE after unlocking again when the
    // layouts do not describe 8-bit YCbCr (two Y planes, a chroma step other than 1 or 2,
    // chroma planes with different strides, an offset that is not a whole byte). A buffer
    // without component description presents its one plane as Y only.
    int32_t lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                 int acquireFence, android_ycbcr* outYcbcr) const;
    // Unlocks and returns the release fence, which the caller owns (waits on and closes), or -1
    // when there is none or the mapper failed (an error line; the code is not returned).
    int unlock(const native_handle* buffer) const;
    // Flushes the calling thread's hardware-binder commands; an error line without binder state.
    void ipcFlushCommands() const;

    // Replaces `*out` (non-null) with the buffer's plane layouts (an empty list too):
    // AIMAPPER_ERROR_NONE, or AIMAPPER_ERROR_BAD_VALUE with `*out` untouched when they cannot
    // be read.
    int32_t getPlaneLayouts(const native_handle* buffer, std::vector<PlaneLayout>* out) const;
    // Copies HDR metadata of `type` into the caller's record `data` of `size` bytes. Checks in
    // order: null buffer: AIMAPPER_ERROR_BAD_BUFFER; null data: AIMAPPER_ERROR_BAD_VALUE; a size
    // other than 40 (SMPTE2086), 8 (CTA861_3) or 224 (SMPTE2094_40): AIMAPPER_ERROR_BAD_VALUE;
    // each with an error line. Otherwise AIMAPPER_ERROR_NONE, also when the buffer holds no such
    // metadata (the record is then untouched). Never writes past `size` bytes: a longer HDR10+
    // payload copies its first 224 bytes and logs an error. SMPTE2094_10 and unknown types read
    // nothing.
    int32_t getGrallocMeta(const native_handle* buffer, GRALLOC_STANDARD_METADATA_TYPE type,
                           void* data, unsigned int size) const;
    // Writes HDR metadata: `data` is the 40- or 8-byte record (SMPTE2086, CTA861_3, `size` must
    // match), or a std::vector<uint8_t> holding the payload (SMPTE2094_40, SMPTE2094_10, `size`
    // ignored). The same argument checks and codes as getGrallocMeta, then the mapper's code of
    // the write; unknown types write nothing and give AIMAPPER_ERROR_NONE.
    int32_t setGrallocMeta(const native_handle* buffer, GRALLOC_STANDARD_METADATA_TYPE type,
                           void* data, unsigned int size) const;

private:
    friend class MapperMetadata;  // the typed metadata accessors (mapper/MapperMetadata.h)

    std::shared_ptr<const AIMapper> mMapper;
    std::shared_ptr<IAllocator> mAllocator;
    int32_t mLogLevel = 0;
};

}  // namespace NSCam::GrallocMapperAidlV2
