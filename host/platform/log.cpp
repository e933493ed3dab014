// liblog on the host: lines go to stderr in logcat's threadtime shape and to an observer.
#include <android/log.h>

#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include <zyncam_host/Platform.h>

namespace {

std::mutex gObserverLock;
zyncam::host::LogObserver gObserver = nullptr;
void* gObserverContext = nullptr;
std::atomic<bool> gToStderr{true};

char priorityLetter(int prio) {
    static const char kLetters[] = "??VDIWEFS";
    return (prio >= 0 && prio <= ANDROID_LOG_SILENT) ? kLetters[prio] : '?';
}

void emit(int prio, const char* tag, const char* text) {
    if (tag == nullptr) tag = "";
    if (text == nullptr) text = "";
    {
        std::lock_guard<std::mutex> lock(gObserverLock);
        if (gObserver != nullptr) gObserver(gObserverContext, prio, tag, text);
    }
    if (!gToStderr.load(std::memory_order_relaxed)) return;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &local);
    fprintf(stderr, "%s.%03ld %5d %5ld %c %s: %s\n", stamp, now.tv_nsec / 1000000, getpid(),
            static_cast<long>(syscall(SYS_gettid)), priorityLetter(prio), tag, text);
}

}  // namespace

namespace zyncam::host {

void setLogObserver(LogObserver observer, void* context) {
    std::lock_guard<std::mutex> lock(gObserverLock);
    gObserver = observer;
    gObserverContext = context;
}

void setLogToStderr(bool on) {
    gToStderr = on;
}

}  // namespace zyncam::host

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    emit(prio, tag, text);
    return 1;
}

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    char line[4096];
    vsnprintf(line, sizeof(line), fmt, ap);
    emit(prio, tag, line);
    return 1;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int result = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return result;
}

extern "C" void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    char line[4096];
    if (fmt != nullptr) {
        va_list ap;
        va_start(ap, fmt);
        vsnprintf(line, sizeof(line), fmt, ap);
        va_end(ap);
    } else if (cond != nullptr) {
        snprintf(line, sizeof(line), "Assertion failed: %s", cond);
    } else {
        snprintf(line, sizeof(line), "Unspecified assertion failed");
    }
    emit(ANDROID_LOG_FATAL, tag, line);
    // stderr gets the message even when the threadtime copy is switched off.
    if (!gToStderr.load()) fprintf(stderr, "%s: %s\n", tag ? tag : "", line);
    abort();
}
