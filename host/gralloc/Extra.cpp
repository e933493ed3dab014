// The simulated gralloc extension. Attributes come from the buffer's handle and shared
// metadata, so every importer of a buffer sees the same values.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <zyncam_host/Platform.h>

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

// The memfd names of this gralloc's pixel memory.
bool isSimPixelFd(int fd) {
    char link[64], target[256];
    snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
    ssize_t n = readlink(link, target, sizeof(target) - 1);
    if (n <= 0) return false;
    target[n] = '\0';
    return strncmp(target, "/memfd:zyncam-gralloc ", 22) == 0;
}

// Records an extension call in the journal.
int journaled(Call call, buffer_handle_t handle, int64_t attribute, int result, size_t bytes) {
    if (journalOn()) {
        JournalEntry e = journalEntry(call, handle, result);
        e.attribute = attribute;
        e.bytesWritten = bytes;
        journalAppend(e);
    }
    return result;
}

// What a query of `attribute` writes: the SF-info record, a 64-bit size or id, or 32 bits.
size_t answerSize(int attribute) {
    switch (attribute) {
        case GRALLOC_EXTRA_GET_SF_INFO:
            return sizeof(GrallocExtraSfInfo);
        case GRALLOC_EXTRA_GET_ALLOC_SIZE:
        case GRALLOC_EXTRA_GET_ID:
            return sizeof(uint64_t);
        default:
            return sizeof(uint32_t);
    }
}

int query(buffer_handle_t handle, int attribute, void* out) {
    auto [failure, override] = withControl([&](Control& c) {
        ++c.counters.extraQueries;
        return std::pair{lookup(c.faults.extraFailures, attribute),
                         lookup(c.faults.extraOverrides, attribute)};
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
            if (d->exactAnswer) {
                uint32_t consumerUsage = 0, producerUsage = 0;
                if (!readExactUsages(metadataFd(handle), &consumerUsage, &producerUsage)) {
                    return -EINVAL;
                }
                value = producer ? producerUsage : consumerUsage;
            }
            break;
        }
        case GRALLOC_EXTRA_GET_SF_INFO: {
            GrallocExtraSfInfo info{};
            if (!readSfInfo(metadataFd(handle), &info)) return -EINVAL;
            if (override) info.status = static_cast<uint32_t>(*override);
            memcpy(out, &info, sizeof(info));
            return 0;
        }
        default:
            return -EINVAL;
    }
    if (override) value = *override;
    if (answerSize(attribute) == sizeof(uint64_t)) {
        put<uint64_t>(out, value);
    } else {
        put<uint32_t>(out, value);
    }
    return 0;
}

int perform(buffer_handle_t handle, int attribute, void* in) {
    const std::optional<int32_t> fault = withControl([&](Control& c) {
        ++c.counters.extraPerforms;
        return lookup(c.faults.performFailures, attribute);
    });
    if (fault) return *fault;
    if (in == nullptr) return -EINVAL;
    if (!decodeHandle(handle)) return -EINVAL;
    switch (attribute) {
        case GRALLOC_EXTRA_SET_SF_INFO: {
            GrallocExtraSfInfo info;
            memcpy(&info, in, sizeof(info));
            return writeSfInfo(metadataFd(handle), info) ? 0 : -EINVAL;
        }
        case GRALLOC_EXTRA_SET_SOF_TIME: {
            uint64_t time;
            memcpy(&time, in, sizeof(time));
            return writeSofTime(metadataFd(handle), time) ? 0 : -EINVAL;
        }
        default:
            return -EINVAL;
    }
}

}  // namespace
}  // namespace zyncam::sim

using namespace zyncam::sim;

extern "C" int gralloc_extra_query(buffer_handle_t handle, GRALLOC_EXTRA_ATTRIBUTE_QUERY attribute,
                                   void* out) {
    const int result = query(handle, attribute, out);
    return journaled(Call::ExtraQuery, handle, attribute, result,
                     result == 0 ? answerSize(attribute) : 0);
}

extern "C" int gralloc_extra_perform(buffer_handle_t handle,
                                     GRALLOC_EXTRA_ATTRIBUTE_PERFORM attribute, void* in) {
    const int result = perform(handle, attribute, in);
    const size_t stored =
            attribute == GRALLOC_EXTRA_SET_SF_INFO ? sizeof(GrallocExtraSfInfo) : sizeof(uint64_t);
    return journaled(Call::ExtraPerform, handle, attribute, result, result == 0 ? stored : 0);
}

extern "C" int gralloc_extra_sf_set_status(GrallocExtraSfInfo* sfInfo, int32_t mask,
                                           int32_t value) {
    const std::optional<int32_t> fault =
            withControl([](Control& c) { return c.faults.sfSetStatus; });
    int result = -EINVAL;
    if (fault) {
        result = *fault;
    } else if (sfInfo != nullptr) {
        const uint32_t m = static_cast<uint32_t>(mask);
        sfInfo->status = (sfInfo->status & ~m) | (static_cast<uint32_t>(value) & m);
        result = 0;
    }
    return journaled(Call::ExtraSfSetStatus, nullptr, mask, result,
                     result == 0 ? sizeof(sfInfo->status) : 0);
}

extern "C" int gralloc_extra_get_platform_format(int format, uint64_t usage) {
    std::optional<int32_t> answer = withControl([](Control& c) { return c.faults.platformFormat; });
    if (!answer) {
        std::optional<BufferDesc> d = resolve(64, 64, format, usage, 1).desc;
        answer = d ? d->format : format;
    }
    if (journalOn()) {
        JournalEntry e = journalEntry(Call::ExtraPlatformFormat, nullptr, *answer);
        e.attribute = format;
        e.usage = usage;
        journalAppend(e);
    }
    return *answer;
}

namespace zyncam::sim {
namespace {

// Naming a dma-buf: the simulated buffers are memfds, which have no dma-buf name, so the request
// is answered here and recorded; every other ioctl goes to the C library.
bool nameDmaBuf(int fd, unsigned long request, void* arg, int* result) {
    if (request != kDmaBufSetName || !isSimPixelFd(fd)) return false;
    const char* name = static_cast<const char*>(arg);
    const int error = withControl([&](Control& c) {
        if (c.faults.dmaBufNameErrno != 0) return c.faults.dmaBufNameErrno;
        if (c.dmaBufNames.size() == kDmaBufNameHistoryLimit) c.dmaBufNames.pop_front();
        c.dmaBufNames.emplace_back(name ? name : "");
        return 0;
    });
    *result = error == 0 ? 0 : -1;
    if (error != 0) errno = error;
    return true;
}

// The platform's ioctl sees the naming requests of every program that loads this gralloc.
struct IoctlRegistration {
    IoctlRegistration() { host::setIoctlHandler(nameDmaBuf); }
} gIoctlRegistration;

}  // namespace
}  // namespace zyncam::sim
