#include "Svg.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <sstream>

#include "Memory.h"
#include "Vocabulary.h"

namespace zyncam::tools {

namespace {

// Page geometry, in SVG user units (pixels).
constexpr double kMargin = 20;
constexpr double kColumnWidth = 760;  // one side's drawings
constexpr double kBarWidth = 600;     // the largest allocation of the session
constexpr double kBarHeight = 14;
constexpr double kPlaneAreaWidth = 300;   // the widest plane of a request
constexpr double kPlaneAreaHeight = 240;  // the planes of one frame, stacked, at most
constexpr double kLabelGap = 12;          // between a plane and its labels
constexpr double kLineHeight = 15;
constexpr double kPlaneGap = 8;
constexpr double kRequestGap = 26;
constexpr double kTitleSize = 16;
constexpr double kHeadingSize = 13;
constexpr double kTextSize = 12;
constexpr double kBaselineDrop = 11;  // from a text line's top to its baseline, at kTextSize
constexpr size_t kLabelLinesPerPlane = 3;
constexpr double kSwatch = 12;
constexpr double kSwatchGap = 4;
constexpr double kLegendGap = 16;
constexpr double kCharWidth = 6.5;  // an average sans-serif character at kTextSize

constexpr const char* kBackground = "#ffffff";
constexpr const char* kInk = "#222222";
constexpr const char* kPlaneColours[] = {"#4c78a8", "#72b7b2", "#54a24b"};
constexpr const char* kPaddingColour = "#f58518";
constexpr const char* kAfbcHeaderColour = "#b279a2";
constexpr const char* kUnknownColour = "#bab0ac";

std::string number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.3f", value);
    std::string s = text;
    while (s.back() == '0') s.pop_back();
    if (s.back() == '.') s.pop_back();
    return s == "-0" ? "0" : s;
}

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                // XML 1.0 has no place for control characters other than tab and line breaks.
                if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n') {
                    out += '?';
                } else {
                    out += c;
                }
        }
    }
    return out;
}

const char* planeColour(size_t plane) {
    return kPlaneColours[plane % std::size(kPlaneColours)];
}

struct Rect {
    double x, y, w, h;
};

// Writes the SVG elements of a page whose height is known only at the end.
class Page {
public:
    std::ostringstream body;

    void rect(const Rect& r, const std::string& cls, const char* fill,
              const std::string& extra = "") {
        body << "<rect class=\"" << cls << "\" x=\"" << number(r.x) << "\" y=\"" << number(r.y)
             << "\" width=\"" << number(r.w) << "\" height=\"" << number(r.h) << "\" fill=\""
             << fill << "\"" << extra << "/>\n";
    }

    // A line of text whose top is at `top`.
    void text(double x, double top, const std::string& content, double size = kTextSize,
              const char* weight = nullptr) {
        body << "<text x=\"" << number(x) << "\" y=\""
             << number(top + kBaselineDrop * size / kTextSize) << "\"";
        if (size != kTextSize) body << " font-size=\"" << number(size) << "\"";
        if (weight != nullptr) body << " font-weight=\"" << weight << "\"";
        body << ">" << escaped(content) << "</text>\n";
    }
};

// The rows a plane's size makes at its stride, a fraction where the size is no whole number
// of rows.
double planeRows(const PlaneArea& p) {
    return p.strideBytes == 0
                   ? 0
                   : static_cast<double>(p.sizeBytes) / static_cast<double>(p.strideBytes);
}

// Drawing scale of a request's planes: pixels per byte across and per row down, so that the
// widest plane and the tallest frame of every side fit.
double planeScale(const std::vector<const StreamMemory*>& memories) {
    uint64_t widest = 0;
    double tallest = 0;
    for (const StreamMemory* m : memories) {
        double frame = 0;
        for (const PlaneArea& p : m->planes) {
            widest = std::max(widest, p.strideBytes);
            frame += planeRows(p);
        }
        tallest = std::max(tallest, frame);
    }
    if (widest == 0 || tallest == 0) return 0;
    return std::min(kPlaneAreaWidth / static_cast<double>(widest), kPlaneAreaHeight / tallest);
}

std::string offsetText(const PlaneArea& p) {
    return p.offsetMeasured ? "offset " + std::to_string(p.offset)
                            : "offset not measured (drawn after the plane before)";
}

