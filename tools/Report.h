// gralloc-layout's answers as text, one JSON document, or CSV.
#pragma once

#include <json/value.h>

#include <ostream>
#include <vector>

#include "CommandLine.h"
#include "LayoutSession.h"
#include "ProfileScope.h"

namespace zyncam::tools {

// What a run came to: every request counts once among answered, failed and refused.
struct Totals {
    size_t requests = 0, answered = 0, failed = 0, refused = 0;
    size_t probes = 0, cacheHits = 0;  // of the answered requests
    size_t warnings = 0;               // the library's, over all requests
};

Totals count(const std::vector<Answer>& answers);

// answers[i] answers requests[i]. Failed and refused requests appear in JSON and CSV with
// their reason; the text leaves them to the error stream and counts them.
void writeReport(Output output, const std::vector<RequestSpec>& requests,
                 const std::vector<Answer>& answers, std::ostream& out);

// A CSV field (RFC 4180): one with a comma, quote or line break is quoted, its quotes doubled.
std::string csvField(const std::string& text);

// A JSON document, indented by two spaces, with a final line break.
void writeJsonDocument(const Json::Value& document, std::ostream& out);

// What differs between answers[0] (under profiles[0], "A") and answers[1] (under "B") for each
// request: every field of the answer except how it was reached (probe or cache, allocation
// time, exact answer or rules). Returns how many requests are answered differently.
size_t writeComparison(Output output, const std::vector<RequestSpec>& requests,
                       const SimulatedProfile (&profiles)[2],
                       const std::vector<Answer> (&answers)[2], std::ostream& out);

// One value of `names`: its number, the library's name and whether the name covers it all.
struct NameAnswer {
    std::string kind;
    uint32_t value = 0;
    std::string name;
    bool named = false;
};
void writeName(Output output, const NameAnswer& answer, std::ostream& out);

}  // namespace zyncam::tools
