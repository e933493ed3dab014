#include "LayoutQuery.h"

#include <GrallocHelper.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>

#include "Capture.h"
#include "CommandLine.h"
#include "LayoutSession.h"
#include "LibraryLog.h"
#include "PlatformCheck.h"
#include "ProfileScope.h"
#include "Report.h"
#include "Svg.h"
#include "Verify.h"
#include "Vocabulary.h"

#ifndef ZYNCAM_GRALLOC_LAYOUT_VERSION
#define ZYNCAM_GRALLOC_LAYOUT_VERSION "unknown"
#endif

namespace zyncam::tools {

namespace {

int names(const Settings& settings, std::ostream& out, std::ostream& err) {
    const std::string& kind = settings.names[1];
    const std::string& text = settings.names[2];
    NameAnswer a;
    a.kind = kind;
    std::optional<uint32_t> value;
    if (kind == "format") {
        if (auto format = parseFormat(text)) value = static_cast<uint32_t>(*format);
    } else if (kind == "usage") {
        value = parseUsage(text);
    } else if (kind == "dataspace") {
        value = parseDataspace(text);
    } else {
        err << kErrorPrefix << "names knows format, usage and dataspace, not " << quoted(kind)
            << "\n";
        return kExitBadInput;
    }
    if (!value) {
        err << kErrorPrefix << "no " << kind << " is named " << quoted(text) << "\n";
        return kExitUnnamed;
    }
    a.value = *value;
    const int asInt = static_cast<int>(a.value);
    if (kind == "format") {
        a.name = zcam::pixelFormatName(asInt);
        a.named = !a.name.empty();
    } else if (kind == "usage") {
        a.name = zcam::grallocUsageName(asInt);
        a.named = usageBitsNamed(a.value) == a.value;
    } else {
        // An unknown dataspace is printed as its number, followed by whatever fields it has.
        a.name = zcam::dataspaceName(asInt);
        a.named = a.name.rfind("0x", 0) != 0;
    }
    writeName(settings.output, a, out);
    if (a.named) return kExitOk;
    if (kind == "usage") {
        err << kErrorPrefix << "the library does not name usage bits "
            << hex(a.value & ~usageBitsNamed(a.value)) << "\n";
    } else {
        err << kErrorPrefix << "the library has no name for " << kind << " " << hex(a.value)
            << "\n";
    }
    return kExitUnnamed;
}

// The file --svg names, opened before anything is allocated so that a bad path costs nothing.
std::optional<int> openSvg(const Settings& settings, std::ofstream* file, std::ostream& err) {
    if (settings.svg.empty()) return std::nullopt;
    file->open(settings.svg, std::ios::trunc);
    if (*file) return std::nullopt;
    err << kErrorPrefix << "cannot write " << quoted(settings.svg) << ": " << strerror(errno)
        << "\n";
    return kExitBadInput;
}

// Draws the answers into the open --svg file; false when it could not be written.
bool finishSvg(const Settings& settings, std::span<const SvgSide> sides, std::ofstream* file,
               std::ostream& err) {
    if (settings.svg.empty()) return true;
    writeSvg(settings.requests, sides, *file);
    file->close();
    if (*file) return true;
    err << kErrorPrefix << "cannot write " << quoted(settings.svg) << "\n";
    return false;
}

// "soc-a64 (host/profiles/soc-a64.json)"; empty on a device.
std::string profileText(const std::optional<SimulatedProfile>& profile) {
    if (!profile) return std::string();
    return profile->source.empty() ? profile->name : profile->name + " (" + profile->source + ")";
}

// Reports a request that was not answered, or not captured, as one line.
void reportRequest(std::ostream& err, size_t index, const RequestSpec& given,
                   const std::string& reason) {
    const zcam::GrallocRequest& r = given.request;
    err << kErrorPrefix << "request " << index + 1 << " (" << given.origin << ", "
        << r.widthInPixels << "x" << r.heightInPixels << " " << formatText(r.format) << ", usage "
        << hex(static_cast<uint32_t>(r.usage)) << "): " << reason << "\n";
}

// Answers every request in order on a new helper, under the profile in force; with `capture`,
// also records what the allocator answered for each, and clears *captured when a request could
// not be. Returns an exit code when no request could be answered at all.
std::optional<int> answerAll(const Settings& settings, Capture* capture,
                             std::vector<Answer>* answers, bool* captured, std::ostream& err) {
    return withLayoutSession(settings.verbose, err, [&](LayoutSession& session) {
        for (size_t i = 0; i < settings.requests.size(); ++i) {
            const RequestSpec& given = settings.requests[i];
            Answer& a = answers->emplace_back(session.answer(given));
            if (a.outcome == Outcome::Answered) {
                a.exactAnswer = answeredExactly(probeAllocation(a.probed));
            } else {
                reportRequest(err, i, given, a.reason);
            }
            if (capture == nullptr) continue;
            if (auto why = capture->record(a.probed)) {
                reportRequest(err, i, given, "not captured: " + *why);
                *captured = false;
            }
        }
        return std::optional<int>();
    });
}

int layouts(const Settings& settings, std::ostream& out, std::ostream& err) {
    RunPlatform run;
    if (auto code = openRunPlatform(settings.profile, &run, err)) return *code;
    const GrallocPlatform& platform = run.gralloc;
    std::ofstream svgFile;
    if (auto code = openSvg(settings, &svgFile, err)) return *code;
    std::ofstream captureFile;
    std::optional<Capture> capture;
    if (!settings.capture.empty()) {
        captureFile.open(settings.capture, std::ios::trunc);
        if (!captureFile) {
            err << kErrorPrefix << "cannot write " << quoted(settings.capture) << ": "
                << strerror(errno) << "\n";
            return kExitBadInput;
        }
        capture.emplace(platform);
    }
    std::vector<Answer> answers;
    bool captured = true;
    if (auto code = answerAll(settings, capture ? &*capture : nullptr, &answers, &captured, err)) {
        return *code;
    }
    writeReport(settings.output, settings.requests, answers, out);
    const SvgSide side{"", profileText(simulatedProfile()), &answers};
    if (!finishSvg(settings, std::span(&side, 1), &svgFile, err)) return kExitNotAnswered;
    if (capture) {
        const std::string base = captureBase(settings.capture);
        writeJsonDocument(captureProfile(base, capture->answers()), captureFile);
        captureFile.close();
        if (!captureFile) {
            err << kErrorPrefix << "cannot write " << quoted(settings.capture) << "\n";
            return kExitNotAnswered;
        }
        if (settings.output == Output::Text) {
            const size_t n = capture->answers().size();
            out << "captured " << n << (n == 1 ? " allocation" : " allocations") << " into "
                << settings.capture << ", on top of " << base << "\n";
        }
    }
    const Totals totals = count(answers);
    if (totals.failed + totals.refused > 0 || !captured) return kExitNotAnswered;
    if (settings.strict && totals.warnings > 0) {
        err << kErrorPrefix << "--strict: the library warned " << totals.warnings
            << (totals.warnings == 1 ? " time" : " times") << " while deriving the layouts\n";
        return kExitWarned;
    }
    return kExitOk;
}

// The requests answered under each of two profiles, and what differs.
int compare(const Settings& settings, std::ostream& out, std::ostream& err) {
    std::vector<Answer> answers[2];
    SimulatedProfile profiles[2];
    std::ofstream svgFile;
    if (auto code = openSvg(settings, &svgFile, err)) return *code;
    for (size_t side = 0; side < 2; ++side) {
        std::string profileError;
        const ProfileScope profile(settings.compare[side], &profileError);
        if (!profileError.empty()) {
            err << kErrorPrefix << profileError << "\n";
            return kExitBadInput;
        }
        if (auto missing = missingGrallocPlatform()) {
            err << kErrorPrefix << *missing << "\n";
            return kExitNotAnswered;
        }
        bool captured = true;
        if (auto code = answerAll(settings, nullptr, &answers[side], &captured, err)) return *code;
        profiles[side] = simulatedProfile().value_or(SimulatedProfile{});
        profiles[side].source = settings.compare[side];
    }
    const size_t differing =
            writeComparison(settings.output, settings.requests, profiles, answers, out);
    const SvgSide sides[] = {{"A", profileText(profiles[0]), &answers[0]},
                             {"B", profileText(profiles[1]), &answers[1]}};
    if (!finishSvg(settings, sides, &svgFile, err)) return kExitNotAnswered;
    return differing == 0 ? kExitOk : kExitDiffer;
}

}  // namespace

int runLayoutQuery(int argc, char** argv, std::ostream& out, std::ostream& err) {
    Settings settings;
    if (auto error = parseCommandLine(argc, argv, std::cin, settings)) {
        err << kErrorPrefix << *error << "\n";
        return kExitBadInput;
    }
    if (settings.help) {
        writeHelp(out);
        return kExitOk;
    }
    if (settings.version) {
        out << "gralloc-layout " << ZYNCAM_GRALLOC_LAYOUT_VERSION
            << " (allocator AIDL v2, mapper AIMapper v5)\n";
        return kExitOk;
    }
    if (!settings.names.empty()) return names(settings, out, err);
    if (settings.verify) return runVerify(settings, out, err);
    if (settings.requests.empty()) {
        err << kErrorPrefix << "no request; try --help\n";
        return kExitBadInput;
    }
    if (!settings.compare.empty()) return compare(settings, out, err);
    return layouts(settings, out, err);
}

}  // namespace zyncam::tools
