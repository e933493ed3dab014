// The camera pipeline's view of gralloc: the layout a buffer of a given request gets, per-buffer
// operations on buffers that others allocated, vendor attributes, and readable names for logs.
//
// Result codes. Operations that return int answer with a status_t of <utils/Errors.h>
// (NO_ERROR, BAD_VALUE, NO_MEMORY, NAME_NOT_FOUND, UNKNOWN_ERROR), with an AIMapper_Error of
// <android/hardware/graphics/mapper/IMapper.h> passed through from the mapper
// (AIMAPPER_ERROR_BAD_BUFFER, AIMAPPER_ERROR_BAD_VALUE, AIMAPPER_ERROR_NO_RESOURCES,
// AIMAPPER_ERROR_UNSUPPORTED; positive), or with the gralloc extension's own result (0 on
// success, negative on failure) where an operation says so. Every failure that the helper
// detects itself writes one error line to the log.
//
// Handles. A buffer_handle_t passed in stays the caller's; the helper never frees, closes or
// keeps it unless an operation says so. Handles made by importBuffer() belong to the caller
// until it passes them to freeBuffer().
//
// Threads. Any operation may be called from any thread. The layout cache is guarded by one lock
// per helper, held across a whole layout probe, so cache operations of one helper run one at a
// time. Creating another helper replaces the process-wide mapper and allocator adapters that
// every helper uses: create helpers before sharing the library between threads.
//
// Buffers of the vendor attribute operations (setDirtyCamera, setColorspace, setBufferSOF,
// setBufferStatus). The helper does not test the handle: it is passed to the gralloc extension
// as given. A null handle, or one that was not imported in this process, is the extension's to
// refuse; it answers with a negative value (-EINVAL on the simulated platform), which these
// operations return.
//
// Slots. The numbers before the operations below are their places in the virtual table, which
// the camera stack's binaries are built against: append new operations at the end, never
// reorder, remove or insert.
//
// Ending the process. A layout derivation that must lock a buffer to learn its planes
// (YCrCb_420_SP, and YV12 without PROTECTED usage) ends the process through
// __android_log_assert when the mapper refuses the lock. Creating a helper ends it when the
// allocator service or its mapper library is missing (see GrallocHelper.h).
#pragma once

#include <cutils/native_handle.h>

#include <string>

#include "GrallocRecords.h"

namespace zcam {

class IGrallocHelper {
public:
    // 1. Destroys the helper and its layout cache. The process-wide adapters stay: they live
    // until the process exits.
    virtual ~IGrallocHelper() = default;

    // 2. The layout a buffer allocated with `request` has. The request is normalised (the
    // camera usage bits its format needs) and looked up in the helper's cache; on a miss, or
    // when `refresh` drops the cached entry first, one probe buffer is allocated with the
    // normalised request, its layout read, its dma-buf named "GrallocHelper-<w>x<h>-<format>",
    // the buffer freed and the layout cached. A layout that comes out AFBC-compressed is stored
    // but never found by this lookup again, so such requests probe on every call.
    //
    // `request` and `staticInfo` are required and stay the caller's; *staticInfo is written
    // only on NO_ERROR.
    //
    // Returns:
    //   NO_ERROR         *staticInfo holds the layout
    //   BAD_VALUE        `request` or `staticInfo` is null
    //   NO_MEMORY        the probe allocation failed
    //   NAME_NOT_FOUND   the allocated format has no layout rule (GrallocFormats.h)
    //   UNKNOWN_ERROR    the gralloc extension cannot describe the probe buffer, or reports the
    //                    flexible YCbCr_420_888 for it; or the probe's dma-buf descriptor cannot
    //                    be read, and then the probe buffer is deliberately not freed
    // Ends the process when the probe must be locked and the mapper refuses (see above).
    // Thread safety: holds the helper's lock for the whole call, probe included.
    virtual int query(const GrallocRequest* request, GrallocStaticInfo* staticInfo,
                      bool refresh) const = 0;

    // 3. The layout of an existing buffer, and optionally its dma-buf descriptor. The buffer's
    // gralloc-extension attributes are read; its layout comes from the cache (entries with
    // usage 0, including the aliases that layout queries of IMPLEMENTATION_DEFINED,
    // YCbCr_420_888 and the batch formats leave) or is derived from the buffer and cached.
    // staticInfo->isAFBC always describes `buffer` itself.
    //
    // `buffer`: a live imported handle, still the caller's. `staticInfo`: required (it is not
    // tested for null). `dynamicInfo`: optional; the buffer's descriptor is appended to its
    // ionFds (never cleared first). That descriptor stays owned by the buffer: do not close it.
    //
    // Returns:
    //   NO_ERROR         *staticInfo holds the layout
    //   BAD_VALUE        `buffer` is null
    //   UNKNOWN_ERROR    the extension attributes cannot be read (nothing written); the
    //                    descriptor cannot be read (*staticInfo already written); or the
    //                    derivation failed so (*staticInfo untouched)
    //   NAME_NOT_FOUND   the buffer's format has no layout rule (*staticInfo untouched)
    // Ends the process when the derivation must lock the buffer and the mapper refuses.
    // Thread safety: takes the helper's lock after reading the attributes.
    virtual int query(buffer_handle_t buffer, GrallocStaticInfo* staticInfo,
                      NSCam::GrallocDynamicInfo* dynamicInfo) const = 0;

