// Host-only controls of the simulated platform: observers, the property store, the sphal search
// path and the per-thread binder state. Tests and tools include this; the library never does.
#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <string>

namespace zyncam::host {

// Receives every Android-log line (after it is formatted) from any thread.
using LogObserver = void (*)(void* context, int prio, const char* tag, const char* text);
void setLogObserver(LogObserver observer, void* context);
// Whether Android-log lines are also printed to stderr (on by default).
void setLogToStderr(bool on);

// Property store.
void propertyClear(const char* key);
void propertyClearAll();
// Loads "key=value" lines; returns false when the file cannot be read.
bool propertyLoadFile(const char* path);

// Directories searched by android_load_sphal_library, separated by ':'.
std::string sphalSearchPath();
void setSphalSearchPath(const std::string& path);

// Binder: whether threads get an IPCThreadState, and how many flushes happened process-wide.
void setBinderThreadStateAvailable(bool available);
uint64_t binderFlushCount();

// Takes a service out of the service manager; returns its binder so it can be put back with
// AServiceManager_addService.
ndk::SpAIBinder removeService(const char* instance);

// Number of open descriptors of this process.
int openFdCount();

// Receives every sync_wait and close of the process, from any thread, after the call: the
// descriptor, sync_wait's time-out (0 for close) and the call's result. Null turns it off.
enum class FdCall { SyncWait, Close };
using FdObserver = void (*)(FdCall call, int fd, int timeout, int result);
void setFdObserver(FdObserver observer);

// Sees every ioctl of the process first: answers it (true, with its result in *result and errno
// set) or passes it on to the C library (false). The simulated gralloc answers dma-buf naming.
using IoctlHandler = bool (*)(int fd, unsigned long request, void* arg, int* result);
void setIoctlHandler(IoctlHandler handler);

}  // namespace zyncam::host
