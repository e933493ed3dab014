// gralloc-layout's command line and request files.
#pragma once

#include <GrallocRecords.h>

#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace zyncam::tools {

enum class Output { Text, Json, Csv };

// One layout request and where it was written.
struct RequestSpec {
    zcam::GrallocRequest request;
    bool refresh = false;
    uint32_t buffers = 1;  // buffers the stream keeps
    std::string origin;    // "argument 3", "'session.txt':12", "<stdin>:4"
};

struct Settings {
    Output output = Output::Text;
    bool strict = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
    std::string profile;  // device profile of the simulated allocator (workstation only)
    std::string capture;  // where to write the allocator's exact answers as a profile
    std::string svg;      // where to draw every request's buffer
    std::vector<std::string> compare;  // the two profiles whose answers are compared
    std::vector<std::string> names;    // "names", kind, value
    bool verify = false;               // "verify": check the gralloc's answers against each other
    std::vector<RequestSpec> requests;
};

// Frames the largest vendor batch format carries: the most a --batch may ask for.
inline constexpr uint32_t kMaxBatchCount = 32;
// More buffers than any camera stream keeps; a session's sums stay far from overflowing.
inline constexpr uint32_t kMaxBuffers = 1024;

// Reads the command line and, in their places among the requests, the request files it names
// ("-" reads `input`). Options are getopt_long's: "--opt=value" or "--opt value", unique
// abbreviations, "--" ends them. Returns the first problem as one line (without the program's
// name, input quoted), or nothing. Uses getopt_long's globals: one caller at a time.
std::optional<std::string> parseCommandLine(int argc, char** argv, std::istream& input,
                                            Settings& settings);

// Synopsis, options, accepted format and usage names, environment variables and exit codes.
void writeHelp(std::ostream& out);

}  // namespace zyncam::tools
