#include "CommandLine.h"

#include <getopt.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <variant>

#include "ExitCode.h"
#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

constexpr const char* kProgram = "gralloc-layout";

// Codes getopt_long returns; long-only options count from 256, above every character.
enum OptionId : int {
    kWord = 1,  // a word that is not an option, returned in place
    kOptBatch = 'b',
    kOptFile = 'f',
    kOptHelp = 'h',
    kOptUsage = 'u',
    kOptJson = 256,
    kOptCsv,
    kOptStrict,
    kOptVerbose,
    kOptVersion,
    kOptRefresh,
    kOptProfile,
    kOptCapture,
    kOptCompare,
    kOptBuffers,
    kOptSvg,
};

// Run options shape the whole run; request options apply to the request just before them.
enum class Scope { Run, Request };

struct OptionInfo {
    const char* name;
    int hasArg;
    int id;
    Scope scope;
    const char* valueName;
    const char* help;
    // A figure of the help text that a constant holds, and the text after it; none when < 0.
    long figure = -1;
    const char* afterFigure = "";
};

constexpr OptionInfo kOptions[] = {
        {"usage", required_argument, kOptUsage, Scope::Request, "BITS",
         "usage bits of the request: names or numbers joined by '|' (default 0)"},
        {"batch", required_argument, kOptBatch, Scope::Request, "N",
         "slow-motion frames per buffer the request asks for, 0..", kMaxBatchCount, " (default 0)"},
        {"buffers", required_argument, kOptBuffers, Scope::Request, "N",
         "buffers the stream keeps, for its memory: 1..", kMaxBuffers, " (default 1)"},
        {"refresh", no_argument, kOptRefresh, Scope::Request, nullptr,
         "probe the request again even when its layout is cached"},
        {"file", required_argument, kOptFile, Scope::Run, "FILE",
         "read requests from FILE, one per line ('-': standard input)"},
        {"profile", required_argument, kOptProfile, Scope::Run, "FILE",
         "workstation: the simulated allocator follows the device profile FILE (JSON)"},
        {"capture", required_argument, kOptCapture, Scope::Run, "OUT",
         "also write what the allocator answered to OUT, as a device profile"},
        {"compare", required_argument, kOptCompare, Scope::Run, "A B",
         "workstation: answer the requests under profiles A and B and list what differs"},
        {"svg", required_argument, kOptSvg, Scope::Run, "FILE",
         "also draw every request's buffer into FILE (SVG); with --compare, side by side"},
        {"json", no_argument, kOptJson, Scope::Run, nullptr,
         "print one JSON document: requests, answers, totals"},
        {"csv", no_argument, kOptCsv, Scope::Run, nullptr, "print CSV, one row per plane"},
        {"strict", no_argument, kOptStrict, Scope::Run, nullptr, "exit with ", kExitWarned,
         " when the library warned while deriving a layout"},
        {"verbose", no_argument, kOptVerbose, Scope::Run, nullptr,
         "let every line the library logs through to the Android log"},
        {"help", no_argument, kOptHelp, Scope::Run, nullptr, "print this help"},
        {"version", no_argument, kOptVersion, Scope::Run, nullptr, "print the version"},
};

const OptionInfo* findOption(int id) {
    for (const OptionInfo& entry : kOptions) {
        if (entry.id == id) return &entry;
    }
    return nullptr;
}

std::string optionName(int id) {
    const OptionInfo* entry = findOption(id);
    return entry != nullptr ? std::string("--") + entry->name : std::string("-") + char(id);
}

const std::vector<option>& longOptions() {
    static const std::vector<option> table = [] {
        std::vector<option> options;
        for (const OptionInfo& entry : kOptions) {
            options.push_back({entry.name, entry.hasArg, nullptr, entry.id});
        }
        options.push_back({nullptr, 0, nullptr, 0});
        return options;
    }();
    return table;
}

