#include "Report.h"

#include <json/json.h>

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

constexpr double kNsPerUs = 1000.0;

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

std::string requestText(const zcam::GrallocRequest& r) {
    return std::to_string(r.widthInPixels) + "x" + std::to_string(r.heightInPixels) + " " +
           formatText(r.format) + ", usage " + usageText(static_cast<uint32_t>(r.usage)) +
           ", batch " + std::to_string(r.batchNum);
}

template <typename T>
std::string orDash(const std::optional<T>& value) {
    return value ? std::to_string(*value) : "-";
}

void writeText(const std::vector<RequestSpec>& requests, const std::vector<Answer>& answers,
               std::ostream& out) {
    for (size_t i = 0; i < answers.size(); ++i) {
        const Answer& a = answers[i];
        if (a.outcome != Outcome::Answered) continue;
        const zcam::GrallocCachedLayout& l = a.layout;
        out << "request " << i + 1 << "  " << requestText(requests[i].request)
            << (requests[i].refresh ? ", refresh" : "") << "\n"
            << "  probed      usage " << usageText(static_cast<uint32_t>(a.probed.usage)) << "\n"
            << "  allocated   " << formatText(l.info.format) << " " << l.info.widthInPixels << "x"
            << l.info.heightInPixels << ", " << l.allocSize << " B, AFBC "
            << (l.info.isAFBC ? "yes" : "no") << ", " << framesPerBuffer(l)
            << (framesPerBuffer(l) == 1 ? " frame" : " frames") << " per buffer\n"
            << "              allocator usage " << usageText(l.allocatorUsage) << "\n"
            << "              producer usage " << usageText(l.producerUsage) << "\n";
        for (size_t p = 0; p < a.planes.size(); ++p) {
            const PlaneAnswer& plane = a.planes[p];
            out << "  plane " << p << "     stride " << plane.strideBytes
                << " B = " << orDash(plane.strideSamples) << " " << plane.sampleUnit << ", rows "
                << orDash(plane.rows) << ", size " << plane.sizeBytes << " B, offset "
                << orDash(plane.offset) << "\n";
        }
        for (const std::string& warning : a.warnings) out << "  warning: " << warning << "\n";
        out << "  answered by "
            << (a.fromCache ? "cache, whose probe's allocation took " : "probe, allocation took ")
            << microseconds(l.allocationTimeNs) << " us\n";
    }
    const Totals t = count(answers);
    out << t.requests << (t.requests == 1 ? " request: " : " requests: ") << t.probes
        << (t.probes == 1 ? " probe, " : " probes, ") << t.cacheHits
        << (t.cacheHits == 1 ? " cache hit, " : " cache hits, ") << t.failed << " failed, "
        << t.refused << " refused, " << t.warnings
        << (t.warnings == 1 ? " warning\n" : " warnings\n");
}

template <typename T>
Json::Value orNull(const std::optional<T>& value) {
    return value ? Json::Value(Json::UInt64{*value}) : Json::Value(Json::nullValue);
}

void formatJson(Json::Value& into, const char* key, int32_t format) {
    into[key] = format;
    into[std::string(key) + "Name"] = zcam::pixelFormatName(format);
}

void usageJson(Json::Value& into, const char* key, uint32_t usage) {
    into[key] = usage;
    into[std::string(key) + "Name"] = zcam::grallocUsageName(static_cast<int>(usage));
}

Json::Value requestJson(const zcam::GrallocRequest& r) {
    Json::Value v(Json::objectValue);
    v["width"] = r.widthInPixels;
    v["height"] = r.heightInPixels;
    formatJson(v, "format", r.format);
    usageJson(v, "usage", static_cast<uint32_t>(r.usage));
    v["batch"] = r.batchNum;
    return v;
}

