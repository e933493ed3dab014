#include "FuzzSupport.h"

#include <ULogger.h>
#include <cutils/properties.h>
#include <zyncam_host/Platform.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace zyncam::fuzz {

namespace {
using NSCam::Utils::ULog::ULogger;
constexpr uint32_t kAndroidLogOnly = 1;
constexpr uint32_t kMostDetails = 5;
constexpr uint32_t kEveryNormalCategory = (1u << 30) | 0x7000;
constexpr const char* kLogLevelProperty = "debug.zyncam.utils.gralloc.loglevel";
constexpr const char* kLibraryDetails = "2";  // also the per-plane and colour-space lines
}  // namespace

void openLogGatesQuietly() {
    zyncam::host::setLogToStderr(false);
    ULogger::sMode = kAndroidLogOnly;
    ULogger::sDetailsLevel = kMostDetails;
    ULogger::sNormalDetailsMask = kEveryNormalCategory;
    property_set(kLogLevelProperty, kLibraryDetails);
}

void fail(const char* format, ...) {
    va_list args;
    va_start(args, format);
    fputs("==fuzz== ", stderr);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
    abort();
}

}  // namespace zyncam::fuzz
