#pragma once
// Answers to requests, and refusals that become answers.

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include <Nucleo/Status.h>
#include <VxApi/Exception.h>

#include "Codec.h"

namespace VxRest::Http
{

/// An answer, but for what the connection adds.
struct Reply
{
    unsigned status = 204;
    std::string_view mediaType;  ///< Of the body; a literal. Empty: no body, or `fields` tells.
    std::string fields;          ///< Further header lines, see AddField.
    EncodedBody body;
    bool close = false;  ///< Close the connection afterwards.

    /// Adds a header line. Bytes of `value` that a field value must not have are percent-encoded.
    void AddField(std::string_view name, std::string_view value);
};

/// Thrown where the server itself refuses a request.
class Refusal : public std::exception
{
public:
    /// A NUL in `detail`, which would end it, is shown as "\x00".
    Refusal(unsigned status, const std::string& detail) : status_(status), detail_(Vx::ShowNuls(detail)) {}

    /// Adds a header field to the answer.
    Refusal& With(std::string_view name, std::string_view value);

    unsigned HttpStatus() const noexcept { return status_; }
    const std::string& Fields() const noexcept { return fields_.fields; }
    const char* what() const noexcept override { return detail_.c_str(); }

private:
    unsigned status_;
    std::string detail_;
    Reply fields_;
};

/// The phrase of a status, such as "Not Found".
std::string_view ReasonPhrase(unsigned status);

/// The HTTP status that a library status answers with. `withBody`: the request carried a body, which a limit then is
/// about.
unsigned HttpStatusOf(Nucleo::Status status, bool withBody);

/// An RFC 9457 problem document. `path`: what the request asked for, empty when that is not known. A long `detail` is
/// cut.
Reply MakeProblem(unsigned status, Nucleo::Status code, std::string_view detail, std::string_view path);

/// The answer to a request that ended in `error`. `withBody` as above. The answer shows no back trace.
Reply MakeProblem(const std::exception& error, bool withBody, std::string_view path);

/// Appends the status line and the header of `reply` to `head`. `connection` is "close", "keep-alive" or empty, `date`
/// a whole header line.
void AppendHead(std::string& head, const Reply& reply, std::string_view connection, std::string_view date);

/// The Date header line of a point in time, in seconds since 1970.
std::string DateLine(std::int64_t time);

}  // namespace VxRest::Http
