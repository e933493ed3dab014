// gralloc-layout verify: the grid, the run and its report.
#include <GrallocFormats.h>
#include <GrallocHelper.h>
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <json/json.h>

#include <chrono>
#include <iomanip>
#include <sstream>
#include <variant>

#include "ExitCode.h"
#include "ProfileScope.h"
#include "Report.h"
#include "Verify.h"
#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

using aidl::android::hardware::graphics::common::BufferUsage;
using aidl::android::hardware::graphics::common::PixelFormat;

constexpr uint32_t bits(BufferUsage u) {
    return static_cast<uint32_t>(static_cast<uint64_t>(u));
}
constexpr int32_t value(PixelFormat f) {
    return static_cast<int32_t>(f);
}

// The usages of a camera session: CPU read, preview, video, camera write and read, ZSL, and
// protected (the requests among these that the library must lock are skipped).
constexpr uint32_t kGridUsages[] = {
        bits(BufferUsage::CPU_READ_OFTEN),
        bits(BufferUsage::GPU_TEXTURE) | bits(BufferUsage::COMPOSER_OVERLAY),
        bits(BufferUsage::VIDEO_ENCODER) | bits(BufferUsage::CAMERA_OUTPUT),
        bits(BufferUsage::CAMERA_OUTPUT),
        bits(BufferUsage::CAMERA_INPUT),
        bits(BufferUsage::CAMERA_OUTPUT) | bits(BufferUsage::CAMERA_INPUT),
        bits(BufferUsage::PROTECTED) | bits(BufferUsage::CAMERA_OUTPUT),
};

struct GridSize {
    int32_t width, height;
};
constexpr GridSize kGridSizes[] = {{1, 1},       {61, 5},      {175, 143},  {640, 480},
                                   {1920, 1080}, {4000, 3000}, {4032, 3024}};

constexpr GridSize kBatchSizes[] = {{1280, 720}, {1920, 1080}};
constexpr uint32_t kBatchUsage = bits(BufferUsage::VIDEO_ENCODER) |
                                 bits(BufferUsage::CAMERA_OUTPUT) | uint32_t{zcam::kUsageSmvr};

// Odd sizes suit formats whose every pixel is whole bytes in one plane; YUV (packed ones too),
// Bayer RAW, opaque and flexible formats come in even sizes, so they take the even size next
// to an odd one.
bool takesOddSizes(const zcam::PixelFormatInfo& info) {
    return info.family == zcam::LayoutFamily::kSinglePlane &&
           info.rule == zcam::SinglePlaneRule::kPlain && info.bitsPerSample % 8 == 0 &&
           info.bitsPerSample != 0 && info.format != value(PixelFormat::RAW16);
}

RequestSpec gridRequest(int32_t width, int32_t height, int32_t format, uint32_t usage) {
    RequestSpec r;
    r.request.widthInPixels = width;
    r.request.heightInPixels = height;
    r.request.format = format;
    r.request.usage = static_cast<int32_t>(usage);
    r.origin = "grid";
    return r;
}

std::string requestText(const RequestSpec& given) {
    const zcam::GrallocRequest& r = given.request;
    return std::to_string(r.widthInPixels) + "x" + std::to_string(r.heightInPixels) + " " +
           formatText(r.format) + ", usage " + usageText(static_cast<uint32_t>(r.usage)) +
           ", batch " + std::to_string(r.batchNum);
}

const char* outcomeName(VerifyOutcome outcome) {
    switch (outcome) {
        case VerifyOutcome::Agree:
            return "agree";
        case VerifyOutcome::Disagree:
            return "disagree";
        case VerifyOutcome::Failed:
            return "failed";
        case VerifyOutcome::Skipped:
            return "skipped";
    }
    return "";
}

std::string figureText(const std::optional<Figure>& f) {
    if (!f) return "-";
    std::string text = std::to_string(f->value);
    if (f->limit) text += " (limit " + std::to_string(*f->limit) + ")";
    return text;
}

