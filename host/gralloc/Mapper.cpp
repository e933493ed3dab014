// The simulated mapper, AIMapper version 5, built as its own shared object mapper.<suffix>.so.
// Imported handles own duplicated descriptors; locks map the buffer's memory.
#include <cstddef>  // IMapper.h uses size_t and max_align_t without including it

#include <android/hardware/graphics/mapper/IMapper.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>
#include <android/sync.h>

#include <sys/mman.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <tuple>

#include "SimBuffer.h"
#include "SimControl.h"

namespace zyncam::sim {
namespace {

namespace common = aidl::android::hardware::graphics::common;
using android::hardware::graphics::mapper::StandardMetadata;
using common::StandardMetadataType;

AIMapper_Error importOne(const native_handle_t* handle, buffer_handle_t* outBufferHandle) {
    if (handle == nullptr || outBufferHandle == nullptr) return AIMAPPER_ERROR_BAD_BUFFER;
    std::optional<BufferDesc> desc = decodeHandle(handle);
    if (!desc) return AIMAPPER_ERROR_BAD_BUFFER;
    bool fail = withControl([](Control& c) {
        return c.faults.importCountdown > 0 && --c.faults.importCountdown == 0;
    });
    if (fail) return AIMAPPER_ERROR_BAD_BUFFER;
    // Descriptors that are gone, or pixel memory smaller than the handle claims, make no buffer.
    std::optional<MemoryId> pixels = memoryOf(pixelFd(handle), desc->allocSize);
    if (!pixels) return AIMAPPER_ERROR_BAD_BUFFER;
    native_handle_t* clone = native_handle_clone(handle);
    if (clone == nullptr) {
        return errno == EBADF ? AIMAPPER_ERROR_BAD_BUFFER : AIMAPPER_ERROR_NO_RESOURCES;
    }
    Imported imported;
    imported.desc = *desc;
    imported.pixels = *pixels;
    if (!isMetadata(metadataFd(clone))) {
        native_handle_close(clone);
        native_handle_delete(clone);
        return AIMAPPER_ERROR_BAD_BUFFER;
    }
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> guard(r.lock);
        r.buffers.emplace(clone, imported);
    }
    withControl([](Control& c) {
        ++c.counters.imports;
        ++c.counters.liveBuffers;
    });
    *outBufferHandle = clone;
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error importBuffer(const native_handle_t* handle, buffer_handle_t* outBufferHandle) {
    const AIMapper_Error e = importOne(handle, outBufferHandle);
    if (journalOn()) journalAppend(journalEntry(Call::Import, handle, e));
    return e;
}

AIMapper_Error freeOne(buffer_handle_t buffer) {
    const int32_t fault = withControl([](Control& c) { return c.faults.free; });
    Imported imported;
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> guard(r.lock);
        auto it = r.buffers.find(buffer);
        if (it == r.buffers.end()) return AIMAPPER_ERROR_BAD_BUFFER;
        if (fault != 0) return static_cast<AIMapper_Error>(fault);  // the buffer stays
        imported = it->second;
        r.buffers.erase(it);
    }
    if (imported.base != nullptr) munmap(imported.base, imported.desc.allocSize);
    unmapMetadata(imported.metadata);
    native_handle_close(buffer);
    native_handle_delete(const_cast<native_handle_t*>(buffer));
    withControl([](Control& c) {
        ++c.counters.frees;
        --c.counters.liveBuffers;
    });
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error freeBuffer(buffer_handle_t buffer) {
    const AIMapper_Error e = freeOne(buffer);
    if (journalOn()) journalAppend(journalEntry(Call::Free, buffer, e));
    return e;
}

AIMapper_Error getTransportSize(buffer_handle_t buffer, uint32_t* outNumFds, uint32_t* outNumInts) {
    if (!withImported(buffer, [](Imported* b) { return b != nullptr; })) {
        return AIMAPPER_ERROR_BAD_BUFFER;
    }
    *outNumFds = kFdCount;
    *outNumInts = kIntCount;
    return AIMAPPER_ERROR_NONE;
}

// Usage bits a CPU lock may ask for: the read and write nibbles.
constexpr uint64_t kCpuUsageMask = 0xFF;

bool validRegion(const ARect& r, const BufferDesc& d) {
    if (r.left == 0 && r.top == 0 && r.right == 0 && r.bottom == 0) return true;
    return r.left >= 0 && r.top >= 0 && r.right > r.left && r.bottom > r.top &&
           r.right <= d.width && r.bottom <= d.height;
}

// Maps the pixels of `b` on its first lock. Every lock checks first that the descriptor still
// names the buffer's memory, whole: a real mapper fails with a code where a mapping of other or
// shrunk memory would hand out addresses that fault.
AIMapper_Error mapPixels(buffer_handle_t buffer, Imported& b, bool mappingFails) {
    std::optional<MemoryId> memory = memoryOf(pixelFd(buffer), b.desc.allocSize);
    if (!memory || *memory != b.pixels) return AIMAPPER_ERROR_BAD_BUFFER;
    if (b.base != nullptr) return AIMAPPER_ERROR_NONE;
    if (mappingFails || b.desc.allocSize > SIZE_MAX) return AIMAPPER_ERROR_NO_RESOURCES;
    void* p = mmap(nullptr, static_cast<size_t>(b.desc.allocSize), PROT_READ | PROT_WRITE,
                   MAP_SHARED, pixelFd(buffer), 0);
    if (p == MAP_FAILED) return AIMAPPER_ERROR_NO_RESOURCES;
    b.base = p;
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error lockOne(buffer_handle_t buffer, uint64_t cpuUsage, const ARect& region,
                       int acquireFence, void** outData) {
    auto [fault, mappingFails, closesFence] = withControl([](Control& c) {
        return std::tuple{c.faults.lock, c.faults.lockMapping, c.faults.lockClosesAcquireFence};
    });
    // The fence is ours whatever happens: wait for the producer, then close it.
    if (acquireFence >= 0) {
        sync_wait(acquireFence, -1);
        if (closesFence) close(acquireFence);
    }
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    auto it = r.buffers.find(buffer);
    if (it == r.buffers.end()) return AIMAPPER_ERROR_BAD_BUFFER;
    Imported& b = it->second;
    // Protected memory is never CPU-accessible.
    if (cpuUsage == 0 || (cpuUsage & ~kCpuUsageMask) != 0 || !validRegion(region, b.desc) ||
        (b.desc.usage & kUsageProtected) != 0 || outData == nullptr) {
        return AIMAPPER_ERROR_BAD_VALUE;
    }
    if (fault != 0) return static_cast<AIMapper_Error>(fault);
    if (AIMapper_Error e = mapPixels(buffer, b, mappingFails); e != AIMAPPER_ERROR_NONE) {
        return e;
    }
    ++b.lockCount;
    *outData = b.base;
    withControl([](Control& c) { ++c.counters.locks; });
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error lock(buffer_handle_t buffer, uint64_t cpuUsage, ARect region, int acquireFence,
                    void** outData) {
    const AIMapper_Error e = lockOne(buffer, cpuUsage, region, acquireFence, outData);
    if (journalOn()) {
        JournalEntry j = journalEntry(Call::Lock, buffer, e);
        j.usage = cpuUsage;
        j.region = region;
        j.fd = acquireFence;
        journalAppend(j);
    }
    return e;
}

// A fence that signals `ms` milliseconds from now.
int lateFence(int ms) {
    int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    if (fd < 0) return -1;
    itimerspec when{};
    when.it_value.tv_sec = ms / 1000;
    when.it_value.tv_nsec = (ms % 1000) * 1000000L;
    timerfd_settime(fd, 0, &when, nullptr);
    return fd;
}

AIMapper_Error unlockOne(buffer_handle_t buffer, int* releaseFence) {
    *releaseFence = -1;
    auto [fault, lateMs] = withControl([](Control& c) {
        return std::pair{c.faults.unlock, c.faults.lateFenceMs};
    });
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> guard(r.lock);
        auto it = r.buffers.find(buffer);
        if (it == r.buffers.end() || it->second.lockCount == 0) return AIMAPPER_ERROR_BAD_BUFFER;
        if (fault != 0) return static_cast<AIMapper_Error>(fault);
        --it->second.lockCount;
    }
    if (lateMs > 0) *releaseFence = lateFence(lateMs);
    withControl([](Control& c) { ++c.counters.unlocks; });
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error unlock(buffer_handle_t buffer, int* releaseFence) {
    const AIMapper_Error e = unlockOne(buffer, releaseFence);
    if (journalOn()) {
        JournalEntry j = journalEntry(Call::Unlock, buffer, e);
        j.fd = *releaseFence;
        journalAppend(j);
    }
    return e;
}

AIMapper_Error checkLocked(buffer_handle_t buffer) {
    bool locked =
            withImported(buffer, [](Imported* b) { return b != nullptr && b->lockCount > 0; });
    return locked ? AIMAPPER_ERROR_NONE : AIMAPPER_ERROR_BAD_BUFFER;
}

template <StandardMetadataType T>
int32_t encode(const typename StandardMetadata<T>::value_type& v, void* dest, size_t size) {
    return StandardMetadata<T>::value::encode(v, dest, size);
}

std::optional<std::vector<uint8_t>> blob(const DynamicBlob& b) {
    if (!b.set) return std::nullopt;
    return std::vector<uint8_t>(b.bytes, b.bytes + b.length);
}

// Standard metadata kept in the buffer's shared memory (an exact answer's plane layouts too);
// the rest follows from its handle.
bool isStored(const BufferDesc& d, int64_t type) {
    using T = StandardMetadataType;
    switch (static_cast<T>(type)) {
        case T::PLANE_LAYOUTS:
            return d.exactAnswer;
        case T::NAME:
        case T::DATASPACE:
        case T::BLEND_MODE:
        case T::SMPTE2086:
        case T::CTA861_3:
        case T::SMPTE2094_40:
        case T::SMPTE2094_10:
            return true;
        default:
            return false;
    }
}

// The buffer's stored metadata, mapped when it is first needed: buffers whose metadata is
// never touched (probe buffers) cost no mapping. Called under the registry's lock.
SharedMetadata* storedMetadata(buffer_handle_t buffer, Imported& b) {
    if (b.metadata == nullptr) b.metadata = mapMetadata(metadataFd(buffer));
    return b.metadata;
}

// The standard ExtendableTypes' NONE values: a buffer of this gralloc is never compressed in a
// standard way, interlaced, or chroma-sited.
constexpr const char* kCompressionName = "android.hardware.graphics.common.Compression";
constexpr const char* kInterlacedName = "android.hardware.graphics.common.Interlaced";
constexpr const char* kChromaSitingName = "android.hardware.graphics.common.ChromaSiting";
constexpr int64_t kExtendableNone = 0;
// The modifier stays linear: whether a buffer is AFBC-compressed, the gralloc extension reports.
constexpr uint64_t kModifierLinear = 0;

// `m` is the buffer's stored metadata, present when the type is kept there.
int32_t encodeStandard(const BufferDesc& d, const SharedMetadata* m, int64_t type, void* dest,
                       size_t size) {
    using T = StandardMetadataType;
    int32_t result = -AIMAPPER_ERROR_UNSUPPORTED;
    switch (static_cast<T>(type)) {
        case T::BUFFER_ID:
            result = encode<T::BUFFER_ID>(d.id, dest, size);
            break;
        case T::NAME:
            result = encode<T::NAME>(std::string(m->name, strnlen(m->name, kNameCapacity - 1)),
                                     dest, size);
            break;
        case T::WIDTH:
            result = encode<T::WIDTH>(d.width, dest, size);
            break;
        case T::HEIGHT:
            result = encode<T::HEIGHT>(d.height, dest, size);
            break;
        case T::LAYER_COUNT:
            result = encode<T::LAYER_COUNT>(d.layerCount, dest, size);
            break;
        case T::PIXEL_FORMAT_REQUESTED:
            result = encode<T::PIXEL_FORMAT_REQUESTED>(common::PixelFormat(d.requestedFormat), dest,
                                                       size);
            break;
        case T::PIXEL_FORMAT_FOURCC:
            result = encode<T::PIXEL_FORMAT_FOURCC>(drmFourcc(d.format), dest, size);
            break;
        case T::PIXEL_FORMAT_MODIFIER:
            result = encode<T::PIXEL_FORMAT_MODIFIER>(kModifierLinear, dest, size);
            break;
        case T::USAGE:
            result = encode<T::USAGE>(common::BufferUsage(d.usage), dest, size);
            break;
        case T::ALLOCATION_SIZE:
            result = encode<T::ALLOCATION_SIZE>(d.allocSize, dest, size);
            break;
        case T::PROTECTED_CONTENT:
            result = encode<T::PROTECTED_CONTENT>((d.usage & kUsageProtected) ? 1 : 0, dest, size);
            break;
        case T::COMPRESSION:
            result = encode<T::COMPRESSION>({kCompressionName, kExtendableNone}, dest, size);
            break;
        case T::INTERLACED:
            result = encode<T::INTERLACED>({kInterlacedName, kExtendableNone}, dest, size);
            break;
        case T::CHROMA_SITING:
            result = encode<T::CHROMA_SITING>({kChromaSitingName, kExtendableNone}, dest, size);
            break;
        case T::PLANE_LAYOUTS: {
            auto layouts = withControl([](Control& c) { return c.faults.planeLayouts; });
            if (!layouts && d.exactAnswer && m->exact.planeLayoutsLength != 0) {
                // An exact answer's bytes, written as far as they fit, as an encoder does.
                result = static_cast<int32_t>(m->exact.planeLayoutsLength);
                if (dest != nullptr) {
                    memcpy(dest, m->exact.planeLayouts, std::min<size_t>(size, result));
                }
                break;
            }
            result = encode<T::PLANE_LAYOUTS>(layouts ? *layouts : planeLayouts(d), dest, size);
            break;
        }
        case T::CROP: {
            std::vector<common::Rect> crops(planeLayouts(d).size(),
                                            common::Rect{0, 0, d.width, d.height});
            result = encode<T::CROP>(crops, dest, size);
            break;
        }
        case T::DATASPACE:
            result = encode<T::DATASPACE>(common::Dataspace(m->dataspace), dest, size);
            break;
        case T::BLEND_MODE:
            result = encode<T::BLEND_MODE>(common::BlendMode(m->blendMode), dest, size);
            break;
        case T::SMPTE2086: {
            std::optional<common::Smpte2086> v;
            if (m->smpte2086Set) {
                static_assert(sizeof(common::Smpte2086) == sizeof(m->smpte2086));
                v.emplace();
                memcpy(&*v, m->smpte2086, sizeof(m->smpte2086));
            }
            result = encode<T::SMPTE2086>(v, dest, size);
            break;
        }
        case T::CTA861_3: {
            std::optional<common::Cta861_3> v;
            if (m->cta861_3Set) v = common::Cta861_3{m->cta861_3[0], m->cta861_3[1]};
            result = encode<T::CTA861_3>(v, dest, size);
            break;
        }
        case T::SMPTE2094_40:
            result = encode<T::SMPTE2094_40>(blob(m->smpte2094_40), dest, size);
            break;
        case T::SMPTE2094_10:
            result = encode<T::SMPTE2094_10>(blob(m->smpte2094_10), dest, size);
            break;
        case T::STRIDE:
            result = encode<T::STRIDE>(static_cast<uint32_t>(d.stride), dest, size);
            break;
        default:
            break;
    }
    return result;
}

// Chosen bytes answer like an encoding: their length, copied only when they fit.
int32_t answerBytes(const std::vector<uint8_t>& bytes, void* dest, size_t size) {
    if (bytes.size() <= size && !bytes.empty()) memcpy(dest, bytes.data(), bytes.size());
    return static_cast<int32_t>(bytes.size());
}

int32_t getOne(buffer_handle_t buffer, int64_t type, void* dest, size_t size) {
    const auto answers = withControl([&](Control& c) {
        ++c.counters.metadataGets;
        return std::pair{lookup(c.faults.metadataAnswers, type),
                         lookup(c.faults.metadataBytes, type)};
    });
    if (answers.first) return *answers.first;
    const std::optional<std::vector<uint8_t>>& bytes = answers.second;
    if (dest == nullptr && size != 0) return -AIMAPPER_ERROR_BAD_VALUE;
    return withImported(buffer, [&](Imported* b) {
        if (b == nullptr) return static_cast<int32_t>(-AIMAPPER_ERROR_BAD_BUFFER);
        if (bytes) return answerBytes(*bytes, dest, size);
        SharedMetadata* m = isStored(b->desc, type) ? storedMetadata(buffer, *b) : nullptr;
        if (isStored(b->desc, type) && m == nullptr) {
            return static_cast<int32_t>(-AIMAPPER_ERROR_NO_RESOURCES);
        }
        if (m != nullptr) m->lock();
        const int32_t result = encodeStandard(b->desc, m, type, dest, size);
        if (m != nullptr) m->unlock();
        return result;
    });
}

int32_t getStandardMetadata(buffer_handle_t buffer, int64_t type, void* dest, size_t size) {
    const int32_t result = getOne(buffer, type, dest, size);
    if (journalOn()) {
        JournalEntry j = journalEntry(Call::GetStandardMetadata, buffer, result);
        j.attribute = type;
        const bool written = result > 0 && static_cast<size_t>(result) <= size;
        j.bytesWritten = written ? static_cast<size_t>(result) : 0;
        journalAppend(j);
    }
    return result;
}

int32_t getMetadata(buffer_handle_t buffer, AIMapper_MetadataType type, void* dest, size_t size) {
    if (type.name == nullptr || android::hardware::graphics::mapper::kStandardMetadataTypeName !=
                                        std::string_view(type.name)) {
        return -AIMAPPER_ERROR_UNSUPPORTED;
    }
    return getStandardMetadata(buffer, type.value, dest, size);
}

template <StandardMetadataType T>
auto decode(const void* data, size_t size) {
    return StandardMetadata<T>::value::decode(data, size);
}

AIMapper_Error storeBlob(DynamicBlob& b, const std::optional<std::vector<uint8_t>>& v) {
    if (v && v->size() > kDynamicCapacity) return AIMAPPER_ERROR_NO_RESOURCES;
    b.set = v.has_value();
    b.length = v ? static_cast<uint32_t>(v->size()) : 0;
    if (v && !v->empty()) memcpy(b.bytes, v->data(), v->size());
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error decodeAndStore(SharedMetadata* m, int64_t type, const void* data, size_t size) {
    using T = StandardMetadataType;
    switch (static_cast<T>(type)) {
        case T::BUFFER_ID:
        case T::NAME:
        case T::WIDTH:
        case T::HEIGHT:
        case T::LAYER_COUNT:
        case T::PIXEL_FORMAT_REQUESTED:
        case T::USAGE:
            return AIMAPPER_ERROR_BAD_VALUE;
        case T::DATASPACE: {
            auto v = decode<T::DATASPACE>(data, size);
            if (!v) return AIMAPPER_ERROR_UNSUPPORTED;
            m->dataspace = static_cast<int32_t>(*v);
            return AIMAPPER_ERROR_NONE;
        }
        case T::BLEND_MODE: {
            auto v = decode<T::BLEND_MODE>(data, size);
            if (!v) return AIMAPPER_ERROR_UNSUPPORTED;
            m->blendMode = static_cast<int32_t>(*v);
            return AIMAPPER_ERROR_NONE;
        }
        case T::SMPTE2086: {
            auto v = decode<T::SMPTE2086>(data, size);
            if (!v) return AIMAPPER_ERROR_UNSUPPORTED;
            m->smpte2086Set = v->has_value();
            if (*v) memcpy(m->smpte2086, &**v, sizeof(m->smpte2086));
            return AIMAPPER_ERROR_NONE;
        }
        case T::CTA861_3: {
            auto v = decode<T::CTA861_3>(data, size);
            if (!v) return AIMAPPER_ERROR_UNSUPPORTED;
            m->cta861_3Set = v->has_value();
            if (*v) {
                m->cta861_3[0] = (*v)->maxContentLightLevel;
                m->cta861_3[1] = (*v)->maxFrameAverageLightLevel;
            }
            return AIMAPPER_ERROR_NONE;
        }
        case T::SMPTE2094_40: {
            auto v = decode<T::SMPTE2094_40>(data, size);
            return v ? storeBlob(m->smpte2094_40, *v) : AIMAPPER_ERROR_UNSUPPORTED;
        }
        case T::SMPTE2094_10: {
            auto v = decode<T::SMPTE2094_10>(data, size);
            return v ? storeBlob(m->smpte2094_10, *v) : AIMAPPER_ERROR_UNSUPPORTED;
        }
        default:
            return AIMAPPER_ERROR_UNSUPPORTED;
    }
}

AIMapper_Error setOne(buffer_handle_t buffer, int64_t type, const void* data, size_t size) {
    const std::optional<int32_t> fault = withControl([&](Control& c) {
        ++c.counters.metadataSets;
        return lookup(c.faults.setMetadataFailures, type);
    });
    return withImported(buffer, [&](Imported* b) {
        if (b == nullptr) return AIMAPPER_ERROR_BAD_BUFFER;
        if (fault) return static_cast<AIMapper_Error>(*fault);
        SharedMetadata* m = isStored(b->desc, type) ? storedMetadata(buffer, *b) : nullptr;
        if (isStored(b->desc, type) && m == nullptr) return AIMAPPER_ERROR_NO_RESOURCES;
        if (m != nullptr) m->lock();
        const AIMapper_Error e = decodeAndStore(m, type, data, size);
        if (m != nullptr) m->unlock();
        return e;
    });
}

AIMapper_Error setStandardMetadata(buffer_handle_t buffer, int64_t type, const void* data,
                                   size_t size) {
    const AIMapper_Error e = setOne(buffer, type, data, size);
    if (journalOn()) {
        JournalEntry j = journalEntry(Call::SetStandardMetadata, buffer, e);
        j.attribute = type;
        journalAppend(j);
    }
    return e;
}

AIMapper_Error setMetadata(buffer_handle_t buffer, AIMapper_MetadataType type, const void* data,
                           size_t size) {
    if (type.name == nullptr || android::hardware::graphics::mapper::kStandardMetadataTypeName !=
                                        std::string_view(type.name)) {
        return AIMAPPER_ERROR_UNSUPPORTED;
    }
    return setStandardMetadata(buffer, type.value, data, size);
}

constexpr const char* kStandardName = "android.hardware.graphics.common.StandardMetadataType";

AIMapper_MetadataTypeDescription describe(StandardMetadataType type, bool settable) {
    AIMapper_MetadataTypeDescription d{};
    d.metadataType = {kStandardName, static_cast<int64_t>(type)};
    d.isGettable = true;
    d.isSettable = settable;
    return d;
}

AIMapper_Error listSupportedMetadataTypes(const AIMapper_MetadataTypeDescription** outList,
                                          size_t* outCount) {
    using T = StandardMetadataType;
    static const AIMapper_MetadataTypeDescription kList[] = {
            describe(T::BUFFER_ID, false),
            describe(T::NAME, false),
            describe(T::WIDTH, false),
            describe(T::HEIGHT, false),
            describe(T::LAYER_COUNT, false),
            describe(T::PIXEL_FORMAT_REQUESTED, false),
            describe(T::PIXEL_FORMAT_FOURCC, false),
            describe(T::PIXEL_FORMAT_MODIFIER, false),
            describe(T::USAGE, false),
            describe(T::ALLOCATION_SIZE, false),
            describe(T::PROTECTED_CONTENT, false),
            describe(T::COMPRESSION, false),
            describe(T::INTERLACED, false),
            describe(T::CHROMA_SITING, false),
            describe(T::PLANE_LAYOUTS, false),
            describe(T::CROP, false),
            describe(T::DATASPACE, true),
            describe(T::BLEND_MODE, true),
            describe(T::SMPTE2086, true),
            describe(T::CTA861_3, true),
            describe(T::SMPTE2094_40, true),
            describe(T::SMPTE2094_10, true),
            describe(T::STRIDE, false),
    };
    *outList = kList;
    *outCount = sizeof(kList) / sizeof(kList[0]);
    return AIMAPPER_ERROR_NONE;
}

void dumpOne(buffer_handle_t buffer, AIMapper_DumpBufferCallback callback, void* context) {
    const AIMapper_MetadataTypeDescription* list = nullptr;
    size_t count = 0;
    listSupportedMetadataTypes(&list, &count);
    for (size_t i = 0; i < count; ++i) {
        int64_t type = list[i].metadataType.value;
        int32_t size = getStandardMetadata(buffer, type, nullptr, 0);
        if (size <= 0) continue;
        std::vector<uint8_t> bytes(size);
        if (getStandardMetadata(buffer, type, bytes.data(), bytes.size()) == size) {
            callback(context, list[i].metadataType, bytes.data(), bytes.size());
        }
    }
}

AIMapper_Error dumpBuffer(buffer_handle_t buffer, AIMapper_DumpBufferCallback callback,
                          void* context) {
    if (!withImported(buffer, [](Imported* b) { return b != nullptr; })) {
        return AIMAPPER_ERROR_BAD_BUFFER;
    }
    dumpOne(buffer, callback, context);
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error dumpAllBuffers(AIMapper_BeginDumpBufferCallback begin,
                              AIMapper_DumpBufferCallback callback, void* context) {
    std::vector<buffer_handle_t> buffers;
    {
        Registry& r = registry();
        std::lock_guard<std::mutex> guard(r.lock);
        for (const auto& [handle, imported] : r.buffers) buffers.push_back(handle);
    }
    for (buffer_handle_t buffer : buffers) {
        begin(context);
        dumpOne(buffer, callback, context);
    }
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error getReservedRegion(buffer_handle_t buffer, void** outRegion, uint64_t* outSize) {
    if (!withImported(buffer, [](Imported* b) { return b != nullptr; })) {
        return AIMAPPER_ERROR_BAD_BUFFER;
    }
    *outRegion = nullptr;
    *outSize = 0;
    return AIMAPPER_ERROR_NONE;
}

[[maybe_unused]] AIMapper* mapper() {
    static AIMapper m = [] {
        AIMapper a{};
        a.version = AIMAPPER_VERSION_5;
        a.v5 = {importBuffer,
                freeBuffer,
                getTransportSize,
                lock,
                unlock,
                checkLocked,
                checkLocked,
                getMetadata,
                getStandardMetadata,
                setMetadata,
                setStandardMetadata,
                listSupportedMetadataTypes,
                dumpBuffer,
                dumpAllBuffers,
                getReservedRegion};
        return a;
    }();
    return &m;
}

}  // namespace
}  // namespace zyncam::sim

// Variants built for tests of a broken mapper library: without the loader symbol, with a
// loader that finds nothing, and with one that reports an error but still hands over a table.
#ifndef ZYNCAM_SIM_MAPPER_NO_LOADER
extern "C" __attribute__((visibility("default"))) AIMapper_Error AIMapper_loadIMapper(
        AIMapper** outImplementation) {
#if defined(ZYNCAM_SIM_MAPPER_NULL_LOADER)
    (void)outImplementation;
    return AIMAPPER_ERROR_UNSUPPORTED;
#elif defined(ZYNCAM_SIM_MAPPER_ERROR_LOADER)
    *outImplementation = zyncam::sim::mapper();
    return AIMAPPER_ERROR_UNSUPPORTED;
#else
    *outImplementation = zyncam::sim::mapper();
    return AIMAPPER_ERROR_NONE;
#endif
}
#endif

extern "C" {
__attribute__((visibility("default"))) int32_t ANDROID_HAL_MAPPER_VERSION = AIMAPPER_VERSION_5;
}
