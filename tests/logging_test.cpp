// The logging front end: gates, sinks, shapes, truncation and the fatal path.
#define LOG_TAG "ZynCam/GrallocHelperAidlV2"
#define LOG_FILE "utils/gralloc/aidl/v2/GrallocHelper"

#include <gtest/gtest.h>

#include <string>

#include "kit/TestKit.h"
#include "logging/GrallocLog.h"

namespace {

using testkit::LogCapture;

enum class Level { Error, Warning, Info, Debug };

void logAt(Level level) {
    switch (level) {
        case Level::Error:
            ZLOGE_AT(77, "[%s] value %d", 42);
            break;
        case Level::Warning:
            ZLOGW("[%s] value %d", 42);
            break;
        case Level::Info:
            ZLOGI("[%s] value %d", 42);
            break;
        case Level::Debug:
            ZLOGD("[%s] value %d", 42);
            break;
    }
}

struct GateCase {
    Level level;
    uint32_t mode, details, mask;
    bool android, sink;
};

TEST(LoggingTest, GatesAndModeDecideTheSinks) {
    constexpr uint32_t kOpen = 0x40001000;  // bit 30 and one bit of 0x7000
    const GateCase cases[] = {
            {Level::Error, 3, 0, 0, true, true},
            {Level::Error, 0, 5, kOpen, false, false},
            {Level::Error, 8, 0, 0, false, true},
            {Level::Error, 2, 0, 0, false, true},
            {Level::Error, 1, 0, 0, true, false},
            {Level::Warning, 3, 1, kOpen, false, false},
            {Level::Warning, 3, 2, 0, true, true},
            {Level::Info, 3, 2, kOpen, false, false},
            {Level::Info, 3, 3, kOpen, true, true},
            {Level::Info, 3, 3, 0x40000000, false, false},
            {Level::Info, 3, 3, 0x7000, false, false},
            {Level::Debug, 3, 4, kOpen, false, false},
            {Level::Debug, 3, 5, 0x40000000, false, false},
            {Level::Debug, 3, 5, kOpen, true, true},
            {Level::Debug, 8, 5, 0x40004000, false, true},
    };
    for (const auto& c : cases) {
        LogCapture capture(c.mode, c.details, c.mask);
        logAt(c.level);
        SCOPED_TRACE(::testing::Message()
                     << "level " << static_cast<int>(c.level) << " mode " << c.mode << " details "
                     << c.details << " mask " << std::hex << c.mask);
        EXPECT_EQ(capture.android().size(), c.android ? 1u : 0u);
        EXPECT_EQ(capture.sink().size(), c.sink ? 1u : 0u);
    }
}

TEST(LoggingTest, ShapesOfEachLevel) {
    struct Shape {
        Level level;
        int prio;
        int32_t ulevel;
        std::string android;
    };
    const Shape shapes[] = {
            {Level::Error, ANDROID_LOG_ERROR, 1,
             "[logAt] value 42 (logAt){#77:utils/gralloc/aidl/v2/GrallocHelper}"},
            {Level::Warning, ANDROID_LOG_WARN, 2, "[logAt] value 42"},
            {Level::Info, ANDROID_LOG_INFO, 3, "[logAt] value 42"},
            {Level::Debug, ANDROID_LOG_DEBUG, 5, "[logAt] value 42"},
    };
    for (const auto& s : shapes) {
        LogCapture capture;
        logAt(s.level);
        auto android = capture.android();
        auto sink = capture.sink();
        ASSERT_EQ(android.size(), 1u);
        ASSERT_EQ(sink.size(), 1u);
        EXPECT_EQ(android[0].prio, s.prio);
        EXPECT_EQ(android[0].tag, "ZynCam/GrallocHelperAidlV2");
        EXPECT_EQ(android[0].text, s.android);
        // The ULogger copy never carries the suffix.
        EXPECT_EQ(sink[0].text, "[logAt] value 42");
        EXPECT_EQ(sink[0].length, sink[0].text.size());
        EXPECT_EQ(sink[0].level, s.ulevel);
        EXPECT_EQ(sink[0].moduleId, 0x40007001u);
        EXPECT_EQ(sink[0].tag, "ZynCam/GrallocHelperAidlV2");
    }
}

int gFormatted = 0;
int countFormatting() {
    return ++gFormatted;
}

TEST(LoggingTest, DisabledLinesFormatNothing) {
    LogCapture capture(3, 1, 0);
    gFormatted = 0;
    ZLOGD("[%s] %d", countFormatting());
    ZLOGI("[%s] %d", countFormatting());
    ZLOGW("[%s] %d", countFormatting());
    EXPECT_EQ(gFormatted, 0);
    ZLOGE("[%s] %d", countFormatting());
    EXPECT_EQ(gFormatted, 2);  // once per sink that is on
}

TEST(LoggingTest, LongLineIsCutButKeepsItsLength) {
    LogCapture capture;
    const std::string payload(2000, 'x');
    ZLOGW("[%s] %s", payload.c_str());
    auto sink = capture.sink();
    ASSERT_EQ(sink.size(), 1u);
    const size_t full = std::string("[TestBody] ").size() + payload.size();
    EXPECT_EQ(sink[0].length, full);
    EXPECT_EQ(sink[0].text.size(), 1023u);
    EXPECT_EQ(sink[0].text.substr(0, 11), "[TestBody] ");
    // The Android copy is not limited by the ULogger buffer.
    ASSERT_EQ(capture.android().size(), 1u);
    EXPECT_EQ(capture.android()[0].text.size(), full);
}

void fatalLine() {
    ZLOGF("[%s] mapper %s fail", "gone");
}

TEST(LoggingDeathTest, FatalFlushesTheSinkThenAborts) {
    // The child records what reached its sink into a file the parent reads afterwards.
    testkit::ScratchFolder folder;
    const std::string path = folder.path("ulog_fatal.txt");
    EXPECT_DEATH(
            {
                struct FileSink : NSCam::Utils::ULog::ULogger {
                    FILE* f;
                    explicit FileSink(const char* p) : f(fopen(p, "w")) {}
                    void write(uint32_t, const char*, int32_t level, const char* m,
                               uint32_t) override {
                        fprintf(f, "write %d %s\n", level, m);
                    }
                    void flush(int32_t flag) override {
                        fprintf(f, "flush %d\n", flag);
                        fflush(f);
                    }
                };
                static FileSink sink(path.c_str());
                NSCam::Utils::ULog::ULogger::sULogger = &sink;
                NSCam::Utils::ULog::ULogger::sMode = 2;
                fatalLine();
            },
            "\\[fatalLine\\] mapper gone fail \\(fatalLine\\)\\{#[0-9]+:"
            "utils/gralloc/aidl/v2/GrallocHelper\\}");
    FILE* f = fopen(path.c_str(), "r");
    ASSERT_NE(f, nullptr);
    char text[256] = {};
    size_t n = fread(text, 1, sizeof(text) - 1, f);
    fclose(f);
    EXPECT_EQ(std::string(text, n), "write 1 [fatalLine] mapper gone fail\nflush 1\n");
}

TEST(LoggingDeathTest, FatalAbortsWithBothSinksOff) {
    EXPECT_DEATH(
            {
                NSCam::Utils::ULog::ULogger::sMode = 0;
                fatalLine();
            },
            "\\[fatalLine\\] mapper gone fail \\(fatalLine\\)");
}

}  // namespace
