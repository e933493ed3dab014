// Declarations and layouts of platform headers that the library relies on, as the platform has
// them. The real-header check compiles this once against the real headers and once against the
// host stand-ins alone. Each function is declared again with its exact C signature: a header
// that declares it with C++ linkage, another return type or other parameters makes the
// redeclaration an error.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <android/log.h>
#include <cutils/native_handle.h>
#include <stdarg.h>
#include <system/graphics.h>
#include <utils/Errors.h>
#include <utils/Timers.h>

extern "C" {
int __android_log_write(int prio, const char* tag, const char* text);
int __android_log_print(int prio, const char* tag, const char* fmt, ...);
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap);
void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...);

native_handle_t* native_handle_create(int numFds, int numInts);
native_handle_t* native_handle_init(char* storage, int numFds, int numInts);
native_handle_t* native_handle_clone(const native_handle_t* handle);
int native_handle_close(const native_handle_t* handle);
int native_handle_delete(native_handle_t* handle);

nsecs_t systemTime(int clock);
}

static_assert(std::is_same_v<buffer_handle_t, const native_handle_t*>);
static_assert(sizeof(native_handle_t) == 3 * sizeof(int));
static_assert(offsetof(native_handle_t, numFds) == sizeof(int));
static_assert(offsetof(native_handle_t, data) == 3 * sizeof(int));

static_assert(offsetof(android_ycbcr, cb) == sizeof(void*));
static_assert(offsetof(android_ycbcr, cr) == 2 * sizeof(void*));
static_assert(offsetof(android_ycbcr, ystride) == 3 * sizeof(void*));
static_assert(offsetof(android_ycbcr, chroma_step) == 3 * sizeof(void*) + 2 * sizeof(size_t));
static_assert(sizeof(android_ycbcr) == 3 * sizeof(void*) + 3 * sizeof(size_t) + 8 * 4);

static_assert(ANDROID_LOG_DEBUG == 3 && ANDROID_LOG_INFO == 4 && ANDROID_LOG_WARN == 5 &&
              ANDROID_LOG_ERROR == 6 && ANDROID_LOG_FATAL == 7);

static_assert(std::is_same_v<nsecs_t, int64_t>);
static_assert(SYSTEM_TIME_MONOTONIC == 1);

static_assert(std::is_same_v<android::status_t, int32_t>);
static_assert(android::NO_ERROR == 0 && android::OK == 0);
static_assert(android::UNKNOWN_ERROR == INT32_MIN);
static_assert(android::NO_MEMORY == -ENOMEM && android::BAD_VALUE == -EINVAL);
static_assert(android::NO_INIT == -ENODEV && android::NAME_NOT_FOUND == -ENOENT);
