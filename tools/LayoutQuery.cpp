#include "LayoutQuery.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <ULogger.h>

#include "GrallocHelperAidlV2Imp.h"

namespace zyncam::tools {

namespace {

using GrallocAidlV2::GrallocHelperAidlV2Imp;

constexpr const char* kUsage =
        "usage: gralloc-layout [--json] [--verbose] WxH FORMAT [--usage BITS] [--batch N] "
        "[--refresh] [WxH FORMAT ...]\n"
        "       gralloc-layout names format|usage|dataspace VALUE\n"
        "FORMAT is a name (YCrCb_420_SP, NV12, ...) or a number; BITS are usage names joined by\n"
        "'|' (SW_READ_OFTEN|HW_TEXTURE) or a number.\n";

// Formats the library can name; their names are the library's own.
constexpr int kKnownFormats[] = {0x1,  0x2,   0x3,    0x4,        0x5,        0x10,      0x11,
                                 0x14, 0x20,  0x21,   0x22,       0x23,       0x24,      0x25,
                                 0x36, 0x111, 0x1000, 0x20203859, 0x20363159, 0x32315659};

struct UsageName {
    const char* name;
    int bits;
};
constexpr UsageName kUsageNames[] = {
        {"SW_READ_RARELY", 0x2},       {"SW_READ_OFTEN", 0x3},
        {"SW_WRITE_RARELY", 0x20},     {"SW_WRITE_OFTEN", 0x30},
        {"HW_CAMERA_WRITE", 0x20000},  {"HW_CAMERA_READ", 0x40000},
        {"HW_CAMERA_ZSL", 0x60000},    {"HW_TEXTURE", 0x100},
        {"HW_RENDER", 0x200},          {"HW_2D", 0x400},
        {"HW_COMPOSER", 0x800},        {"HW_FB", 0x1000},
        {"HW_VIDEO_ENCODER", 0x10000}, {"HW_IMAGE_ENCODER", 0x8000000},
        {"SMVR", 0x20000000},
};

std::optional<int> parseNumber(const std::string& text) {
    if (text.empty()) return std::nullopt;
    errno = 0;
    char* end = nullptr;
    const long long value = strtoll(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || value < INT32_MIN || value > UINT32_MAX) return std::nullopt;
    return static_cast<int>(static_cast<int64_t>(value));
}

std::optional<int> parseFormat(const GrallocHelperAidlV2Imp& helper, const std::string& text) {
    if (auto number = parseNumber(text)) return number;
    for (int format : kKnownFormats) {
        if (strcasecmp(helper.queryPixelFormatName(format).c_str(), text.c_str()) == 0) {
            return format;
        }
    }
    return std::nullopt;
}

std::optional<int> parseUsage(const std::string& text) {
    if (auto number = parseNumber(text)) return number;
    int bits = 0;
    std::stringstream pieces(text);
    std::string piece;
    while (std::getline(pieces, piece, '|')) {
        if (piece == "0") continue;
        const UsageName* found = nullptr;
        for (const auto& u : kUsageNames) {
            if (strcasecmp(u.name, piece.c_str()) == 0) found = &u;
        }
        if (found == nullptr) return std::nullopt;
        bits |= found->bits;
    }
    return bits;
}

bool parseSize(const std::string& text, int& width, int& height) {
    const size_t x = text.find_first_of("xX");
    if (x == std::string::npos) return false;
    auto w = parseNumber(text.substr(0, x));
    auto h = parseNumber(text.substr(x + 1));
    if (!w || !h || *w <= 0 || *h <= 0) return false;
    width = *w;
    height = *h;
    return true;
}

struct Request {
    std::string label;
    zcam::GrallocRequest request;
    bool refresh = false;
};

struct Answer {
    zcam::GrallocStaticInfo info;
    size_t allocSize = 0;
    bool probed = false;
};

std::string hex(int value) {
    std::ostringstream out;
    out << "0x" << std::hex << static_cast<uint32_t>(value);
    return out.str();
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

void printText(const GrallocHelperAidlV2Imp& helper, const Request& r, const Answer& a,
               std::ostream& out) {
    const auto& q = r.request;
    out << "request " << q.widthInPixels << "x" << q.heightInPixels << " "
        << helper.queryPixelFormatName(q.format) << " (" << hex(q.format) << ") usage "
        << hex(q.usage) << " (" << helper.queryGrallocUsageName(q.usage) << ") batch " << q.batchNum
        << (r.refresh ? " refresh" : "") << "\n";
    out << "  format      " << hex(a.info.format) << " ("
        << helper.queryPixelFormatName(a.info.format) << ")\n";
    out << "  size        " << a.info.widthInPixels << "x" << a.info.heightInPixels << "\n";
    for (size_t i = 0; i < a.info.planes.size(); ++i) {
        out << "  plane " << i << "     rowStride " << a.info.planes[i].rowStrideInBytes
            << " B, size " << a.info.planes[i].sizeInBytes << " B\n";
    }
    out << "  allocation  " << a.allocSize << " B\n";
    out << "  AFBC        " << (a.info.isAFBC ? "yes" : "no") << "\n";
    out << "  answered by " << (a.probed ? "probe" : "cache") << "\n";
}

void printJson(const GrallocHelperAidlV2Imp& helper, const Request& r, const Answer& a,
               std::ostream& out) {
    const auto& q = r.request;
    out << "{\"request\": {\"width\": " << q.widthInPixels << ", \"height\": " << q.heightInPixels
        << ", \"format\": " << q.format
        << ", \"formatName\": " << jsonString(helper.queryPixelFormatName(q.format))
        << ", \"usage\": " << static_cast<uint32_t>(q.usage)
        << ", \"usageName\": " << jsonString(helper.queryGrallocUsageName(q.usage))
        << ", \"batch\": " << q.batchNum << ", \"refresh\": " << (r.refresh ? "true" : "false")
        << "}, \"format\": " << a.info.format
        << ", \"formatName\": " << jsonString(helper.queryPixelFormatName(a.info.format))
        << ", \"width\": " << a.info.widthInPixels << ", \"height\": " << a.info.heightInPixels
        << ", \"planes\": [";
    for (size_t i = 0; i < a.info.planes.size(); ++i) {
        out << (i ? ", " : "") << "{\"rowStrideInBytes\": " << a.info.planes[i].rowStrideInBytes
            << ", \"sizeInBytes\": " << a.info.planes[i].sizeInBytes << "}";
    }
    out << "], \"allocSize\": " << a.allocSize
        << ", \"afbc\": " << (a.info.isAFBC ? "true" : "false")
        << ", \"probed\": " << (a.probed ? "true" : "false") << "}";
}

// Verbose: every line of the library reaches the Android log (stderr on the host); otherwise
// the library stays quiet and the tool reports problems itself.
void setLogGates(bool verbose) {
    using NSCam::Utils::ULog::ULogger;
    if (verbose) {
        ULogger::sMode |= 1;
        ULogger::sDetailsLevel = 5;
        ULogger::sNormalDetailsMask = 0x40007000;
    } else {
        ULogger::sMode = 0;
    }
}

int names(const GrallocHelperAidlV2Imp& helper, const std::string& kind, const std::string& value,
          std::ostream& out, std::ostream& err) {
    if (kind == "format") {
        auto format = parseFormat(helper, value);
        if (!format) {
            err << "gralloc-layout: unknown format '" << value << "'\n";
            return 2;
        }
        out << hex(*format) << " " << helper.queryPixelFormatName(*format) << "\n";
        return 0;
    }
    auto number = kind == "usage" ? parseUsage(value) : parseNumber(value);
    if (!number || (kind != "usage" && kind != "dataspace")) {
        err << "gralloc-layout: cannot name " << kind << " '" << value << "'\n" << kUsage;
        return 2;
    }
    out << hex(*number) << " "
        << (kind == "usage" ? helper.queryGrallocUsageName(*number)
                            : helper.queryDataspaceName(*number))
        << "\n";
    return 0;
}

}  // namespace

int runLayoutQuery(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    std::vector<std::string> args(argv + 1, argv + argc);
    bool json = false;
    bool verbose = false;
    std::vector<std::string> rest;
    for (const auto& arg : args) {
        if (arg == "--json") {
            json = true;
        } else if (arg == "--verbose") {
            verbose = true;
        } else if (arg == "--help" || arg == "-h") {
            out << kUsage;
            return 0;
        } else {
            rest.push_back(arg);
        }
    }
    if (rest.empty()) {
        err << kUsage;
        return 2;
    }

    setLogGates(verbose);
    GrallocHelperAidlV2Imp helper;
    if (rest[0] == "names") {
        if (rest.size() != 3) {
            err << "gralloc-layout: names takes a kind and a value\n" << kUsage;
            return 2;
        }
        return names(helper, rest[1], rest[2], out, err);
    }

    std::vector<Request> requests;
    for (size_t i = 0; i < rest.size(); ++i) {
        const std::string& arg = rest[i];
        const bool hasValue = i + 1 < rest.size();
        if (arg == "--usage" || arg == "--batch") {
            if (requests.empty() || !hasValue) {
                err << "gralloc-layout: " << arg << " needs a request before it and a value\n";
                return 2;
            }
            const std::string& value = rest[++i];
            auto parsed = arg == "--usage" ? parseUsage(value) : parseNumber(value);
            if (!parsed) {
                err << "gralloc-layout: bad " << arg.substr(2) << " '" << value << "'\n";
                return 2;
            }
            (arg == "--usage" ? requests.back().request.usage : requests.back().request.batchNum) =
                    *parsed;
        } else if (arg == "--refresh") {
            if (requests.empty()) {
                err << "gralloc-layout: --refresh needs a request before it\n";
                return 2;
            }
            requests.back().refresh = true;
        } else {
            Request r;
            if (!parseSize(arg, r.request.widthInPixels, r.request.heightInPixels)) {
                err << "gralloc-layout: bad size '" << arg << "' (expected WxH)\n";
                return 2;
            }
            if (!hasValue) {
                err << "gralloc-layout: " << arg << " needs a format\n";
                return 2;
            }
            auto format = parseFormat(helper, rest[++i]);
            if (!format) {
                err << "gralloc-layout: unknown format '" << rest[i] << "'\n";
                return 2;
            }
            r.request.format = *format;
            requests.push_back(r);
        }
    }

    // Every answer is gathered first, so that a failure never leaves half an answer printed.
    std::vector<Answer> answers(requests.size());
    int probes = 0;
    for (size_t i = 0; i < requests.size(); ++i) {
        zcam::GrallocCachedLayout cached;
        answers[i].probed = requests[i].refresh ||
                            !helper.findCachedLayout(requests[i].request, false, &cached);
        probes += answers[i].probed;
        const int result =
                helper.query(&requests[i].request, &answers[i].info, requests[i].refresh);
        if (result != 0) {
            const auto& q = requests[i].request;
            err << "gralloc-layout: query of " << q.widthInPixels << "x" << q.heightInPixels << " "
                << helper.queryPixelFormatName(q.format) << " (" << hex(q.format) << ") usage "
                << hex(q.usage) << " failed: " << result << "\n";
            return 1;
        }
        if (helper.findCachedLayout(requests[i].request, answers[i].info.isAFBC, &cached)) {
            answers[i].allocSize = cached.allocSize;
        }
    }

    const int hits = static_cast<int>(requests.size()) - probes;
    if (json) {
        out << "{\"layouts\": [";
        for (size_t i = 0; i < requests.size(); ++i) {
            out << (i ? ", " : "");
            printJson(helper, requests[i], answers[i], out);
        }
        out << "], \"probes\": " << probes << ", \"cacheHits\": " << hits << "}\n";
    } else {
        for (size_t i = 0; i < requests.size(); ++i)
            printText(helper, requests[i], answers[i], out);
        out << requests.size() << (requests.size() == 1 ? " request: " : " requests: ") << probes
            << (probes == 1 ? " probe, " : " probes, ") << hits
            << (hits == 1 ? " cache hit\n" : " cache hits\n");
    }
    return 0;
}

}  // namespace zyncam::tools
