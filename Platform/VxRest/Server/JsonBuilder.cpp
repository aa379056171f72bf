#include "JsonBuilder.h"

#include <utility>

#include <Nucleo/Utf8.h>

namespace VxRest::Http
{

namespace
{

/// A name from a body as far as a message shows it.
std::string Cut(const std::string& name)
{
    constexpr std::size_t shown = 80;
    return name.size() <= shown ? name : name.substr(0, Nucleo::WholeCharacters(name, shown)) + "...";
}

/// Appends a member to a JSON pointer.
void AppendStep(std::string& pointer, const std::string& member)
{
    pointer += '/';
    for (const char c : Cut(member)) {
        if (c == '~' || c == '/') {
            pointer += c == '~' ? "~0" : "~1";
        } else {
            pointer += c;
        }
    }
}

}  // namespace

bool JsonBuilder::key(string_t& value)
{
    auto& members = open_.back()->get_ref<nlohmann::json::object_t&>();
    const auto next = members.lower_bound(value);
    if (next != members.end() && next->first == value) {
        return Fail(Failure::Malformed,
                    "the body has the member \"" + Cut(value) + "\" twice (at \"" + Place(value) + "\")");
    }
    member_ = &members.emplace_hint(next, std::move(value), nullptr)->second;
    return true;
}

bool JsonBuilder::parse_error(std::size_t /*position*/, const std::string& /*token*/,
                              const nlohmann::json::exception& error)
{
    return Fail(Failure::Malformed, error.what());
}

bool JsonBuilder::Add(nlohmann::json value)
{
    if (++values_ > limits_.values) {
        return Fail(Failure::TooMany, "the body holds more than " + std::to_string(limits_.values) + " values");
    }
    nlohmann::json* place = &root_;
    if (!open_.empty()) {
        if (open_.back()->is_array()) {
            place = &open_.back()->get_ref<nlohmann::json::array_t&>().emplace_back();
        } else {
            place = member_;
        }
    }
    *place = std::move(value);
    member_ = place;
    return true;
}

bool JsonBuilder::Open(nlohmann::json container, std::size_t elements)
{
    if (open_.size() >= limits_.depth) {
        return Fail(Failure::TooDeep, "the body is nested deeper than " + std::to_string(limits_.depth) + " levels");
    }
    if (elements != static_cast<std::size_t>(-1) && elements > sourceBytes_) {
        return Fail(Failure::Malformed, "the body claims more elements than it has bytes");
    }
    if (!Add(std::move(container))) {
        return false;
    }
    open_.push_back(member_);
    return true;
}

/// The JSON pointer to `member` of the innermost object.
std::string JsonBuilder::Place(const std::string& member) const
{
    std::string place;
    for (std::size_t i = 0; i + 1 < open_.size(); ++i) {
        if (open_[i]->is_array()) {
            place += "/" + std::to_string(open_[i]->size() - 1);
            continue;
        }
        for (const auto& [name, value] : open_[i]->get_ref<const nlohmann::json::object_t&>()) {
            if (&value == open_[i + 1]) {
                AppendStep(place, name);
            }
        }
    }
    AppendStep(place, member);
    return place;
}

bool JsonBuilder::Close()
{
    open_.pop_back();
    return true;
}

bool JsonBuilder::Fail(Failure failure, std::string message)
{
    failure_ = failure;
    message_ = std::move(message);
    return false;
}

}  // namespace VxRest::Http
