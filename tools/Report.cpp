#include "Report.h"

#include <json/json.h>

#include <algorithm>
#include <iomanip>
#include <map>
#include <sstream>

#include "Memory.h"
#include "ReportColumns.h"
#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

constexpr double kNsPerUs = 1000.0;
// Significant digits of a share in CSV.
constexpr int kShareDigits = 6;

const char* outcomeName(Outcome outcome) {
    switch (outcome) {
        case Outcome::Answered:
            return "answered";
        case Outcome::Failed:
            return "failed";
        case Outcome::Refused:
            return "refused";
    }
    return "";
}

std::string microseconds(int64_t ns) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << static_cast<double>(ns) / kNsPerUs;
    return text.str();
}

// A batch count of 0 is one frame, as the derivation reads it.
uint32_t framesPerBuffer(const zcam::GrallocCachedLayout& layout) {
    return std::max(layout.framesPerBuffer, uint32_t{1});
}

}  // namespace

// RFC 4180: a field with a comma, quote or line break is quoted, its quotes doubled.
std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

namespace {

bool answered(const ReportRow& row) {
    return row.answer->outcome == Outcome::Answered;
}

const zcam::GrallocCachedLayout& layoutOf(const ReportRow& row) {
    return row.answer->layout;
}

Cell optional(const std::optional<uint64_t>& value) {
    return value ? Cell(*value) : Cell();
}

Cell usageCell(int32_t usage) {
    return uint64_t{static_cast<uint32_t>(usage)};
}

Cell usageTextCell(int32_t usage) {
    return usageText(static_cast<uint32_t>(usage));
}

Cell usageNameCell(int32_t usage) {
    return zcam::grallocUsageName(usage);
}

Cell layoutSource(const ReportRow& row, const char* exact) {
    const std::optional<bool>& source = row.answer->exactAnswer;
    return source ? Cell(std::string(*source ? exact : "rules")) : Cell();
}

Cell shareCell(const std::optional<double>& share) {
    return share ? Cell(*share) : Cell();
}

std::string plural(uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// The padding of one buffer as people read it, or why it is not known.
Cell paddingText(const ReportRow& r) {
    if (!r.memory->paddingBytes) {
        return std::string("unknown: the format does not say how big its pixels are");
    }
    return sizeText(*r.memory->paddingBytes) + " per buffer";
}

using G = ColumnGroup;
using E = WhenEmpty;
using L = TextLine;

// Text cells: a figure as people read it, "-" for one the layout does not give.
Cell dash(const std::optional<uint64_t>& value) {
    return value ? std::to_string(*value) : std::string("-");
}

constexpr ReportColumn kColumns[] = {
        {G::kAnswer, "request", "request", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{r.index}; }, nullptr, L::kRequest,
         "request {}  "},
        {G::kRequestEntry, nullptr, "index", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{r.index}; }},
        {G::kRequestEntry, "origin", "origin", E::kNull,
         [](const ReportRow& r) -> Cell { return r.given->origin; }},
        {G::kRequest, "width", "width", E::kNull,
         [](const ReportRow& r) -> Cell { return int64_t{r.request->widthInPixels}; }, nullptr,
         L::kRequest, "{}"},
        {G::kRequest, "height", "height", E::kNull,
         [](const ReportRow& r) -> Cell { return int64_t{r.request->heightInPixels}; }, nullptr,
         L::kRequest, "x{}"},
        {G::kRequest, "format", "format", E::kNull,
         [](const ReportRow& r) -> Cell { return int64_t{r.request->format}; }, nullptr,
         L::kRequest, " {}",
         [](const ReportRow& r) -> Cell { return formatText(r.request->format); }},
        {G::kRequest, "format_name", "formatName", E::kNull,
         [](const ReportRow& r) -> Cell { return zcam::pixelFormatName(r.request->format); }},
        {G::kRequest, "usage", "usage", E::kNull,
         [](const ReportRow& r) { return usageCell(r.request->usage); }, nullptr, L::kRequest,
         ", usage {}", [](const ReportRow& r) { return usageTextCell(r.request->usage); }},
        {G::kRequest, "usage_name", "usageName", E::kNull,
         [](const ReportRow& r) { return usageNameCell(r.request->usage); }},
        {G::kRequest, "batch", "batch", E::kNull,
         [](const ReportRow& r) -> Cell { return int64_t{r.request->batchNum}; }, nullptr,
         L::kRequest, ", batch {}"},
        {G::kRequestEntry, nullptr, "refresh", E::kNull,
         [](const ReportRow& r) -> Cell { return r.given->refresh; }, nullptr, L::kRequest,
         ", refresh",
         [](const ReportRow& r) -> Cell { return r.given->refresh ? Cell(true) : Cell(); }},
        {G::kAnswer, "outcome", "outcome", E::kNull,
         [](const ReportRow& r) -> Cell { return std::string(outcomeName(r.answer->outcome)); }},
        {G::kAnswer, nullptr, "status", E::kNoKey,
         [](const ReportRow& r) -> Cell {
             if (r.answer->outcome != Outcome::Failed) return {};
             return int64_t{r.answer->status};
         }},
        {G::kProbed, "probed_usage", nullptr, E::kNull,
         [](const ReportRow& r) { return usageCell(r.answer->probed.usage); }, nullptr, L::kProbed,
         "  probed      usage {}",
         [](const ReportRow& r) { return usageTextCell(r.answer->probed.usage); }},
        {G::kProbed, "probed_usage_name", nullptr, E::kNull,
         [](const ReportRow& r) { return usageNameCell(r.answer->probed.usage); }},
        {G::kAllocated, "allocated_format", "format", E::kNull,
         [](const ReportRow& r) -> Cell { return int64_t{layoutOf(r).info.format}; }, nullptr,
         L::kAllocated, "  allocated   {}",
         [](const ReportRow& r) -> Cell { return formatText(layoutOf(r).info.format); }},
        {G::kAllocated, "allocated_format_name", "formatName", E::kNull,
         [](const ReportRow& r) -> Cell { return zcam::pixelFormatName(layoutOf(r).info.format); }},
        {G::kAllocated, "allocated_width", "width", E::kNull,
         [](const ReportRow& r) -> Cell { return int64_t{layoutOf(r).info.widthInPixels}; },
         nullptr, L::kAllocated, " {}"},
        {G::kAllocated, "allocated_height", "height", E::kNull,
         [](const ReportRow& r) -> Cell { return int64_t{layoutOf(r).info.heightInPixels}; },
         nullptr, L::kAllocated, "x{}"},
        {G::kAllocated, "allocator_usage", "usage", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{layoutOf(r).allocatorUsage}; }, nullptr,
         L::kAllocatorUsage, "              allocator usage {}",
         [](const ReportRow& r) {
             return usageTextCell(static_cast<int32_t>(layoutOf(r).allocatorUsage));
         }},
        {G::kAllocated, nullptr, "usageName", E::kNull,
         [](const ReportRow& r) {
             return usageNameCell(static_cast<int32_t>(layoutOf(r).allocatorUsage));
         }},
        {G::kAllocated, "producer_usage", "producerUsage", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{layoutOf(r).producerUsage}; }, nullptr,
         L::kProducerUsage, "              producer usage {}",
         [](const ReportRow& r) {
             return usageTextCell(static_cast<int32_t>(layoutOf(r).producerUsage));
         }},
        {G::kAllocated, nullptr, "producerUsageName", E::kNull,
         [](const ReportRow& r) {
             return usageNameCell(static_cast<int32_t>(layoutOf(r).producerUsage));
         }},
        {G::kAllocated, "allocation_size", "allocationSize", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{layoutOf(r).allocSize}; }, nullptr,
         L::kAllocated, ", {} B"},
        {G::kAllocated, "afbc", "afbc", E::kNull,
         [](const ReportRow& r) -> Cell { return layoutOf(r).info.isAFBC; }, nullptr, L::kAllocated,
         ", AFBC {}",
         [](const ReportRow& r) -> Cell {
             return std::string(layoutOf(r).info.isAFBC ? "yes" : "no");
         }},
        {G::kAllocated, "frames_per_buffer", "framesPerBuffer", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{framesPerBuffer(layoutOf(r))}; }, nullptr,
         L::kAllocated, ", {} per buffer",
         [](const ReportRow& r) -> Cell {
             const uint32_t frames = framesPerBuffer(layoutOf(r));
             return std::to_string(frames) + (frames == 1 ? " frame" : " frames");
         }},
        {G::kAnswer, "answered_by", "answeredBy", E::kNoKey,
         [](const ReportRow& r) -> Cell {
             if (!answered(r)) return {};
             return std::string(r.answer->fromCache ? "cache" : "probe");
         },
         nullptr, L::kAnsweredBy, "  answered by {}",
         [](const ReportRow& r) -> Cell {
             return std::string(r.answer->fromCache ? "cache, whose probe's allocation took"
                                                    : "probe, allocation took");
         }},
        {G::kAnswer, "allocation_time_ns", "allocationTimeNs", E::kNoKey,
         [](const ReportRow& r) -> Cell {
             if (!answered(r)) return {};
             return int64_t{layoutOf(r).allocationTimeNs};
         },
         nullptr, L::kAnsweredBy, " {} us",
         [](const ReportRow& r) -> Cell { return microseconds(layoutOf(r).allocationTimeNs); }},
        // JSON lists the warnings as an array of their own, the text one line each.
        {G::kAnswer, "warnings", nullptr, E::kNull,
         [](const ReportRow& r) -> Cell {
             std::string joined;
             for (const std::string& w : r.answer->warnings) {
                 joined += (joined.empty() ? "" : "\n") + w;
             }
             return joined;
         }},
        {G::kAnswer, "reason", "reason", E::kNoKey,
         [](const ReportRow& r) -> Cell {
             if (answered(r)) return {};
             return r.answer->reason;
         }},
        {G::kPlane, "plane", nullptr, E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{r.planeIndex}; }, nullptr, L::kPlane,
         "  plane {}"},
        {G::kPlane, "stride_bytes", "strideBytes", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{r.plane->strideBytes}; }, nullptr,
         L::kPlane, "     stride {} B"},
        {G::kPlane, "stride_samples", "strideSamples", E::kNull,
         [](const ReportRow& r) { return optional(r.plane->strideSamples); }, nullptr, L::kPlane,
         " = {}", [](const ReportRow& r) { return dash(r.plane->strideSamples); }},
        {G::kPlane, "sample_unit", "sampleUnit", E::kNull,
         [](const ReportRow& r) -> Cell { return std::string(r.plane->sampleUnit); }, nullptr,
         L::kPlane, " {}"},
        {G::kPlane, "rows", "rows", E::kNull,
         [](const ReportRow& r) { return optional(r.plane->rows); }, nullptr, L::kPlane,
         ", rows {}", [](const ReportRow& r) { return dash(r.plane->rows); }},
        {G::kPlane, "size_bytes", "sizeBytes", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{r.plane->sizeBytes}; }, nullptr,
         L::kPlane, ", size {} B"},
        {G::kPlane, "offset", "offset", E::kNull,
         [](const ReportRow& r) { return optional(r.plane->offset); }, nullptr, L::kPlane,
         ", offset {}", [](const ReportRow& r) { return dash(r.plane->offset); }},
        {G::kAnswer, "layout_source", "layoutSource", E::kNoKey,
         [](const ReportRow& r) -> Cell {
             if (!answered(r)) return {};
             return layoutSource(r, "exactAnswer");
         },
         [](const ReportRow& r) { return layoutSource(r, "exact_answer"); }, L::kLayoutSource,
         "  laid out by {}",
         [](const ReportRow& r) -> Cell {
             const std::optional<bool>& source = r.answer->exactAnswer;
             if (!source) return {};
             return std::string(*source ? "an exact answer of the profile"
                                        : "the profile's rules: no exact answer for this "
                                          "allocation");
         }},
        {G::kRequestEntry, "buffers", "buffers", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{r.given->buffers}; }},
        {G::kMemory, nullptr, "bytesPerBuffer", E::kNull,
         [](const ReportRow& r) -> Cell { return r.memory->bytesPerBuffer; }, nullptr, L::kMemory,
         "  memory      {} per buffer",
         [](const ReportRow& r) -> Cell { return sizeText(r.memory->bytesPerBuffer); }},
        {G::kMemory, nullptr, "buffers", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{r.memory->buffers}; }, nullptr,
         L::kMemory, " x {}",
         [](const ReportRow& r) -> Cell { return plural(r.memory->buffers, "buffer", "buffers"); }},
        {G::kMemory, "stream_bytes", "streamBytes", E::kNull,
         [](const ReportRow& r) -> Cell { return r.memory->streamBytes; }, nullptr, L::kMemory,
         " = {}", [](const ReportRow& r) -> Cell { return sizeText(r.memory->streamBytes); }},
        {G::kMemory, "visible_bytes", "visibleBytes", E::kNull,
         [](const ReportRow& r) { return optional(r.memory->visibleBytes); }},
        {G::kMemory, "padding_bytes", "paddingBytes", E::kNull,
         [](const ReportRow& r) { return optional(r.memory->paddingBytes); }, nullptr, L::kMemory,
         "; padding {}", paddingText},
        {G::kMemory, "padding_share", "paddingShare", E::kNull,
         [](const ReportRow& r) { return shareCell(r.memory->paddingShare()); }, nullptr,
         L::kMemory, ", {}",
         [](const ReportRow& r) -> Cell {
             const auto share = r.memory->paddingShare();
             return share ? Cell(percentText(*share)) : Cell();
         }},
        {G::kMemory, "stream_padding_bytes", "streamPaddingBytes", E::kNull,
         [](const ReportRow& r) { return optional(r.memory->streamPaddingBytes()); }},
        {G::kMemory, "memory_rank", "rank", E::kNull,
         [](const ReportRow& r) -> Cell { return uint64_t{r.memoryRank}; }},
};

