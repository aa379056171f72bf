#pragma once
// Finds the end of a request's header in the bytes that have arrived, and refuses what the HTTP library would let pass:
// line feeds without carriage return, folded lines, too many fields.

#include <cstddef>
#include <string_view>

namespace VxRest::Http
{

/// Scans each byte once, however the header arrives. One thread at a time.
class HeaderScan
{
public:
    enum class Result
    {
        More,
        Complete,
        BareLineFeed,
        Folded,
        TooManyFields
    };

    explicit HeaderScan(std::size_t maxFields) : maxFields_(maxFields) {}

    /// `bytes`: all that has arrived since the request began.
    Result Scan(std::string_view bytes);

    /// The header's length with its empty line, once it is complete.
    std::size_t Length() const { return lineStart_; }

    /// True when the request line has arrived.
    bool HasRequestLine() const { return lines_ > 0; }

    void Reset() { *this = HeaderScan(maxFields_); }

private:
    std::size_t maxFields_;
    std::size_t scanned_ = 0;
    std::size_t lineStart_ = 0;
    std::size_t lines_ = 0;
};

}  // namespace VxRest::Http
