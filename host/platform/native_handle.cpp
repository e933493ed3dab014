// libcutils native handles, with the platform's checks and ownership rules.
#include <cutils/native_handle.h>

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {
constexpr int kVersion = sizeof(native_handle_t);

bool validCounts(int numFds, int numInts) {
    return numFds >= 0 && numInts >= 0 && numFds <= NATIVE_HANDLE_MAX_FDS &&
           numInts <= NATIVE_HANDLE_MAX_INTS;
}
}  // namespace

extern "C" native_handle_t* native_handle_init(char* storage, int numFds, int numInts) {
    if (reinterpret_cast<uintptr_t>(storage) % alignof(native_handle_t) != 0) {
        errno = EINVAL;
        return nullptr;
    }
    auto* handle = reinterpret_cast<native_handle_t*>(storage);
    handle->version = kVersion;
    handle->numFds = numFds;
    handle->numInts = numInts;
    return handle;
}

extern "C" native_handle_t* native_handle_create(int numFds, int numInts) {
    if (!validCounts(numFds, numInts)) {
        errno = EINVAL;
        return nullptr;
    }
    size_t size = sizeof(native_handle_t) + sizeof(int) * (numFds + numInts);
    auto* handle = static_cast<native_handle_t*>(malloc(size));
    if (handle == nullptr) return nullptr;
    handle->version = kVersion;
    handle->numFds = numFds;
    handle->numInts = numInts;
    return handle;
}

extern "C" int native_handle_delete(native_handle_t* h) {
    if (h == nullptr) return 0;
    if (h->version != kVersion) return -EINVAL;
    free(h);
    return 0;
}

extern "C" int native_handle_close(const native_handle_t* h) {
    if (h == nullptr) return 0;
    if (h->version != kVersion) return -EINVAL;
    int saved = errno;
    for (int i = 0; i < h->numFds; ++i) close(h->data[i]);
    errno = saved;
    return 0;
}

extern "C" native_handle_t* native_handle_clone(const native_handle_t* handle) {
    native_handle_t* clone = native_handle_create(handle->numFds, handle->numInts);
    if (clone == nullptr) return nullptr;
    for (int i = 0; i < handle->numFds; ++i) {
        clone->data[i] = dup(handle->data[i]);
        if (clone->data[i] == -1) {
            clone->numFds = i;
            native_handle_close(clone);
            native_handle_delete(clone);
            return nullptr;
        }
    }
    memcpy(&clone->data[handle->numFds], &handle->data[handle->numFds],
           sizeof(int) * handle->numInts);
    return clone;
}
