#include "PlatformCheck.h"

#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <android/binder_manager.h>
#include <dlfcn.h>
#include <vndksupport/linker.h>

#include "ExitCode.h"
#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

using aidl::android::hardware::graphics::allocator::IAllocator;

using LoadIMapper = AIMapper_Error (*)(AIMapper**);
constexpr const char* kLoadIMapper = "AIMapper_loadIMapper";

}  // namespace

void SphalLibrary::operator()(void* handle) const {
    android_unload_sphal_library(handle);
}

std::optional<std::string> openGrallocPlatform(GrallocPlatform* out) {
    const std::string instance = std::string(IAllocator::descriptor) + "/default";
    GrallocPlatform p;
    p.allocator =
            IAllocator::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
    if (p.allocator == nullptr) return "the allocator service " + instance + " is not running";

    std::string suffix;
    if (!p.allocator->getIMapperLibrarySuffix(&suffix).isOk()) {
        return "the allocator service does not name its mapper library";
    }
    const std::string name = "mapper." + suffix + ".so";
    p.library.reset(android_load_sphal_library(name.c_str(), RTLD_NOW));
    if (p.library == nullptr) return "the mapper library " + quoted(name) + " cannot be loaded";

    const auto load = reinterpret_cast<LoadIMapper>(dlsym(p.library.get(), kLoadIMapper));
    if (load == nullptr) {
        return "the mapper library " + quoted(name) + " has no " + kLoadIMapper;
    }
    load(&p.mapper);
    if (p.mapper == nullptr) {
        return "the mapper library " + quoted(name) + " hands out no mapper";
    }
    *out = std::move(p);
    return std::nullopt;
}

std::optional<std::string> missingGrallocPlatform() {
    GrallocPlatform platform;
    return openGrallocPlatform(&platform);
}

std::optional<int> openRunPlatform(const std::string& profilePath, RunPlatform* run,
                                   std::ostream& err) {
    std::string profileError;
    run->profile.emplace(profilePath, &profileError);
    if (!profileError.empty()) {
        err << kErrorPrefix << profileError << "\n";
        return kExitBadInput;
    }
    if (auto missing = openGrallocPlatform(&run->gralloc)) {
        err << kErrorPrefix << *missing << "\n";
        return kExitNotAnswered;
    }
    return std::nullopt;
}

}  // namespace zyncam::tools
