// gralloc-layout: what layout will a gralloc buffer of this shape have, and how was it derived?
#pragma once

#include <ostream>

namespace zyncam::tools {

// Exit codes of gralloc-layout.
enum ExitCode : int {
    kExitOk = 0,
    // A request was not answered (the query failed, or was refused because the library would
    // end the process on it), or the allocator service or the mapper library is missing.
    kExitNotAnswered = 1,
    // The command line or a request file is malformed.
    kExitBadInput = 2,
    // names: the library has no name for the value (or part of it), or none is named so.
    kExitUnnamed = 3,
    // --strict: the library warned while it derived a layout.
    kExitWarned = 4,
    // --compare: the two profiles lay out at least one request differently.
    kExitDiffer = 5,
    // verify: the helper, the mapper's metadata and a CPU lock disagree on at least one request.
    kExitDisagree = 6,
};

// Runs gralloc-layout with its command line (argv[0] is the program's name; argv is read, not
// changed). Answers go to `out`, problems to `err`, one line each; "-f -" reads std::cin.
// Returns an ExitCode. Never ends the process: requests the library would abort on are refused,
// and a missing gralloc platform is reported before a helper is built.
// Not re-entrant: it uses getopt_long's globals and, for the run, installs its own sink in the
// camera log service (restoring the service's sink and levels before it returns).
int runLayoutQuery(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace zyncam::tools
