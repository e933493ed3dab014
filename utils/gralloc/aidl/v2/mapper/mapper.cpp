// The mapper adapter: loading AIMapper v5, buffer calls and standard metadata.
#define LOG_TAG "ZynCam/GrallocMapperAidlV2"
#define LOG_FILE "utils/gralloc/aidl/v2/mapper/mapper"

#include "GrallocMapperAidlV2.h"

#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <aidl/android/hardware/graphics/common/Cta861_3.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <aidl/android/hardware/graphics/common/Smpte2086.h>
#include <android/sync.h>
#include <cutils/properties.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gralloctypes/Gralloc4.h>
#include <hwbinder/IPCThreadState.h>
#include <system/graphics.h>
#include <unistd.h>
#include <vndksupport/linker.h>

#include <cstring>
#include <string>

#include "MapperMetadata.h"
#include "logging/GrallocLog.h"

namespace NSCam::GrallocMapperAidlV2 {

namespace {

namespace common = aidl::android::hardware::graphics::common;
using android::hardware::graphics::mapper::StandardMetadata;
using common::PlaneLayoutComponentType;
using Type = StandardMetadataType;

constexpr int32_t kDefaultLogLevel = 0;
constexpr size_t kFirstReadSize = 512;  // plane layouts and the HDR records fit in one call
constexpr int kNoFence = -1;
constexpr int kNotUniform = -1;  // planes differ, or the value is not whole
constexpr int64_t kBitsPerByte = 8;
// Samples the YCbCr lock accepts: 8-bit luma; planar or interleaved (CbCr, CrCb) 8-bit chroma.
constexpr int64_t kLumaSampleBits = 8;
constexpr int64_t kPlanarChromaBits = 8;
constexpr int64_t kInterleavedChromaBits = 16;

using LoadIMapper = AIMapper_Error (*)(AIMapper** outImplementation);

// The mapper closes the fence it is given, and the caller's descriptor is closed by the lock
// itself, so the mapper gets a duplicate. Without one, the wait happens here and it gets none.
constexpr int kWaitForever = -1;

int fenceForMapper(int acquireFence) {
    if (acquireFence < 0) return kNoFence;
    const int duplicate = fcntl(acquireFence, F_DUPFD_CLOEXEC, 0);
    if (duplicate >= 0) return duplicate;
    (void)sync_wait(acquireFence, kWaitForever);
    return kNoFence;
}

}  // namespace

MapperV5::MapperV5(std::shared_ptr<IAllocator> allocator)
    : mAllocator(std::move(allocator)), mLogLevel(kDefaultLogLevel) {
    std::string suffix;
    if (!mAllocator || !mAllocator->getIMapperLibrarySuffix(&suffix).isOk()) {
        ZLOGF("[%s] getIMapperLibrarySuffix fail");
    }
    const std::string name = "mapper." + suffix + ".so";
    void* library = android_load_sphal_library(name.c_str(), RTLD_NOW);
    if (library == nullptr) ZLOGF("[%s] android_load_sphal_library fail");
    auto load = reinterpret_cast<LoadIMapper>(dlsym(library, "AIMapper_loadIMapper"));
    if (load == nullptr) ZLOGF("[%s] AIMapper_loadIMapper missing");
    AIMapper* loaded = nullptr;
    (void)load(&loaded);  // only the table matters; a loader may report an error and still fill it
    if (loaded == nullptr) ZLOGF("[%s] AIMapper_loadIMapper fail");
    mMapper = std::make_shared<const AIMapper>(*loaded);
    mLogLevel = property_get_int32("debug.zyncam.utils.gralloc.loglevel", kDefaultLogLevel);
}

void MapperV5::ipcFlushCommands() const {
    if (auto* state = android::hardware::IPCThreadState::self()) {
        state->flushCommands();
    } else {
        ZLOGE("[%s] get IPCThreadState singleton failed");
    }
}

int32_t MapperV5::importBuffer(const native_handle* raw, const native_handle** outBuffer) const {
    int32_t error = mMapper->v5.importBuffer(raw, outBuffer);
    ipcFlushCommands();
    return error;
}

int32_t MapperV5::freeBuffer(const native_handle* buffer) const {
    int32_t error = mMapper->v5.freeBuffer(buffer);
    ipcFlushCommands();
    if (error != AIMAPPER_ERROR_NONE) {
        ZLOGE("[%s] freeBuffer(%p) failed with %d", static_cast<const void*>(buffer), error);
    }
    return error;
}

int32_t MapperV5::lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                       int acquireFence, void** outData) const {
    int32_t error =
            mMapper->v5.lock(buffer, cpuUsage, region, fenceForMapper(acquireFence), outData);
    ipcFlushCommands();
    if (error != AIMAPPER_ERROR_NONE) {
        ZLOGE("[%s] IMapper->lock error happen, err=%u", static_cast<unsigned int>(error));
    }
    if (acquireFence >= 0) close(acquireFence);
    return error;
}

