// Whether the platform offers what a gralloc helper needs before one is built.
#pragma once

#include <optional>
#include <string>

namespace zyncam::tools {

// Building a helper ends the process when the allocator service is missing or the mapper
// library it names cannot be loaded. This asks the same questions first, the way the helper
// will: the allocator service by its instance name, its mapper library suffix, the library
// through the sphal loader, its AIMapper_loadIMapper entry and the table it hands out. Returns
// what is missing as one line of text, or nothing when a helper can be built. Unloads what it
// loaded.
std::optional<std::string> missingGrallocPlatform();

}  // namespace zyncam::tools
