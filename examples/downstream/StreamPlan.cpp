#include "StreamPlan.h"

#include <utility>

namespace downstream {

android::status_t planStream(const zcam::IGrallocHelper& helper, const StreamConfig& stream,
                             StreamPlan* plan) {
    zcam::GrallocRequest request;
    // Gralloc usage travels as 32 bits in the request; camera streams use none above them.
    request.usage = static_cast<int32_t>(stream.usage);
    request.format = stream.format;
    request.widthInPixels = stream.width;
    request.heightInPixels = stream.height;
    zcam::GrallocStaticInfo info;
    if (const int status = helper.query(&request, &info, false); status != android::NO_ERROR) {
        return status;
    }
    StreamPlan result;
    result.format = info.format;
    for (const auto& plane : info.planes) {
        result.rowStrides.push_back(plane.rowStrideInBytes);
        result.bytesPerBuffer += plane.sizeInBytes;
    }
    *plan = std::move(result);
    return android::NO_ERROR;
}

}  // namespace downstream
