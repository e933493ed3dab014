// The device profile a gralloc-layout run asks the simulated allocator to follow.
#pragma once

#include <memory>
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

}  // namespace zyncam::tools
