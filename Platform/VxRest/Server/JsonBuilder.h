#pragma once
// Builds a JSON value from the events of a parser, within limits.

#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Codec.h"

namespace VxRest::Http
{

/// Receiver of the library's parsers. A parse that it stops has failed; Error says why.
class JsonBuilder final : public nlohmann::json_sax<nlohmann::json>
{
public:
    enum class Failure
    {
        None,
        Malformed,
        TooDeep,
        TooMany
    };

    /// `sourceBytes`: the length of the text that is parsed; no container can have more elements than that.
    JsonBuilder(const CodecLimits& limits, std::size_t sourceBytes) : limits_(limits), sourceBytes_(sourceBytes) {}

    bool null() override { return Add(nullptr); }
    bool boolean(bool value) override { return Add(value); }
    bool number_integer(number_integer_t value) override { return Add(value); }
    bool number_unsigned(number_unsigned_t value) override { return Add(value); }
    bool number_float(number_float_t value, const string_t& /*text*/) override { return Add(value); }
    bool string(string_t& value) override { return Add(std::move(value)); }
    bool binary(binary_t& value) override { return Add(nlohmann::json(std::move(value))); }
    bool start_object(std::size_t elements) override { return Open(nlohmann::json::object(), elements); }
    bool start_array(std::size_t elements) override { return Open(nlohmann::json::array(), elements); }
    bool end_object() override { return Close(); }
    bool end_array() override { return Close(); }
    bool key(string_t& value) override;
    bool parse_error(std::size_t position, const std::string& token, const nlohmann::json::exception& error) override;

    nlohmann::json& Value() { return root_; }
    Failure Reason() const { return failure_; }
    const std::string& Message() const { return message_; }

private:
    bool Add(nlohmann::json value);
    bool Open(nlohmann::json container, std::size_t elements);
    bool Close();
    std::string Place(const std::string& member) const;
    bool Fail(Failure failure, std::string message);

    const CodecLimits limits_;
    const std::size_t sourceBytes_;
    nlohmann::json root_;
    std::vector<nlohmann::json*> open_;  ///< Containers that are being filled, outermost first.
    nlohmann::json* member_ = nullptr;   ///< Where the value of the key just read goes.
    std::size_t values_ = 0;
    Failure failure_ = Failure::None;
    std::string message_;
};

}  // namespace VxRest::Http
