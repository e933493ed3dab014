#include "GrallocKit.h"

#include <gtest/gtest.h>

namespace testkit {

using aidl::android::hardware::graphics::common::PixelFormat;

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
