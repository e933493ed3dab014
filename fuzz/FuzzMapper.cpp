#include "FuzzMapper.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace zyncam::fuzz {
namespace {

FuzzMapperState& state() {
    static FuzzMapperState* s = [] {
        auto* fresh = new FuzzMapperState;
        fresh->canary = memfd_create("zyncamfuzz-fence-canary", MFD_CLOEXEC);
        return fresh;
    }();
    return *s;
}

AIMapper_Error lock(buffer_handle_t, uint64_t, ARect, int acquireFence, void** outData) {
    FuzzMapperState& s = state();
    if (acquireFence >= 0) {
        // Ownership passes to the mapper: keep the number open on the canary instead of closing
        // it, so that a second close by the caller shows.
        if (dup2(s.canary, acquireFence) < 0) return AIMAPPER_ERROR_NO_RESOURCES;
        s.acquireFences.push_back(acquireFence);
    }
    if (s.lockError != AIMAPPER_ERROR_NONE) return s.lockError;
    *outData = s.lockAddress;
    ++s.lockDepth;
    return AIMAPPER_ERROR_NONE;
}

AIMapper_Error unlock(buffer_handle_t, int* releaseFence) {
    FuzzMapperState& s = state();
    *releaseFence = -1;
    if (s.lockDepth == 0) return AIMAPPER_ERROR_BAD_BUFFER;
    --s.lockDepth;
    return AIMAPPER_ERROR_NONE;
}

int32_t getStandardMetadata(buffer_handle_t, int64_t, void* dest, size_t size) {
    FuzzMapperState& s = state();
    if (s.answers.empty()) return -AIMAPPER_ERROR_UNSUPPORTED;
    const MetadataAnswer& answer = s.answers[std::min(s.nextAnswer, s.answers.size() - 1)];
    ++s.nextAnswer;
    const size_t n = std::min(size, answer.bytes.size());
    if (dest != nullptr && n != 0) memcpy(dest, answer.bytes.data(), n);
    return answer.result;
}

AIMapper_Error setStandardMetadata(buffer_handle_t, int64_t type, const void* metadata,
                                   size_t size) {
    FuzzMapperState& s = state();
    const auto* bytes = static_cast<const uint8_t*>(metadata);
    s.lastSetType = type;
    s.lastSetBytes.assign(bytes, bytes + size);
    return AIMAPPER_ERROR_NONE;
}

// What the adapter never calls answers UNSUPPORTED.
AIMapper gMapper = {
        .version = AIMAPPER_VERSION_5,
        .v5 = {
                .importBuffer = [](const native_handle_t*,
                                   buffer_handle_t*) { return AIMAPPER_ERROR_UNSUPPORTED; },
                .freeBuffer = [](buffer_handle_t) { return AIMAPPER_ERROR_UNSUPPORTED; },
                .getTransportSize = [](buffer_handle_t, uint32_t*,
                                       uint32_t*) { return AIMAPPER_ERROR_UNSUPPORTED; },
                .lock = lock,
                .unlock = unlock,
                .flushLockedBuffer = [](buffer_handle_t) { return AIMAPPER_ERROR_UNSUPPORTED; },
                .rereadLockedBuffer = [](buffer_handle_t) { return AIMAPPER_ERROR_UNSUPPORTED; },
                .getMetadata = [](buffer_handle_t, AIMapper_MetadataType, void*,
                                  size_t) -> int32_t { return -AIMAPPER_ERROR_UNSUPPORTED; },
                .getStandardMetadata = getStandardMetadata,
                .setMetadata = [](buffer_handle_t, AIMapper_MetadataType, const void*,
                                  size_t) { return AIMAPPER_ERROR_UNSUPPORTED; },
                .setStandardMetadata = setStandardMetadata,
                .listSupportedMetadataTypes =
                        [](const AIMapper_MetadataTypeDescription** list, size_t* count) {
                            *list = nullptr;
                            *count = 0;
                            return AIMAPPER_ERROR_NONE;
                        },
                .dumpBuffer = [](buffer_handle_t, AIMapper_DumpBufferCallback,
                                 void*) { return AIMAPPER_ERROR_UNSUPPORTED; },
                .dumpAllBuffers = [](AIMapper_BeginDumpBufferCallback, AIMapper_DumpBufferCallback,
                                     void*) { return AIMAPPER_ERROR_UNSUPPORTED; },
                .getReservedRegion = [](buffer_handle_t, void**,
                                        uint64_t*) { return AIMAPPER_ERROR_UNSUPPORTED; },
        },
};

}  // namespace
}  // namespace zyncam::fuzz

extern "C" zyncam::fuzz::FuzzMapperState* ZyncamFuzzMapper_state() {
    return &zyncam::fuzz::state();
}

extern "C" AIMapper_Error AIMapper_loadIMapper(AIMapper** outImplementation) {
    *outImplementation = &zyncam::fuzz::gMapper;
    return AIMAPPER_ERROR_NONE;
}
