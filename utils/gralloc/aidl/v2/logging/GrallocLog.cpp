#include "GrallocLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace zcam::logging {

namespace {

// Formats into `buffer`; the result is the formatter's length, negative on a format error.
int formatLine(char (&buffer)[kLineBufferSize], const char* fmt, va_list ap) {
    memset(buffer, 0, sizeof(buffer));
    int length = vsnprintf(buffer, sizeof(buffer), fmt, ap);
    buffer[kLineBufferSize - 1] = '\0';
    return length;
}

}  // namespace

void writeULogger(const char* tag, int32_t level, const char* fmt, ...) {
    char buffer[kLineBufferSize];
    va_list ap;
    va_start(ap, fmt);
    int length = formatLine(buffer, fmt, ap);
    va_end(ap);
    ULogger* sink = ULogger::sULogger;
    if (length < 0 || sink == nullptr) return;
    sink->write(kModuleId, tag, level, buffer, static_cast<uint32_t>(length));
}

void fatalULogger(const char* tag, const char* fmt, ...) {
    if (!uloggerOn()) return;
    ULogger* sink = ULogger::sULogger;
    if (sink == nullptr) return;
    char buffer[kLineBufferSize];
    va_list ap;
    va_start(ap, fmt);
    int length = formatLine(buffer, fmt, ap);
    va_end(ap);
    if (length >= 0) sink->write(kModuleId, tag, kError, buffer, static_cast<uint32_t>(length));
    sink->flush(1);
}

}  // namespace zcam::logging