Json::Value answerJson(const Answer& a, size_t index) {
    Json::Value v(Json::objectValue);
    v["request"] = Json::UInt64{index};
    v["outcome"] = outcomeName(a.outcome);
    v["probed"] = requestJson(a.probed);
    if (a.outcome != Outcome::Answered) {
        if (a.outcome == Outcome::Failed) v["status"] = a.status;
        v["reason"] = a.reason;
    } else {
        const zcam::GrallocCachedLayout& l = a.layout;
        v["answeredBy"] = a.fromCache ? "cache" : "probe";
        v["allocationTimeNs"] = Json::Int64{l.allocationTimeNs};
        Json::Value& allocated = v["allocated"];
        formatJson(allocated, "format", l.info.format);
        allocated["width"] = l.info.widthInPixels;
        allocated["height"] = l.info.heightInPixels;
        usageJson(allocated, "usage", l.allocatorUsage);
        usageJson(allocated, "producerUsage", l.producerUsage);
        allocated["allocationSize"] = Json::UInt64{l.allocSize};
        allocated["afbc"] = l.info.isAFBC;
        allocated["framesPerBuffer"] = framesPerBuffer(l);
        Json::Value& planes = v["planes"] = Json::Value(Json::arrayValue);
        for (const PlaneAnswer& p : a.planes) {
            Json::Value& plane = planes.append(Json::Value(Json::objectValue));
            plane["strideBytes"] = Json::UInt64{p.strideBytes};
            plane["strideSamples"] = orNull(p.strideSamples);
            plane["sampleUnit"] = p.sampleUnit;
            plane["rows"] = orNull(p.rows);
            plane["sizeBytes"] = Json::UInt64{p.sizeBytes};
            plane["offset"] = orNull(p.offset);
        }
    }
    Json::Value& warnings = v["warnings"] = Json::Value(Json::arrayValue);
    for (const std::string& w : a.warnings) warnings.append(w);
    return v;
}

void writeJson(const std::vector<RequestSpec>& requests, const std::vector<Answer>& answers,
               std::ostream& out) {
    Json::Value document(Json::objectValue);
    Json::Value& requestList = document["requests"] = Json::Value(Json::arrayValue);
    Json::Value& answerList = document["answers"] = Json::Value(Json::arrayValue);
    for (size_t i = 0; i < requests.size(); ++i) {
        Json::Value r = requestJson(requests[i].request);
        r["index"] = Json::UInt64{i + 1};
        r["origin"] = requests[i].origin;
        r["refresh"] = requests[i].refresh;
        requestList.append(std::move(r));
        answerList.append(answerJson(answers[i], i + 1));
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

    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
    writer->write(document, &out);
    out << "\n";
}

// RFC 4180: a field with a comma, quote or line break is quoted, its quotes doubled.
std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

void writeCsv(const std::vector<RequestSpec>& requests, const std::vector<Answer>& answers,
              std::ostream& out) {
    out << "request,origin,width,height,format,format_name,usage,usage_name,batch,outcome,"
           "probed_usage,probed_usage_name,allocated_format,allocated_format_name,"
           "allocated_width,allocated_height,allocator_usage,producer_usage,allocation_size,"
           "afbc,frames_per_buffer,answered_by,allocation_time_ns,warnings,reason,plane,"
           "stride_bytes,stride_samples,sample_unit,rows,size_bytes,offset\n";
    for (size_t i = 0; i < answers.size(); ++i) {
        const zcam::GrallocRequest& r = requests[i].request;
        const Answer& a = answers[i];
        const zcam::GrallocCachedLayout& l = a.layout;
        std::string warnings;
        for (const std::string& w : a.warnings) warnings += (warnings.empty() ? "" : "\n") + w;
        std::ostringstream head;
        head << i + 1 << "," << csvField(requests[i].origin) << "," << r.widthInPixels << ","
             << r.heightInPixels << "," << r.format << ","
             << csvField(zcam::pixelFormatName(r.format)) << "," << static_cast<uint32_t>(r.usage)
             << "," << csvField(zcam::grallocUsageName(r.usage)) << "," << r.batchNum << ","
             << outcomeName(a.outcome) << "," << static_cast<uint32_t>(a.probed.usage) << ","
             << csvField(zcam::grallocUsageName(a.probed.usage)) << ",";
        if (a.outcome == Outcome::Answered) {
            head << l.info.format << "," << csvField(zcam::pixelFormatName(l.info.format)) << ","
                 << l.info.widthInPixels << "," << l.info.heightInPixels << "," << l.allocatorUsage
                 << "," << l.producerUsage << "," << l.allocSize << "," << (l.info.isAFBC ? 1 : 0)
                 << "," << framesPerBuffer(l) << "," << (a.fromCache ? "cache" : "probe") << ","
                 << l.allocationTimeNs << ",";
        } else {
            head << ",,,,,,,,,,,";
        }
        head << csvField(warnings) << "," << csvField(a.reason) << ",";
        if (a.planes.empty()) out << head.str() << ",,,,,,\n";
        for (size_t p = 0; p < a.planes.size(); ++p) {
            const PlaneAnswer& plane = a.planes[p];
            auto field = [](const std::optional<uint64_t>& v) {
                return v ? std::to_string(*v) : std::string();
            };
            out << head.str() << p << "," << plane.strideBytes << "," << field(plane.strideSamples)
                << "," << plane.sampleUnit << "," << field(plane.rows) << "," << plane.sizeBytes
                << "," << field(plane.offset) << "\n";
        }
    }
}

}  // namespace

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
