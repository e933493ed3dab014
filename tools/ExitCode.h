// gralloc-layout's exit codes, for the program, its command line and its tests.
#pragma once

namespace zyncam::tools {

// How each line gralloc-layout writes to stderr starts.
constexpr const char* kErrorPrefix = "gralloc-layout: ";

// Exit codes of gralloc-layout, numbered in order from 0. Scripts rely on the values: add new
// ones at the end.
enum ExitCode : int {
    kExitOk = 0,
    // A request was not answered (the query failed, or was refused because the library would
    // end the process on it), or the allocator service or the mapper library is missing.
    kExitNotAnswered,
    // The command line or a request file is malformed.
    kExitBadInput,
    // names: the library has no name for the value (or part of it), or none is named so.
    kExitUnnamed,
    // --strict: the library warned while it derived a layout.
    kExitWarned,
    // --compare: the two profiles lay out at least one request differently.
    kExitDiffer,
    // verify: the helper, the mapper's metadata and a CPU lock disagree on at least one request.
    kExitDisagree,
};

}  // namespace zyncam::tools
