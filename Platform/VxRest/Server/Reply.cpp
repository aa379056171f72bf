#include "Reply.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

#include <nlohmann/json.hpp>

#include <Nucleo/Utf8.h>
#include <VxApi/Exception.h>

namespace VxRest::Http
{

namespace
{

struct StatusEntry
{
    unsigned status;
    std::string_view phrase;
    Nucleo::Status code;  ///< What a problem document says when the server itself refused.
};

constexpr std::array Statuses = {
    StatusEntry{200, "OK", Nucleo::OK},
    StatusEntry{201, "Created", Nucleo::OK},
    StatusEntry{204, "No Content", Nucleo::OK},
    StatusEntry{400, "Bad Request", Nucleo::ERROR_PARAMETER},
    StatusEntry{401, "Unauthorized", Nucleo::ERROR_ACCESS},
    StatusEntry{403, "Forbidden", Nucleo::ERROR_ACCESS},
    StatusEntry{404, "Not Found", Nucleo::ERROR_NOT_FOUND},
    StatusEntry{405, "Method Not Allowed", Nucleo::ERROR_UNSUPPORTED},
    StatusEntry{406, "Not Acceptable", Nucleo::ERROR_UNSUPPORTED},
    StatusEntry{408, "Request Timeout", Nucleo::ERROR_LIMIT},
    StatusEntry{409, "Conflict", Nucleo::ERROR_STATE},
    StatusEntry{413, "Content Too Large", Nucleo::ERROR_LIMIT},
    StatusEntry{415, "Unsupported Media Type", Nucleo::ERROR_FORMAT},
    StatusEntry{417, "Expectation Failed", Nucleo::ERROR_UNSUPPORTED},
    StatusEntry{421, "Misdirected Request", Nucleo::ERROR_PARAMETER},
    StatusEntry{422, "Unprocessable Content", Nucleo::ERROR_CONTENT},
    StatusEntry{431, "Request Header Fields Too Large", Nucleo::ERROR_LIMIT},
    StatusEntry{500, "Internal Server Error", Nucleo::ERROR_STATE},
    StatusEntry{501, "Not Implemented", Nucleo::ERROR_UNSUPPORTED},
    StatusEntry{503, "Service Unavailable", Nucleo::ERROR_BUSY},
    StatusEntry{505, "HTTP Version Not Supported", Nucleo::ERROR_UNSUPPORTED},
    StatusEntry{507, "Insufficient Storage", Nucleo::ERROR_DISK_FULL},
};

constexpr std::size_t MostDetail = 1000;

const StatusEntry& EntryOf(unsigned status)
{
    for (const StatusEntry& entry : Statuses) {
        if (entry.status == status) {
            return entry;
        }
    }
    return EntryOf(500);
}

void AppendNumber(std::string& text, std::uint64_t number)
{
    std::array<char, 20> digits{};
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    text.append(digits.data(), end);
}

bool IsFieldByte(char c)
{
    return c >= 0x20 && c < 0x7F;
}

}  // namespace

void Reply::AddField(std::string_view name, std::string_view value)
{
    constexpr std::string_view hexDigits = "0123456789ABCDEF";
    fields += name;
    fields += ": ";
    for (const char c : value) {
        if (IsFieldByte(c)) {
            fields += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            fields += '%';
            fields += hexDigits[byte >> 4];
            fields += hexDigits[byte & 15U];
        }
    }
    fields += "\r\n";
}

Refusal& Refusal::With(std::string_view name, std::string_view value)
{
    fields_.AddField(name, value);
    return *this;
}

std::string_view ReasonPhrase(unsigned status)
{
    return EntryOf(status).phrase;
}

unsigned HttpStatusOf(Nucleo::Status status, bool withBody)
{
    switch (status) {
        case Nucleo::ERROR_PARAMETER:
        case Nucleo::ERROR_NAME:
        case Nucleo::ERROR_CAPACITY:  // A name or path that is too long for the storage.
            return 400;
        case Nucleo::ERROR_NOT_FOUND:
            return 404;
        case Nucleo::ERROR_UNSUPPORTED:
            return 405;
        case Nucleo::ERROR_ALREADY_EXISTS:
        case Nucleo::ERROR_STATE:
            return 409;
        case Nucleo::ERROR_LIMIT:
            return withBody ? 413 : 400;
        case Nucleo::ERROR_CONTENT:
            return 422;
        case Nucleo::ERROR_DISK_FULL:
            return 507;
        default:
            return 500;
    }
}

Reply MakeProblem(unsigned status, Nucleo::Status code, std::string_view detail, std::string_view path)
{
    // A detail may quote what was sent.
    const std::string shown(detail.substr(0, Nucleo::WholeCharacters(detail, MostDetail)));
    nlohmann::json problem = {{"title", ReasonPhrase(status)},
                              {"status", status},
                              {"detail", detail.size() > MostDetail ? shown + "..." : shown},
                              {"code", code}};
    if (!path.empty()) {
        problem["instance"] = path;
    }
    Reply reply;
    reply.status = status;
    reply.mediaType = "application/problem+json";
    reply.body = EncodeBody(std::move(problem), Media::Json);
    return reply;
}

Reply MakeProblem(const std::exception& error, bool withBody, std::string_view path)
{
    if (const auto* refusal = dynamic_cast<const Refusal*>(&error)) {
        const unsigned status = refusal->HttpStatus();
        Reply reply = MakeProblem(status, EntryOf(status).code, refusal->what(), path);
        reply.fields = refusal->Fields();
        return reply;
    }
    if (const auto* failure = dynamic_cast<const Vx::Exception*>(&error)) {
        const std::string& message = failure->Message();
        return MakeProblem(HttpStatusOf(failure->Status(), withBody), failure->Status(),
                           message.empty() ? Nucleo::StatusText(failure->Status()) : message, path);
    }
    const bool jsonError = dynamic_cast<const nlohmann::json::exception*>(&error) != nullptr;
    return MakeProblem(jsonError ? 400 : 500, Vx::StatusOf(error), error.what(), path);
}

void AppendHead(std::string& head, const Reply& reply, std::string_view connection, std::string_view date)
{
    head += "HTTP/1.1 ";
    AppendNumber(head, reply.status);
    head += ' ';
    head += ReasonPhrase(reply.status);
    head += "\r\n";
    head += date;
    if (!reply.mediaType.empty()) {
        head += "Content-Type: ";
        head += reply.mediaType;
        head += "\r\n";
    }
    if (reply.status != 204) {
        // The answers change from call to call and may hold uploaded bytes: nobody keeps them, nobody guesses their
        // type.
        head += "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\nContent-Length: ";
        AppendNumber(head, reply.body.View().size());
        head += "\r\n";
    }
    if (!connection.empty()) {
        head += "Connection: ";
        head += connection;
        head += "\r\n";
    }
    head += reply.fields;
    head += "\r\n";
}

std::string DateLine(std::int64_t time)
{
    // Not strftime: the names of days and months are English whatever the locale is.
    constexpr std::array days = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    namespace chrono = std::chrono;
    const chrono::sys_seconds point{chrono::seconds(time)};
    const chrono::sys_days day = chrono::floor<chrono::days>(point);
    const chrono::year_month_day date(day);
    const chrono::hh_mm_ss clock(point - day);
    std::array<char, 64> line{};
    const int length = std::snprintf(line.data(), line.size(), "Date: %s, %02u %s %04d %02d:%02d:%02d GMT\r\n",
                                     days[chrono::weekday(day).c_encoding()], static_cast<unsigned>(date.day()),
                                     months[static_cast<unsigned>(date.month()) - 1], static_cast<int>(date.year()),
                                     static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                                     static_cast<int>(clock.seconds().count()));
    return {line.data(), static_cast<std::size_t>(length)};
}

}  // namespace VxRest::Http
