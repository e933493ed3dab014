// Pieces shared by the helper's source files; not part of the library's interface.
#pragma once

#include <cutils/native_handle.h>
#include <system/graphics.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "GrallocHelperAidlV2Imp.h"

#define LOG_TAG "ZynCam/GrallocHelperAidlV2"
#define LOG_FILE "utils/gralloc/aidl/v2/GrallocHelper"

namespace GrallocAidlV2 {

// Source line numbers that the helper's error and fatal lines carry after "{#". They are part
// of the log text, fixed whatever line of this code writes them.
enum LogTextLine : int {
    kLogLineExtraQueryFailed = 472,
    kLogLineExtraRecord = 473,
    kLogLineYCbCrLockFailed = 529,
    kLogLineStaticInfoExtraFailed = 600,
    kLogLineStaticInfoIonFd = 615,
    kLogLineFlexibleFormat = 995,
    kLogLineUnsupportedFormat = 999,
    kLogLineInitializeFail = 1036,
    kLogLineNullRequest = 1263,
    kLogLineNullStaticInfo = 1268,
    kLogLineBadAllocation = 1418,
    kLogLineProbeIonFd = 1434,
};

// Descriptor values and waits of the platform calls.
inline constexpr int kNoFd = -1;             // preset of a descriptor the extension fills in
inline constexpr int kNoFence = -1;          // no acquire fence: the buffer is ready
inline constexpr int kSyncWaitForever = -1;  // sync_wait without a time limit
// The camera stack's debug switch is asked about error lines.
inline constexpr char kTestLogError = 'E';
// The library's own log level from which extra dumps are written.
inline constexpr int32_t kOwnLogLevelDetails = 2;

// Batch counts of the vendor slow-motion formats, indexed by format - kPixelFormatSmvrBatch2.
inline constexpr uint32_t kFormatBatchNum[zcam::kPixelFormatSmvrBatchCompressed32 -
                                          zcam::kPixelFormatSmvrBatch2 + 1] = {
        2, 4, 8, 16, 32, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 4, 8, 16, 32};

// Frames per buffer handed to layout derivation for a normalised request.
inline uint32_t batchCountForDerivation(const GrallocHelperAidlV2Imp::MyRequest& request) {
    return isVendorBatchFormat(request.format)
                   ? kFormatBatchNum[request.format - zcam::kPixelFormatSmvrBatch2]
                   : static_cast<uint32_t>(request.batchNum);
}

std::string gQueryPixelFormatName(int format);
std::string gQueryGrallocUsageName(int usage);
// The interface's dataspace namer: unknown values print as hexadecimal.
std::string gQueryDataspaceNameHex(int dataspace);

// Gralloc-extension attributes of one buffer.
struct Extra {
    int32_t format;
    uint32_t usage;
    size_t widthInPixels;
    size_t heightInPixels;
    size_t rowStrideInPixels;
    size_t rowNum;
    size_t allocSize;
    uint32_t consumerUsage;
    uint32_t producerUsage;
    int32_t stride;
    int32_t height;
    bool isAFBC;
    uint64_t id;
};

int gQueryExtra(buffer_handle_t buffer, Extra& extra);
std::string toString(const Extra& extra);
// Locks the buffer once to learn its plane addresses; a failed lock ends the process.
void gQueryYCbCr(android_ycbcr& ycbcr, buffer_handle_t buffer, size_t width, size_t height);

}  // namespace GrallocAidlV2

namespace zcam {
// The free dataspace namer: unknown values print as signed decimal.
std::string queryDataspaceName(int dataspace);
}  // namespace zcam
