#include "Report.h"

#include <json/json.h>

#include <algorithm>
#include <iomanip>
#include <map>
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
        if (a.exactAnswer) {
            out << (*a.exactAnswer ? "  laid out by an exact answer of the profile\n"
                                   : "  laid out by the profile's rules: no exact answer for this "
                                     "allocation\n");
        }
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
        if (a.exactAnswer) v["layoutSource"] = *a.exactAnswer ? "exactAnswer" : "rules";
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

    writeJsonDocument(document, out);
}

void writeCsv(const std::vector<RequestSpec>& requests, const std::vector<Answer>& answers,
              std::ostream& out) {
    out << "request,origin,width,height,format,format_name,usage,usage_name,batch,outcome,"
           "probed_usage,probed_usage_name,allocated_format,allocated_format_name,"
           "allocated_width,allocated_height,allocator_usage,producer_usage,allocation_size,"
           "afbc,frames_per_buffer,answered_by,allocation_time_ns,warnings,reason,plane,"
           "stride_bytes,stride_samples,sample_unit,rows,size_bytes,offset,layout_source\n";
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
        const std::string source =
                a.exactAnswer ? (*a.exactAnswer ? "exact_answer" : "rules") : std::string();
        if (a.planes.empty()) out << head.str() << ",,,,,,," << source << "\n";
        for (size_t p = 0; p < a.planes.size(); ++p) {
            const PlaneAnswer& plane = a.planes[p];
            auto field = [](const std::optional<uint64_t>& v) {
                return v ? std::to_string(*v) : std::string();
            };
            out << head.str() << p << "," << plane.strideBytes << "," << field(plane.strideSamples)
                << "," << plane.sampleUnit << "," << field(plane.rows) << "," << plane.sizeBytes
                << "," << field(plane.offset) << "," << source << "\n";
        }
    }
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

}  // namespace

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
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
            }
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
            }
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
