#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <vector>

namespace aidl::android::hardware::common {

class NativeHandle {
public:
    static const char* descriptor;
    std::vector<::ndk::ScopedFileDescriptor> fds;
    std::vector<int32_t> ints;
};
inline const char* NativeHandle::descriptor = "android.hardware.common.NativeHandle";

}  // namespace aidl::android::hardware::common
