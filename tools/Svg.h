// gralloc-layout's picture of a session: one SVG drawing per request of its buffer.
#pragma once

#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "LayoutSession.h"

namespace zyncam::tools {

// The answers of one profile, and how the drawing names it.
struct SvgSide {
    std::string label;    // "A", "B"; empty when there is one side
    std::string profile;  // "soc-a64 (host/profiles/soc-a64.json)", or empty on a device
    const std::vector<Answer>* answers = nullptr;  // answers[i] answers requests[i]
};

// Writes one self-contained SVG document (no scripts, no fonts or images from elsewhere): per
// request a group with, for each side, the allocation as a bar on one scale for the whole
// session, and each plane of one frame as a rectangle stride bytes across and rows down (on
// the request's own scale, stated beside it), the visible image and the padding shaded apart,
// offsets and sizes labelled, the header and tail of an AFBC frame marked. With two sides the
// drawings of each request stand side by side. Writes nothing else; `out` reports failures.
void writeSvg(const std::vector<RequestSpec>& requests, std::span<const SvgSide> sides,
              std::ostream& out);

}  // namespace zyncam::tools