int32_t MapperV5::lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                       int acquireFence, void** outData, int* outBytesPerPixel,
                       int* outBytesPerStride) const {
    std::vector<PlaneLayout> layouts;
    if (getPlaneLayouts(buffer, &layouts) == AIMAPPER_ERROR_NONE && !layouts.empty()) {
        if (outBytesPerPixel != nullptr) {
            const int64_t increment = layouts[0].sampleIncrementInBits;
            bool same = true;
            for (const auto& plane : layouts) same &= plane.sampleIncrementInBits == increment;
            *outBytesPerPixel = (same && increment >= 0 && increment % kBitsPerByte == 0)
                                        ? static_cast<int>(increment / kBitsPerByte)
                                        : kNotUniform;
        }
        if (outBytesPerStride != nullptr) {
            const int64_t stride = layouts[0].strideInBytes;
            bool same = true;
            for (const auto& plane : layouts) same &= plane.strideInBytes == stride;
            *outBytesPerStride = (same && stride >= 0) ? static_cast<int>(stride) : kNotUniform;
        }
    }
    int32_t error =
            mMapper->v5.lock(buffer, cpuUsage, region, fenceForMapper(acquireFence), outData);
    ipcFlushCommands();
    if (acquireFence >= 0) close(acquireFence);
    if (error != AIMAPPER_ERROR_NONE) {
        __android_log_print(ANDROID_LOG_WARN, LOG_TAG, "lock(%p, ...) failed: %d",
                            static_cast<const void*>(buffer), error);
    }
    return error;
}

namespace {

// Plane and component offsets come from the mapper and may point anywhere: the addresses are
// computed as integers, where wrapping is defined, and only then turned into pointers.
void* addressAt(uintptr_t base, int64_t planeOffset, int64_t componentOffsetInBits) {
    return reinterpret_cast<void*>(base + static_cast<uintptr_t>(planeOffset) +
                                   static_cast<uintptr_t>(componentOffsetInBits / kBitsPerByte));
}

}  // namespace

int32_t MapperV5::lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                       int acquireFence, android_ycbcr* outYcbcr) const {
    if (outYcbcr == nullptr) return AIMAPPER_ERROR_BAD_VALUE;
    std::vector<PlaneLayout> layouts;
    if (getPlaneLayouts(buffer, &layouts) != AIMAPPER_ERROR_NONE) return AIMAPPER_ERROR_BAD_VALUE;
    void* data = nullptr;
    int32_t error = lock(buffer, cpuUsage, region, acquireFence, &data, nullptr, nullptr);
    if (error != AIMAPPER_ERROR_NONE) return error;

    const auto base = reinterpret_cast<uintptr_t>(data);
    android_ycbcr ycbcr{};
    auto fail = [&] {
        (void)unlock(buffer);  // the release fence is dropped as it is
        return AIMAPPER_ERROR_BAD_VALUE;
    };
    for (const auto& plane : layouts) {
        if (mLogLevel != 0) ZLOGD("[%s] %s", plane.toString().c_str());
        for (const auto& component : plane.components) {
            if (!android::gralloc4::isStandardPlaneLayoutComponentType(component.type)) continue;
            if (component.offsetInBits % kBitsPerByte != 0) return fail();
            void* address = addressAt(base, plane.offsetInBytes, component.offsetInBits);
            const auto type = static_cast<PlaneLayoutComponentType>(component.type.value);
            if (type == PlaneLayoutComponentType::Y) {
                if (ycbcr.y != nullptr || component.sizeInBits != kLumaSampleBits ||
                    plane.sampleIncrementInBits != kLumaSampleBits) {
                    return fail();
                }
                ycbcr.y = address;
                ycbcr.ystride = static_cast<size_t>(plane.strideInBytes);
            } else if (type == PlaneLayoutComponentType::CB ||
                       type == PlaneLayoutComponentType::CR) {
                const int64_t increment = plane.sampleIncrementInBits;
                if (increment % kBitsPerByte != 0 ||
                    (increment != kPlanarChromaBits && increment != kInterleavedChromaBits)) {
                    return fail();
                }
                const auto step = static_cast<size_t>(increment / kBitsPerByte);
                if (ycbcr.cstride == 0 && ycbcr.chroma_step == 0) {
                    ycbcr.cstride = static_cast<size_t>(plane.strideInBytes);
                    ycbcr.chroma_step = step;
                } else if (static_cast<int64_t>(ycbcr.cstride) != plane.strideInBytes ||
                           ycbcr.chroma_step != step) {
                    return fail();
                }
                void*& slot = type == PlaneLayoutComponentType::CB ? ycbcr.cb : ycbcr.cr;
                if (slot != nullptr) return fail();
                slot = address;
            }
        }
    }
    // A single plane without components is presented as a Y-only buffer.
    if (layouts.size() == 1 && layouts[0].components.empty()) {
        ycbcr.y = addressAt(base, layouts[0].offsetInBytes, 0);
        ycbcr.ystride = static_cast<size_t>(layouts[0].strideInBytes);
    }
    *outYcbcr = ycbcr;
    return AIMAPPER_ERROR_NONE;
}