// '-': words come back in place, so options apply to the request before them; ':': a missing
// value is told apart from an unknown option.
const std::string& shortOptions() {
    static const std::string text = [] {
        std::string letters = "-:";
        for (const OptionInfo& entry : kOptions) {
            if (entry.id >= kOptJson) continue;
            letters += char(entry.id);
            if (entry.hasArg == required_argument) letters += ':';
        }
        return letters;
    }();
    return text;
}

using Error = std::optional<std::string>;

// The words of one source (the command line, or one line of a request file) turned into
// settings and requests.
class WordReader {
public:
    WordReader(Settings& settings, bool oneLine) : mSettings(settings), mOneLine(oneLine) {}

    // Command line only: the request files named, in order among the requests.
    using Item = std::variant<RequestSpec, std::string>;
    std::vector<Item>& items() { return mItems; }

    Error read(std::vector<std::string>& words, const std::string& lineOrigin) {
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        const int argc = static_cast<int>(words.size());
        optind = 0;  // a fresh scan (glibc and bionic alike)
        opterr = 0;
        int id;
        while ((id = getopt_long(argc, argv.data(), shortOptions().c_str(), longOptions().data(),
                                 nullptr)) != -1) {
            const std::string origin =
                    mOneLine ? lineOrigin : "argument " + std::to_string(optind - 1);
            Error error;
            if (id == kWord) {
                error = word(optarg, origin);
            } else if (id == '?' || id == ':') {
                error = badOption(argv.data(), argc);
            } else {
                error = optionWith(id, optarg);
            }
            if (error) return error;
        }
        for (int i = optind; i < argc; ++i) {  // after "--"
            const std::string origin = mOneLine ? lineOrigin : "argument " + std::to_string(i);
            if (Error error = word(argv[i], origin)) return error;
        }
        return finish();
    }

private:
    // A known option with a value it must not have, or without one it needs (glibc and bionic
    // disagree on which of '?' and ':' says which), or an unknown option.
    static Error badOption(char** argv, int argc) {
        if (const OptionInfo* entry = optopt != 0 ? findOption(optopt) : nullptr) {
            return "option " + quoted(optionName(entry->id)) +
                   (entry->hasArg == no_argument ? " takes no value" : " needs a value");
        }
        const std::string text = optind - 1 < argc ? argv[optind - 1] : "";
        if (text.rfind("--", 0) == 0)
            return "unknown option " + quoted(text.substr(0, text.find('=')));
        return "unknown option " + quoted(std::string("-") + char(optopt));
    }

    Error word(const char* text, const std::string& origin) {
        if (mAwaitingSecondProfile) {
            if (*text == '\0') return std::string("--compare needs two files");
            mSettings.compare.emplace_back(text);
            mAwaitingSecondProfile = false;
            return std::nullopt;
        }
        if (!mOneLine && !mSettings.names.empty()) {
            if (mSettings.names.size() == 3) return "names takes a kind and a value";
            mSettings.names.emplace_back(text);
            return std::nullopt;
        }
        if (mAwaitingFormat) {
            const auto format = parseFormat(text);
            if (!format) return "unknown format " + quoted(text) + "; --help lists the names";
            mCurrent->request.format = *format;
            mAwaitingFormat = false;
            return std::nullopt;
        }
        if (!mOneLine && mItems.empty() && strcmp(text, "names") == 0) {
            mSettings.names.emplace_back(text);
            return std::nullopt;
        }
        if (!mOneLine && mItems.empty() && !mSettings.verify && strcmp(text, "verify") == 0) {
            mSettings.verify = true;
            return std::nullopt;
        }
        if (mOneLine && mCurrent != nullptr) return "one request per line";
        const auto size = parseSize(text);
        if (!size) return "bad size " + quoted(text) + " (expected WxH, as 1920x1080)";
        RequestSpec entry;
        entry.request.widthInPixels = size->width;
        entry.request.heightInPixels = size->height;
        entry.origin = origin;
        mCurrent = &std::get<RequestSpec>(mItems.emplace_back(std::move(entry)));
        mAwaitingFormat = true;
        return std::nullopt;
    }

