// Creating the platform's gralloc helper, and a read-only view of its layout cache.
//
// Code outside the library (the camera stack, gralloc-layout, benchmarks, downstream programs)
// includes this header and IGrallocHelper.h only; the helper's implementation headers are
// private to the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "GrallocRecords.h"
#include "IGrallocHelper.h"

namespace zcam {

// One entry of a helper's layout cache: the key it is stored under, the layout query() answers
// from it, and what the probe allocation that made it learnt.
struct GrallocCachedLayout {
    // The normalised request the probe allocated with: usage bits forced or cleared for the
    // format, the caller's width, height and batch count.
    GrallocRequest key;
    // AFBC layouts are stored with this flag set and are found only when it is asked for.
    bool keyIsAFBC = false;
    // What query() copies into the caller's record.
    GrallocStaticInfo info;
    // Monotonic time the probe allocation took, in nanoseconds.
    int64_t allocationTimeNs = 0;
    // Usage and producer usage as the gralloc extension reported them for the probe buffer.
    uint32_t allocatorUsage = 0;
    uint32_t producerUsage = 0;
    // Bytes the allocator reserved for the probe buffer.
    size_t allocSize = 0;
    // Frames one buffer carries: the batch count the layout derivation used (1 unless the
    // format or the request is a slow-motion batch).
    uint32_t framesPerBuffer = 1;
};

// Read-only view of a helper's layout cache, for diagnostics and tools.
//
// Thread safety: every call takes the helper's lock, so it waits for a probe that another
// thread is running and always sees whole entries.
class IGrallocLayoutCache {
public:
    virtual ~IGrallocLayoutCache() = default;

    // Number of entries, alias entries (usage 0, resolved format) included.
    virtual size_t cachedLayoutCount() const = 0;
    // Copies of every entry, in the cache's key order.
    virtual std::vector<GrallocCachedLayout> cachedLayouts() const = 0;
    // The entry stored for `request` after normalisation, with the AFBC flag `isAFBC`.
    // With `isAFBC` false it is the entry query(request, info, false) answers without probing.
    // Returns true and fills *out when there is one; false (and *out untouched) otherwise or
    // when `out` is null. Never probes.
    virtual bool findCachedLayout(const GrallocRequest& request, bool isAFBC,
                                  GrallocCachedLayout* out) const = 0;
};

// Creates the AIDL allocator v2 / AIMapper v5 helper with an empty layout cache.
//
// Construction connects to the platform: it looks up the allocator service, loads the mapper
// library it names and replaces the process-wide adapters. A missing allocator service or
// mapper library ends the process (__android_log_assert); check for them first where that
// must not happen. Create helpers before using the library from several threads.
// The caller owns the result; destroying it drops its cache, not the adapters.
std::unique_ptr<IGrallocHelper> createGrallocHelper();

// The layout cache of a helper made by createGrallocHelper(), or null for any other
// implementation of IGrallocHelper. The view lives as long as the helper.
const IGrallocLayoutCache* layoutCacheOf(const IGrallocHelper& helper);

// The request a layout query probes with and caches under: the usage bits the format forces
// or clears (CPU-read formats get both camera bits, others the camera-write bit, BLOB loses the
// composer bit, RAW16 gains the camera-write bit; IMPLEMENTATION_DEFINED, YCbCr_420_888 and the
// vendor batch formats pass unchanged). Pure; any thread.
GrallocRequest normalizeGrallocRequest(const GrallocRequest& request);

// The names the helper's log lines and naming operations give: the same texts as
// IGrallocHelper::queryPixelFormatName, queryGrallocUsageName and queryDataspaceName, without a
// helper (so without the platform's gralloc services). An unknown format gives the empty
// string, usage bits the library does not name are left out, an unknown dataspace starts with
// its number in hexadecimal. Pure; any thread.
std::string pixelFormatName(int format);
std::string grallocUsageName(int usage);
std::string dataspaceName(int dataspace);

}  // namespace zcam
