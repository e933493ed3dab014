// Host substitutes for the camera stack's log service, debug switch and crash reports.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>

#include <ULogger.h>

namespace zyncam::host {

// Appends each line to a file ("<module id hex> <level> <tag>: <text>") and, on flush, hands
// the file's data to the disk.
class FileULogger : public NSCam::Utils::ULog::ULogger {
public:
    explicit FileULogger(const std::string& path);
    ~FileULogger() override;
    bool isOpen() const { return mFile != nullptr; }
    void write(uint32_t moduleId, const char* tag, int32_t level, const char* message,
               uint32_t length) override;
    void flush(int32_t flag) override;

private:
    std::mutex mLock;
    FILE* mFile = nullptr;
};

// What zyncam_testLog answers (non-zero by default).
void setTestLogAnswer(int answer);

struct KreReport {
    std::string module;
    std::string path;
    std::string message;
};
int kreReportCount();
KreReport lastKreReport();

}  // namespace zyncam::host
