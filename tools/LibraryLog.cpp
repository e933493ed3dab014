#include "LibraryLog.h"

#include <algorithm>
#include <cstring>

namespace zyncam::tools {

namespace {

using NSCam::Utils::ULog::ULogger;

// The service's switches and levels, as the library's logging front end reads them.
constexpr uint32_t kModeAndroidLog = 1;
constexpr uint32_t kModeSink = 2;
constexpr uint32_t kModeSinkMask = 10;  // either sink bit turns the sink on
constexpr uint32_t kDetailsWarning = 2;
constexpr uint32_t kDetailsDebug = 5;
constexpr uint32_t kNormalDetailsAll = 0x40007000;  // category bit 30 and the camera categories
constexpr int32_t kLevelError = 1;
constexpr int32_t kLevelWarning = 2;
// The front end formats into 1024 bytes; `length` may say more than the text holds.
constexpr size_t kLineBytes = 1024;

}  // namespace

LibraryLog::LibraryLog(bool verbose)
    : mSavedMode(ULogger::sMode),
      mSavedDetailsLevel(ULogger::sDetailsLevel),
      mSavedNormalDetailsMask(ULogger::sNormalDetailsMask),
      mPrevious(ULogger::sULogger) {
    ULogger::sULogger = this;
    if (verbose) {
        ULogger::sMode = kModeAndroidLog | kModeSink;
        ULogger::sDetailsLevel = kDetailsDebug;
        ULogger::sNormalDetailsMask = kNormalDetailsAll;
    } else {
        ULogger::sMode = kModeSink;
        ULogger::sDetailsLevel = std::max(mSavedDetailsLevel, kDetailsWarning);
    }
}

LibraryLog::~LibraryLog() {
    ULogger::sMode = mSavedMode;
    ULogger::sDetailsLevel = mSavedDetailsLevel;
    ULogger::sNormalDetailsMask = mSavedNormalDetailsMask;
    ULogger::sULogger = mPrevious;
}

void LibraryLog::write(uint32_t moduleId, const char* tag, int32_t level, const char* message,
                       uint32_t length) {
    if (message != nullptr && (level == kLevelError || level == kLevelWarning)) {
        std::string line(message, strnlen(message, kLineBytes));
        std::lock_guard<std::mutex> guard(mLock);
        (level == kLevelError ? mErrors : mWarnings).push_back(std::move(line));
    }
    if (mPrevious != nullptr && (mSavedMode & kModeSinkMask) != 0) {
        mPrevious->write(moduleId, tag, level, message, length);
    }
}

void LibraryLog::flush(int32_t flag) {
    if (mPrevious != nullptr) mPrevious->flush(flag);
}

void LibraryLog::clear() {
    std::lock_guard<std::mutex> guard(mLock);
    mWarnings.clear();
    mErrors.clear();
}

std::vector<std::string> LibraryLog::warnings() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mWarnings;
}

std::vector<std::string> LibraryLog::errors() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mErrors;
}

}  // namespace zyncam::tools
