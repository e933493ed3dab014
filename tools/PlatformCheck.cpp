#include "PlatformCheck.h"

#include <aidl/android/hardware/graphics/allocator/IAllocator.h>
#include <android/binder_manager.h>
#include <android/hardware/graphics/mapper/IMapper.h>
#include <dlfcn.h>
#include <vndksupport/linker.h>

#include <memory>

#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

using aidl::android::hardware::graphics::allocator::IAllocator;

using LoadIMapper = AIMapper_Error (*)(AIMapper**);
constexpr const char* kLoadIMapper = "AIMapper_loadIMapper";

struct SphalLibrary {
    void operator()(void* handle) const { android_unload_sphal_library(handle); }
};

}  // namespace

std::optional<std::string> missingGrallocPlatform() {
    const std::string instance = std::string(IAllocator::descriptor) + "/default";
    const std::shared_ptr<IAllocator> allocator =
            IAllocator::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
    if (allocator == nullptr) return "the allocator service " + instance + " is not running";

    std::string suffix;
    if (!allocator->getIMapperLibrarySuffix(&suffix).isOk()) {
        return "the allocator service does not name its mapper library";
    }
    const std::string name = "mapper." + suffix + ".so";
    const std::unique_ptr<void, SphalLibrary> library(
            android_load_sphal_library(name.c_str(), RTLD_NOW));
    if (library == nullptr) return "the mapper library " + quoted(name) + " cannot be loaded";

    const auto load = reinterpret_cast<LoadIMapper>(dlsym(library.get(), kLoadIMapper));
    if (load == nullptr) {
        return "the mapper library " + quoted(name) + " has no " + kLoadIMapper;
    }
    AIMapper* mapper = nullptr;
    load(&mapper);
    if (mapper == nullptr) {
        return "the mapper library " + quoted(name) + " hands out no mapper";
    }
    return std::nullopt;
}

}  // namespace zyncam::tools
