// Whatever a request line and the fields beside it hold: it is refused, or it is taken apart into parts that lead back
// to the same resource. The input is a request target, then, each on a line of its own, a Host, an Accept, a
// Content-Type and a Last-Event-ID.

#include <algorithm>
#include <string>

#include <Server/Authority.h>
#include <Server/HeaderScan.h>
#include <Server/MediaType.h>
#include <Server/NoticeHistory.h>
#include <Server/Reply.h>
#include <Server/Target.h>
#include <VxRest/Path.h>

#include "FuzzSupport.h"

namespace
{

using namespace VxRest;
using namespace VxRest::Http;

std::string_view TakeLine(std::string_view& rest)
{
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return line;
}

void CheckTarget(std::string_view text)
{
    Target target;
    try {
        target = ParseTarget(text);
    } catch (const Refusal&) {
        return;
    }
    Require(target.path == "*" || target.path.starts_with('/'), "a path does not begin with a slash");
    Require(target.args.is_object(), "arguments are no object");
    std::string again;
    for (const std::string_view segment : Path::Segments(target.path)) {
        const std::optional<std::string> decoded = Path::Decode(segment);
        Require(decoded.has_value(), "a path was taken that cannot be decoded");
        again += "/" + Path::Encode(*decoded);
    }
    if (target.path != "*") {
        Require(Path::IsWithin(target.path, again) && Path::IsWithin(again, target.path), "a path does not lead back");
        Require(ParseTarget(again.empty() ? "/" : again).args.empty(), "an encoded path has arguments");
    }
}

void CheckScan(std::string_view text)
{
    HeaderScan whole(8);
    HeaderScan pieces(8);
    const HeaderScan::Result result = whole.Scan(text);
    HeaderScan::Result stepped = HeaderScan::Result::More;
    for (std::size_t size = 1; size <= text.size() && stepped == HeaderScan::Result::More; ++size) {
        stepped = pieces.Scan(text.substr(0, size));
    }
    Require(result == stepped && whole.Length() == pieces.Length(), "a header in pieces is not the whole header");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    CheckScan(rest);
    CheckTarget(TakeLine(rest));

    const Authority authority("127.0.0.1", 8080);
    const std::string_view host = TakeLine(rest);
    const bool own = authority.Host(host, "127.0.0.1") == Authority::Verdict::Own;
    Require(!authority.IsOwnOrigin("http://" + std::string(host), "127.0.0.1") || own,
            "an own origin has a foreign host");

    const std::string_view accept = TakeLine(rest);
    const Acceptance acceptance(accept);
    const bool takes = acceptance.BestStructured().has_value();
    Require(takes == (AcceptQuality(accept, "application/json") + AcceptQuality(accept, "application/cbor") +
                          AcceptQuality(accept, "application/msgpack") >
                      0),
            "what is accepted depends on how it is asked for");
    ParseContentType(TakeLine(rest));

    NoticeHistory history(2, 10);
    history.Add({EventType::Updated, std::string(rest)});
    const std::string events = history.Replay(TakeLine(rest), "");
    Require(events.find("\n\n") == events.rfind("\n\n"), "one notice became two events");
    return 0;
}
