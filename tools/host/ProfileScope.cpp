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

}  // namespace zyncam::tools
