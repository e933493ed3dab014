// Workstation: the simulated allocator's profile.
#include "ProfileScope.h"

#include <zyncam_host/SimGralloc.h>

namespace zyncam::tools {

ProfileScope::ProfileScope(const std::string& path, std::string* error) {
    if (path.empty()) return;
    mPrevious = sim::activeProfile();
    mChanged = sim::loadProfile(path, error);
}

ProfileScope::~ProfileScope() {
    if (mChanged) sim::activateProfile(std::static_pointer_cast<const sim::Profile>(mPrevious));
}

std::optional<SimulatedProfile> simulatedProfile() {
    SimulatedProfile p;
    p.name = sim::profileName();
    if (!sim::profileIsBuiltIn()) p.source = sim::profileSource();
    p.exactAnswers = sim::profileExactAnswerCount();
    return p;
}

std::optional<bool> answeredExactly(const profile::AllocationRequest& allocation) {
    if (sim::profileExactAnswerCount() == 0) return std::nullopt;
    return sim::exactAnswerFor(allocation) != nullptr;
}

}  // namespace zyncam::tools
