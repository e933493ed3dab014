// Test kit: capture of both log sinks, per-test properties, and scratch folders.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <ULogger.h>

namespace testkit {

struct AndroidLine {
    int prio;
    std::string tag;
    std::string text;
};

struct SinkLine {
    uint32_t moduleId;
    std::string tag;
    int32_t level;
    std::string text;  // up to the terminating zero
    uint32_t length;   // as the front end reported it
};

// Records every Android-log line and every ULogger sink call while alive, and restores the
// ULogger globals afterwards. By default every level and both sinks are on.
class LogCapture : public NSCam::Utils::ULog::ULogger {
public:
    explicit LogCapture(uint32_t mode = 3, uint32_t detailsLevel = 5,
                        uint32_t normalMask = 0x40007000);
    ~LogCapture() override;

    void write(uint32_t moduleId, const char* tag, int32_t level, const char* message,
               uint32_t length) override;
    void flush(int32_t flag) override;

    std::vector<AndroidLine> android() const;
    std::vector<SinkLine> sink() const;
    int flushes() const;
    void clear();
    // Android-log lines whose text contains `needle`.
    size_t count(const std::string& needle) const;
    bool has(const std::string& needle) const { return count(needle) > 0; }
    // The first Android-log line containing `needle`, if any.
    std::optional<AndroidLine> find(const std::string& needle) const;

private:
    static void observe(void* self, int prio, const char* tag, const char* text);

    mutable std::mutex mLock;
    std::vector<AndroidLine> mAndroid;
    std::vector<SinkLine> mSink;
    int mFlushes = 0;
    uint32_t mSavedMode, mSavedLevel, mSavedMask;
    NSCam::Utils::ULog::ULogger* mSavedSink;
};

// Sets a property for the scope; the previous value (or its absence) comes back afterwards.
class ScopedProperty {
public:
    ScopedProperty(const char* key, const char* value);
    ~ScopedProperty();

private:
    std::string mKey;
    std::optional<std::string> mPrevious;
};

// No descriptor can be made inside the scope (every new one fails with EMFILE): the soft
// descriptor limit is lowered to the highest open one and the gaps below it are filled.
class NoFreeDescriptors {
public:
    NoFreeDescriptors();
    ~NoFreeDescriptors();
    NoFreeDescriptors(const NoFreeDescriptors&) = delete;
    NoFreeDescriptors& operator=(const NoFreeDescriptors&) = delete;

private:
    std::vector<int> mFillers;
    uint64_t mSavedLimit = 0;
};

// A folder of the test's own for the files it writes, made afresh under the test temp folder
// (gtest's TempDir: $TEST_TMPDIR, else $TMPDIR, else /tmp), so that two runs on one machine
// never share a path; it goes, with everything in it, at the end of the scope. The process ends
// when no folder can be made.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    // The folder, without a trailing '/'.
    const std::string& path() const { return mPath; }
    // `name` inside the folder.
    std::string path(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

}  // namespace testkit
