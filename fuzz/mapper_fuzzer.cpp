// MapperV5 against a hostile mapper: plane layouts for the three lock forms and the HDR records
// of getGrallocMeta and setGrallocMeta, over metadata bytes the fuzzer chooses.
//
// Input: a count of operations (1 to 4), per operation {u8 op, u8 param, u16 size}, a flags
// byte, then the mapper's metadata answers, each {u8 kind, u16 length, bytes} and, for a
// claimed size, {i32 result}.
#include <aidl/android/hardware/graphics/allocator/AllocationError.h>
#include <aidl/android/hardware/graphics/allocator/BnAllocator.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <android/hardware/graphics/mapper/utils/IMapperMetadataTypes.h>
#include <dlfcn.h>
#include <sys/eventfd.h>
#include <system/graphics.h>
#include <unistd.h>
#include <vndksupport/linker.h>

#include <algorithm>
#include <memory>
#include <string>

#include "FuzzMapper.h"
#include "FuzzSupport.h"
#include "GrallocMapperAidlV2.h"

namespace {

namespace allocator = aidl::android::hardware::graphics::allocator;
namespace common = aidl::android::hardware::graphics::common;
using android::hardware::graphics::mapper::StandardMetadata;
using common::StandardMetadataType;
using NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_TYPE;
using NSCam::GrallocMapperAidlV2::MapperV5;
using zyncam::fuzz::fail;
using zyncam::fuzz::FuzzMapperState;
using zyncam::fuzz::MetadataAnswer;

// Only the mapper's name is ever asked of it.
class FuzzAllocator : public allocator::BnAllocator {
public:
    ndk::ScopedAStatus allocate(const std::vector<uint8_t>&, int32_t,
                                allocator::AllocationResult*) override {
        return unsupported();
    }
    ndk::ScopedAStatus allocate2(const allocator::BufferDescriptorInfo&, int32_t,
                                 allocator::AllocationResult*) override {
        return unsupported();
    }
    ndk::ScopedAStatus isSupported(const allocator::BufferDescriptorInfo&, bool* out) override {
        *out = false;
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus getIMapperLibrarySuffix(std::string* out) override {
        *out = zyncam::fuzz::kFuzzMapperSuffix;
        return ndk::ScopedAStatus::ok();
    }

private:
    static ndk::ScopedAStatus unsupported() {
        return ndk::ScopedAStatus::fromServiceSpecificError(
                static_cast<int32_t>(allocator::AllocationError::UNSUPPORTED));
    }
};

enum Op : uint8_t {
    kLockPlain,
    kLockBytesPerPixel,
    kLockYCbCr,
    kPlaneLayouts,
    kGetGrallocMeta,
    kSetGrallocMeta,
    kOpCount,
};
constexpr size_t kMaxOps = 4;
constexpr size_t kMaxAnswers = 8;
// The adapter allocates whatever size the mapper claims (up to 2 GiB); larger claims than this
// only slow the search down without reaching new code.
constexpr int32_t kMaxClaimedSize = 1 << 16;

enum AnswerKind : uint8_t {
    kBlob,            // the bytes, answered with their own size
    kClaimedSize,     // the bytes, answered with the size (or error) that follows them
    kDynamicPayload,  // the bytes as an HDR10+ payload, properly encoded
    kAnswerKinds,
};
constexpr uint8_t kFlagAcquireFence = 1 << 0;
constexpr uint8_t kParamExactSize = 1 << 7;   // the record's own size instead of the input's
constexpr uint8_t kParamNullOutput = 1 << 6;  // the YCbCr lock gets no record
constexpr uint8_t kParamLockFails = 1 << 5;
constexpr uint8_t kMetaTypeChoices = 5;             // the four the adapter knows and one it ignores
constexpr unsigned int kHdr10PlusRecordSize = 224;  // the extension's ge_hdr10p_dynamic_metadata_t
constexpr uint8_t kUntouched = 0xA5;
constexpr ARect kRegion = {0, 0, 64, 64};
constexpr uint64_t kCpuUsage = static_cast<uint64_t>(common::BufferUsage::CPU_READ_OFTEN);

struct Setup {
    std::unique_ptr<MapperV5> mapper;
    FuzzMapperState* state = nullptr;
    native_handle_t* buffer = nullptr;  // the mapper never looks inside it
    alignas(64) uint8_t pixels[4096] = {};
};
Setup* gSetup = nullptr;

// The caller's record for a metadata type, and the type's standard counterpart.
struct MetaType {
    unsigned int recordSize;
    StandardMetadataType standard;
};
MetaType metaType(GRALLOC_STANDARD_METADATA_TYPE type) {
    switch (type) {
        case NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2086:
            return {sizeof(common::Smpte2086), StandardMetadataType::SMPTE2086};
        case NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_CTA861_3:
            return {sizeof(common::Cta861_3), StandardMetadataType::CTA861_3};
        case NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2094_40:
            return {kHdr10PlusRecordSize, StandardMetadataType::SMPTE2094_40};
        case NSCam::GrallocMapperAidlV2::GRALLOC_STANDARD_METADATA_SMPTE2094_10:
            return {0, StandardMetadataType::SMPTE2094_10};
    }
    return {0, StandardMetadataType::INVALID};
}

bool untouched(const uint8_t* data, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        if (data[i] != kUntouched) return false;
    }
    return true;
}

int32_t lockOp(Op op, uint8_t param, int fence) {
    const MapperV5& mapper = *gSetup->mapper;
    void* data = nullptr;
    int32_t result = 0;
    if (op == kLockPlain) {
        result = mapper.lock(gSetup->buffer, kCpuUsage, kRegion, fence, &data);
    } else if (op == kLockBytesPerPixel) {
        int bytesPerPixel = 0;
        int bytesPerStride = 0;
        result = mapper.lock(gSetup->buffer, kCpuUsage, kRegion, fence, &data, &bytesPerPixel,
                             &bytesPerStride);
    } else {
        android_ycbcr ycbcr{};
        result = mapper.lock(gSetup->buffer, kCpuUsage, kRegion, fence,
                             (param & kParamNullOutput) ? nullptr : &ycbcr);
    }
    if (result == AIMAPPER_ERROR_NONE) {
        const int releaseFence = mapper.unlock(gSetup->buffer);
        if (releaseFence >= 0) close(releaseFence);
    }
    return result;
}

void planeLayoutsOp() {
    std::vector<common::PlaneLayout> layouts(1);
    layouts[0].offsetInBytes = -1;
    const auto before = layouts;
    if (gSetup->mapper->getPlaneLayouts(gSetup->buffer, &layouts) != AIMAPPER_ERROR_NONE &&
        layouts != before) {
        fail("getPlaneLayouts changed the caller's list although it failed");
    }
}

void getMetaOp(uint8_t param, uint16_t inputSize) {
    const auto type = static_cast<GRALLOC_STANDARD_METADATA_TYPE>(param % kMetaTypeChoices);
    const unsigned int size = (param & kParamExactSize) ? metaType(type).recordSize : inputSize;
    // Exactly `size` bytes, so that the sanitizer sees a write past the caller's record.
    auto record = std::make_unique<uint8_t[]>(size);
    memset(record.get(), kUntouched, size);
    const int32_t result = gSetup->mapper->getGrallocMeta(gSetup->buffer, type, record.get(), size);
    if (result != AIMAPPER_ERROR_NONE && result != AIMAPPER_ERROR_BAD_VALUE) {
        fail("getGrallocMeta(type %d, size %u) answered %d", type, size, result);
    }
    if ((result != AIMAPPER_ERROR_NONE || metaType(type).recordSize == 0) &&
        !untouched(record.get(), size)) {
        fail("getGrallocMeta(type %d, size %u) wrote into the record and answered %d", type, size,
             result);
    }
}

template <StandardMetadataType T>
bool lastSetDecodesTo(const void* expected, size_t size) {
    const auto& bytes = gSetup->state->lastSetBytes;
    const auto decoded = StandardMetadata<T>::value::decode(bytes.data(), bytes.size());
    if (!decoded || !decoded->has_value()) return false;
    if constexpr (T == StandardMetadataType::SMPTE2094_40 ||
                  T == StandardMetadataType::SMPTE2094_10) {
        const auto& payload = **decoded;
        return payload.size() == size && (size == 0 || memcmp(payload.data(), expected, size) == 0);
    } else {
        return sizeof(**decoded) == size && memcmp(&**decoded, expected, size) == 0;
    }
}

void setMetaOp(uint8_t param, uint16_t inputSize, const std::vector<uint8_t>& payload) {
    const auto type = static_cast<GRALLOC_STANDARD_METADATA_TYPE>(param % kMetaTypeChoices);
    const MetaType meta = metaType(type);
    const bool isVector = meta.standard == StandardMetadataType::SMPTE2094_40 ||
                          meta.standard == StandardMetadataType::SMPTE2094_10;
    const unsigned int size = (param & kParamExactSize) ? meta.recordSize : inputSize;
    std::vector<uint8_t> record(size);
    std::copy_n(payload.begin(), std::min<size_t>(size, payload.size()), record.begin());
    std::vector<uint8_t> vector = payload;
    void* data = isVector ? static_cast<void*>(&vector) : record.data();
    const int32_t result = gSetup->mapper->setGrallocMeta(gSetup->buffer, type, data, size);
    if (result != AIMAPPER_ERROR_NONE || meta.standard == StandardMetadataType::INVALID) return;

    bool delivered = gSetup->state->lastSetType == static_cast<int64_t>(meta.standard);
    switch (meta.standard) {
        case StandardMetadataType::SMPTE2086:
            delivered &= lastSetDecodesTo<StandardMetadataType::SMPTE2086>(record.data(), size);
            break;
        case StandardMetadataType::CTA861_3:
            delivered &= lastSetDecodesTo<StandardMetadataType::CTA861_3>(record.data(), size);
            break;
        case StandardMetadataType::SMPTE2094_40:
            delivered &= lastSetDecodesTo<StandardMetadataType::SMPTE2094_40>(payload.data(),
                                                                              payload.size());
            break;
        default:
            delivered &= lastSetDecodesTo<StandardMetadataType::SMPTE2094_10>(payload.data(),
                                                                              payload.size());
            break;
    }
    if (!delivered) fail("setGrallocMeta(type %d) handed the mapper something else", type);
}

// One scripted answer; `raw` gets its bytes as the input had them.
MetadataAnswer takeAnswer(zyncam::fuzz::Input& input, std::vector<uint8_t>* raw) {
    const auto kind = static_cast<AnswerKind>(input.take<uint8_t>() % kAnswerKinds);
    MetadataAnswer answer;
    answer.bytes = input.bytes(input.take<uint16_t>());
    *raw = answer.bytes;
    if (kind == kDynamicPayload) {
        using Codec = StandardMetadata<StandardMetadataType::SMPTE2094_40>::value;
        const std::optional<std::vector<uint8_t>> payload = answer.bytes;
        answer.bytes.resize(static_cast<size_t>(Codec::encode(payload, nullptr, 0)));
        (void)Codec::encode(payload, answer.bytes.data(), answer.bytes.size());
    }
    answer.result = static_cast<int32_t>(answer.bytes.size());
    if (kind == kClaimedSize) {
        answer.result = input.take<int32_t>();
        if (answer.result > kMaxClaimedSize) answer.result %= kMaxClaimedSize + 1;
    }
    return answer;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zyncam::fuzz::openLogGatesQuietly();
    gSetup = new Setup;
    const std::string library = std::string("mapper.") + zyncam::fuzz::kFuzzMapperSuffix + ".so";
    void* module = android_load_sphal_library(library.c_str(), RTLD_NOW);
    auto stateOf = module ? reinterpret_cast<FuzzMapperState* (*)()>(
                                    dlsym(module, zyncam::fuzz::kFuzzMapperStateSymbol))
                          : nullptr;
    if (stateOf == nullptr) fail("%s is missing or is not the fuzzing mapper", library.c_str());
    gSetup->state = stateOf();
    gSetup->mapper = std::make_unique<MapperV5>(ndk::SharedRefBase::make<FuzzAllocator>());
    gSetup->buffer = native_handle_create(0, 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zyncam::fuzz::Input input(data, size);
    struct Step {
        Op op;
        uint8_t param;
        uint16_t size;
    };
    std::vector<Step> steps(1 + input.take<uint8_t>() % kMaxOps);
    for (Step& step : steps) {
        step.op = static_cast<Op>(input.take<uint8_t>() % kOpCount);
        step.param = input.take<uint8_t>();
        step.size = input.take<uint16_t>();
    }
    const auto flags = input.take<uint8_t>();
    std::vector<MetadataAnswer> answers;
    std::vector<uint8_t> payload;  // what the setters hand over: the first answer's bytes
    std::vector<uint8_t> raw;
    while (input.left() != 0 && answers.size() < kMaxAnswers) {
        answers.push_back(takeAnswer(input, &raw));
        if (answers.size() == 1) payload = raw;
    }

    FuzzMapperState& state = *gSetup->state;
    for (const Step& step : steps) {
        state.reset(answers, (step.param & kParamLockFails) ? AIMAPPER_ERROR_BAD_VALUE
                                                            : AIMAPPER_ERROR_NONE);
        state.lockAddress = gSetup->pixels;
        if (step.op <= kLockYCbCr) {
            const int fence = (flags & kFlagAcquireFence) ? eventfd(0, EFD_CLOEXEC) : -1;
            const int32_t result = lockOp(step.op, step.param, fence);
            if (state.lockDepth != 0) {
                fail("lock form %d answered %d and left the buffer locked", step.op, result);
            }
            // A fence the mapper never saw is still the caller's.
            if (fence >= 0 && !state.tookFence(fence)) close(fence);
            if (!state.takeBackFences()) {
                fail("lock form %d closed an acquire fence the mapper had taken over", step.op);
            }
        } else if (step.op == kPlaneLayouts) {
            planeLayoutsOp();
        } else if (step.op == kGetGrallocMeta) {
            getMetaOp(step.param, step.size);
        } else {
            setMetaOp(step.param, step.size, payload);
        }
    }
    return 0;
}