// The text of `column` for `row`: its words around the figure; empty when the figure is.
std::string textPiece(const ReportColumn& column, const ReportRow& row) {
    const Cell cell = column.textCell ? column.textCell(row) : column.cell(row);
    if (std::holds_alternative<std::monostate>(cell)) return std::string();
    struct {
        std::string operator()(std::monostate) const { return std::string(); }
        std::string operator()(int64_t v) const { return std::to_string(v); }
        std::string operator()(uint64_t v) const { return std::to_string(v); }
        std::string operator()(bool) const { return std::string(); }
        std::string operator()(const std::string& v) const { return v; }
        std::string operator()(double v) const { return std::to_string(v); }
    } visitor;
    const std::string text = column.text;
    const size_t at = text.find("{}");
    const std::string figure = std::visit(visitor, cell);
    return at == std::string::npos ? text : text.substr(0, at) + figure + text.substr(at + 2);
}

// One line of the text: the pieces of the columns on `line` (of `group` only, unless null).
std::string textLine(TextLine line, const ReportRow& row, const ColumnGroup* group = nullptr) {
    std::string text;
    for (const ReportColumn& column : kColumns) {
        if (column.textLine != line || (group != nullptr && column.group != *group)) continue;
        text += textPiece(column, row);
    }
    return text;
}

