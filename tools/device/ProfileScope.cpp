// Device: the allocator is the device's own; there is no profile to follow.
#include "ProfileScope.h"

namespace zyncam::tools {

ProfileScope::ProfileScope(const std::string& path, std::string* error) {
    if (!path.empty() && error != nullptr) {
        *error = path + ": device profiles drive the simulated allocator of a workstation only";
    }
}

ProfileScope::~ProfileScope() = default;

}  // namespace zyncam::tools
