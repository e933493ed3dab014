// The layout-query tool: what layout will a gralloc buffer of this shape have?
#pragma once

#include <ostream>

namespace zyncam::tools {

// Runs the tool with its command line; writes the answer to `out` and problems to `err`.
// Returns the process exit code: 0, 1 for a failed query, 2 for a bad command line.
int runLayoutQuery(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace zyncam::tools
