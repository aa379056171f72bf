#include "ReadHead.h"

#include <charconv>

#include "Reply.h"
#include "Text.h"

namespace VxRest::Http
{

namespace
{

namespace http = boost::beast::http;

Verb VerbOf(http::verb verb)
{
    switch (verb) {
        case http::verb::get:
            return Verb::Get;
        case http::verb::head:
            return Verb::Head;
        case http::verb::put:
            return Verb::Put;
        case http::verb::patch:
            return Verb::Patch;
        case http::verb::post:
            return Verb::Post;
        case http::verb::delete_:
            return Verb::Delete;
        case http::verb::options:
            return Verb::Options;
        default:
            return Verb::Other;
    }
}

std::string_view View(boost::beast::string_view text)
{
    return {text.data(), text.size()};
}

/// Takes the value of a field that may be there once.
void TakeOnce(std::optional<std::string_view>& place, const http::fields::value_type& field)
{
    if (place) {
        throw Refusal(400, "the header field \"" + std::string(field.name_string()) + "\" is given twice");
    }
    place = View(field.value());
}

std::uint64_t ParseLength(std::string_view text)
{
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw Refusal(400, "the Content-Length is no length");
    }
    return length;
}

}  // namespace

RequestHead ReadHead(const http::request_header<>& header, bool keepAlive)
{
    RequestHead head;
    head.verb = VerbOf(header.method());
    head.http11 = header.version() == 11;
    head.keepAlive = keepAlive;
    head.target = View(header.target());
    std::optional<std::string_view> transferCoding;
    std::optional<std::string_view> contentLength;
    for (const auto& field : header) {
        switch (field.name()) {
            case http::field::host:
                TakeOnce(head.host, field);
                break;
            case http::field::authorization:
                TakeOnce(head.authorization, field);
                break;
            case http::field::origin:
                TakeOnce(head.origin, field);
                break;
            case http::field::expect:
                TakeOnce(head.expect, field);
                break;
            case http::field::content_type:
                TakeOnce(head.contentType, field);
                break;
            case http::field::content_encoding:
                TakeOnce(head.contentEncoding, field);
                break;
            case http::field::content_length:
                TakeOnce(contentLength, field);
                break;
            case http::field::transfer_encoding:
                TakeOnce(transferCoding, field);
                break;
            case http::field::accept:
                head.accept += head.accept.empty() ? "" : ", ";
                head.accept += View(field.value());
                break;
            default:
                if (EqualNoCase(View(field.name_string()), "Last-Event-ID")) {
                    TakeOnce(head.lastEventId, field);
                }
                break;
        }
    }
    if (transferCoding) {
        if (contentLength) {
            throw Refusal(400, "Content-Length and Transfer-Encoding exclude each other");
        }
        if (!EqualNoCase(*transferCoding, "chunked") || !head.http11) {
            throw Refusal(400, "the only transfer coding that is understood is \"chunked\", from HTTP/1.1 on");
        }
        head.chunked = true;
    }
    if (contentLength) {
        head.contentLength = ParseLength(*contentLength);
    }
    return head;
}

}  // namespace VxRest::Http
