// The host platform's base layer behaves as the Android platform does.
#include <android/log.h>
#include <android/sync.h>
#include <cutils/native_handle.h>
#include <cutils/properties.h>
#include <utils/Timers.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <zyncam_host/Platform.h>

#include "kit/TestKit.h"

namespace {

TEST(PropertiesTest, Int32ParsingFollowsThePlatform) {
    struct Case {
        const char* value;  // nullptr: unset
        int32_t expected;
    };
    const Case cases[] = {
            {nullptr, -9},       {"", -9},
            {"12", 12},          {"-3", -3},
            {"0x10", 16},        {"010", 8},
            {" 7", 7},           {"12abc", 12},
            {"abc", -9},         {"2147483647", INT32_MAX},
            {"2147483648", -9},  {"-2147483648", INT32_MIN},
            {"-2147483649", -9}, {"99999999999999999999", -9},
            {"+5", 5},
    };
    for (const auto& c : cases) {
        testkit::ScopedProperty property("test.int32", c.value);
        EXPECT_EQ(property_get_int32("test.int32", -9), c.expected)
                << (c.value ? c.value : "(unset)");
    }
    EXPECT_EQ(property_get_int32(nullptr, 4), 4);
}

TEST(PropertiesTest, GetSetAndScopedRestore) {
    char value[PROPERTY_VALUE_MAX];
    {
        testkit::ScopedProperty property("test.text", "hello");
        EXPECT_EQ(property_get("test.text", value, "dflt"), 5);
        EXPECT_STREQ(value, "hello");
    }
    EXPECT_EQ(property_get("test.text", value, "dflt"), 4);
    EXPECT_STREQ(value, "dflt");
    EXPECT_NE(property_set("test.text", std::string(PROPERTY_VALUE_MAX, 'x').c_str()), 0);
}

TEST(PropertiesTest, LoadsFile) {
    testkit::ScratchFolder folder;
    const std::string path = folder.path("props.txt");
    FILE* f = fopen(path.c_str(), "w");
    fputs("# comment\ntest.file.a=3\ntest.file.b=text\n", f);
    fclose(f);
    ASSERT_TRUE(zyncam::host::propertyLoadFile(path.c_str()));
    EXPECT_EQ(property_get_int32("test.file.a", 0), 3);
    zyncam::host::propertyClear("test.file.a");
    zyncam::host::propertyClear("test.file.b");
    EXPECT_FALSE(zyncam::host::propertyLoadFile("/nonexistent/props"));
}

TEST(NativeHandleTest, CreateCloneCloseDelete) {
    EXPECT_EQ(native_handle_create(-1, 0), nullptr);
    EXPECT_EQ(native_handle_create(0, 1025), nullptr);
    native_handle_t* empty = native_handle_create(0, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->version, 12);
    EXPECT_EQ(native_handle_delete(empty), 0);

    const int before = zyncam::host::openFdCount();
    native_handle_t* h = native_handle_create(2, 1);
    h->data[0] = open("/dev/null", O_RDONLY);
    h->data[1] = open("/dev/null", O_RDONLY);
    h->data[2] = 77;
    native_handle_t* clone = native_handle_clone(h);
    ASSERT_NE(clone, nullptr);
    EXPECT_NE(clone->data[0], h->data[0]);
    EXPECT_EQ(clone->data[2], 77);
    EXPECT_EQ(zyncam::host::openFdCount(), before + 4);
    EXPECT_EQ(native_handle_close(clone), 0);
    EXPECT_EQ(native_handle_delete(clone), 0);
    EXPECT_EQ(native_handle_close(h), 0);
    h->version = 0;
    EXPECT_EQ(native_handle_delete(h), -EINVAL);
    h->version = 12;
    EXPECT_EQ(native_handle_delete(h), 0);
    EXPECT_EQ(zyncam::host::openFdCount(), before);
}

TEST(SyncTest, WaitHasPollSemantics) {
    errno = 0;
    EXPECT_EQ(sync_wait(-1, -1), -1);
    EXPECT_EQ(errno, EINVAL);

    int fence = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    itimerspec later{};
    later.it_value.tv_nsec = 20 * 1000000;
    timerfd_settime(fence, 0, &later, nullptr);
    EXPECT_EQ(sync_wait(fence, 0), -1);
    EXPECT_EQ(errno, ETIME);
    const nsecs_t start = systemTime(SYSTEM_TIME_MONOTONIC);
    EXPECT_EQ(sync_wait(fence, -1), 0);
    EXPECT_GT(systemTime(), start);
    close(fence);
    EXPECT_EQ(sync_wait(fence, 0), -1);  // closed: POLLNVAL
    EXPECT_EQ(errno, EINVAL);
}

TEST(HostLogTest, ThreadtimeLineOnStderr) {
    ::testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_WARN, "Tag/x", "hello %d", 5);
    std::string err = ::testing::internal::GetCapturedStderr();
    // "MM-DD HH:MM:SS.mmm   pid   tid W Tag/x: hello 5"
    EXPECT_TRUE(::testing::internal::RE::PartialMatch(
            err, ::testing::internal::RE("^[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{3} +[0-9]+ +[0-9]+ "
                                         "W Tag/x: hello 5\n$")))
            << err;
}

}  // namespace
