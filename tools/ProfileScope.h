// The device profile a gralloc-layout run asks the simulated allocator to follow, and what the
// run can learn of it.
#pragma once

#include <zyncam_host/ProfileFormat.h>

#include <memory>
#include <optional>
#include <string>

namespace zyncam::tools {

// Puts a device profile in force for the life of the object, and the one before it back after.
// Only the simulated allocator of a workstation follows profiles: on a device the allocator is
// the device itself, and a profile is refused.
class ProfileScope {
public:
    // An empty `path` changes nothing. When the profile cannot be put in force, *error says why
    // in one line ("FILE: FIELD: REASON") and the profile in force stays.
    ProfileScope(const std::string& path, std::string* error);
    ~ProfileScope();
    ProfileScope(const ProfileScope&) = delete;
    ProfileScope& operator=(const ProfileScope&) = delete;

private:
    bool mChanged = false;
    std::shared_ptr<const void> mPrevious;
};

// The profile the simulated allocator follows now; empty on a device.
struct SimulatedProfile {
    std::string name;
    std::string source;  // its file; empty for the built-in one
    size_t exactAnswers = 0;
};
std::optional<SimulatedProfile> simulatedProfile();

// Whether the simulated profile in force lays `allocation` out by one of its exact answers
// (true) or by its rules (false); empty on a device, and when the profile has no exact answers.
std::optional<bool> answeredExactly(const profile::AllocationRequest& allocation);

}  // namespace zyncam::tools