// "1920x1080 YCrCb_420_SP (0x11), usage 0x3 (0|SW_READ_OFTEN), batch 0".
std::string requestText(const zcam::GrallocRequest& r) {
    ReportRow row;
    row.request = &r;
    const ColumnGroup group = ColumnGroup::kRequest;
    return textLine(TextLine::kRequest, row, &group);
}

// The session's memory, padding and largest consumers, before the run's counts.
void writeSessionText(const std::vector<RequestSpec>& requests,
                      const std::vector<std::optional<StreamMemory>>& memory, std::ostream& out) {
    const SessionMemory s = sessionMemory(memory);
    out << "session     " << plural(s.streams, "stream", "streams") << ", "
        << plural(s.buffers, "buffer", "buffers") << ": " << sizeText(s.bytes) << "; padding "
        << sizeText(s.paddingBytes);
    if (const auto share = s.paddingShare()) out << ", " << percentText(*share);
    if (s.paddingUnknown > 0) {
        out << "; padding unknown for " << plural(s.paddingUnknown, "stream", "streams");
    }
    out << "\n";
    for (size_t place = 0; place < s.byBytes.size() && place < kLargestConsumers; ++place) {
        const size_t i = s.byBytes[place];
        const zcam::GrallocRequest& r = requests[i].request;
        out << (place == 0 ? "  largest   " : "            ") << "request " << i + 1 << "  "
            << r.widthInPixels << "x" << r.heightInPixels << " " << formatText(r.format) << ", "
            << plural(memory[i]->buffers, "buffer", "buffers") << ": "
            << sizeText(memory[i]->streamBytes) << ", "
            << percentText(s.shareOf(memory[i]->streamBytes)) << " of the session\n";
    }
}

