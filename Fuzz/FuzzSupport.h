#pragma once
// What the fuzz targets share.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the program, which is how a target reports a fault.
inline void Require(bool condition, const char* what = "")
{
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

/// The input as numbers that choose what is done; 0 when it is used up.
class Choices
{
public:
    Choices(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    bool Empty() const { return next_ == end_; }
    std::uint8_t Byte() { return next_ != end_ ? *next_++ : std::uint8_t{0}; }
    std::size_t Word() { return Byte() | std::size_t{Byte()} << 8; }
    std::string_view Rest() const { return {reinterpret_cast<const char*>(next_), std::size_t(end_ - next_)}; }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};
