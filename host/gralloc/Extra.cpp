// The simulated gralloc extension. Attributes come from the buffer's handle and shared
// metadata, so every importer of a buffer sees the same values.
#include <dlfcn.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cstring>

#include "SimBuffer.h"
#include "SimControl.h"

namespace zyncam::sim {
namespace {

constexpr unsigned long kDmaBufSetName = 0x40086201;
// Usage bits of the side that fills the buffer: CPU write, GPU render, camera, video decoder.
constexpr uint64_t kProducerUsage = 0xF0 | 0x200 | 0x20000 | 0x400000;

template <typename T>
void put(void* out, int64_t value) {
    T v = static_cast<T>(value);
    memcpy(out, &v, sizeof(v));
}

// Runs `f` on the buffer's shared metadata; false when the handle is not ours.
template <typename F>
bool withMetadata(buffer_handle_t handle, F&& f) {
    if (!decodeHandle(handle)) return false;
    SharedMetadata* m = mapMetadata(metadataFd(handle));
    if (m == nullptr) return false;
    m->lock();
    f(*m);
    m->unlock();
    unmapMetadata(m);
    return true;
}

// The memfd names of this gralloc's pixel memory.
bool isSimPixelFd(int fd) {
    char link[64], target[256];
    snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
    ssize_t n = readlink(link, target, sizeof(target) - 1);
    if (n <= 0) return false;
    target[n] = '\0';
    return strncmp(target, "/memfd:zyncam-gralloc ", 22) == 0;
}

}  // namespace
}  // namespace zyncam::sim

using namespace zyncam::sim;

extern "C" int gralloc_extra_query(buffer_handle_t handle, GRALLOC_EXTRA_ATTRIBUTE_QUERY attribute,
                                   void* out) {
    auto [failure, override] = withControl([&](Control& c) {
        ++c.counters.extraQueries;
        auto f = c.faults.extraFailures.find(attribute);
        auto o = c.faults.extraOverrides.find(attribute);
        return std::pair{f == c.faults.extraFailures.end() ? std::optional<int32_t>()
                                                           : std::optional(f->second),
                         o == c.faults.extraOverrides.end() ? std::optional<int64_t>()
                                                            : std::optional(o->second)};
    });
    if (failure) return *failure;
    std::optional<BufferDesc> d = decodeHandle(handle);
    if (!d || out == nullptr) return -EINVAL;
    int64_t value = 0;
    switch (attribute) {
        case GRALLOC_EXTRA_GET_ION_FD:
            value = pixelFd(handle);
            break;
        case GRALLOC_EXTRA_GET_WIDTH:
            value = d->width;
            break;
        case GRALLOC_EXTRA_GET_HEIGHT:
            value = d->height;
            break;
        case GRALLOC_EXTRA_GET_STRIDE:
            value = d->stride;
            break;
        case GRALLOC_EXTRA_GET_VERTICAL_STRIDE:
            value = d->rows;
            break;
        case GRALLOC_EXTRA_GET_ALLOC_SIZE:
            value = static_cast<int64_t>(d->allocSize);
            break;
        case GRALLOC_EXTRA_GET_FORMAT:
            value = d->format;
            break;
        case GRALLOC_EXTRA_GET_USAGE:
            value = static_cast<uint32_t>(d->usage);
            break;
        case GRALLOC_EXTRA_GET_ID:
            value = static_cast<int64_t>(d->id);
            break;
        case GRALLOC_EXTRA_GET_CONSUMER_USAGE:
        case GRALLOC_EXTRA_GET_PRODUCER_USAGE: {
            const bool producer = attribute == GRALLOC_EXTRA_GET_PRODUCER_USAGE;
            value = static_cast<uint32_t>(d->usage & (producer ? kProducerUsage : ~kProducerUsage));
            // An exact answer of the profile says what the device reported.
            if (d->exactAnswer && !withMetadata(handle, [&](SharedMetadata& m) {
                    value = producer ? m.exact.producerUsage : m.exact.consumerUsage;
                })) {
                return -EINVAL;
            }
            break;
        }
        case GRALLOC_EXTRA_GET_SF_INFO: {
            GrallocExtraSfInfo info{};
            if (!withMetadata(handle, [&](SharedMetadata& m) { info = m.sfInfo; })) return -EINVAL;
            if (override) info.status = static_cast<uint32_t>(*override);
            memcpy(out, &info, sizeof(info));
            return 0;
        }
        default:
            return -EINVAL;
    }
    if (override) value = *override;
    if (attribute == GRALLOC_EXTRA_GET_ALLOC_SIZE || attribute == GRALLOC_EXTRA_GET_ID) {
        put<uint64_t>(out, value);
    } else {
        put<uint32_t>(out, value);
    }
    return 0;
}

extern "C" int gralloc_extra_perform(buffer_handle_t handle,
                                     GRALLOC_EXTRA_ATTRIBUTE_PERFORM attribute, void* in) {
    withControl([](Control& c) { ++c.counters.extraPerforms; });
    if (in == nullptr) return -EINVAL;
    bool known = true;
    bool ours = withMetadata(handle, [&](SharedMetadata& m) {
        switch (attribute) {
            case GRALLOC_EXTRA_SET_SF_INFO:
                memcpy(&m.sfInfo, in, sizeof(m.sfInfo));
                break;
            case GRALLOC_EXTRA_SET_SOF_TIME:
                memcpy(&m.sofTime, in, sizeof(m.sofTime));
                break;
            default:
                known = false;
        }
    });
    return ours && known ? 0 : -EINVAL;
}

extern "C" int gralloc_extra_sf_set_status(GrallocExtraSfInfo* sfInfo, int32_t mask,
                                           int32_t value) {
    if (sfInfo == nullptr) return -EINVAL;
    const uint32_t m = static_cast<uint32_t>(mask);
    sfInfo->status = (sfInfo->status & ~m) | (static_cast<uint32_t>(value) & m);
    return 0;
}

extern "C" int gralloc_extra_get_platform_format(int format, uint64_t usage) {
    std::optional<BufferDesc> d = resolve(64, 64, format, usage, 1).desc;
    return d ? d->format : format;
}

// Naming a dma-buf: the simulated buffers are memfds, which have no dma-buf name, so the request
// is answered here and recorded; every other ioctl goes to the C library.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list ap;
    va_start(ap, request);
    void* arg = va_arg(ap, void*);
    va_end(ap);
    if (request == kDmaBufSetName && isSimPixelFd(fd)) {
        const char* name = static_cast<const char*>(arg);
        withControl([&](Control& c) { c.dmaBufNames.emplace_back(name ? name : ""); });
        return 0;
    }
    using Ioctl = int (*)(int, unsigned long, ...);
    static Ioctl next = reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
    return next(fd, request, arg);
}