void writeText(const std::vector<RequestSpec>& requests, const std::vector<Answer>& answers,
               std::ostream& out) {
    const std::vector<std::optional<StreamMemory>> memory = streamMemories(requests, answers);
    constexpr TextLine kLinesBeforePlanes[] = {TextLine::kRequest, TextLine::kProbed,
                                               TextLine::kAllocated, TextLine::kAllocatorUsage,
                                               TextLine::kProducerUsage};
    constexpr TextLine kLinesAfterWarnings[] = {TextLine::kAnsweredBy, TextLine::kLayoutSource};
    for (size_t i = 0; i < answers.size(); ++i) {
        const Answer& a = answers[i];
        if (a.outcome != Outcome::Answered) continue;
        ReportRow row;
        row.index = i + 1;
        row.given = &requests[i];
        row.request = &requests[i].request;
        row.answer = &a;
        row.memory = memory[i] ? &*memory[i] : nullptr;
        auto write = [&](TextLine line) {
            const std::string text = textLine(line, row);
            if (!text.empty()) out << text << "\n";
        };
        for (TextLine line : kLinesBeforePlanes) write(line);
        for (size_t p = 0; p < a.planes.size(); ++p) {
            row.plane = &a.planes[p];
            row.planeIndex = p;
            write(TextLine::kPlane);
        }
        write(TextLine::kMemory);
        for (const std::string& warning : a.warnings) out << "  warning: " << warning << "\n";
        for (TextLine line : kLinesAfterWarnings) write(line);
    }
    writeSessionText(requests, memory, out);
    const Totals t = count(answers);
    out << t.requests << (t.requests == 1 ? " request: " : " requests: ") << t.probes
        << (t.probes == 1 ? " probe, " : " probes, ") << t.cacheHits
        << (t.cacheHits == 1 ? " cache hit, " : " cache hits, ") << t.failed << " failed, "
        << t.refused << " refused, " << t.warnings
        << (t.warnings == 1 ? " warning\n" : " warnings\n");
}

Json::Value jsonOf(const Cell& cell) {
    struct {
        Json::Value operator()(std::monostate) const { return Json::Value(Json::nullValue); }
        Json::Value operator()(int64_t v) const { return Json::Value(Json::Int64{v}); }
        Json::Value operator()(uint64_t v) const { return Json::Value(Json::UInt64{v}); }
        Json::Value operator()(bool v) const { return Json::Value(v); }
        Json::Value operator()(const std::string& v) const { return Json::Value(v); }
        Json::Value operator()(double v) const { return Json::Value(v); }
    } visitor;
    return std::visit(visitor, cell);
}

