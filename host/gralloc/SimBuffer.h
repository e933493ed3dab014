// Buffers of the simulated gralloc: what their handles carry, the device profile that lays
// them out, and the metadata they share between every importer.
#pragma once

#include <aidl/android/hardware/graphics/allocator/AllocationError.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <cutils/native_handle.h>
#include <gralloc_extra.h>

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Profile.h"

namespace zyncam::sim {

inline constexpr uint64_t kUsageProtected = 0x4000;

// Everything the allocator decided about one buffer.
struct BufferDesc {
    int32_t width = 0;
    int32_t height = 0;
    int32_t format = 0;  // resolved
    int32_t requestedFormat = 0;
    uint64_t usage = 0;
    int32_t stride = 0;  // row stride in pixels (bytes for RAW10, RAW_OPAQUE, BLOB)
    int32_t rows = 0;    // rows allocated (per layer, all frames included)
    uint64_t allocSize = 0;
    int32_t layerCount = 1;
    uint64_t id = 0;
    bool afbc = false;
    int32_t frames = 1;        // slow-motion frames carried by the buffer
    bool exactAnswer = false;  // laid out by an exact answer of the profile, not by its rules
};

// What the device profile makes of a request: a buffer, or the allocator's error (UNSUPPORTED
// for what it cannot make, BAD_DESCRIPTOR for geometry outside its limits or whose arithmetic
// overflows, NO_RESOURCES for a size over its cap).
struct Resolution {
    std::optional<BufferDesc> desc;
    aidl::android::hardware::graphics::allocator::AllocationError error =
            aidl::android::hardware::graphics::allocator::AllocationError::UNSUPPORTED;
    std::shared_ptr<const profile::ExactAnswer> exact;  // the answer that laid it out, if any
};
Resolution resolve(int32_t width, int32_t height, int32_t format, uint64_t usage,
                   int32_t layerCount);
// The plane layouts that the mapper reports for a buffer.
std::vector<aidl::android::hardware::graphics::common::PlaneLayout> planeLayouts(
        const BufferDesc& desc);
// The DRM fourcc of a concrete format's layout; DRM_FORMAT_INVALID (0) for formats DRM has no
// code for (packed RAW, opaque camera formats).
uint32_t drmFourcc(int32_t format);

// Handle encoding: descriptors [pixels, metadata], then kIntCount integers.
inline constexpr int kFdCount = 2;
inline constexpr int kIntCount = 15;
inline constexpr int32_t kMagic = 0x5A53494D;  // "ZSIM"

native_handle_t* encodeHandle(const BufferDesc& desc, int pixelFd, int metadataFd);
// The description carried by a handle, when it is a handle of this gralloc.
std::optional<BufferDesc> decodeHandle(const native_handle_t* handle);
inline int pixelFd(const native_handle_t* handle) {
    return handle->data[0];
}
inline int metadataFd(const native_handle_t* handle) {
    return handle->data[1];
}

inline constexpr uint32_t kDynamicCapacity = 16384;
// The allocation's name, NUL-terminated, as BufferDescriptorInfo carries it.
inline constexpr size_t kNameCapacity = 128;

// What an exact answer fixes beyond the handle's integers.
struct ExactMetadata {
    uint32_t consumerUsage;
    uint32_t producerUsage;
    uint32_t planeLayoutsLength;  // 0: the profile's rules describe the planes
    uint8_t planeLayouts[kExactPlaneLayoutsCapacity];
};

struct DynamicBlob {
    uint32_t set;
    uint32_t length;
    uint8_t bytes[kDynamicCapacity];
};

// Metadata in shared memory of the buffer, seen alike by every importer. `spin` guards it.
struct SharedMetadata {
    int32_t magic;
    std::atomic<uint32_t> spin;
    GrallocExtraSfInfo sfInfo;
    uint64_t sofTime;
    int32_t dataspace;
    int32_t blendMode;
    uint32_t smpte2086Set;
    float smpte2086[10];
    uint32_t cta861_3Set;
    float cta861_3[2];
    DynamicBlob smpte2094_40;
    DynamicBlob smpte2094_10;
    ExactMetadata exact;
    char name[kNameCapacity];

    void lock() {
        while (spin.exchange(1, std::memory_order_acquire) != 0) {
        }
    }
    void unlock() { spin.store(0, std::memory_order_release); }
};

// Maps a buffer's metadata; null when the descriptor is not one of ours.
SharedMetadata* mapMetadata(int fd);
void unmapMetadata(SharedMetadata* metadata);
// Whether `fd` holds metadata of this gralloc.
bool isMetadata(int fd);

// The extension's attributes, read and written through the descriptor rather than a mapping (an
// unmapping costs a TLB flush). A process-wide lock orders them within a process; across
// processes each is a single read or write of the memory.
bool readSfInfo(int fd, GrallocExtraSfInfo* out);
bool writeSfInfo(int fd, const GrallocExtraSfInfo& info);
bool writeSofTime(int fd, uint64_t time);
// The usages an exact answer of the profile fixed for the buffer.
bool readExactUsages(int fd, uint32_t* consumerUsage, uint32_t* producerUsage);

// Creates the memory of a new buffer named `name` (cut to kNameCapacity - 1 bytes) without mapping
// it; false when memory runs out.
bool createBufferMemory(const BufferDesc& desc, std::string_view name, int* outPixelFd,
                        int* outMetadataFd);
uint64_t nextBufferId();

// Stores what `answer` fixes into a new buffer's metadata; false when it cannot be mapped.
bool writeExactMetadata(int metadataFd, const profile::ExactAnswer& answer);
// Identity of a buffer's pixel memory, so that a descriptor closed and reused for other memory
// is never mapped in its place.
struct MemoryId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const MemoryId&) const = default;
};
// The identity of the memory behind `fd` when it holds at least `size` bytes.
std::optional<MemoryId> memoryOf(int fd, uint64_t size);

// A buffer imported through the mapper: its stored metadata mapped when first used, its pixels
// on first lock, both until it is freed.
struct Imported {
    BufferDesc desc;
    MemoryId pixels;
    SharedMetadata* metadata = nullptr;
    void* base = nullptr;
    int lockCount = 0;
};

// Every imported buffer of the process, by its handle; the gralloc extension finds the metadata
// mappings of imported buffers here.
struct Registry {
    std::mutex lock;
    std::unordered_map<buffer_handle_t, Imported> buffers;
};
Registry& registry();

// Runs `f` on the imported buffer of `handle` (null when it is not imported) under the
// registry's lock.
template <typename F>
auto withImported(buffer_handle_t handle, F&& f) -> decltype(f(std::declval<Imported*>())) {
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    auto it = r.buffers.find(handle);
    return f(it == r.buffers.end() ? nullptr : &it->second);
}

}  // namespace zyncam::sim