// One side's drawing of one answer, from `top`; returns the height it took.
// `memory` is the answer's, as streamMemory gives it.
double drawSide(Page& page, const SvgSide& side, const Answer& a,
                const std::optional<StreamMemory>& memory, double x, double top, double barScale,
                double scale) {
    const std::string cls = side.label.empty() ? "side" : "side side-" + side.label;
    page.body << "<g class=\"" << cls << "\" data-side=\"" << escaped(side.label) << "\">\n";
    double y = top;
    const std::string who = side.label.empty() ? "" : side.label + "  ";
    if (!memory) {
        page.text(x, y, who + "not answered: " + a.reason);
        page.body << "</g>\n";
        return kLineHeight;
    }
    const StreamMemory& m = *memory;
    const zcam::GrallocCachedLayout& l = a.layout;
    std::string what = who + formatText(l.info.format) + " " +
                       std::to_string(l.info.widthInPixels) + "x" +
                       std::to_string(l.info.heightInPixels);
    if (l.info.isAFBC) what += ", AFBC";
    if (m.frames > 1) what += ", " + std::to_string(m.frames) + " frames per buffer";
    page.text(x, y, what);
    y += kLineHeight;
    std::string cost = sizeText(m.bytesPerBuffer) + " per buffer x " + std::to_string(m.buffers) +
                       " = " + sizeText(m.streamBytes) + "; padding ";
    cost += m.paddingBytes
                    ? sizeText(*m.paddingBytes) + " per buffer, " + percentText(*m.paddingShare())
                    : std::string("unknown");
    page.text(x, y, cost);
    y += kLineHeight + kPlaneGap / 2;

    // The allocation: every frame's planes at their offsets; what they leave is padding.
    const Rect bar{x, y, static_cast<double>(m.bytesPerBuffer) * barScale, kBarHeight};
    page.rect(bar, "allocation", kPaddingColour,
              " data-bytes=\"" + std::to_string(m.bytesPerBuffer) + "\"");
    for (uint32_t f = 0; f < m.frames; ++f) {
        for (size_t p = 0; p < m.planes.size(); ++p) {
            const PlaneArea& plane = m.planes[p];
            const double start = static_cast<double>(f * m.frameBytes + plane.offset);
            page.rect({x + start * barScale, y, static_cast<double>(plane.sizeBytes) * barScale,
                       kBarHeight},
                      "allocation-plane", planeColour(p),
                      " data-plane=\"" + std::to_string(p) + "\" data-frame=\"" +
                              std::to_string(f) + "\"");
        }
    }
    y += kBarHeight + kPlaneGap;
    if (m.frames > 1) {
        page.text(x, y,
                  "one frame of " + std::to_string(m.frames) + " drawn below; the bar holds all " +
                          std::to_string(m.frames));
        y += kLineHeight;
    }

    const double labelX = x + kPlaneAreaWidth + kLabelGap;
    for (size_t p = 0; p < m.planes.size(); ++p) {
        const PlaneArea& plane = m.planes[p];
        const double rows = planeRows(plane);
        const Rect r{x, y, static_cast<double>(plane.strideBytes) * scale, rows * scale};
        const bool known = m.visibleBytes.has_value();
        page.rect(r, "plane", known ? kPaddingColour : kUnknownColour,
                  " data-plane=\"" + std::to_string(p) + "\" data-stride=\"" +
                          std::to_string(plane.strideBytes) + "\" data-rows=\"" + number(rows) +
                          "\" data-size=\"" + std::to_string(plane.sizeBytes) +
                          "\" data-offset=\"" + std::to_string(plane.offset) + "\" stroke=\"" +
                          kInk + "\" stroke-width=\"0.5\"");
        std::string third;
        if (m.afbc && p == 0) {
            const AfbcFrame& afbc = *m.afbc;
            const double stride = static_cast<double>(plane.strideBytes);
            double band = y;
            auto mark = [&](uint64_t bytes, const std::string& bandClass, const char* fill,
                            const std::string& extra) {
                const double h = stride == 0 ? 0 : static_cast<double>(bytes) / stride * scale;
                page.rect({x, band, r.w, h}, bandClass, fill,
                          " data-bytes=\"" + std::to_string(bytes) + "\"" + extra);
                band += h;
            };
            mark(afbc.headerBytes, "afbc-header", kAfbcHeaderColour, "");
            mark(afbc.bodyBytes, "visible", planeColour(p), "");
            mark(afbc.tailBytes, "padding afbc-tail", kPaddingColour,
                 std::string(" stroke=\"") + kInk +
                         "\" stroke-dasharray=\"3 2\" stroke-width=\"0.5\"");
            third = "AFBC header " + std::to_string(afbc.headerBytes) + " B, body " +
                    std::to_string(afbc.bodyBytes) + " B, tail " + std::to_string(afbc.tailBytes) +
                    " B";
        } else if (known && plane.visibleRows > 0) {
            const double visibleW = static_cast<double>(plane.visibleRowBytes) * scale;
            const double visibleH = static_cast<double>(plane.visibleRows) * scale;
            page.rect({x, y, visibleW, visibleH}, "visible", planeColour(p),
                      " data-bytes=\"" + std::to_string(plane.visibleRowBytes) + "\" data-rows=\"" +
                              std::to_string(plane.visibleRows) + "\"");
            const uint64_t across = plane.strideBytes - plane.visibleRowBytes;
            if (across > 0) {
                page.rect({x + visibleW, y, r.w - visibleW, visibleH}, "padding stride-padding",
                          kPaddingColour,
                          " data-from-byte=\"" + std::to_string(plane.visibleRowBytes) +
                                  "\" data-bytes=\"" + std::to_string(across) + "\" data-rows=\"" +
                                  std::to_string(plane.visibleRows) + "\"");
            }
            if (rows > static_cast<double>(plane.visibleRows)) {
                page.rect({x, y + visibleH, r.w, r.h - visibleH}, "padding row-padding",
                          kPaddingColour,
                          " data-from-row=\"" + std::to_string(plane.visibleRows) +
                                  "\" data-rows=\"" +
                                  number(rows - static_cast<double>(plane.visibleRows)) + "\"");
            }
            const uint64_t visible = plane.visibleRowBytes * plane.visibleRows;
            third = "visible " + std::to_string(plane.visibleRowBytes) + " B x " +
                    std::to_string(plane.visibleRows) + " rows; padding " +
                    sizeText(plane.sizeBytes - std::min(visible, uint64_t{plane.sizeBytes}));
        } else {
            third = "visible image unknown";
        }
        page.text(labelX, y, "plane " + std::to_string(p) + "  " + offsetText(plane));
        page.text(labelX, y + kLineHeight,
                  "stride " + std::to_string(plane.strideBytes) + " B x " + number(rows) +
                          " rows = " + sizeText(plane.sizeBytes));
        page.text(labelX, y + 2 * kLineHeight, third);
        y += std::max(r.h, kLabelLinesPerPlane * kLineHeight) + kPlaneGap;
    }
    const uint64_t planesEnd = m.frameBytes * m.frames;
    if (m.bytesPerBuffer > planesEnd) {
        page.text(x, y, "after the planes: " + sizeText(m.bytesPerBuffer - planesEnd));
        y += kLineHeight;
    }
    page.body << "</g>\n";
    return y - top;
}

}  // namespace

