#include "JsonBuilder.h"

#include <utility>

namespace VxRest::Http
{

bool JsonBuilder::key(string_t& value)
{
    member_ = &open_.back()->get_ref<nlohmann::json::object_t&>()[std::move(value)];
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
