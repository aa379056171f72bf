#include "Target.h"

#include <algorithm>

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include "Reply.h"

namespace VxRest::Http
{

namespace
{

constexpr const char* SchemaArgument = "schema";

/// True for a path of unreserved characters alone, about which there is nothing to parse.
bool IsPlainPath(std::string_view text)
{
    return text.starts_with('/') && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '-' && c <= '9') || c == '_' ||
                      c == '~';
           });
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

void ParseQuery(const boost::urls::url_view& url, Target& target)
{
    for (const auto& parameter : url.params()) {
        std::string name = parameter.key;
        if (name.empty() && parameter.value.empty()) {
            continue;
        }
        if (!target.texts.emplace(name, parameter.value).second) {
            throw Refusal(400, "the argument \"" + name + "\" is given twice");
        }
        nlohmann::json value = ValueByLook(parameter.value);
        if (name == SchemaArgument) {
            if (!value.is_boolean()) {
                throw Refusal(400, "the argument \"schema\" must be true or false");
            }
            target.schema = value.get<bool>();
            continue;
        }
        target.args[name] = std::move(value);
    }
}

}  // namespace

Target ParseTarget(std::string_view text)
{
    Target target;
    if (text == "*" || IsPlainPath(text)) {
        target.path = text;
        return target;
    }
    const bool origin = text.starts_with('/');
    const auto url = origin ? boost::urls::parse_origin_form(text) : boost::urls::parse_absolute_uri(text);
    if (!url) {
        throw Refusal(400, "the request target is malformed");
    }
    if (!origin) {
        if (url->scheme() != "http" || url->has_userinfo() || url->encoded_host().empty()) {
            throw Refusal(400, "the request target must be a path or an http URI with a host");
        }
        target.authority = url->encoded_host_and_port();
    }
    target.path = url->encoded_path();
    if (target.path.empty()) {
        target.path = "/";
    }
    if (url->has_query()) {
        ParseQuery(*url, target);
    }
    return target;
}

nlohmann::json ValueByLook(std::string text)
{
    if (text == "true" || text == "false") {
        return text == "true";
    }
    // A number begins with a digit or a minus sign and ends with a digit; the library decides about the rest.
    if (!text.empty() && (IsDigit(text.front()) || text.front() == '-') && IsDigit(text.back())) {
        nlohmann::json number = nlohmann::json::parse(text, nullptr, false);
        if (number.is_number()) {
            return number;
        }
    }
    return text;
}

}  // namespace VxRest::Http
