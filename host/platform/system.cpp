// libutils clocks, libsync fences, libvndksupport loading and the hardware binder's per-thread
// state, as they behave on Linux.
#include <android/log.h>
#include <android/sync.h>
#include <hwbinder/IPCThreadState.h>
#include <utils/Timers.h>
#include <vndksupport/linker.h>

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include <zyncam_host/Platform.h>

nsecs_t systemTime(int clock) {
    static constexpr clockid_t kClocks[] = {CLOCK_REALTIME, CLOCK_MONOTONIC,
                                            CLOCK_PROCESS_CPUTIME_ID, CLOCK_THREAD_CPUTIME_ID,
                                            CLOCK_BOOTTIME};
    if (clock < 0 || clock >= 5) {
        __android_log_assert(nullptr, "Timers", "invalid clock id %d", clock);
    }
    timespec t{};
    clock_gettime(kClocks[clock], &t);
    return static_cast<nsecs_t>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

namespace {

std::atomic<zyncam::host::FdObserver> gFdObserver{nullptr};
std::atomic<zyncam::host::IoctlHandler> gIoctlHandler{nullptr};

// Reports a call to the observer, if any, keeping the call's errno.
int observed(zyncam::host::FdCall call, int fd, int timeout, int result) {
    if (zyncam::host::FdObserver observer = gFdObserver.load(std::memory_order_acquire)) {
        const int saved = errno;
        observer(call, fd, timeout, result);
        errno = saved;
    }
    return result;
}

int waitFor(int fd, int timeout) {
    if (fd < 0) {
        errno = EINVAL;
        return -1;
    }
    pollfd p{fd, POLLIN, 0};
    int ret;
    do {
        ret = poll(&p, 1, timeout);
        if (ret > 0) {
            if (p.revents & (POLLERR | POLLNVAL)) {
                errno = EINVAL;
                return -1;
            }
            return 0;
        }
        if (ret == 0) {
            errno = ETIME;
            return -1;
        }
    } while (errno == EINTR || errno == EAGAIN);
    return ret;
}

}  // namespace

extern "C" int sync_wait(int fd, int timeout) {
    return observed(zyncam::host::FdCall::SyncWait, fd, timeout, waitFor(fd, timeout));
}

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list ap;
    va_start(ap, request);
    void* arg = va_arg(ap, void*);
    va_end(ap);
    int result = 0;
    zyncam::host::IoctlHandler handler = gIoctlHandler.load(std::memory_order_acquire);
    if (handler != nullptr && handler(fd, request, arg, &result)) return result;
    using Ioctl = int (*)(int, unsigned long, ...);
    static const Ioctl next = reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
    return next(fd, request, arg);
}

// Closing goes through here so that the closing of fences can be observed; it is the C library's
// close otherwise.
extern "C" int close(int fd) {
    using Close = int (*)(int);
    static const Close next = reinterpret_cast<Close>(dlsym(RTLD_NEXT, "close"));
    return observed(zyncam::host::FdCall::Close, fd, 0, next(fd));
}

namespace {

std::mutex gSphalLock;

// Default: the "hw" folder beside this library, where the build puts the mapper.
std::string& sphalPath() {
    static std::string path = [] {
        if (const char* env = getenv("ZYNCAM_SPHAL_PATH")) return std::string(env);
        Dl_info info{};
        if (dladdr(reinterpret_cast<void*>(&sync_wait), &info) && info.dli_fname) {
            std::string self = info.dli_fname;
            size_t slash = self.rfind('/');
            return (slash == std::string::npos ? std::string(".") : self.substr(0, slash)) + "/hw";
        }
        return std::string("hw");
    }();
    return path;
}

std::atomic<bool> gThreadStateAvailable{true};
std::atomic<uint64_t> gFlushes{0};

}  // namespace

extern "C" void* android_load_sphal_library(const char* name, int flag) {
    std::string path;
    {
        std::lock_guard<std::mutex> lock(gSphalLock);
        path = sphalPath();
    }
    // Split by hand: setting up a string stream costs more than the loading it would serve.
    for (size_t start = 0; start <= path.size();) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        if (end != start) {
            const std::string candidate = path.substr(start, end - start) + "/" + name;
            if (void* handle = dlopen(candidate.c_str(), flag)) return handle;
        }
        start = end + 1;
    }
    __android_log_print(ANDROID_LOG_ERROR, "vndksupport", "Could not load %s from \"%s\": %s", name,
                        path.c_str(), dlerror());
    return nullptr;
}

extern "C" int android_unload_sphal_library(void* handle) {
    return dlclose(handle);
}

extern "C" int android_is_in_vendor_process(void) {
    return 1;
}

namespace android::hardware {

IPCThreadState* IPCThreadState::self() {
    if (!gThreadStateAvailable.load()) return nullptr;
    thread_local std::unique_ptr<IPCThreadState> state(new IPCThreadState);
    return state.get();
}

void IPCThreadState::flushCommands() {
    ++mFlushes;
    gFlushes.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace android::hardware

namespace zyncam::host {

std::string sphalSearchPath() {
    std::lock_guard<std::mutex> lock(gSphalLock);
    return sphalPath();
}

void setSphalSearchPath(const std::string& path) {
    std::lock_guard<std::mutex> lock(gSphalLock);
    sphalPath() = path;
}

void setBinderThreadStateAvailable(bool available) {
    gThreadStateAvailable = available;
}

uint64_t binderFlushCount() {
    return gFlushes.load();
}

void setFdObserver(FdObserver observer) {
    gFdObserver.store(observer, std::memory_order_release);
}

void setIoctlHandler(IoctlHandler handler) {
    gIoctlHandler.store(handler, std::memory_order_release);
}

int openFdCount() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(dir)) {
            if (entry->d_name[0] != '.') ++count;
        }
        closedir(dir);
        --count;  // the descriptor of the listing itself
    }
    return count;
}

}  // namespace zyncam::host
