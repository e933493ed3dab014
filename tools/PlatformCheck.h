// Whether the platform offers what a gralloc helper needs before one is built.
#pragma once

#include <cstddef>  // IMapper.h uses size_t and max_align_t without including it

#include <android/hardware/graphics/mapper/IMapper.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "ProfileScope.h"

namespace aidl::android::hardware::graphics::allocator {
class IAllocator;
}  // namespace aidl::android::hardware::graphics::allocator
// The library's adapters over the platform, which the tool's own probes open beside the helper.
namespace NSCam::GrallocAllocatorAidlV2 {
class AllocatorAidl;
}  // namespace NSCam::GrallocAllocatorAidlV2
namespace NSCam::GrallocMapperAidlV2 {
class MapperV5;
}  // namespace NSCam::GrallocMapperAidlV2

namespace zyncam::tools {

struct SphalLibrary {
    void operator()(void* handle) const;
};

// The allocator service and the mapper it names, opened the way the helper opens them. The
// library stays loaded while the object lives; `mapper` is its table.
struct GrallocPlatform {
    std::shared_ptr<aidl::android::hardware::graphics::allocator::IAllocator> allocator;
    std::unique_ptr<void, SphalLibrary> library;
    AIMapper* mapper = nullptr;
};

// Opens the allocator service by its instance name, asks it for its mapper library suffix,
// loads the library through the sphal loader and takes the table its AIMapper_loadIMapper hands
// out. Returns what is missing as one line of text (and leaves *out empty), or nothing.
std::optional<std::string> openGrallocPlatform(GrallocPlatform* out);

// Building a helper ends the process when the allocator service is missing or the mapper
// library it names cannot be loaded. This asks the same questions first; unloads what it
// loaded. Returns what is missing as one line of text, or nothing when a helper can be built.
std::optional<std::string> missingGrallocPlatform();

// What a run over the gralloc stands on: its device profile in force and the platform open.
struct RunPlatform {
    std::optional<ProfileScope> profile;
    GrallocPlatform gralloc;
};

// Puts the device profile at `profilePath` in force (an empty path changes nothing), then opens
// the platform into *run. On failure writes one line to `err` and returns the exit code:
// kExitBadInput for a profile that cannot be put in force, kExitNotAnswered for a missing
// allocator service or mapper library.
std::optional<int> openRunPlatform(const std::string& profilePath, RunPlatform* run,
                                   std::ostream& err);

}  // namespace zyncam::tools