    // 4. Marks the buffer as written by the camera: setBufferStatus(buffer,
    // kGrallocStatusDirtyCamera, kGrallocStatusDirtyCamera), through this interface, so an
    // override of setBufferStatus() applies. `buffer` stays the caller's; it is not tested.
    // Returns what setBufferStatus() returns:
    //   0                the status word was written
    //   negative         the extension refused the write (a null or foreign handle included)
    // Logs nothing. No lock; any thread.
    virtual int setDirtyCamera(buffer_handle_t buffer) const = 0;

    // 5. Stamps the YUV colour space that `dataspace` (an Android Dataspace value, legacy values
    // included) implies into the buffer's vendor status bits, through setBufferStatus() of this
    // interface: BT.601, BT.709 or BT.2020, full or limited range. A dataspace outside these
    // families (or with its range unspecified or extended) gets BT.601 full range and an error
    // line; that is not a failure. `buffer` stays the caller's; it is not tested.
    // Returns what setBufferStatus() returns:
    //   0                the colour space was written
    //   negative         the extension refused the write (a null or foreign handle included)
    // No lock; any thread.
    virtual int setColorspace(buffer_handle_t buffer, int dataspace) const = 0;

    // 6. Stores the start-of-frame time (`timestamp`, in the camera's time base) with the
    // buffer. `buffer` stays the caller's; it is not tested. Logs nothing.
    // Returns the gralloc extension's result:
    //   0                the time was stored
    //   negative         the extension refused (a null or foreign handle included)
    // No lock; any thread.
    virtual int setBufferSOF(buffer_handle_t buffer, unsigned long timestamp) const = 0;

    // 7. The log name of a pixel format ("YCbCr_420_888", "NV12", ...); empty for a format the
    // helper does not know. Never fails; no lock.
    virtual std::string queryPixelFormatName(int format) const = 0;

    // 8. The log name of a set of usage bits: "0" followed by "|"-separated pieces
    // ("0|SW_READ_OFTEN|HW_CAMERA_ZSL"); bits without a piece are not shown. Never fails.
    virtual std::string queryGrallocUsageName(int usage) const = 0;

    // 9. The log name of a dataspace: its whole-value name, then the names of its standard,
    // transfer and range fields; an unknown value shows as "0x" and lower-case hexadecimal.
    // Never fails.
    virtual std::string queryDataspaceName(int dataspace) const = 0;

    // 10. The platform's private format for an Android `format` allocated with `usage`, as the
    // gralloc extension answers it (unchanged). There is no failure value: a format the
    // extension does not map comes back as the extension answers it (the simulated platform
    // returns the format itself). Logs nothing. No lock; any thread.
    virtual int getGrallocExtraFormat(int format, unsigned long usage) = 0;

    // 11. Writes every cache entry to the debug log, in key order. Takes the helper's lock.
    virtual void dumpToLog() const = 0;

    // 12. Imports a raw handle (for example one received from another process) and replaces
    // `buffer` with the imported handle, which the caller then owns and must release with
    // freeBuffer(). With `deleteRaw`, the raw handle's record is released on success
    // (native_handle_delete: its descriptors are not closed; they stay the caller's);
    // otherwise the raw handle stays the caller's entirely.
    // `buffer` must not be null. A handle with no descriptors and no integers is empty:
    // `buffer` becomes null, nothing is imported or released, and the result is true.
    // Returns true on success; false when the mapper refuses (logged; `buffer` unchanged).
    virtual bool importBuffer(buffer_handle_t& buffer, bool deleteRaw) = 0;

    // 13. Releases a handle made by importBuffer() (or by the allocator adapter); the handle
    // is invalid afterwards. Returns -1 for a null handle, else AIMAPPER_ERROR_NONE (0) or the
    // mapper's AIMapper_Error (for instance AIMAPPER_ERROR_BAD_BUFFER).
    virtual int freeBuffer(buffer_handle_t buffer) = 0;

    // 14. Locks the region {0, 0, width, height} of an imported buffer for CPU access with
    // `usage` (BufferUsage CPU bits) and stores the base address in *outData. No fence: the
    // call does not wait for other users. Returns 0, or the mapper's AIMapper_Error
    // (AIMAPPER_ERROR_BAD_BUFFER, AIMAPPER_ERROR_BAD_VALUE for a region outside the buffer, a
    // PROTECTED buffer or a null `outData`, ...), logged.
    virtual int lock(buffer_handle_t buffer, unsigned int usage, int width, int height,
                     void** outData) = 0;

    // 15. Unlocks a buffer locked by lock(), waits without a time limit until the release fence
    // signals, and closes the fence. Always returns 0: a failed unlock is logged by the mapper
    // adapter only. Blocks the calling thread while the buffer's pending work finishes.
    virtual int unlock(buffer_handle_t buffer) = 0;

    // 16. Sets the bits of `mask` in the buffer's vendor status word to those of `value`: reads
    // the buffer's SF-info record (a failed read leaves it zero), updates it, writes it back.
    // `buffer` stays the caller's; it is not tested. Logs nothing.
    // Returns the gralloc extension's result of the write:
    //   0                the record was written
    //   negative         the extension refused the write (a null or foreign handle included)
    // Not atomic: two concurrent updates of one buffer can lose one change.
    virtual int setBufferStatus(buffer_handle_t buffer, int mask, int value) const = 0;

    // 17. Empties the helper's layout cache; the next layout query of every request probes.
    // Takes the helper's lock.
    virtual void clearMap() = 0;
};

}  // namespace zcam