int MapperV5::unlock(const native_handle* buffer) const {
    int releaseFence = kNoFence;
    int32_t error = mMapper->v5.unlock(buffer, &releaseFence);
    ipcFlushCommands();
    if (error != AIMAPPER_ERROR_NONE) {
        ZLOGE("[%s] unlock(%p) failed with %d", static_cast<const void*>(buffer), error);
    }
    return releaseFence;
}

template <StandardMetadataType T>
std::optional<MetadataValue<T>> MapperMetadata::getStandardMetadata(const MapperV5& mapper,
                                                                    const native_handle* buffer) {
    const AIMapperV5& v5 = mapper.mMapper->v5;
    std::vector<uint8_t> data(kFirstReadSize);
    int32_t size =
            v5.getStandardMetadata(buffer, static_cast<int64_t>(T), data.data(), data.size());
    mapper.ipcFlushCommands();
    if (size < 0) {
        if (size != -AIMAPPER_ERROR_UNSUPPORTED) {
            ZLOGE("[%s] Received something other than UNSUPPORTED from valid "
                  "getStandardMetadata call");
        }
        return std::nullopt;
    }
    if (static_cast<size_t>(size) > data.size()) {
        data.resize(static_cast<size_t>(size));
        size = v5.getStandardMetadata(buffer, static_cast<int64_t>(T), data.data(), data.size());
        mapper.ipcFlushCommands();
        if (size < 0 || static_cast<size_t>(size) > data.size()) {
            ZLOGE("[%s] Failed to get Gralloc StandardMetadataType (%lu) failed with %d",
                  static_cast<unsigned long>(T), size);
            return std::nullopt;
        }
    }
    return StandardMetadata<T>::value::decode(data.data(), static_cast<size_t>(size));
}

template <StandardMetadataType T>
int32_t MapperMetadata::setStandardMetadata(const MapperV5& mapper, const native_handle* buffer,
                                            const MetadataValue<T>& value) {
    using Encoder = typename StandardMetadata<T>::value;
    const int32_t required = Encoder::encode(value, nullptr, 0);
    if (required < 0) {
        ZLOGE("[%s] Failed to calculate required size");
        return -required;
    }
    std::vector<uint8_t> data(static_cast<size_t>(required));
    const int32_t written = Encoder::encode(value, data.data(), data.size());
    if (written < 0 || static_cast<size_t>(written) > data.size()) {
        ZLOGE("[%s] Failed to encode with calculated size %d; buffer size %zu", written,
              data.size());
        return -written;
    }
    int32_t error = mapper.mMapper->v5.setStandardMetadata(
            buffer, static_cast<int64_t>(T), data.data(), static_cast<size_t>(written));
    mapper.ipcFlushCommands();
    return error;
}

