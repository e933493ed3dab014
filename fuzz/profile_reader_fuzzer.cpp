// The device-profile reader over any bytes, as a profile or a capture someone handed over: it
// loads, or it is refused with one line naming the file, the field and the reason. Never a
// crash, a hang, or an allocation whose size the input chose (a file is read no further than
// the size limit).
//
// Input: the profile's text. It is read as if it were a file beside the shipped profiles, so
// that "extends" reaches them by name as well as "default".
#include <zyncam_host/ProfileFormat.h>
#include <zyncam_host/SimGralloc.h>

#include <cstdio>
#include <string>

#include "FuzzSupport.h"

namespace {

using zyncam::fuzz::fail;

const std::string kSource = std::string(ZYNCAM_PROFILES_DIR) + "/fuzzed.json";

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zyncam::fuzz::openLogGatesQuietly();
    // A base named "/dev/stdin" reads an empty input rather than waiting for the terminal.
    if (std::freopen("/dev/null", "r", stdin) == nullptr) fail("no /dev/null");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error;
    if (zyncam::sim::loadProfileText(text, kSource, &error)) {
        if (zyncam::sim::profileSource() != kSource) {
            fail("loaded, but the profile in force came from %s",
                 zyncam::sim::profileSource().c_str());
        }
        if (zyncam::sim::profileExactAnswerCount() > zyncam::profile::kMaxExactAnswers) {
            fail("loaded with %zu exact answers", zyncam::sim::profileExactAnswerCount());
        }
        zyncam::sim::resetProfile();
        return 0;
    }
    // "FILE: FIELD: REASON" on one line, the file being this one or a base it names.
    if (error.empty() || error.find('\n') != std::string::npos ||
        error.find(": ") == std::string::npos) {
        fail("refused with the reason \"%s\"", error.c_str());
    }
    if (size > zyncam::profile::kMaxProfileBytes &&
        error != kSource + ": more than " + std::to_string(zyncam::profile::kMaxProfileBytes) +
                         " bytes") {
        fail("%zu bytes refused with \"%s\"", size, error.c_str());
    }
    return 0;
}
