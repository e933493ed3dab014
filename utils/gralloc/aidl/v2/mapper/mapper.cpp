// The mapper adapter: loading AIMapper v5, buffer calls and standard metadata.
#define LOG_TAG "ZynCam/GrallocMapperAidlV2"
#define LOG_FILE "utils/gralloc/aidl/v2/mapper/mapper"

#include "GrallocMapperAidlV2.h"

#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <android/sync.h>
#include <cutils/properties.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gralloctypes/Gralloc4.h>
#include <hwbinder/IPCThreadState.h>
#include <unistd.h>
#include <vndksupport/linker.h>

#include <cstring>
#include <string>

#include "logging/GrallocLog.h"

namespace NSCam::GrallocMapperAidlV2 {

namespace {

namespace common = aidl::android::hardware::graphics::common;
using android::hardware::graphics::mapper::StandardMetadata;
using common::PlaneLayoutComponentType;

constexpr size_t kFirstReadSize = 512;
constexpr int32_t kBadValue = AIMAPPER_ERROR_BAD_VALUE;

using LoadIMapper = AIMapper_Error (*)(AIMapper** outImplementation);

// The mapper closes the fence it is given, and the caller's descriptor is closed by the lock
// itself, so the mapper gets a duplicate. Without one, the wait happens here and it gets none.
int fenceForMapper(int acquireFence) {
    if (acquireFence < 0) return -1;
    const int duplicate = fcntl(acquireFence, F_DUPFD_CLOEXEC, 0);
    if (duplicate >= 0) return duplicate;
    (void)sync_wait(acquireFence, -1);
    return -1;
}

}  // namespace

MapperV5::MapperV5(std::shared_ptr<IAllocator> allocator)
    : mAllocator(std::move(allocator)), mLogLevel(0) {
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
    mLogLevel = property_get_int32("debug.zyncam.utils.gralloc.loglevel", 0);
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
        ZLOGE("[%s] freeBuffer(%p) failed with %d", buffer, error);
    }
    return error;
}

int32_t MapperV5::lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                       int acquireFence, void** outData) const {
    int32_t error =
            mMapper->v5.lock(buffer, cpuUsage, region, fenceForMapper(acquireFence), outData);
    ipcFlushCommands();
    if (error != AIMAPPER_ERROR_NONE) {
        ZLOGE("[%s] IMapper->lock error happen, err=%u", static_cast<uint32_t>(error));
    }
    if (acquireFence >= 0) close(acquireFence);
    return error;
}

int32_t MapperV5::lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                       int acquireFence, void** outData, int* outBytesPerPixel,
                       int* outBytesPerStride) const {
    std::vector<PlaneLayout> layouts;
    if (getPlaneLayouts(buffer, &layouts) == 0 && !layouts.empty()) {
        if (outBytesPerPixel != nullptr) {
            const int64_t increment = layouts[0].sampleIncrementInBits;
            bool same = true;
            for (const auto& plane : layouts) same &= plane.sampleIncrementInBits == increment;
            *outBytesPerPixel = (same && increment >= 0 && increment % 8 == 0)
                                        ? static_cast<int>(increment / 8)
                                        : -1;
        }
        if (outBytesPerStride != nullptr) {
            const int64_t stride = layouts[0].strideInBytes;
            bool same = true;
            for (const auto& plane : layouts) same &= plane.strideInBytes == stride;
            *outBytesPerStride = (same && stride >= 0) ? static_cast<int>(stride) : -1;
        }
    }
    int32_t error =
            mMapper->v5.lock(buffer, cpuUsage, region, fenceForMapper(acquireFence), outData);
    ipcFlushCommands();
    if (acquireFence >= 0) close(acquireFence);
    if (error != AIMAPPER_ERROR_NONE) {
        __android_log_print(ANDROID_LOG_WARN, LOG_TAG, "lock(%p, ...) failed: %d", buffer, error);
    }
    return error;
}

