// Device: the allocator is the device's own; there is no profile to follow.
#include "ProfileScope.h"

namespace zyncam::tools {

ProfileScope::ProfileScope(const std::string& path, std::string* error) {
    if (!path.empty() && error != nullptr) {
        *error = path + ": device profiles drive the simulated allocator of a workstation only";
    }
}

ProfileScope::~ProfileScope() = default;

std::optional<SimulatedProfile> simulatedProfile() {
    return std::nullopt;
}

std::optional<bool> answeredExactly(const profile::AllocationRequest&) {
    return std::nullopt;
}

}  // namespace zyncam::tools
