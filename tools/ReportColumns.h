// The figures of a layout answer, one column each: what CSV calls it, where JSON puts it, where
// the text shows it and how to read it from a request and its answer. The report's three
// writers walk this one table, so a new figure is one row here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>

#include "CommandLine.h"
#include "LayoutSession.h"
#include "Memory.h"

namespace zyncam::tools {

// One figure; monostate where the answer has none (an empty CSV cell, a JSON null or no key).
using Cell = std::variant<std::monostate, int64_t, uint64_t, bool, std::string, double>;

// What a cell is read from, and where JSON puts it.
enum class ColumnGroup : uint8_t {
    kRequestEntry,  // the request as given: JSON requests[] only
    kRequest,       // a request's fields: JSON requests[] (as given) and answers[].probed
    kAnswer,        // JSON answers[]
    kProbed,        // the probed request, for CSV only (JSON has answers[].probed)
    kAllocated,     // an answered request's allocation: JSON answers[].allocated
    kPlane,         // one plane: JSON answers[].planes[], one CSV row each
    kMemory,        // an answered request's buffers: JSON answers[].memory
};

// What JSON writes for a cell that holds nothing.
enum class WhenEmpty : uint8_t { kNull, kNoKey };

// The lines of an answer in the text, in the order they are written. A line is its columns'
// pieces in table order; a line whose pieces are all left out is not written.
enum class TextLine : uint8_t {
    kNone,  // the column is not in the text
    kRequest,
    kProbed,
    kAllocated,
    kAllocatorUsage,
    kProducerUsage,
    kPlane,   // one line per plane
    kMemory,  // what the stream's buffers take
    kAnsweredBy,
    kLayoutSource,
};

// One row of the report: a request, its answer and, for plane columns, one plane or none.
struct ReportRow {
    size_t index = 0;                               // 1-based
    const RequestSpec* given = nullptr;             // the request as given
    const zcam::GrallocRequest* request = nullptr;  // kRequest columns: given or probed
    const Answer* answer = nullptr;
    const PlaneAnswer* plane = nullptr;  // null: no plane (a CSV row of a failed request)
    size_t planeIndex = 0;
    const StreamMemory* memory = nullptr;  // kMemory columns: the answered request's
    size_t memoryRank = 0;                 // its place among the session's streams, from 1
};

struct ReportColumn {
    ColumnGroup group;
    const char* csv;   // CSV header; null: not in CSV
    const char* json;  // key in its JSON object; null: not in JSON
    WhenEmpty whenEmpty;
    Cell (*cell)(const ReportRow& row);
    // CSV's own spelling of the cell where it differs from JSON's; null: the same.
    Cell (*csvCell)(const ReportRow& row) = nullptr;
    // Text: the line the figure is on, the words around it ("{}" is the figure) and the
    // figure as people read it. An empty text cell leaves the piece out.
    TextLine textLine = TextLine::kNone;
    const char* text = nullptr;
    Cell (*textCell)(const ReportRow& row) = nullptr;  // null: the cell
};

// Every column, in CSV order.
std::span<const ReportColumn> reportColumns();

}  // namespace zyncam::tools
