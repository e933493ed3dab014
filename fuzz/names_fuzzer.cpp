// The name functions: pixel formats, usage bits and both dataspace namers (the interface's and
// the one the colour-space setter logs with), for any 32-bit value.
//
// Input: 32-bit values, each named every way.
#include <aidl/android/hardware/graphics/common/BufferUsage.h>
#include <aidl/android/hardware/graphics/common/PixelFormat.h>
#include <zyncam_host/SimGralloc.h>

#include <memory>
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "GrallocHelper.h"

namespace {

namespace common = aidl::android::hardware::graphics::common;
using zyncam::fuzz::fail;

constexpr size_t kMaxValues = 16;
constexpr size_t kLongestName = 512;  // every piece of every table at once is shorter

std::unique_ptr<zcam::IGrallocHelper> gHelper;
buffer_handle_t gBuffer = nullptr;  // imported once, for the colour-space setter

bool isNameCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// "HEAD|PIECE|PIECE...": a head, then pieces of name characters, none repeated.
void checkShape(const char* what, int value, const std::string& name, bool hexHead) {
    if (name.size() > kLongestName) fail("%s name of %#x is %zu long", what, value, name.size());
    std::vector<std::string_view> pieces;
    size_t start = 0;
    while (true) {
        const size_t bar = name.find('|', start);
        pieces.emplace_back(std::string_view(name).substr(start, bar - start));
        if (bar == std::string::npos) break;
        start = bar + 1;
    }
    for (size_t i = 0; i < pieces.size(); ++i) {
        std::string_view piece = pieces[i];
        if (i == 0 && hexHead && piece.starts_with("0x")) piece.remove_prefix(2);
        bool ok = !piece.empty();
        for (char c : piece) ok &= isNameCharacter(c);
        for (size_t j = 1; j < i; ++j) ok &= pieces[j] != pieces[i];
        if (!ok) fail("%s name of %#x is malformed: \"%s\"", what, value, name.c_str());
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zyncam::fuzz::openLogGatesQuietly();
    gHelper = zcam::createGrallocHelper();
    native_handle_t* raw = zyncam::sim::createRawBuffer(
            64, 64, static_cast<int32_t>(common::PixelFormat::RGBA_8888),
            static_cast<uint64_t>(common::BufferUsage::CPU_READ_OFTEN));
    buffer_handle_t buffer = raw;
    if (raw == nullptr || !gHelper->importBuffer(buffer, false)) fail("no buffer to set names on");
    native_handle_close(raw);
    native_handle_delete(raw);
    gBuffer = buffer;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zyncam::fuzz::Input input(data, size);
    for (size_t i = 0; i < kMaxValues && input.left() != 0; ++i) {
        const auto value = input.take<int32_t>();
        const std::string format = gHelper->queryPixelFormatName(value);
        if (!format.empty()) checkShape("format", value, format, false);
        const std::string usage = gHelper->queryGrallocUsageName(value);
        if (!usage.starts_with('0')) fail("usage name of %#x does not start with 0", value);
        checkShape("usage", value, usage, false);
        checkShape("dataspace", value, gHelper->queryDataspaceName(value), true);
        // Logs the value with the other namer, on its error line or its debug line.
        (void)gHelper->setColorspace(gBuffer, value);
    }
    return 0;
}