    Error optionWith(int id, const char* value) {
        const OptionInfo* entry = findOption(id);
        if (entry->scope == Scope::Request) {
            if (mCurrent == nullptr || mAwaitingFormat) {
                return optionName(id) + " needs a request (WxH FORMAT) before it";
            }
            return requestOption(id, value);
        }
        if (mOneLine) return optionName(id) + " is not a request option";
        switch (id) {
            case kOptFile:
                if (!mSettings.names.empty()) return std::string("names takes no requests");
                if (Error error = finish()) return error;
                mItems.emplace_back(std::string(value));
                mCurrent = nullptr;
                return std::nullopt;
            case kOptJson:
            case kOptCsv: {
                const Output output = id == kOptJson ? Output::Json : Output::Csv;
                if (mSettings.output != Output::Text && mSettings.output != output) {
                    return std::string("--json and --csv exclude each other");
                }
                mSettings.output = output;
                return std::nullopt;
            }
            case kOptProfile:
                if (!mSettings.profile.empty()) return std::string("--profile is given twice");
                if (*value == '\0') return std::string("--profile needs a file");
                mSettings.profile = value;
                return std::nullopt;
            case kOptCapture:
                if (!mSettings.capture.empty()) return std::string("--capture is given twice");
                if (*value == '\0') return std::string("--capture needs a file");
                mSettings.capture = value;
                return std::nullopt;
            case kOptCompare:
                if (!mSettings.compare.empty()) return std::string("--compare is given twice");
                if (*value == '\0') return std::string("--compare needs two files");
                mSettings.compare.emplace_back(value);
                mAwaitingSecondProfile = true;
                return std::nullopt;
            case kOptSvg:
                if (!mSettings.svg.empty()) return std::string("--svg is given twice");
                if (*value == '\0') return std::string("--svg needs a file");
                mSettings.svg = value;
                return std::nullopt;
            case kOptStrict:
                mSettings.strict = true;
                return std::nullopt;
            case kOptVerbose:
                mSettings.verbose = true;
                return std::nullopt;
            case kOptHelp:
                mSettings.help = true;
                return std::nullopt;
            case kOptVersion:
                mSettings.version = true;
                return std::nullopt;
            default:
                return "option " + quoted(optionName(id)) + " is not handled";
        }
    }

    Error requestOption(int id, const char* value) {
        zcam::GrallocRequest& request = mCurrent->request;
        switch (id) {
            case kOptUsage: {
                const auto usage = parseUsage(value);
                if (!usage) return "bad usage " + quoted(value) + "; --help lists the names";
                request.usage = static_cast<int32_t>(*usage);
                return std::nullopt;
            }
            case kOptBatch: {
                const auto batch = parseNumber(value);
                if (!batch || *batch > kMaxBatchCount) {
                    return "bad batch " + quoted(value) + " (0.." + std::to_string(kMaxBatchCount) +
                           ")";
                }
                request.batchNum = static_cast<int32_t>(*batch);
                return std::nullopt;
            }
            case kOptBuffers: {
                const auto buffers = parseNumber(value);
                if (!buffers || *buffers == 0 || *buffers > kMaxBuffers) {
                    return "bad buffer count " + quoted(value) + " (1.." +
                           std::to_string(kMaxBuffers) + ")";
                }
                mCurrent->buffers = *buffers;
                return std::nullopt;
            }
            case kOptRefresh:
                mCurrent->refresh = true;
                return std::nullopt;
            default:
                return "option " + quoted(optionName(id)) + " is not handled";
        }
    }

    Error finish() const {
        if (mAwaitingSecondProfile) return std::string("--compare needs two files");
        if (mAwaitingFormat) {
            return "request " +
                   quoted(std::to_string(mCurrent->request.widthInPixels) + "x" +
                          std::to_string(mCurrent->request.heightInPixels)) +
                   " needs a format";
        }
        if (!mSettings.names.empty() && mSettings.names.size() != 3) {
            return std::string("names takes a kind and a value");
        }
        return std::nullopt;
    }

