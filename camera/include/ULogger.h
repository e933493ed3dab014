// The camera stack's log service, debug switch and crash-report trigger, as this library uses
// them. On a device the header and the definitions come with the camera stack's libzyncam_ulog;
// on the host the header lives here and the host platform supplies substitutes.
#pragma once

#include <cstdint>

namespace NSCam::Utils::ULog {

// The log service's sink object; the four statics steer every line the library writes.
class ULogger {
public:
    virtual ~ULogger() = default;
    // Receives one line; callable from any thread. `message` is zero-terminated; `length` is
    // what the formatter reported, which may exceed the text actually present.
    virtual void write(uint32_t moduleId, const char* tag, int32_t level, const char* message,
                       uint32_t length) = 0;
    // Hands whatever the sink still holds over to durable storage.
    virtual void flush(int32_t flag) = 0;

    static uint32_t sMode;               // bit 0: Android log; bits 1 and 3: this sink
    static uint32_t sDetailsLevel;       // verbosity threshold
    static uint32_t sNormalDetailsMask;  // category mask for info and debug lines
    static ULogger* sULogger;            // the sink
};

}  // namespace NSCam::Utils::ULog

namespace NSCam::Utils::Kre {
// Raises a crash report for `module`; the process goes on.
void triggerKreException(const char* module, const char* path, const char* message);
}  // namespace NSCam::Utils::Kre

// Non-zero when a line of `level` ('E', 'W', ...) for `tag` is wanted.
int zyncam_testLog(const char* tag, char level);
