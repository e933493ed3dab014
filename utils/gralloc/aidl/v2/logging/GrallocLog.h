// The logging front end: one line reaches the Android log and the camera stack's ULogger as
// the level gates and ULogger::sMode allow. A disabled line costs only its gate test.
//
// Every message format starts with "[%s] ", filled with the calling function's name. Error and
// fatal lines carry " (%s){#%d:%s}" on the Android-log copy: the function, the source line and
// LOG_FILE. Each source file defines LOG_TAG and LOG_FILE before including this header.
#pragma once

#include <android/log.h>

#include <cstddef>
#include <cstdint>

#include <ULogger.h>

namespace zcam::logging {

using NSCam::Utils::ULog::ULogger;

inline constexpr uint32_t kModuleId = 0x40007001;
inline constexpr size_t kLineBufferSize = 1024;

enum ULoggerLevel : int32_t { kError = 1, kWarning = 2, kInfo = 3, kDebug = 5 };

// ULogger::sMode: bit 0 turns the Android log on, either of bits 1 and 3 the ULogger sink.
inline constexpr uint32_t kModeAndroidLog = 1u << 0;
inline constexpr uint32_t kModeULogger = (1u << 1) | (1u << 3);
// ULogger::sNormalDetailsMask admits info and debug lines when it has the normal-details bit
// and one of the camera category bits.
inline constexpr uint32_t kMaskNormalDetails = 1u << 30;
inline constexpr uint32_t kMaskCameraCategories = 0x7000;

// A level is enabled from the details level of its own number on.
inline bool warningEnabled() {
    return ULogger::sDetailsLevel >= kWarning;
}
inline bool normalMaskAdmits() {
    uint32_t mask = ULogger::sNormalDetailsMask;
    return (mask & kMaskNormalDetails) != 0 && (mask & kMaskCameraCategories) != 0;
}
inline bool infoEnabled() {
    return ULogger::sDetailsLevel >= kInfo && normalMaskAdmits();
}
inline bool debugEnabled() {
    return ULogger::sDetailsLevel >= kDebug && normalMaskAdmits();
}
inline bool androidLogOn() {
    return (ULogger::sMode & kModeAndroidLog) != 0;
}
inline bool uloggerOn() {
    return (ULogger::sMode & kModeULogger) != 0;
}

// Formats into a 1024-byte buffer and hands it to the sink with the formatter's length.
void writeULogger(const char* tag, int32_t level, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)));
// The ULogger half of a fatal line: the line (when it formats) at level 1, then a flush.
void fatalULogger(const char* tag, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

}  // namespace zcam::logging

#define ZLOG_EMIT_(function, prio, level, fmt, ...)                                       \
    do {                                                                                  \
        if (::zcam::logging::androidLogOn())                                              \
            __android_log_print(prio, LOG_TAG, fmt, function __VA_OPT__(, ) __VA_ARGS__); \
        if (::zcam::logging::uloggerOn())                                                 \
            ::zcam::logging::writeULogger(LOG_TAG, level, fmt,                            \
                                          function __VA_OPT__(, ) __VA_ARGS__);           \
    } while (0)

// Debug and warning lines in the name of `function` (a helper writing its caller's lines).
#define ZLOGD_FN(function, fmt, ...)                                         \
    do {                                                                     \
        if (__builtin_expect(::zcam::logging::debugEnabled(), 0))            \
            ZLOG_EMIT_(function, ANDROID_LOG_DEBUG, ::zcam::logging::kDebug, \
                       fmt __VA_OPT__(, ) __VA_ARGS__);                      \
    } while (0)
#define ZLOGW_FN(function, fmt, ...)                                          \
    do {                                                                      \
        if (__builtin_expect(::zcam::logging::warningEnabled(), 0))           \
            ZLOG_EMIT_(function, ANDROID_LOG_WARN, ::zcam::logging::kWarning, \
                       fmt __VA_OPT__(, ) __VA_ARGS__);                       \
    } while (0)

#define ZLOGD(fmt, ...) ZLOGD_FN(__FUNCTION__, fmt __VA_OPT__(, ) __VA_ARGS__)

#define ZLOGI(fmt, ...)                                                        \
    do {                                                                       \
        if (__builtin_expect(::zcam::logging::infoEnabled(), 0))               \
            ZLOG_EMIT_(__FUNCTION__, ANDROID_LOG_INFO, ::zcam::logging::kInfo, \
                       fmt __VA_OPT__(, ) __VA_ARGS__);                        \
    } while (0)

#define ZLOGW(fmt, ...) ZLOGW_FN(__FUNCTION__, fmt __VA_OPT__(, ) __VA_ARGS__)

// An error line of `function` reported at source line `line`.
#define ZLOGE_FN_AT(function, line, fmt, ...)                                                   \
    do {                                                                                        \
        if (::zcam::logging::androidLogOn())                                                    \
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, fmt " (%s){#%d:%s}",                \
                                function __VA_OPT__(, ) __VA_ARGS__, function, line, LOG_FILE); \
        if (::zcam::logging::uloggerOn())                                                       \
            ::zcam::logging::writeULogger(LOG_TAG, ::zcam::logging::kError, fmt,                \
                                          function __VA_OPT__(, ) __VA_ARGS__);                 \
    } while (0)

#define ZLOGE_AT(line, fmt, ...) ZLOGE_FN_AT(__FUNCTION__, line, fmt __VA_OPT__(, ) __VA_ARGS__)

#define ZLOGE(fmt, ...) ZLOGE_AT(__LINE__, fmt __VA_OPT__(, ) __VA_ARGS__)

// A fatal line: flushes the ULogger sink, then aborts through __android_log_assert.
#define ZLOGF(fmt, ...)                                                                       \
    do {                                                                                      \
        ::zcam::logging::fatalULogger(LOG_TAG, fmt, __FUNCTION__ __VA_OPT__(, ) __VA_ARGS__); \
        __android_log_assert(nullptr, LOG_TAG, fmt " (%s){#%d:%s}",                           \
                             __FUNCTION__ __VA_OPT__(, ) __VA_ARGS__, __FUNCTION__, __LINE__, \
                             LOG_FILE);                                                       \
    } while (0)
