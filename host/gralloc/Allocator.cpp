// The simulated allocator service, registered when the simulated gralloc is loaded.
#include <aidl/android/hardware/graphics/allocator/AllocationError.h>
#include <aidl/android/hardware/graphics/allocator/BnAllocator.h>
#include <android/binder_manager.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "SimBuffer.h"
#include "SimControl.h"

namespace zyncam::sim {

namespace {

using aidl::android::hardware::common::NativeHandle;
using aidl::android::hardware::graphics::allocator::AllocationError;
using aidl::android::hardware::graphics::allocator::AllocationResult;
using aidl::android::hardware::graphics::allocator::BnAllocator;
using aidl::android::hardware::graphics::allocator::BufferDescriptorInfo;

// Usage bits that must be zero.
constexpr uint64_t kInvalidUsage = (1ull << 19) | (1ull << 21) | 0x0000FFFE00000000ull;

Resolution resolve(const BufferDescriptorInfo& d) {
    if ((static_cast<uint64_t>(d.usage) & kInvalidUsage) != 0 || d.reservedSize < 0 ||
        !d.additionalOptions.empty()) {
        return Resolution{};
    }
    return zyncam::sim::resolve(d.width, d.height, static_cast<int32_t>(d.format),
                                static_cast<uint64_t>(d.usage), d.layerCount);
}

// The memory of a new buffer laid out by `r`, with what an exact answer fixes.
bool createBuffer(const Resolution& r, std::string_view name, int* pixels, int* metadata) {
    if (!createBufferMemory(*r.desc, name, pixels, metadata)) return false;
    if (r.exact && !writeExactMetadata(*metadata, *r.exact)) {
        close(*pixels);
        close(*metadata);
        return false;
    }
    return true;
}

ndk::ScopedAStatus error(AllocationError e) {
    return ndk::ScopedAStatus::fromServiceSpecificError(static_cast<int32_t>(e));
}

class SimAllocator : public BnAllocator {
public:
    ndk::ScopedAStatus allocate(const std::vector<uint8_t>&, int32_t, AllocationResult*) override {
        return ndk::ScopedAStatus::fromExceptionCode(EX_UNSUPPORTED_OPERATION);
    }

    ndk::ScopedAStatus allocate2(const BufferDescriptorInfo& descriptor, int32_t count,
                                 AllocationResult* result) override {
        auto [fault, shortfall] = withControl([](Control& c) {
            ++c.counters.allocateCalls;
            return std::pair{c.faults.allocate, c.faults.allocateShortfall};
        });
        if (fault) {
            return *fault < 0 ? ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT)
                              : ndk::ScopedAStatus::fromServiceSpecificError(*fault);
        }
        if (count < 0) return error(AllocationError::BAD_DESCRIPTOR);
        Resolution resolution = resolve(descriptor);
        if (!resolution.desc) return error(resolution.error);
        BufferDesc* desc = &*resolution.desc;
        // The name ends at its first NUL, and at the last byte whatever the caller sent.
        const auto* nameBytes = reinterpret_cast<const char*>(descriptor.name.data());
        const std::string_view name(nameBytes, strnlen(nameBytes, descriptor.name.size() - 1));
        AllocationResult out;
        out.stride = desc->stride;
        const int32_t made = std::max(0, count - std::max(0, shortfall));
        for (int32_t i = 0; i < made; ++i) {
            desc->id = nextBufferId();
            int pixels = -1, metadata = -1;
            if (!createBuffer(resolution, name, &pixels, &metadata)) {
                return error(AllocationError::NO_RESOURCES);
            }
            native_handle_t* h = encodeHandle(*desc, pixels, metadata);
            NativeHandle buffer;
            buffer.fds.emplace_back(pixels);
            buffer.fds.emplace_back(metadata);
            buffer.ints.assign(&h->data[kFdCount], &h->data[kFdCount + kIntCount]);
            native_handle_delete(h);
            out.buffers.push_back(std::move(buffer));
        }
        withControl([&](Control& c) { c.counters.buffersAllocated += made; });
        *result = std::move(out);
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus isSupported(const BufferDescriptorInfo& descriptor, bool* out) override {
        *out = resolve(descriptor).desc.has_value();
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus getIMapperLibrarySuffix(std::string* out) override {
        auto [suffix, fails] = withControl([](Control& c) {
            return std::pair{c.faults.mapperSuffix, c.faults.mapperSuffixFails};
        });
        if (fails) return error(AllocationError::UNSUPPORTED);
        *out = suffix;
        return ndk::ScopedAStatus::ok();
    }
};

struct Registration {
    Registration() { registerAllocatorService(); }
} gRegistration;

}  // namespace

void registerAllocatorService() {
    static std::shared_ptr<SimAllocator> service = ndk::SharedRefBase::make<SimAllocator>();
    ndk::SpAIBinder binder = service->asBinder();
    AServiceManager_addService(binder.get(), kAllocatorInstance);
}

native_handle_t* createRawBuffer(int32_t width, int32_t height, int32_t format, uint64_t usage,
                                 int32_t* outStride) {
    Resolution resolution = zyncam::sim::resolve(width, height, format, usage, 1);
    int pixels = -1, metadata = -1;
    if (!resolution.desc) return nullptr;
    resolution.desc->id = nextBufferId();
    if (!createBuffer(resolution, {}, &pixels, &metadata)) return nullptr;
    if (outStride != nullptr) *outStride = resolution.desc->stride;
    return encodeHandle(*resolution.desc, pixels, metadata);
}

}  // namespace zyncam::sim
