#include "LayoutQuery.h"

#include <GrallocHelper.h>

#include <iostream>

#include "CommandLine.h"
#include "LayoutSession.h"
#include "LibraryLog.h"
#include "PlatformCheck.h"
#include "ProfileScope.h"
#include "Report.h"
#include "Vocabulary.h"

#ifndef ZYNCAM_GRALLOC_LAYOUT_VERSION
#define ZYNCAM_GRALLOC_LAYOUT_VERSION "unknown"
#endif

namespace zyncam::tools {

namespace {

constexpr const char* kErrorPrefix = "gralloc-layout: ";

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

int layouts(const Settings& settings, std::ostream& out, std::ostream& err) {
    std::string profileError;
    const ProfileScope profile(settings.profile, &profileError);
    if (!profileError.empty()) {
        err << kErrorPrefix << profileError << "\n";
        return kExitBadInput;
    }
    if (auto missing = missingGrallocPlatform()) {
        err << kErrorPrefix << *missing << "\n";
        return kExitNotAnswered;
    }
    // The sink is in place before the helper exists and stays until it is gone.
    LibraryLog log(settings.verbose);
    const std::unique_ptr<zcam::IGrallocHelper> helper = zcam::createGrallocHelper();
    const zcam::IGrallocLayoutCache* cache = zcam::layoutCacheOf(*helper);
    if (cache == nullptr) {
        err << kErrorPrefix << "the helper offers no view of its layout cache\n";
        return kExitNotAnswered;
    }
    LayoutSession session(*helper, *cache, log);
    std::vector<Answer> answers;
    for (size_t i = 0; i < settings.requests.size(); ++i) {
        const RequestSpec& given = settings.requests[i];
        answers.push_back(session.answer(given));
        const Answer& a = answers.back();
        if (a.outcome != Outcome::Answered) {
            const zcam::GrallocRequest& r = given.request;
            err << kErrorPrefix << "request " << i + 1 << " (" << given.origin << ", "
                << r.widthInPixels << "x" << r.heightInPixels << " " << formatText(r.format)
                << ", usage " << hex(static_cast<uint32_t>(r.usage)) << "): " << a.reason << "\n";
        }
    }
    writeReport(settings.output, settings.requests, answers, out);
    const Totals totals = count(answers);
    if (totals.failed + totals.refused > 0) return kExitNotAnswered;
    if (settings.strict && totals.warnings > 0) {
        err << kErrorPrefix << "--strict: the library warned " << totals.warnings
            << (totals.warnings == 1 ? " time" : " times") << " while deriving the layouts\n";
        return kExitWarned;
    }
    return kExitOk;
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
    if (settings.requests.empty()) {
        err << kErrorPrefix << "no request; try --help\n";
        return kExitBadInput;
    }
    return layouts(settings, out, err);
}

}  // namespace zyncam::tools