int32_t MapperV5::lock(const native_handle* buffer, uint64_t cpuUsage, const ARect& region,
                       int acquireFence, android_ycbcr* outYcbcr) const {
    if (outYcbcr == nullptr) return kBadValue;
    std::vector<PlaneLayout> layouts;
    if (getPlaneLayouts(buffer, &layouts) != 0) return kBadValue;
    void* data = nullptr;
    int32_t error = lock(buffer, cpuUsage, region, acquireFence, &data, nullptr, nullptr);
    if (error != AIMAPPER_ERROR_NONE) return error;

    auto* base = static_cast<uint8_t*>(data);
    android_ycbcr ycbcr{};
    auto fail = [&] {
        (void)unlock(buffer);  // the release fence is dropped as it is
        return kBadValue;
    };
    for (const auto& plane : layouts) {
        if (mLogLevel != 0) ZLOGD("[%s] %s", plane.toString().c_str());
        for (const auto& component : plane.components) {
            if (!android::gralloc4::isStandardPlaneLayoutComponentType(component.type)) continue;
            if (component.offsetInBits % 8 != 0) return fail();
            uint8_t* address = base + plane.offsetInBytes + component.offsetInBits / 8;
            const auto type = static_cast<PlaneLayoutComponentType>(component.type.value);
            if (type == PlaneLayoutComponentType::Y) {
                if (ycbcr.y != nullptr || component.sizeInBits != 8 ||
                    plane.sampleIncrementInBits != 8) {
                    return fail();
                }
                ycbcr.y = address;
                ycbcr.ystride = static_cast<size_t>(plane.strideInBytes);
            } else if (type == PlaneLayoutComponentType::CB ||
                       type == PlaneLayoutComponentType::CR) {
                const int64_t increment = plane.sampleIncrementInBits;
                if (increment % 8 != 0 || (increment != 8 && increment != 16)) return fail();
                const size_t step = static_cast<size_t>(increment / 8);
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
        ycbcr.y = base + layouts[0].offsetInBytes;
        ycbcr.ystride = static_cast<size_t>(layouts[0].strideInBytes);
    }
    *outYcbcr = ycbcr;
    return AIMAPPER_ERROR_NONE;
}

int MapperV5::unlock(const native_handle* buffer) const {
    int releaseFence = -1;
    int32_t error = mMapper->v5.unlock(buffer, &releaseFence);
    ipcFlushCommands();
    if (error != AIMAPPER_ERROR_NONE) {
        ZLOGE("[%s] unlock(%p) failed with %d", buffer, error);
    }
    return releaseFence;
}

template <MapperV5::StandardMetadataType T>
std::optional<MapperV5::MetadataValue<T>> MapperV5::getStandardMetadata(
        const native_handle* buffer) const {
    std::vector<uint8_t> data(kFirstReadSize);
    int32_t size = mMapper->v5.getStandardMetadata(buffer, static_cast<int64_t>(T), data.data(),
                                                   data.size());
    ipcFlushCommands();
    if (size < 0) {
        if (size != -AIMAPPER_ERROR_UNSUPPORTED) {
            ZLOGE("[%s] Received something other than UNSUPPORTED from valid "
                  "getStandardMetadata call");
        }
        return std::nullopt;
    }
    if (static_cast<size_t>(size) > data.size()) {
        data.resize(static_cast<size_t>(size));
        size = mMapper->v5.getStandardMetadata(buffer, static_cast<int64_t>(T), data.data(),
                                               data.size());
        ipcFlushCommands();
        if (size < 0 || static_cast<size_t>(size) > data.size()) {
            ZLOGE("[%s] Failed to get Gralloc StandardMetadataType (%lu) failed with %d",
                  static_cast<unsigned long>(T), size);
            return std::nullopt;
        }
    }
    return StandardMetadata<T>::value::decode(data.data(), static_cast<size_t>(size));
}

template <MapperV5::StandardMetadataType T>
int32_t MapperV5::setStandardMetadata(const native_handle* buffer,
                                      const MetadataValue<T>& value) const {
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
    int32_t error = mMapper->v5.setStandardMetadata(buffer, static_cast<int64_t>(T), data.data(),
                                                    static_cast<size_t>(written));
    ipcFlushCommands();
    return error;
}

using Type = MapperV5::StandardMetadataType;
template std::optional<MapperV5::MetadataValue<Type::PLANE_LAYOUTS>>
MapperV5::getStandardMetadata<Type::PLANE_LAYOUTS>(const native_handle*) const;
template std::optional<MapperV5::MetadataValue<Type::SMPTE2086>>
MapperV5::getStandardMetadata<Type::SMPTE2086>(const native_handle*) const;
template std::optional<MapperV5::MetadataValue<Type::CTA861_3>>
MapperV5::getStandardMetadata<Type::CTA861_3>(const native_handle*) const;
template std::optional<MapperV5::MetadataValue<Type::SMPTE2094_40>>
MapperV5::getStandardMetadata<Type::SMPTE2094_40>(const native_handle*) const;
template int32_t MapperV5::setStandardMetadata<Type::SMPTE2086>(
        const native_handle*, const MetadataValue<Type::SMPTE2086>&) const;
template int32_t MapperV5::setStandardMetadata<Type::CTA861_3>(
        const native_handle*, const MetadataValue<Type::CTA861_3>&) const;
template int32_t MapperV5::setStandardMetadata<Type::SMPTE2094_40>(
        const native_handle*, const MetadataValue<Type::SMPTE2094_40>&) const;
template int32_t MapperV5::setStandardMetadata<Type::SMPTE2094_10>(
        const native_handle*, const MetadataValue<Type::SMPTE2094_10>&) const;

int32_t MapperV5::getPlaneLayouts(const native_handle* buffer,
                                  std::vector<PlaneLayout>* out) const {
    auto layouts = getStandardMetadata<Type::PLANE_LAYOUTS>(buffer);
    if (!layouts) return kBadValue;
    *out = std::move(*layouts);
    return AIMAPPER_ERROR_NONE;
}

namespace {

constexpr unsigned int kSmpte2086Size = 40;
constexpr unsigned int kCta861_3Size = 8;
constexpr unsigned int kHdr10PlusSize = 224;  // the gralloc extension's HDR10+ record
static_assert(sizeof(common::Smpte2086) == kSmpte2086Size);
static_assert(sizeof(common::Cta861_3) == kCta861_3Size);

// " 00000101 10000000" for the bytes 0x05, 0x80.
std::string binaryText(const std::vector<uint8_t>& bytes) {
    std::string text;
    text.reserve(bytes.size() * 9);
    for (uint8_t byte : bytes) {
        text += ' ';
        for (int bit = 7; bit >= 0; --bit) text += ((byte >> bit) & 1) ? '1' : '0';
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
        return kBadValue;
    }
    if (type == GRALLOC_STANDARD_METADATA_SMPTE2086 && size != kSmpte2086Size) {
        ZLOGE_FN_AT(function, __LINE__, "[%s] data_size(%d) != struct size of Smpte2086(%d)", size,
                    kSmpte2086Size);
        return kBadValue;
    }
    if (type == GRALLOC_STANDARD_METADATA_CTA861_3 && size != kCta861_3Size) {
        ZLOGE_FN_AT(function, __LINE__, "[%s] data_size(%d) != struct size of Cta861_3(%d)", size,
                    kCta861_3Size);
        return kBadValue;
    }
    if (get && type == GRALLOC_STANDARD_METADATA_SMPTE2094_40 && size != kHdr10PlusSize) {
        ZLOGE_FN_AT(function, __LINE__,
                    "[%s] data_size(%d) != struct size of ge_hdr10p_dynamic_metadata_t(%d)", size,
                    kHdr10PlusSize);
        return kBadValue;
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
            if (auto value = getStandardMetadata<Type::SMPTE2086>(buffer); value && *value) {
                memcpy(data, &**value, kSmpte2086Size);
            }
            return AIMAPPER_ERROR_NONE;
        case GRALLOC_STANDARD_METADATA_CTA861_3:
            if (auto value = getStandardMetadata<Type::CTA861_3>(buffer); value && *value) {
                memcpy(data, &**value, kCta861_3Size);
            }
            return AIMAPPER_ERROR_NONE;
        case GRALLOC_STANDARD_METADATA_SMPTE2094_40:
            // The mapper never stores more than the record holds.
            if (auto value = getStandardMetadata<Type::SMPTE2094_40>(buffer);
                value && *value && !(*value)->empty()) {
                memcpy(data, (*value)->data(), (*value)->size());
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
            return setStandardMetadata<Type::SMPTE2086>(buffer, value);
        }
        case GRALLOC_STANDARD_METADATA_CTA861_3: {
            common::Cta861_3 value;
            memcpy(&value, data, kCta861_3Size);
            return setStandardMetadata<Type::CTA861_3>(buffer, value);
        }
        case GRALLOC_STANDARD_METADATA_SMPTE2094_40: {
            const std::vector<uint8_t> payload = *static_cast<const std::vector<uint8_t>*>(data);
            if (mLogLevel != 0) {
                const std::string text = binaryText(payload);
                ZLOGD("[%s] HDR10P GrallocMeta Dynamic:%s", text.c_str());
            }
            return setStandardMetadata<Type::SMPTE2094_40>(buffer, payload);
        }
        case GRALLOC_STANDARD_METADATA_SMPTE2094_10: {
            const std::vector<uint8_t> payload = *static_cast<const std::vector<uint8_t>*>(data);
            if (mLogLevel != 0) {
                const std::string text = binaryText(payload);
                ZLOGD("[%s] Set Dolby GrallocMeta Dynamic:%s", text.c_str());
            }
            return setStandardMetadata<Type::SMPTE2094_10>(buffer, payload);
        }
        default:
            return AIMAPPER_ERROR_NONE;
    }
}

}  // namespace NSCam::GrallocMapperAidlV2
