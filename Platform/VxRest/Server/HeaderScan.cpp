#include "HeaderScan.h"

namespace VxRest::Http
{

HeaderScan::Result HeaderScan::Scan(std::string_view bytes)
{
    for (;;) {
        const std::size_t feed = bytes.find('\n', scanned_);
        if (feed == std::string_view::npos) {
            scanned_ = bytes.size();
            return Result::More;
        }
        if (feed == lineStart_ || bytes[feed - 1] != '\r') {
            return Result::BareLineFeed;
        }
        const bool empty = feed == lineStart_ + 1;
        const char first = bytes[lineStart_];
        if (!empty && lines_ > 0 && (first == ' ' || first == '\t')) {
            return Result::Folded;
        }
        scanned_ = lineStart_ = feed + 1;
        if (empty) {
            return Result::Complete;
        }
        if (++lines_ > maxFields_ + 1) {
            return Result::TooManyFields;
        }
    }
}

}  // namespace VxRest::Http