    Settings& mSettings;
    const bool mOneLine;
    std::vector<Item> mItems;
    RequestSpec* mCurrent = nullptr;
    bool mAwaitingFormat = false;
    bool mAwaitingSecondProfile = false;
};

std::vector<std::string> splitWords(const std::string& line) {
    constexpr const char* kBlanks = " \t\r\v\f";
    std::vector<std::string> words;
    size_t start = line.find_first_not_of(kBlanks);
    while (start != std::string::npos) {
        const size_t end = line.find_first_of(kBlanks, start);
        words.push_back(line.substr(start, end - start));
        start = line.find_first_not_of(kBlanks, end);
    }
    return words;
}

// Requests of a file, one per line in the words of the command line; '#' starts a comment.
Error readFile(const std::string& path, std::istream& input, Settings& settings) {
    std::ifstream file;
    std::istream* in = &input;
    std::string label = "<stdin>";
    if (path != "-") {
        file.open(path);
        if (!file) return "cannot read " + quoted(path) + ": " + strerror(errno);
        in = &file;
        label = quoted(path);
    }
    std::string line;
    for (size_t number = 1; std::getline(*in, line); ++number) {
        const std::string origin = label + ":" + std::to_string(number);
        line.erase(std::min(line.find('#'), line.size()));
        if (line.find('\0') != std::string::npos) return origin + ": a NUL byte in the line";
        std::vector<std::string> words = splitWords(line);
        if (words.empty()) continue;
        words.insert(words.begin(), kProgram);
        WordReader reader(settings, true);
        if (Error error = reader.read(words, origin)) return origin + ": " + *error;
        if (reader.items().empty()) return origin + ": no request in the line";
        settings.requests.push_back(std::get<RequestSpec>(reader.items().front()));
    }
    if (in->bad()) return "cannot read " + label;
    return std::nullopt;
}

}  // namespace

Error parseCommandLine(int argc, char** argv, std::istream& input, Settings& settings) {
    std::vector<std::string> words(argv, argv + argc);
    if (words.empty()) words.emplace_back(kProgram);
    WordReader reader(settings, false);
    if (Error error = reader.read(words, "")) return error;
    // Files are read once the command line is done: getopt_long serves one scan at a time.
    for (auto& item : reader.items()) {
        if (auto* entry = std::get_if<RequestSpec>(&item)) {
            settings.requests.push_back(std::move(*entry));
        } else if (Error error = readFile(std::get<std::string>(item), input, settings)) {
            return error;
        }
    }
    if (!settings.names.empty() && !settings.requests.empty()) {
        return std::string("names takes no requests");
    }
    const bool names = !settings.names.empty();
    const bool compare = !settings.compare.empty();
    if (compare && (names || !settings.capture.empty() || !settings.profile.empty())) {
        return std::string("--compare names its own profiles: no --profile, --capture or names");
    }
    if (names && !settings.capture.empty()) return std::string("names captures nothing");
    if (names && !settings.svg.empty()) return std::string("names draws nothing");
    if (settings.verify && (names || compare || !settings.capture.empty() || settings.strict)) {
        return std::string("verify takes no --compare, --capture, --strict or names");
    }
    return std::nullopt;
}

