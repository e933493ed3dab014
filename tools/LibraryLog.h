// What the library logs while gralloc-layout runs, caught through the camera log service.
#pragma once

#include <ULogger.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace zyncam::tools {

// A sink of the camera log service, installed for its lifetime: it opens the warning level so
// that derivation warnings are written, collects warning and error lines, and hands every line
// on to the sink that was installed before, so the service's own record stays whole. With
// `verbose` every level of the library also reaches the Android log. The service's levels and
// sink come back when it is destroyed. One at a time per process; lines may arrive from any
// thread.
class LibraryLog : public NSCam::Utils::ULog::ULogger {
public:
    explicit LibraryLog(bool verbose);
    ~LibraryLog() override;
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    void write(uint32_t moduleId, const char* tag, int32_t level, const char* message,
               uint32_t length) override;
    void flush(int32_t flag) override;

    // Drops what was collected so far.
    void clear();
    // Warning lines, and error lines, collected since the last clear().
    std::vector<std::string> warnings() const;
    std::vector<std::string> errors() const;

private:
    mutable std::mutex mLock;
    std::vector<std::string> mWarnings;
    std::vector<std::string> mErrors;
    uint32_t mSavedMode;
    uint32_t mSavedDetailsLevel;
    uint32_t mSavedNormalDetailsMask;
    NSCam::Utils::ULog::ULogger* mPrevious;
};

}  // namespace zyncam::tools
