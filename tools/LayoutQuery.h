// gralloc-layout: what layout will a gralloc buffer of this shape have, and how was it derived?
#pragma once

#include <ostream>

#include "ExitCode.h"

namespace zyncam::tools {

// Runs gralloc-layout with its command line (argv[0] is the program's name; argv is read, not
// changed). Answers go to `out`, problems to `err`, one line each; "-f -" reads std::cin.
// Returns an ExitCode. Never ends the process: requests the library would abort on are refused,
// and a missing gralloc platform is reported before a helper is built.
// Not re-entrant: it uses getopt_long's globals and, for the run, installs its own sink in the
// camera log service (restoring the service's sink and levels before it returns).
int runLayoutQuery(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace zyncam::tools
