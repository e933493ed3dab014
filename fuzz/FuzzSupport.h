// What every fuzz target shares: a reader over the fuzzer's bytes, quiet logging with every
// gate open, and the way a broken property ends the run.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

namespace zyncam::fuzz {

// Reads little-endian fields from the front of the input. Past the end a field reads as zero
// (a partly present one keeps its low bytes), so every input is a valid script.
class Input {
public:
    Input(const uint8_t* data, size_t size) : mData(data), mLeft(size) {}

    template <typename T>
    requires std::is_trivially_copyable_v<T> T take() {
        T value{};
        const size_t n = std::min(sizeof(T), mLeft);
        if (n != 0) memcpy(&value, mData, n);
        skip(n);
        return value;
    }
    // Up to `count` bytes, fewer when the input ends first.
    std::vector<uint8_t> bytes(size_t count) {
        const size_t n = std::min(count, mLeft);
        std::vector<uint8_t> out(mData, mData + n);
        skip(n);
        return out;
    }
    size_t left() const { return mLeft; }

private:
    void skip(size_t n) {
        mData += n;
        mLeft -= n;
    }

    const uint8_t* mData;
    size_t mLeft;
};

// Every log line is still formatted, so each format meets its arguments, but nothing reaches
// stderr; the library's own verbosity is raised before any helper is made.
void openLogGatesQuietly();

// Ends the run on a broken property; libFuzzer keeps the input that led here.
[[noreturn]] void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace zyncam::fuzz
