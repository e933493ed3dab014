// Answering layout requests one by one on one helper, with everything the engineer needs to
// see: the usage probed with, what the allocator reported, every plane, the library's warnings.
#pragma once

#include <GrallocHelper.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "LibraryLog.h"

namespace zyncam::tools {

struct PlaneAnswer {
    size_t strideBytes = 0;
    size_t sizeBytes = 0;
    // The stride in pixels (plane 0) or samples (chroma planes); empty for opaque formats and
    // packed strides that hold no whole number of them.
    std::optional<uint64_t> strideSamples;
    const char* sampleUnit = "px";
    // Size over stride: the rows the allocator laid out; empty when the size is no whole
    // number of rows.
    std::optional<uint64_t> rows;
    // Where the plane starts, relative to plane 0, when the derivation measured it (single
    // planes, and the formats whose planes are located through a CPU lock).
    std::optional<uint64_t> offset;
};

enum class Outcome { Answered, Failed, Refused };

struct Answer {
    Outcome outcome = Outcome::Answered;
    zcam::GrallocRequest probed;  // the request after normalisation
    bool fromCache = false;
    zcam::GrallocCachedLayout layout;  // answered: the cache entry that holds the layout
    std::vector<PlaneAnswer> planes;
    std::vector<std::string> warnings;  // the library's warnings while answering
    int status = 0;                     // failed: the query's result
    std::string reason;                 // failed or refused: why, one line
    // Answered on a workstation whose profile has exact answers: whether one of them laid the
    // probe out (true) or the profile's rules did (false).
    std::optional<bool> exactAnswer;
};

class LayoutSession {
public:
    // `cache` is the helper's cache view; `log` the sink installed for the run.
    LayoutSession(zcam::IGrallocHelper& helper, const zcam::IGrallocLayoutCache& cache,
                  LibraryLog& log);

    // Refuses a request that the library would end the process on, else queries it.
    Answer answer(const RequestSpec& given);

private:
    std::optional<std::string> refusal(const zcam::GrallocRequest& request,
                                       const zcam::GrallocRequest& probed);

    zcam::IGrallocHelper& mHelper;
    const zcam::IGrallocLayoutCache& mCache;
    LibraryLog& mLog;
};

// Builds a helper and runs `body` with a session on it; the library's log is caught from before
// the helper exists until it is gone. Returns kExitNotAnswered, with one line on `err`, when the
// helper offers no view of its cache; otherwise what `body` returns.
std::optional<int> withLayoutSession(
        bool verbose, std::ostream& err,
        const std::function<std::optional<int>(LayoutSession& session)>& body);

// Names of the status codes a layout query returns ("NO_MEMORY"), or the empty string.
std::string statusName(int status);

}  // namespace zyncam::tools
