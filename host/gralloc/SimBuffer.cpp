#include "SimBuffer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace zyncam::sim {

static_assert(sizeof(GrallocExtraSfInfo) == 64);
static_assert(offsetof(GrallocExtraSfInfo, status) == 56);

namespace {

enum Int {
    kIntMagic,
    kIntWidth,
    kIntHeight,
    kIntFormat,
    kIntRequestedFormat,
    kIntUsageLo,
    kIntUsageHi,
    kIntStride,
    kIntRows,
    kIntSizeLo,
    kIntSizeHi,
    kIntLayers,
    kIntIdLo,
    kIntIdHi,
    kIntFlags,  // bit 0: AFBC; bit 1: exact answer; bits 8..15: frames
};
static_assert(kIntFlags + 1 == kIntCount);

int32_t lo(uint64_t v) {
    return static_cast<int32_t>(v & 0xFFFFFFFFu);
}
int32_t hi(uint64_t v) {
    return static_cast<int32_t>(v >> 32);
}
uint64_t join(int32_t l, int32_t h) {
    return (static_cast<uint64_t>(static_cast<uint32_t>(h)) << 32) | static_cast<uint32_t>(l);
}

constexpr size_t kMetadataSize = (sizeof(SharedMetadata) + 4095) / 4096 * 4096;

// Reads or writes one field of a buffer's metadata through its descriptor.
template <typename T>
bool readField(int fd, size_t offset, T* value) {
    return pread(fd, value, sizeof(*value), static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(sizeof(*value));
}
template <typename T>
bool writeField(int fd, size_t offset, const T& value) {
    return pwrite(fd, &value, sizeof(value), static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(sizeof(value));
}

// The name stays NUL-terminated whatever the caller sent.
bool writeName(int fd, std::string_view name) {
    const size_t length = std::min(name.size(), kNameCapacity - 1);
    return length == 0 ||
           pwrite(fd, name.data(), length, static_cast<off_t>(offsetof(SharedMetadata, name))) ==
                   static_cast<ssize_t>(length);
}

}  // namespace

native_handle_t* encodeHandle(const BufferDesc& d, int pixels, int metadata) {
    native_handle_t* h = native_handle_create(kFdCount, kIntCount);
    if (h == nullptr) return nullptr;
    h->data[0] = pixels;
    h->data[1] = metadata;
    int* ints = &h->data[kFdCount];
    ints[kIntMagic] = kMagic;
    ints[kIntWidth] = d.width;
    ints[kIntHeight] = d.height;
    ints[kIntFormat] = d.format;
    ints[kIntRequestedFormat] = d.requestedFormat;
    ints[kIntUsageLo] = lo(d.usage);
    ints[kIntUsageHi] = hi(d.usage);
    ints[kIntStride] = d.stride;
    ints[kIntRows] = d.rows;
    ints[kIntSizeLo] = lo(d.allocSize);
    ints[kIntSizeHi] = hi(d.allocSize);
    ints[kIntLayers] = d.layerCount;
    ints[kIntIdLo] = lo(d.id);
    ints[kIntIdHi] = hi(d.id);
    ints[kIntFlags] = (d.afbc ? 1 : 0) | (d.exactAnswer ? 2 : 0) | (d.frames << 8);
    return h;
}

std::optional<BufferDesc> decodeHandle(const native_handle_t* h) {
    if (h == nullptr || h->version != sizeof(native_handle_t) || h->numFds != kFdCount ||
        h->numInts != kIntCount || h->data[kFdCount + kIntMagic] != kMagic) {
        return std::nullopt;
    }
    const int* ints = &h->data[kFdCount];
    BufferDesc d;
    d.width = ints[kIntWidth];
    d.height = ints[kIntHeight];
    d.format = ints[kIntFormat];
    d.requestedFormat = ints[kIntRequestedFormat];
    d.usage = join(ints[kIntUsageLo], ints[kIntUsageHi]);
    d.stride = ints[kIntStride];
    d.rows = ints[kIntRows];
    d.allocSize = join(ints[kIntSizeLo], ints[kIntSizeHi]);
    d.layerCount = ints[kIntLayers];
    d.id = join(ints[kIntIdLo], ints[kIntIdHi]);
    d.afbc = (ints[kIntFlags] & 1) != 0;
    d.exactAnswer = (ints[kIntFlags] & 2) != 0;
    d.frames = (ints[kIntFlags] >> 8) & 0xFF;
    return d;
}

SharedMetadata* mapMetadata(int fd) {
    void* p = mmap(nullptr, kMetadataSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED) return nullptr;
    auto* metadata = static_cast<SharedMetadata*>(p);
    if (metadata->magic != kMagic) {
        munmap(p, kMetadataSize);
        return nullptr;
    }
    return metadata;
}

void unmapMetadata(SharedMetadata* metadata) {
    if (metadata != nullptr) munmap(metadata, kMetadataSize);
}

bool isMetadata(int fd) {
    int32_t magic = 0;
    return readField(fd, offsetof(SharedMetadata, magic), &magic) && magic == kMagic;
}

namespace {
std::mutex gAttributeLock;
}  // namespace

bool readSfInfo(int fd, GrallocExtraSfInfo* out) {
    std::lock_guard<std::mutex> guard(gAttributeLock);
    return isMetadata(fd) && readField(fd, offsetof(SharedMetadata, sfInfo), out);
}

bool writeSfInfo(int fd, const GrallocExtraSfInfo& info) {
    std::lock_guard<std::mutex> guard(gAttributeLock);
    return isMetadata(fd) && writeField(fd, offsetof(SharedMetadata, sfInfo), info);
}

bool writeSofTime(int fd, uint64_t time) {
    std::lock_guard<std::mutex> guard(gAttributeLock);
    return isMetadata(fd) && writeField(fd, offsetof(SharedMetadata, sofTime), time);
}

bool readExactUsages(int fd, uint32_t* consumerUsage, uint32_t* producerUsage) {
    ExactMetadata exact{};
    const size_t usages = offsetof(ExactMetadata, planeLayoutsLength);
    if (!isMetadata(fd) ||
        pread(fd, &exact, usages, static_cast<off_t>(offsetof(SharedMetadata, exact))) !=
                static_cast<ssize_t>(usages)) {
        return false;
    }
    *consumerUsage = exact.consumerUsage;
    *producerUsage = exact.producerUsage;
    return true;
}

// memfd pages start zeroed, which is every field's initial value but these (a blend mode nobody
// set is BlendMode::INVALID, 0); writing them through the descriptor spares a mapping (and the TLB
// flush of its unmapping) per buffer.
bool createBufferMemory(const BufferDesc& d, std::string_view name, int* outPixelFd,
                        int* outMetadataFd) {
    int pixels = memfd_create("zyncam-gralloc", MFD_CLOEXEC);
    int metadata = memfd_create("zyncam-gralloc-metadata", MFD_CLOEXEC);
    const uint32_t status = d.afbc ? GRALLOC_EXTRA_BIT_AFBC : 0;
    if (pixels < 0 || metadata < 0 ||
        d.allocSize > static_cast<uint64_t>(std::numeric_limits<off_t>::max()) ||
        ftruncate(pixels, static_cast<off_t>(d.allocSize)) != 0 ||
        ftruncate(metadata, kMetadataSize) != 0 ||
        !writeField(metadata, offsetof(SharedMetadata, magic), kMagic) ||
        !writeName(metadata, name) ||
        !writeField(metadata,
                    offsetof(SharedMetadata, sfInfo) + offsetof(GrallocExtraSfInfo, status),
                    status)) {
        if (pixels >= 0) close(pixels);
        if (metadata >= 0) close(metadata);
        return false;
    }
    *outPixelFd = pixels;
    *outMetadataFd = metadata;
    return true;
}

std::optional<MemoryId> memoryOf(int fd, uint64_t size) {
    struct stat st {};
    if (fstat(fd, &st) != 0 || st.st_size < 0 || static_cast<uint64_t>(st.st_size) < size) {
        return std::nullopt;
    }
    return MemoryId{st.st_dev, st.st_ino};
}

Registry& registry() {
    static auto* r = new Registry;  // used until the very end of the process
    return *r;
}

uint64_t nextBufferId() {
    static std::atomic<uint64_t> next{1};
    return (static_cast<uint64_t>(getpid()) << 32) | next.fetch_add(1);
}

}  // namespace zyncam::sim