template std::optional<MetadataValue<Type::PLANE_LAYOUTS>>
MapperMetadata::getStandardMetadata<Type::PLANE_LAYOUTS>(const MapperV5&, const native_handle*);
template std::optional<MetadataValue<Type::SMPTE2086>>
MapperMetadata::getStandardMetadata<Type::SMPTE2086>(const MapperV5&, const native_handle*);
template std::optional<MetadataValue<Type::CTA861_3>>
MapperMetadata::getStandardMetadata<Type::CTA861_3>(const MapperV5&, const native_handle*);
template std::optional<MetadataValue<Type::SMPTE2094_40>>
MapperMetadata::getStandardMetadata<Type::SMPTE2094_40>(const MapperV5&, const native_handle*);
template int32_t MapperMetadata::setStandardMetadata<Type::SMPTE2086>(
        const MapperV5&, const native_handle*, const MetadataValue<Type::SMPTE2086>&);
template int32_t MapperMetadata::setStandardMetadata<Type::CTA861_3>(
        const MapperV5&, const native_handle*, const MetadataValue<Type::CTA861_3>&);
template int32_t MapperMetadata::setStandardMetadata<Type::SMPTE2094_40>(
        const MapperV5&, const native_handle*, const MetadataValue<Type::SMPTE2094_40>&);
template int32_t MapperMetadata::setStandardMetadata<Type::SMPTE2094_10>(
        const MapperV5&, const native_handle*, const MetadataValue<Type::SMPTE2094_10>&);

int32_t MapperV5::getPlaneLayouts(const native_handle* buffer,
                                  std::vector<PlaneLayout>* out) const {
    auto layouts = MapperMetadata::getStandardMetadata<Type::PLANE_LAYOUTS>(*this, buffer);
    if (!layouts) return AIMAPPER_ERROR_BAD_VALUE;
    *out = std::move(*layouts);
    return AIMAPPER_ERROR_NONE;
}

namespace {

// Sizes of the caller's records, as the log lines print them.
constexpr int kSmpte2086Size = 40;
constexpr int kCta861_3Size = 8;
constexpr int kHdr10PlusSize = 224;  // the gralloc extension's ge_hdr10p_dynamic_metadata_t
static_assert(sizeof(common::Smpte2086) == kSmpte2086Size);
static_assert(sizeof(common::Cta861_3) == kCta861_3Size);

constexpr int kHighestBit = 7;
constexpr size_t kCharsPerByte = 1 + kBitsPerByte;  // a blank, then the binary digits

// " 00000101 10000000" for the bytes 0x05, 0x80.
std::string binaryText(const std::vector<uint8_t>& bytes) {
    std::string text;
    text.reserve(bytes.size() * kCharsPerByte);
    for (uint8_t byte : bytes) {
        text += ' ';
        for (int bit = kHighestBit; bit >= 0; --bit) text += ((byte >> bit) & 1) ? '1' : '0';
    }
    return text;
}

// The checks that getGrallocMeta and setGrallocMeta share, logged under the caller's name:
// AIMAPPER_ERROR_NONE when the call may go on.
int32_t checkMetaArguments(const char* function, const native_handle* buffer,
                           GRALLOC_STANDARD_METADATA_TYPE type, const void* data, unsigned int size,
                           bool get) {
    if (buffer == nullptr) {
        ZLOGE_FN_AT(function, __LINE__, "[%s] Null buffer handle");
        return AIMAPPER_ERROR_BAD_BUFFER;
    }
    if (data == nullptr) {
        ZLOGE_FN_AT(function, __LINE__, "[%s] Null data pointer");
        return AIMAPPER_ERROR_BAD_VALUE;
    }
    const int given = static_cast<int>(size);
    if (type == GRALLOC_STANDARD_METADATA_SMPTE2086 && given != kSmpte2086Size) {
        ZLOGE_FN_AT(function, __LINE__, "[%s] data_size(%d) != struct size of Smpte2086(%d)", given,
                    kSmpte2086Size);
        return AIMAPPER_ERROR_BAD_VALUE;
    }
    if (type == GRALLOC_STANDARD_METADATA_CTA861_3 && given != kCta861_3Size) {
        ZLOGE_FN_AT(function, __LINE__, "[%s] data_size(%d) != struct size of Cta861_3(%d)", given,
                    kCta861_3Size);
        return AIMAPPER_ERROR_BAD_VALUE;
    }
    if (get && type == GRALLOC_STANDARD_METADATA_SMPTE2094_40 && given != kHdr10PlusSize) {
        ZLOGE_FN_AT(function, __LINE__,
                    "[%s] data_size(%d) != struct size of ge_hdr10p_dynamic_metadata_t(%d)", given,
                    kHdr10PlusSize);
        return AIMAPPER_ERROR_BAD_VALUE;
    }
    return AIMAPPER_ERROR_NONE;
}

}  // namespace

