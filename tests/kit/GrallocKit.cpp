#include "GrallocKit.h"

#include <gtest/gtest.h>

namespace testkit {

using aidl::android::hardware::graphics::common::PixelFormat;

std::vector<zyncam::sim::JournalEntry> Journal::of(zyncam::sim::Call call) const {
    std::vector<zyncam::sim::JournalEntry> matching;
    for (const auto& e : entries()) {
        if (e.call == call) matching.push_back(e);
    }
    return matching;
}

std::vector<int> Journal::closed() const {
    std::vector<int> fds;
    for (const auto& e : of(zyncam::sim::Call::Close)) fds.push_back(e.fd);
    return fds;
}

const NSCam::GrallocMapperAidlV2::MapperV5& mapper() {
    static auto* m = new NSCam::GrallocMapperAidlV2::MapperV5(
            NSCam::GrallocAllocatorAidlV2::AllocatorAidl::createInstance());
    return *m;
}

const NSCam::GrallocAllocatorAidlV2::AllocatorAidl& allocator() {
    static auto* a = new NSCam::GrallocAllocatorAidlV2::AllocatorAidl(
            NSCam::GrallocAllocatorAidlV2::AllocatorAidl::createInstance(), mapper());
    return *a;
}

ScopedProfile::ScopedProfile(const std::string& path) {
    std::string error;
    EXPECT_TRUE(zyncam::sim::loadProfile(path, &error)) << error;
}

ScopedProfile::ScopedProfile(const std::string& json, const std::string& source) {
    std::string error;
    EXPECT_TRUE(zyncam::sim::loadProfileText(json, source, &error)) << error;
}

Buffer::Buffer(uint32_t width, uint32_t height, int32_t format, uint64_t usage) {
    EXPECT_EQ(allocator().allocate(width, height, static_cast<PixelFormat>(format), 1, usage,
                                   &mHandle, &mStride, 0, "test"),
              0);
}

Buffer::~Buffer() {
    if (mHandle != nullptr) allocator().free(mHandle);
}

}  // namespace testkit