std::string csvOf(const Cell& cell) {
    struct {
        std::string operator()(std::monostate) const { return std::string(); }
        std::string operator()(int64_t v) const { return std::to_string(v); }
        std::string operator()(uint64_t v) const { return std::to_string(v); }
        std::string operator()(bool v) const { return v ? "1" : "0"; }
        std::string operator()(const std::string& v) const { return csvField(v); }
        std::string operator()(double v) const {
            std::ostringstream text;
            text << std::setprecision(kShareDigits) << v;
            return text.str();
        }
    } visitor;
    return std::visit(visitor, cell);
}

// The JSON object of one group's columns for `row`.
Json::Value jsonGroup(ColumnGroup group, const ReportRow& row) {
    Json::Value v(Json::objectValue);
    for (const ReportColumn& column : kColumns) {
        if (column.group != group || column.json == nullptr) continue;
        Cell cell = column.cell(row);
        if (std::holds_alternative<std::monostate>(cell) && column.whenEmpty == WhenEmpty::kNoKey)
            continue;
        v[column.json] = jsonOf(cell);
    }
    return v;
}

Json::Value requestJson(const zcam::GrallocRequest& r) {
    ReportRow row;
    row.request = &r;
    return jsonGroup(ColumnGroup::kRequest, row);
}

// `memory`: the request's buffers, or null to leave them out.
Json::Value answerJson(const Answer& a, size_t index, const StreamMemory* memory = nullptr,
                       size_t rank = 0) {
    ReportRow row;
    row.index = index;
    row.answer = &a;
    row.memory = memory;
    row.memoryRank = rank;
    Json::Value v = jsonGroup(ColumnGroup::kAnswer, row);
    if (memory != nullptr) v["memory"] = jsonGroup(ColumnGroup::kMemory, row);
    v["probed"] = requestJson(a.probed);
    if (a.outcome == Outcome::Answered) {
        v["allocated"] = jsonGroup(ColumnGroup::kAllocated, row);
        Json::Value& planes = v["planes"] = Json::Value(Json::arrayValue);
        for (const PlaneAnswer& p : a.planes) {
            row.plane = &p;
            planes.append(jsonGroup(ColumnGroup::kPlane, row));
        }
    }
    Json::Value& warnings = v["warnings"] = Json::Value(Json::arrayValue);
    for (const std::string& w : a.warnings) warnings.append(w);
    return v;
}

Json::Value shareJson(const std::optional<double>& share) {
    return share ? Json::Value(*share) : Json::Value(Json::nullValue);
}

Json::Value sessionJson(const SessionMemory& s,
                        const std::vector<std::optional<StreamMemory>>& memory) {
    Json::Value v(Json::objectValue);
    v["streams"] = Json::UInt64{s.streams};
    v["buffers"] = Json::UInt64{s.buffers};
    v["bytes"] = Json::UInt64{s.bytes};
    v["paddingBytes"] = Json::UInt64{s.paddingBytes};
    v["paddingShare"] = shareJson(s.paddingShare());
    v["paddingUnknown"] = Json::UInt64{s.paddingUnknown};
    Json::Value& largest = v["largest"] = Json::Value(Json::arrayValue);
    for (size_t place = 0; place < s.byBytes.size() && place < kLargestConsumers; ++place) {
        const size_t i = s.byBytes[place];
        Json::Value& entry = largest.append(Json::Value(Json::objectValue));
        entry["request"] = Json::UInt64{i + 1};
        entry["streamBytes"] = Json::UInt64{memory[i]->streamBytes};
        entry["share"] = s.shareOf(memory[i]->streamBytes);
    }
    return v;
}

void writeJson(const std::vector<RequestSpec>& requests, const std::vector<Answer>& answers,
               std::ostream& out) {
    Json::Value document(Json::objectValue);
    Json::Value& requestList = document["requests"] = Json::Value(Json::arrayValue);
    Json::Value& answerList = document["answers"] = Json::Value(Json::arrayValue);
    const std::vector<std::optional<StreamMemory>> memory = streamMemories(requests, answers);
    const SessionMemory session = sessionMemory(memory);
    for (size_t i = 0; i < requests.size(); ++i) {
        ReportRow row;
        row.index = i + 1;
        row.given = &requests[i];
        Json::Value r = jsonGroup(ColumnGroup::kRequestEntry, row);
        const Json::Value given = requestJson(requests[i].request);
        for (const std::string& key : given.getMemberNames()) r[key] = given[key];
        requestList.append(std::move(r));
        answerList.append(
                answerJson(answers[i], i + 1, memory[i] ? &*memory[i] : nullptr, session.rank[i]));
    }
    const Totals t = count(answers);
    Json::Value& totals = document["totals"];
    totals["requests"] = Json::UInt64{t.requests};
    totals["answered"] = Json::UInt64{t.answered};
    totals["probes"] = Json::UInt64{t.probes};
    totals["cacheHits"] = Json::UInt64{t.cacheHits};
    totals["failed"] = Json::UInt64{t.failed};
    totals["refused"] = Json::UInt64{t.refused};
    totals["warnings"] = Json::UInt64{t.warnings};
    totals["memory"] = sessionJson(session, memory);

    writeJsonDocument(document, out);
}

