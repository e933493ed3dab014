// The camera stack's pieces on the host. The log globals let errors and warnings through to
// the Android log; ZYNCAM_ULOG_FILE names a file that receives the ULogger copy as well.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>

#include <zyncam_host/Camera.h>

namespace NSCam::Utils::ULog {

namespace {
ULogger* defaultSink() {
    const char* path = getenv("ZYNCAM_ULOG_FILE");
    if (path == nullptr || *path == '\0') return nullptr;
    static zyncam::host::FileULogger sink(path);
    return sink.isOpen() ? &sink : nullptr;
}
}  // namespace

ULogger* ULogger::sULogger = defaultSink();
uint32_t ULogger::sMode = ULogger::sULogger != nullptr ? 3 : 1;
uint32_t ULogger::sDetailsLevel = 2;
uint32_t ULogger::sNormalDetailsMask = 0;

}  // namespace NSCam::Utils::ULog

namespace zyncam::host {

FileULogger::FileULogger(const std::string& path) : mFile(fopen(path.c_str(), "a")) {}

FileULogger::~FileULogger() {
    if (mFile != nullptr) fclose(mFile);
}

void FileULogger::write(uint32_t moduleId, const char* tag, int32_t level, const char* message,
                        uint32_t /*length*/) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mFile == nullptr) return;
    fprintf(mFile, "%08x %d %s: %s\n", moduleId, level, tag, message);
}

void FileULogger::flush(int32_t /*flag*/) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mFile == nullptr) return;
    fflush(mFile);
    fsync(fileno(mFile));
}

namespace {
std::atomic<int> gTestLogAnswer{1};
std::mutex gKreLock;
int gKreCount = 0;
KreReport gLastKre;
}  // namespace

void setTestLogAnswer(int answer) {
    gTestLogAnswer = answer;
}

int kreReportCount() {
    std::lock_guard<std::mutex> lock(gKreLock);
    return gKreCount;
}

KreReport lastKreReport() {
    std::lock_guard<std::mutex> lock(gKreLock);
    return gLastKre;
}

}  // namespace zyncam::host

int zyncam_testLog(const char* /*tag*/, char /*level*/) {
    return zyncam::host::gTestLogAnswer.load();
}

namespace NSCam::Utils::Kre {

void triggerKreException(const char* module, const char* path, const char* message) {
    std::lock_guard<std::mutex> lock(zyncam::host::gKreLock);
    ++zyncam::host::gKreCount;
    zyncam::host::gLastKre = {module ? module : "", path ? path : "", message ? message : ""};
    fprintf(stderr, "KRE [%s]%s\n", module ? module : "", message ? message : "");
}

}  // namespace NSCam::Utils::Kre
