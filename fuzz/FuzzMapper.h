// The fuzzing mapper: an AIMapper v5 module (mapper.zyncamfuzz.so) whose standard-metadata
// answers are scripted by the fuzzer, and which records what the adapter did to it.
//
// The fuzzer loads the module with android_load_sphal_library, as the adapter does, and finds
// the state through kFuzzMapperStateSymbol. Single-threaded use only.
#pragma once

#include <cstddef>  // IMapper.h uses size_t and max_align_t without including them

#include <android/hardware/graphics/mapper/IMapper.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace zyncam::fuzz {

inline constexpr const char* kFuzzMapperSuffix = "zyncamfuzz";
inline constexpr const char* kFuzzMapperStateSymbol = "ZyncamFuzzMapper_state";

// One answer of getStandardMetadata: `bytes` are copied into the caller's buffer as far as
// they fit, and `result` (an encoded size, or a negated AIMapper_Error) is returned as it is.
struct MetadataAnswer {
    int32_t result = 0;
    std::vector<uint8_t> bytes;
};

struct FuzzMapperState {
    // The script. Answers are used in order and the last one repeats; with none,
    // getStandardMetadata answers -AIMAPPER_ERROR_UNSUPPORTED.
    std::vector<MetadataAnswer> answers;
    size_t nextAnswer = 0;
    AIMapper_Error lockError = AIMAPPER_ERROR_NONE;
    void* lockAddress = nullptr;  // what a successful lock hands out

    // What the adapter did.
    int lockDepth = 0;  // successful locks minus successful unlocks
    // Acquire fences the mapper took over. Closing one is the mapper's business: each is kept
    // open on a canary descriptor until takeBackFences() checks that nobody else closed it.
    std::vector<int> acquireFences;
    int64_t lastSetType = -1;  // the last setStandardMetadata call
    std::vector<uint8_t> lastSetBytes;
    // The file taken-over fences are parked on; its own inode, so nothing else matches it.
    int canary = -1;

    // Starts a new script; the fence list must have been taken back.
    void reset(std::vector<MetadataAnswer> script, AIMapper_Error lockAnswer) {
        answers = std::move(script);
        nextAnswer = 0;
        lockError = lockAnswer;
        lockDepth = 0;
        lastSetType = -1;
        lastSetBytes.clear();
    }
    // Whether `fence` was handed to the mapper.
    bool tookFence(int fence) const {
        return std::find(acquireFences.begin(), acquireFences.end(), fence) != acquireFences.end();
    }
    // Closes the fences the mapper took over; false when one of them had already been closed
    // (or replaced) by somebody else.
    bool takeBackFences() {
        bool intact = true;
        for (int fence : acquireFences) {
            intact &= isCanary(fence);
            close(fence);
        }
        acquireFences.clear();
        return intact;
    }

private:
    bool isCanary(int fd) const {
        struct stat a {};
        struct stat b {};
        return fstat(fd, &a) == 0 && fstat(canary, &b) == 0 && a.st_dev == b.st_dev &&
               a.st_ino == b.st_ino;
    }
};

}  // namespace zyncam::fuzz

extern "C" zyncam::fuzz::FuzzMapperState* ZyncamFuzzMapper_state();