// One CSV line: every column, the allocation's empty unless the request was answered, the
// plane's empty when `row` has no plane.
void writeCsvLine(const ReportRow& row, std::ostream& out) {
    bool first = true;
    for (const ReportColumn& column : kColumns) {
        if (column.csv == nullptr) continue;
        const bool empty = (column.group == ColumnGroup::kAllocated && !answered(row)) ||
                           (column.group == ColumnGroup::kPlane && row.plane == nullptr) ||
                           (column.group == ColumnGroup::kMemory && row.memory == nullptr);
        if (!first) out << ",";
        first = false;
        if (!empty) out << csvOf(column.csvCell ? column.csvCell(row) : column.cell(row));
    }
    out << "\n";
}

void writeCsv(const std::vector<RequestSpec>& requests, const std::vector<Answer>& answers,
              std::ostream& out) {
    bool first = true;
    for (const ReportColumn& column : kColumns) {
        if (column.csv == nullptr) continue;
        out << (first ? "" : ",") << column.csv;
        first = false;
    }
    out << "\n";
    const std::vector<std::optional<StreamMemory>> memory = streamMemories(requests, answers);
    const SessionMemory session = sessionMemory(memory);
    for (size_t i = 0; i < answers.size(); ++i) {
        ReportRow row;
        row.index = i + 1;
        row.given = &requests[i];
        row.request = &requests[i].request;
        row.answer = &answers[i];
        row.memory = memory[i] ? &*memory[i] : nullptr;
        row.memoryRank = session.rank[i];
        if (answers[i].planes.empty()) writeCsvLine(row, out);
        for (size_t p = 0; p < answers[i].planes.size(); ++p) {
            row.plane = &answers[i].planes[p];
            row.planeIndex = p;
            writeCsvLine(row, out);
        }
    }
    // The session's totals: a last row whose request is "total", in the columns they sum.
    const std::map<std::string, Cell> totals = {
            {"request", std::string("total")},
            {"buffers", session.buffers},
            {"stream_bytes", session.bytes},
            {"stream_padding_bytes", session.paddingBytes},
            {"padding_share", shareCell(session.paddingShare())},
    };
    first = true;
    for (const ReportColumn& column : kColumns) {
        if (column.csv == nullptr) continue;
        out << (first ? "" : ",");
        first = false;
        const auto total = totals.find(column.csv);
        if (total != totals.end()) out << csvOf(total->second);
    }
    out << "\n";
}

// Fields of an answer that say how it was reached, not what the layout is.
bool howReached(const std::string& key) {
    return key == "request" || key == "answeredBy" || key == "allocationTimeNs" ||
           key == "layoutSource";
}

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Every leaf of an answer's JSON by its path ("allocated.format", "planes[1].rows"), as the
// text a person reads: formats and usages with their names, a missing figure as "-".
void flatten(const Json::Value& v, const std::string& path,
             std::map<std::string, std::string>* out) {
    if (v.isObject()) {
        for (const std::string& key : v.getMemberNames()) {
            if (howReached(key) || endsWith(key, "Name")) continue;
            const std::string child = path.empty() ? key : path + "." + key;
            const Json::Value& value = v[key];
            if (endsWith(key, "format") && value.isInt()) {
                (*out)[child] = formatText(value.asInt());
            } else if ((key == "usage" || endsWith(key, "Usage")) && value.isUInt()) {
                (*out)[child] = usageText(value.asUInt());
            } else {
                flatten(value, child, out);
            }
        }
    } else if (v.isArray()) {
        for (Json::ArrayIndex i = 0; i < v.size(); ++i) {
            flatten(v[i], path + "[" + std::to_string(i) + "]", out);
        }
        if (v.empty()) (*out)[path + ".count"] = "0";
    } else if (v.isNull()) {
        (*out)[path] = "-";
    } else {
        (*out)[path] = v.isString() ? v.asString() : v.toStyledString();
        std::string& text = (*out)[path];
        while (!text.empty() && text.back() == '\n') text.pop_back();
    }
}

struct FieldDifference {
    std::string field, a, b;
};