int32_t MapperV5::getGrallocMeta(const native_handle* buffer, GRALLOC_STANDARD_METADATA_TYPE type,
                                 void* data, unsigned int size) const {
    if (int32_t error = checkMetaArguments(__FUNCTION__, buffer, type, data, size, true)) {
        return error;
    }
    switch (type) {
        case GRALLOC_STANDARD_METADATA_SMPTE2086:
            if (auto value = MapperMetadata::getStandardMetadata<Type::SMPTE2086>(*this, buffer);
                value && *value) {
                memcpy(data, &**value, kSmpte2086Size);
            }
            return AIMAPPER_ERROR_NONE;
        case GRALLOC_STANDARD_METADATA_CTA861_3:
            if (auto value = MapperMetadata::getStandardMetadata<Type::CTA861_3>(*this, buffer);
                value && *value) {
                memcpy(data, &**value, kCta861_3Size);
            }
            return AIMAPPER_ERROR_NONE;
        case GRALLOC_STANDARD_METADATA_SMPTE2094_40:
            if (auto value = MapperMetadata::getStandardMetadata<Type::SMPTE2094_40>(*this, buffer);
                value && *value && !(*value)->empty()) {
                // A mapper may store a longer payload than the caller's record holds.
                const std::vector<uint8_t>& payload = **value;
                size_t count = payload.size();
                if (count > size) {
                    ZLOGE("[%s] payload size(%zu) > struct size of "
                          "ge_hdr10p_dynamic_metadata_t(%d)",
                          payload.size(), kHdr10PlusSize);
                    count = size;
                }
                memcpy(data, payload.data(), count);
            }
            return AIMAPPER_ERROR_NONE;
        default:
            return AIMAPPER_ERROR_NONE;
    }
}

int32_t MapperV5::setGrallocMeta(const native_handle* buffer, GRALLOC_STANDARD_METADATA_TYPE type,
                                 void* data, unsigned int size) const {
    if (int32_t error = checkMetaArguments(__FUNCTION__, buffer, type, data, size, false)) {
        return error;
    }
    switch (type) {
        case GRALLOC_STANDARD_METADATA_SMPTE2086: {
            common::Smpte2086 value;
            memcpy(&value, data, kSmpte2086Size);
            return MapperMetadata::setStandardMetadata<Type::SMPTE2086>(*this, buffer, value);
        }
        case GRALLOC_STANDARD_METADATA_CTA861_3: {
            common::Cta861_3 value;
            memcpy(&value, data, kCta861_3Size);
            return MapperMetadata::setStandardMetadata<Type::CTA861_3>(*this, buffer, value);
        }
        case GRALLOC_STANDARD_METADATA_SMPTE2094_40: {
            const std::vector<uint8_t> payload = *static_cast<const std::vector<uint8_t>*>(data);
            if (mLogLevel != 0) {
                const std::string text = binaryText(payload);
                ZLOGD("[%s] HDR10P GrallocMeta Dynamic:%s", text.c_str());
            }
            return MapperMetadata::setStandardMetadata<Type::SMPTE2094_40>(*this, buffer, payload);
        }
        case GRALLOC_STANDARD_METADATA_SMPTE2094_10: {
            const std::vector<uint8_t> payload = *static_cast<const std::vector<uint8_t>*>(data);
            if (mLogLevel != 0) {
                const std::string text = binaryText(payload);
                ZLOGD("[%s] Set Dolby GrallocMeta Dynamic:%s", text.c_str());
            }
            return MapperMetadata::setStandardMetadata<Type::SMPTE2094_10>(*this, buffer, payload);
        }
        default:
            return AIMAPPER_ERROR_NONE;
    }
}

}  // namespace NSCam::GrallocMapperAidlV2