void writeHelp(std::ostream& out) {
    out << "usage: gralloc-layout [OPTIONS] WxH FORMAT [REQUEST OPTIONS] [WxH FORMAT ...]\n"
           "       gralloc-layout [OPTIONS] -f FILE\n"
           "       gralloc-layout --capture OUT.json [OPTIONS] REQUESTS | -f FILE\n"
           "       gralloc-layout --compare A.json B.json [OPTIONS] REQUESTS | -f FILE\n"
           "       gralloc-layout --svg OUT.svg [OPTIONS] REQUESTS | -f FILE\n"
           "       gralloc-layout verify [OPTIONS] [REQUESTS | -f FILE]\n"
           "       gralloc-layout names format|usage|dataspace VALUE\n"
           "\n"
           "Asks the gralloc helper what layout a buffer of each request gets: the usage it is\n"
           "probed with, what the allocator made of it, every plane, and the warnings the\n"
           "library logged on the way. Requests share one helper, so a repeated one is answered\n"
           "from its cache. names turns a value into the library's name, or a name into its\n"
           "value. --capture writes what the allocator reported for each request (every\n"
           "gralloc-extension attribute the helper reads, the plane layouts, the YCbCr lock's\n"
           "offsets) as the exact answers of a device profile, which --profile replays on a\n"
           "workstation. --compare lists the requests on which two profiles lay out\n"
           "differently, field by field. verify checks, for each request (without any: a\n"
           "built-in grid of formats, camera usages and sizes), that the helper's layout, the\n"
           "mapper's PLANE_LAYOUTS of a buffer allocated alike and where a CPU lock puts its\n"
           "planes agree, and that each holds its planes inside the allocation, apart, with\n"
           "rows and strides wide enough. Each answer also says what the stream's buffers\n"
           "cost: bytes per buffer and per stream, and the padding (bytes beyond the visible\n"
           "image); the run ends with the session's totals and largest consumers. --svg draws\n"
           "every request's buffer.\n"
           "\n"
           "Request options (after the request they change):\n";
    auto list = [&](Scope scope) {
        for (const OptionInfo& entry : kOptions) {
            if (entry.scope != scope) continue;
            std::string flags =
                    entry.id < kOptJson ? std::string("-") + char(entry.id) + ", " : "    ";
            flags += std::string("--") + entry.name;
            if (entry.valueName != nullptr) flags += std::string(" ") + entry.valueName;
            out << "  " << flags << std::string(flags.size() < 20 ? 20 - flags.size() : 1, ' ')
                << entry.help;
            if (entry.figure >= 0) out << entry.figure << entry.afterFigure;
            out << "\n";
        }
    };
    list(Scope::Request);
    out << "\nOptions:\n";
    list(Scope::Run);
    out << "\nA request file holds one request per line in the words above\n"
           "(1920x1080 IMPLEMENTATION_DEFINED --usage HW_TEXTURE|HW_COMPOSER); blank lines and\n"
           "'#' comments are skipped. In the text, '-' marks a figure the layout does not give\n"
           "(the pixels of an opaque stride, the offset of a plane only sized).\n"
           "\nFORMAT: a number (decimal or 0x...) or one of\n ";
    for (const std::string& name : formatNames()) out << " " << name;
    out << "\nBITS: numbers and these words, joined by '|'\n ";
    for (const std::string& word : usageWords()) out << " " << word;
    out << "\n"
           "\nEnvironment (simulated platform on a workstation):\n"
           "  ZYNCAM_SPHAL_PATH   ':'-separated folders searched for the mapper library\n"
           "  ZYNCAM_PROPERTIES   file of key=value system properties\n"
           "  ZYNCAM_ULOG_FILE    file that receives the camera log service's lines\n"
           "  ZYNCAM_GRALLOC_PROFILE  device profile (JSON file) the simulated allocator follows\n"
           "\nExit codes:\n"
        << "  " << kExitOk << "  every request answered\n"
        << "  " << kExitNotAnswered
        << "  a request not answered (failed, or refused because the library would abort),\n"
           "     or the allocator service or the mapper library missing\n"
        << "  " << kExitBadInput << "  malformed command line or request file\n"
        << "  " << kExitUnnamed << "  names: the library has no name for the value\n"
        << "  " << kExitWarned << "  --strict: the library warned while deriving a layout\n"
        << "  " << kExitDiffer << "  --compare: the two profiles lay out a request differently\n"
        << "  " << kExitDisagree
        << "  verify: the helper, the mapper and a CPU lock disagree on a request\n";
}

}  // namespace zyncam::tools