std::vector<FieldDifference> differences(const Answer& a, const Answer& b) {
    std::map<std::string, std::string> fields[2];
    flatten(answerJson(a, 0), "", &fields[0]);
    flatten(answerJson(b, 0), "", &fields[1]);
    std::map<std::string, FieldDifference> merged;
    for (size_t side = 0; side < 2; ++side) {
        for (const auto& [field, value] : fields[side]) {
            FieldDifference& d = merged[field];
            d.field = field;
            (side == 0 ? d.a : d.b) = value;
        }
    }
    std::vector<FieldDifference> out;
    for (auto& [field, d] : merged) {
        if (d.a != d.b)
            out.push_back(d.a.empty()   ? FieldDifference{field, "-", d.b}
                          : d.b.empty() ? FieldDifference{field, d.a, "-"}
                                        : d);
    }
    return out;
}

std::string padded(const std::string& text, size_t width) {
    return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

// What a stream's (or the session's) buffers take under each profile, and the change on B.
constexpr const char* kMemoryField = "memory.streamBytes";

std::string orDash(const std::optional<uint64_t>& value) {
    return value ? std::to_string(*value) : "-";
}

std::optional<int64_t> difference(const std::optional<uint64_t>& a,
                                  const std::optional<uint64_t>& b) {
    if (!a || !b) return std::nullopt;
    // Modulo 2^64 and back: the signed difference of two sizes.
    return static_cast<int64_t>(*b - *a);
}

// "A 3133440 B (3.0 MiB), B 3110400 B (3.0 MiB): -22.5 KiB on B"
std::string memoryDeltaText(const std::optional<uint64_t>& a, const std::optional<uint64_t>& b,
                            std::optional<size_t> streamsA = std::nullopt,
                            std::optional<size_t> streamsB = std::nullopt) {
    auto side = [](const char* label, const std::optional<uint64_t>& bytes,
                   const std::optional<size_t>& streams) {
        std::string text = std::string(label) + " ";
        if (streams) text += plural(*streams, "stream", "streams") + " ";
        return text + (bytes ? sizeText(*bytes) : std::string("not answered"));
    };
    std::string text = side("A", a, streamsA) + ", " + side("B", b, streamsB);
    if (const auto d = difference(a, b)) {
        text += *d == 0 ? ": the same on B" : ": " + signedSizeText(*d) + " on B";
    }
    return text;
}

Json::Value memoryDeltaJson(const std::optional<uint64_t>& a, const std::optional<uint64_t>& b) {
    Json::Value v(Json::objectValue);
    v["a"] = a ? Json::Value(Json::UInt64{*a}) : Json::Value(Json::nullValue);
    v["b"] = b ? Json::Value(Json::UInt64{*b}) : Json::Value(Json::nullValue);
    const auto d = difference(a, b);
    v["difference"] = d ? Json::Value(Json::Int64{*d}) : Json::Value(Json::nullValue);
    return v;
}

}  // namespace

std::span<const ReportColumn> reportColumns() {
    return kColumns;
}

void writeJsonDocument(const Json::Value& document, std::ostream& out) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
    writer->write(document, &out);
    out << "\n";
}

