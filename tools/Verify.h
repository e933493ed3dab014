// gralloc-layout verify: whether a gralloc agrees with itself and with the library. For each
// request it compares three independently obtained answers: the helper's (probe, extension
// attributes, derivation), the mapper's PLANE_LAYOUTS and ALLOCATION_SIZE of a buffer allocated
// for the same probed request, and where a CPU lock puts the planes of that buffer.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "LayoutSession.h"
#include "PlatformCheck.h"

namespace zyncam::tools {

// The three answers, in the order reports list them.
enum class Source { Helper, Mapper, Lock };
inline constexpr size_t kSourceCount = 3;
const char* sourceName(Source source);

// One figure of one plane (or of the buffer) as a source states it; `limit` is the bound an
// invariant holds it to (the allocation, the smallest stride or row count), when it has one.
struct Figure {
    int64_t value = 0;
    std::optional<int64_t> limit;
};

// A check that failed: two or more sources state a field differently, or sources break one of
// the invariants every answer must hold. `figures[s]` is source s's figure; empty when the
// source does not state the field or (for an invariant) holds it.
struct Finding {
    std::string check;  // "planeCount", "strideBytes", "offset", "sizeBytes", "allocationSize",
                        // "inside", "overlap", "minStride", "minRows"
    std::string field;  // "planes", "planes[1].offset", "allocation", "planes[0]/planes[1]"
    std::array<std::optional<Figure>, kSourceCount> figures;
};

enum class VerifyOutcome {
    Agree,
    Disagree,
    Failed,   // a source could not be obtained: `reason` says which and why
    Skipped,  // grid only: a request the library refuses, or the allocator does not offer
};

struct Verdict {
    VerifyOutcome outcome = VerifyOutcome::Agree;
    uint32_t probedUsage = 0;
    int32_t format = 0;  // as the allocator resolved it
    std::vector<Finding> findings;
    std::string reason;
};

struct VerifyTotals {
    size_t requests = 0, agree = 0, disagree = 0, failed = 0, skipped = 0, findings = 0;
};
VerifyTotals count(const std::vector<Verdict>& verdicts);

// Obtains the three answers of one request and checks them.
class Verifier {
public:
    // `platform` (opened by openGrallocPlatform) and `session` must outlive this object.
    Verifier(const GrallocPlatform& platform, LayoutSession& session);
    ~Verifier();
    Verifier(const Verifier&) = delete;
    Verifier& operator=(const Verifier&) = delete;

    // The helper answers first; then one buffer is allocated for the probed request, imported,
    // its metadata read and, where a CPU lock can locate its planes, locked. `grid`: a request
    // the library refuses, or the allocator does not offer, is skipped rather than failed.
    Verdict check(const RequestSpec& given, bool grid);

private:
    const AIMapper* mMapperTable;
    std::unique_ptr<NSCam::GrallocMapperAidlV2::MapperV5> mMapper;
    std::unique_ptr<NSCam::GrallocAllocatorAidlV2::AllocatorAidl> mAllocator;
    std::shared_ptr<aidl::android::hardware::graphics::allocator::IAllocator> mAllocatorService;
    LayoutSession& mSession;
};

// The built-in grid: every format the library derives, across the usages a camera uses, at
// sizes from 1x1 to 4032x3024, and the slow-motion batch formats.
std::vector<RequestSpec> verifyGrid();

// Writes the verdicts (verdicts[i] for requests[i]) and the totals; `seconds` is how long the
// run took, `grid` whether the requests are the built-in grid.
void writeVerdicts(Output output, const std::vector<RequestSpec>& requests,
                   const std::vector<Verdict>& verdicts, bool grid, double seconds,
                   std::ostream& out);

// Runs `verify` with parsed settings (settings.verify set): the requests, or the grid when
// there are none. Returns an ExitCode: kExitOk when every request agrees; kExitDisagree when
// any disagrees (whatever else failed); otherwise kExitNotAnswered when a source of some
// request could not be obtained (one line on `err` each) or the platform is missing, and
// kExitBadInput for a profile that cannot be used. Every buffer it
// allocates is freed, every lock released, every fence closed, whatever fails. Not re-entrant.
int runVerify(const Settings& settings, std::ostream& out, std::ostream& err);

}  // namespace zyncam::tools
