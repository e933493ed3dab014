// gralloc-layout's command line: any argument vector ends in an exit code the tool documents,
// with the answer on its output or the reason on its error stream.
//
// Input: the arguments after the program name, separated by NUL bytes.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "LayoutQuery.h"

namespace {

using zyncam::fuzz::fail;

constexpr size_t kMaxArguments = 12;
constexpr size_t kMaxArgumentLength = 64;

bool documented(int code) {
    using namespace zyncam::tools;
    switch (code) {
        case kExitOk:
        case kExitNotAnswered:
        case kExitBadInput:
        case kExitUnnamed:
        case kExitWarned:
        case kExitDiffer:
        case kExitDisagree:
            return true;
        default:
            return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zyncam::fuzz::openLogGatesQuietly();
    // "-f -" reads requests from standard input: give it an empty one rather than the terminal.
    if (std::freopen("/dev/null", "r", stdin) == nullptr) zyncam::fuzz::fail("no /dev/null");
    // --capture and --svg write their files: into a scratch folder of the fuzzer's own, under
    // $TMPDIR (fuzz/run.sh gives each run one of its own and removes it, also after a finding).
    static std::string folder;
    const char* tmp = std::getenv("TMPDIR");
    folder =
            std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/tool_args_fuzzer.XXXXXX";
    if (mkdtemp(folder.data()) == nullptr || chdir(folder.c_str()) != 0) {
        zyncam::fuzz::fail("no scratch folder");
    }
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    });
    return 0;
}

// Whether the arguments could name a file to write outside the scratch folder: "--ca" and
// "--sv" are the shortest abbreviations of --capture and --svg that getopt_long takes.
bool writesElsewhere(const std::vector<std::string>& arguments) {
    bool capture = false, path = false;
    for (const std::string& a : arguments) {
        capture = capture || a.rfind("--ca", 0) == 0 || a.rfind("--sv", 0) == 0;
        path = path || a.find('/') != std::string::npos || a.rfind("..", 0) == 0;
    }
    return capture && path;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> arguments{"gralloc-layout"};
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (size_t start = 0; start <= text.size() && arguments.size() <= kMaxArguments;) {
        size_t end = text.find('\0', start);
        if (end == std::string::npos) end = text.size();
        if (end - start > kMaxArgumentLength) return -1;  // not worth keeping
        arguments.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    if (writesElsewhere(arguments)) return -1;
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);

    std::ostringstream out;
    std::ostringstream err;
    const int code = zyncam::tools::runLayoutQuery(static_cast<int>(arguments.size()), argv.data(),
                                                   out, err);
    if (!documented(code)) fail("exit code %d", code);
    using namespace zyncam::tools;
    // A comparison's or a verification's finding is an answer on stdout, not a complaint.
    const bool verdict = code == kExitOk || code == kExitDiffer || code == kExitDisagree;
    if (verdict && out.str().empty()) fail("exit code %d without an answer", code);
    if (!verdict && err.str().empty()) fail("exit code %d without a reason", code);
    return 0;
}