size_t writeComparison(Output output, const std::vector<RequestSpec>& requests,
                       const SimulatedProfile (&profiles)[2],
                       const std::vector<Answer> (&answers)[2], std::ostream& out) {
    constexpr const char* kLabels[] = {"A", "B"};
    constexpr size_t kFieldWidth = 28;
    constexpr size_t kValueWidth = 40;
    std::vector<std::vector<FieldDifference>> differing(requests.size());
    size_t count = 0;
    for (size_t i = 0; i < requests.size(); ++i) {
        differing[i] = differences(answers[0][i], answers[1][i]);
        if (!differing[i].empty()) ++count;
    }
    const std::vector<std::optional<StreamMemory>> memory[2] = {
            streamMemories(requests, answers[0]), streamMemories(requests, answers[1])};
    const SessionMemory session[2] = {sessionMemory(memory[0]), sessionMemory(memory[1])};
    auto streamBytes = [&](size_t side, size_t i) -> std::optional<uint64_t> {
        if (!memory[side][i]) return std::nullopt;
        return memory[side][i]->streamBytes;
    };
    switch (output) {
        case Output::Text:
            for (size_t side = 0; side < 2; ++side) {
                out << kLabels[side] << "  " << profiles[side].name << " (" << profiles[side].source
                    << ")\n";
            }
            for (size_t i = 0; i < requests.size(); ++i) {
                if (differing[i].empty()) continue;
                out << "request " << i + 1 << "  " << requestText(requests[i].request) << "\n"
                    << "  " << padded("field", kFieldWidth) << padded("A", kValueWidth) << "B\n";
                for (const FieldDifference& d : differing[i]) {
                    out << "  " << padded(d.field, kFieldWidth) << padded(d.a, kValueWidth) << d.b
                        << "\n";
                }
                out << "  memory      " << memoryDeltaText(streamBytes(0, i), streamBytes(1, i))
                    << "\n";
            }
            out << "memory      "
                << memoryDeltaText(session[0].bytes, session[1].bytes, session[0].streams,
                                   session[1].streams)
                << "\n";
            out << requests.size() << (requests.size() == 1 ? " request: " : " requests: ") << count
                << " laid out differently, " << requests.size() - count << " alike\n";
            break;
        case Output::Json: {
            Json::Value document(Json::objectValue);
            Json::Value& list = document["profiles"] = Json::Value(Json::arrayValue);
            for (size_t side = 0; side < 2; ++side) {
                Json::Value& p = list.append(Json::Value(Json::objectValue));
                p["label"] = kLabels[side];
                p["name"] = profiles[side].name;
                p["file"] = profiles[side].source;
            }
            Json::Value& all = document["differences"] = Json::Value(Json::arrayValue);
            for (size_t i = 0; i < requests.size(); ++i) {
                if (differing[i].empty()) continue;
                Json::Value& entry = all.append(Json::Value(Json::objectValue));
                entry["request"] = Json::UInt64{i + 1};
                entry["origin"] = requests[i].origin;
                entry["given"] = requestJson(requests[i].request);
                Json::Value& fields = entry["fields"] = Json::Value(Json::arrayValue);
                for (const FieldDifference& d : differing[i]) {
                    Json::Value& f = fields.append(Json::Value(Json::objectValue));
                    f["field"] = d.field;
                    f["a"] = d.a;
                    f["b"] = d.b;
                }
            }
            Json::Value& memoryList = document["memory"]["requests"] =
                    Json::Value(Json::arrayValue);
            for (size_t i = 0; i < requests.size(); ++i) {
                Json::Value& entry =
                        memoryList.append(memoryDeltaJson(streamBytes(0, i), streamBytes(1, i)));
                entry["request"] = Json::UInt64{i + 1};
            }
            Json::Value& memoryTotal = document["memory"]["total"] =
                    memoryDeltaJson(session[0].bytes, session[1].bytes);
            memoryTotal["streamsA"] = Json::UInt64{session[0].streams};
            memoryTotal["streamsB"] = Json::UInt64{session[1].streams};
            Json::Value& totals = document["totals"];
            totals["requests"] = Json::UInt64{requests.size()};
            totals["differing"] = Json::UInt64{count};
            totals["alike"] = Json::UInt64{requests.size() - count};
            writeJsonDocument(document, out);
            break;
        }
        case Output::Csv:
            out << "request,origin,field,a,b\n";
            for (size_t i = 0; i < requests.size(); ++i) {
                for (const FieldDifference& d : differing[i]) {
                    out << i + 1 << "," << csvField(requests[i].origin) << "," << csvField(d.field)
                        << "," << csvField(d.a) << "," << csvField(d.b) << "\n";
                }
                if (!differing[i].empty()) {
                    out << i + 1 << "," << csvField(requests[i].origin) << "," << kMemoryField
                        << "," << orDash(streamBytes(0, i)) << "," << orDash(streamBytes(1, i))
                        << "\n";
                }
            }
            out << "total,," << kMemoryField << "," << session[0].bytes << "," << session[1].bytes
                << "\n";
            break;
    }
    return count;
}

Totals count(const std::vector<Answer>& answers) {
    Totals t;
    t.requests = answers.size();
    for (const Answer& a : answers) {
        t.warnings += a.warnings.size();
        switch (a.outcome) {
            case Outcome::Answered:
                ++t.answered;
                ++(a.fromCache ? t.cacheHits : t.probes);
                break;
            case Outcome::Failed:
                ++t.failed;
                break;
            case Outcome::Refused:
                ++t.refused;
                break;
        }
    }
    return t;
}

void writeReport(Output output, const std::vector<RequestSpec>& requests,
                 const std::vector<Answer>& answers, std::ostream& out) {
    switch (output) {
        case Output::Text:
            writeText(requests, answers, out);
            break;
        case Output::Json:
            writeJson(requests, answers, out);
            break;
        case Output::Csv:
            writeCsv(requests, answers, out);
            break;
    }
}

void writeName(Output output, const NameAnswer& a, std::ostream& out) {
    switch (output) {
        case Output::Text:
            out << hex(a.value) << " " << (a.name.empty() ? "\"\"" : a.name) << "\n";
            break;
        case Output::Json: {
            Json::Value v(Json::objectValue);
            v["kind"] = a.kind;
            v["value"] = a.value;
            v["name"] = a.name;
            v["named"] = a.named;
            Json::StreamWriterBuilder builder;
            builder["indentation"] = "";
            out << Json::writeString(builder, v) << "\n";
            break;
        }
        case Output::Csv:
            out << "kind,value,name,named\n"
                << a.kind << "," << a.value << "," << csvField(a.name) << "," << (a.named ? 1 : 0)
                << "\n";
            break;
    }
}

}  // namespace zyncam::tools