void writeSvg(const std::vector<RequestSpec>& requests, std::span<const SvgSide> sides,
              std::ostream& out) {
    // One bar scale for the session: the largest allocation fills the bar's width.
    uint64_t largest = 0;
    for (const SvgSide& side : sides) {
        for (const Answer& a : *side.answers) {
            if (a.outcome == Outcome::Answered)
                largest = std::max<uint64_t>(largest, a.layout.allocSize);
        }
    }
    const double barScale = largest == 0 ? 0 : kBarWidth / static_cast<double>(largest);
    const double width = 2 * kMargin + kColumnWidth * static_cast<double>(sides.size());

    Page page;
    double y = kMargin;
    std::string title = "gralloc-layout: " + std::to_string(requests.size()) +
                        (requests.size() == 1 ? " request" : " requests");
    for (const SvgSide& side : sides) {
        title += (side.label.empty() ? " under " : "; " + side.label + " ") +
                 (side.profile.empty() ? std::string("the device's gralloc") : side.profile);
    }
    page.text(kMargin, y, title, kTitleSize, "bold");
    y += kLineHeight + kLineHeight / 2;
    for (const SvgSide& side : sides) {
        const SessionMemory session = sessionMemory(streamMemories(requests, *side.answers));
        std::string line = (side.label.empty() ? "" : side.label + "  ") +
                           "session: " + std::to_string(session.streams) + " streams, " +
                           std::to_string(session.buffers) +
                           " buffers: " + sizeText(session.bytes) + "; padding " +
                           sizeText(session.paddingBytes);
        if (const auto share = session.paddingShare()) line += ", " + percentText(*share);
        page.text(kMargin, y, line, kTextSize, "bold");
        y += kLineHeight;
    }
    page.text(kMargin, y,
              "Bars: each buffer's allocation, all on one scale: 1 px = " +
                      (largest == 0 ? std::string("-")
                                    : shortSizeText(static_cast<uint64_t>(1 / barScale))) +
                      " (the largest, " + sizeText(largest) + ", is " + number(kBarWidth) +
                      " px).");
    y += kLineHeight;
    page.text(kMargin, y,
              "Planes: one frame's, stride bytes across by rows down, on the scale each request "
              "states.");
    y += kLineHeight + kPlaneGap / 2;
    const struct {
        const char* fill;
        const char* name;
    } legend[] = {{kPlaneColours[0], "visible, plane 0"},
                  {kPlaneColours[1], "plane 1"},
                  {kPlaneColours[2], "plane 2"},
                  {kPaddingColour, "padding"},
                  {kAfbcHeaderColour, "AFBC header (16 B per 16x16 superblock)"}};
    page.body << "<g class=\"legend\">\n";
    double lx = kMargin;
    for (const auto& entry : legend) {
        page.rect({lx, y, kSwatch, kSwatch}, "swatch", entry.fill);
        page.text(lx + kSwatch + kSwatchGap, y, entry.name);
        lx += kSwatch + kSwatchGap +
              kCharWidth * static_cast<double>(std::string(entry.name).size()) + kLegendGap;
    }
    page.body << "</g>\n";
    y += kLineHeight + kRequestGap / 2;

    for (size_t i = 0; i < requests.size(); ++i) {
        std::vector<const StreamMemory*> memories;
        std::vector<std::optional<StreamMemory>> kept;
        kept.reserve(sides.size());
        for (const SvgSide& side : sides) {
            kept.push_back(streamMemory(requests[i], (*side.answers)[i]));
            if (kept.back()) memories.push_back(&*kept.back());
        }
        const double scale = planeScale(memories);
        page.body << "<g class=\"request\" id=\"request-" << i + 1 << "\" data-request=\"" << i + 1
                  << "\" data-scale=\"" << number(scale) << "\">\n";
        const zcam::GrallocRequest& r = requests[i].request;
        page.text(kMargin, y,
                  "request " + std::to_string(i + 1) + "  " + std::to_string(r.widthInPixels) +
                          "x" + std::to_string(r.heightInPixels) + " " + formatText(r.format) +
                          ", " + std::to_string(requests[i].buffers) +
                          (requests[i].buffers == 1 ? " buffer" : " buffers"),
                  kHeadingSize, "bold");
        y += kLineHeight + 2;
        const std::string perPixel = scale == 0 ? std::string("-") : number(1 / scale);
        page.text(kMargin, y,
                  "usage " + usageText(static_cast<uint32_t>(r.usage)) + ", batch " +
                          std::to_string(r.batchNum) + "; " + requests[i].origin);
        y += kLineHeight;
        std::string scaleLine =
                "planes at 1 px = " + perPixel + " B across, " + perPixel + " rows down";
        if (kept.size() == 2 && kept[0] && kept[1]) {
            // Modulo 2^64 and back: the signed difference of two sizes.
            const auto change = static_cast<int64_t>(kept[1]->streamBytes - kept[0]->streamBytes);
            scaleLine +=
                    "; the stream's buffers: " +
                    (change == 0 ? std::string("the same on B") : signedSizeText(change) + " on B");
        }
        page.text(kMargin, y, scaleLine);
        y += kLineHeight + 2;
        double tallest = 0;
        for (size_t s = 0; s < sides.size(); ++s) {
            tallest = std::max(tallest, drawSide(page, sides[s], (*sides[s].answers)[i], kept[s],
                                                 kMargin + kColumnWidth * static_cast<double>(s), y,
                                                 barScale, scale));
        }
        page.body << "</g>\n";
        y += tallest + kRequestGap;
    }
    const double height = y + kMargin;

    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << number(std::ceil(width))
        << "\" height=\"" << number(std::ceil(height)) << "\" viewBox=\"0 0 "
        << number(std::ceil(width)) << " " << number(std::ceil(height))
        << "\" font-family=\"sans-serif\" font-size=\"" << number(kTextSize) << "\" fill=\"" << kInk
        << "\">\n"
        << "<title>" << escaped(title) << "</title>\n"
        << "<rect class=\"background\" width=\"100%\" height=\"100%\" fill=\"" << kBackground
        << "\"/>\n"
        << page.body.str() << "</svg>\n";
}

}  // namespace zyncam::tools