std::string plural(size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

void writeText(const std::vector<RequestSpec>& requests, const std::vector<Verdict>& verdicts,
               std::ostream& out) {
    constexpr int kCheckWidth = 16, kFieldWidth = 28, kFigureWidth = 24;
    for (size_t i = 0; i < verdicts.size(); ++i) {
        const Verdict& v = verdicts[i];
        out << "request " << i + 1 << "  " << requestText(requests[i]) << ": ";
        if (v.outcome == VerifyOutcome::Failed || v.outcome == VerifyOutcome::Skipped) {
            out << outcomeName(v.outcome) << ": " << v.reason << "\n";
            continue;
        }
        if (v.findings.empty()) {
            out << "agree\n";
            continue;
        }
        out << plural(v.findings.size(), "disagreement", "disagreements") << ", allocated "
            << formatText(v.format) << "\n";
        out << "  " << std::left << std::setw(kCheckWidth) << "check" << std::setw(kFieldWidth)
            << "field";
        // The last column is not padded: no line ends in blanks.
        for (size_t s = 0; s < kSourceCount; ++s) {
            out << std::setw(s + 1 < kSourceCount ? kFigureWidth : 0)
                << sourceName(static_cast<Source>(s));
        }
        out << "\n";
        for (const Finding& f : v.findings) {
            out << "  " << std::setw(kCheckWidth) << f.check << std::setw(kFieldWidth) << f.field;
            for (size_t s = 0; s < kSourceCount; ++s) {
                out << std::setw(s + 1 < kSourceCount ? kFigureWidth : 0)
                    << figureText(f.figures[s]);
            }
            out << "\n";
        }
        out << std::right;
    }
}

// The figures of a verdict besides its findings, one column each: JSON and CSV both walk this
// table. An empty cell is no JSON key and an empty CSV cell.
using VerdictCell = std::variant<std::monostate, int64_t, std::string>;
struct VerdictColumn {
    const char* csv;
    const char* json;
    bool inRequest;  // JSON: inside the verdict's "request" object
    VerdictCell (*cell)(const RequestSpec& given, const Verdict& v);
};

bool answered(const Verdict& v) {
    return v.outcome == VerifyOutcome::Agree || v.outcome == VerifyOutcome::Disagree;
}

constexpr VerdictColumn kVerdictColumns[] = {
        {"origin", "origin", true,
         [](const RequestSpec& g, const Verdict&) -> VerdictCell { return g.origin; }},
        {"width", "width", true,
         [](const RequestSpec& g, const Verdict&) -> VerdictCell {
             return int64_t{g.request.widthInPixels};
         }},
        {"height", "height", true,
         [](const RequestSpec& g, const Verdict&) -> VerdictCell {
             return int64_t{g.request.heightInPixels};
         }},
        {"format", "format", true,
         [](const RequestSpec& g, const Verdict&) -> VerdictCell {
             return formatText(g.request.format);
         }},
        {"usage", "usage", true,
         [](const RequestSpec& g, const Verdict&) -> VerdictCell {
             return usageText(static_cast<uint32_t>(g.request.usage));
         }},
        {"batch", "batch", true,
         [](const RequestSpec& g, const Verdict&) -> VerdictCell {
             return int64_t{g.request.batchNum};
         }},
        {"outcome", "outcome", false,
         [](const RequestSpec&, const Verdict& v) -> VerdictCell {
             return std::string(outcomeName(v.outcome));
         }},
        {"reason", "reason", false,
         [](const RequestSpec&, const Verdict& v) -> VerdictCell {
             if (v.reason.empty()) return {};
             return v.reason;
         }},
        {"probed_usage", "probedUsage", false,
         [](const RequestSpec&, const Verdict& v) -> VerdictCell {
             if (!answered(v)) return {};
             return usageText(v.probedUsage);
         }},
        {"allocated_format", "format", false,
         [](const RequestSpec&, const Verdict& v) -> VerdictCell {
             if (!answered(v)) return {};
             return formatText(v.format);
         }},
};

Json::Value cellJson(const VerdictCell& cell) {
    if (const auto* number = std::get_if<int64_t>(&cell)) return Json::Int64{*number};
    return std::get<std::string>(cell);
}

std::string cellCsv(const VerdictCell& cell) {
    if (const auto* number = std::get_if<int64_t>(&cell)) return std::to_string(*number);
    if (const auto* text = std::get_if<std::string>(&cell)) return csvField(*text);
    return "";
}

Json::Value figureJson(const Figure& f) {
    Json::Value v(Json::objectValue);
    v["value"] = Json::Int64{f.value};
    if (f.limit) v["limit"] = Json::Int64{*f.limit};
    return v;
}

Json::Value verdictJson(const RequestSpec& given, const Verdict& v) {
    Json::Value a(Json::objectValue);
    a["request"] = Json::Value(Json::objectValue);
    for (const VerdictColumn& column : kVerdictColumns) {
        const VerdictCell cell = column.cell(given, v);
        if (std::holds_alternative<std::monostate>(cell)) continue;
        (column.inRequest ? a["request"] : a)[column.json] = cellJson(cell);
    }
    Json::Value& findings = a["findings"] = Json::Value(Json::arrayValue);
    for (const Finding& f : v.findings) {
        Json::Value& j = findings.append(Json::Value(Json::objectValue));
        j["check"] = f.check;
        j["field"] = f.field;
        for (size_t s = 0; s < kSourceCount; ++s) {
            if (f.figures[s]) j[sourceName(static_cast<Source>(s))] = figureJson(*f.figures[s]);
        }
    }
    return a;
}

Json::Value totalsJson(const VerifyTotals& t, bool grid, double seconds) {
    Json::Value j(Json::objectValue);
    j["requests"] = Json::UInt64{t.requests};
    j["agree"] = Json::UInt64{t.agree};
    j["disagree"] = Json::UInt64{t.disagree};
    j["failed"] = Json::UInt64{t.failed};
    j["skipped"] = Json::UInt64{t.skipped};
    j["disagreements"] = Json::UInt64{t.findings};
    j["grid"] = grid;
    j["seconds"] = seconds;
    return j;
}

// One row per finding, and one for a request without any.
void writeCsv(const std::vector<RequestSpec>& requests, const std::vector<Verdict>& verdicts,
              std::ostream& out) {
    out << "request";
    for (const VerdictColumn& column : kVerdictColumns) out << "," << column.csv;
    out << ",check,field";
    for (size_t s = 0; s < kSourceCount; ++s) {
        const std::string name = sourceName(static_cast<Source>(s));
        out << "," << name << "," << name << "_limit";
    }
    out << "\n";
    for (size_t i = 0; i < verdicts.size(); ++i) {
        std::string head = std::to_string(i + 1);
        for (const VerdictColumn& column : kVerdictColumns) {
            head += "," + cellCsv(column.cell(requests[i], verdicts[i]));
        }
        const auto& findings = verdicts[i].findings;
        if (findings.empty()) out << head << ",," << std::string(2 * kSourceCount, ',') << "\n";
        for (const Finding& f : findings) {
            out << head << "," << f.check << "," << csvField(f.field);
            for (const auto& figure : f.figures) {
                out << "," << (figure ? std::to_string(figure->value) : "") << ","
                    << (figure && figure->limit ? std::to_string(*figure->limit) : "");
            }
            out << "\n";
        }
    }
}

std::string closingNote(const VerifyTotals& t, bool grid, double seconds) {
    std::ostringstream text;
    text << plural(t.requests, "request", "requests") << (grid ? " of the built-in grid" : "")
         << " in " << std::fixed << std::setprecision(2) << seconds << " s: " << t.agree
         << " agree, " << t.disagree << " disagree, " << t.failed << " failed, " << t.skipped
         << " skipped; " << plural(t.findings, "disagreement", "disagreements");
    return text.str();
}

}  // namespace

std::vector<RequestSpec> verifyGrid() {
    std::vector<RequestSpec> grid;
    for (const zcam::PixelFormatInfo& info : zcam::pixelFormatTable()) {
        // Every format the library lays out, and the flexible ones the allocator resolves.
        if (info.family == zcam::LayoutFamily::kNoRule) continue;
        const int32_t format = info.format;
        const bool odd = takesOddSizes(info);
        for (uint32_t usage : kGridUsages) {
            for (GridSize size : kGridSizes) {
                const int32_t w = odd ? size.width : size.width + size.width % 2;
                const int32_t h = odd ? size.height : size.height + size.height % 2;
                grid.push_back(gridRequest(w, h, format, usage));
            }
        }
    }
    for (int32_t format : zcam::kPixelFormatsSmvrBatch) {
        for (GridSize size : kBatchSizes) {
            grid.push_back(gridRequest(size.width, size.height, format, kBatchUsage));
        }
    }
    return grid;
}

void writeVerdicts(Output output, const std::vector<RequestSpec>& requests,
                   const std::vector<Verdict>& verdicts, bool grid, double seconds,
                   std::ostream& out) {
    const VerifyTotals totals = count(verdicts);
    if (output == Output::Csv) return writeCsv(requests, verdicts, out);
    if (output == Output::Json) {
        Json::Value document(Json::objectValue);
        Json::Value& list = document["requests"] = Json::Value(Json::arrayValue);
        for (size_t i = 0; i < verdicts.size(); ++i) {
            list.append(verdictJson(requests[i], verdicts[i]));
        }
        document["totals"] = totalsJson(totals, grid, seconds);
        return writeJsonDocument(document, out);
    }
    writeText(requests, verdicts, out);
    out << closingNote(totals, grid, seconds) << "\n";
}

int runVerify(const Settings& settings, std::ostream& out, std::ostream& err) {
    RunPlatform run;
    if (auto code = openRunPlatform(settings.profile, &run, err)) return *code;
    const GrallocPlatform& platform = run.gralloc;
    const bool grid = settings.requests.empty();
    const std::vector<RequestSpec> requests = grid ? verifyGrid() : settings.requests;
    std::vector<Verdict> verdicts;
    const auto start = std::chrono::steady_clock::now();
    const std::optional<int> failed =
            withLayoutSession(settings.verbose, err, [&](LayoutSession& session) {
                Verifier verifier(platform, session);
                for (size_t i = 0; i < requests.size(); ++i) {
                    verdicts.push_back(verifier.check(requests[i], grid));
                    if (verdicts.back().outcome != VerifyOutcome::Failed) continue;
                    err << kErrorPrefix << "request " << i + 1 << " (" << requests[i].origin << ", "
                        << requestText(requests[i]) << "): " << verdicts.back().reason << "\n";
                }
                return std::optional<int>();
            });
    if (failed) return *failed;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    writeVerdicts(settings.output, requests, verdicts, grid, took.count(), out);
    const VerifyTotals totals = count(verdicts);
    if (totals.disagree > 0) return kExitDisagree;
    return totals.failed > 0 ? kExitNotAnswered : kExitOk;
}

}  // namespace zyncam::tools
