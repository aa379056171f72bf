#include "OpenMetrics.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include <nlohmann/json.hpp>

#include <VxApi/Exception.h>

namespace VxHost
{
namespace
{

using Kind = OpenMetrics::Kind;
using Nucleo::ERROR_PARAMETER;

bool IsName(std::string_view name, bool colons)
{
    const auto isLetter = [colons](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || (colons && c == ':');
    };
    return !name.empty() && isLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), [&](char c) { return isLetter(c) || (c >= '0' && c <= '9'); });
}

/// What the samples of a family may have behind its name; the first one is that of Add.
std::span<const std::string_view> Suffixes(Kind kind)
{
    static constexpr std::array<std::string_view, 1> none = {""};
    static constexpr std::array<std::string_view, 2> counter = {"_total", "_created"};
    static constexpr std::array<std::string_view, 4> histogram = {"_bucket", "_count", "_sum", "_created"};
    static constexpr std::array<std::string_view, 1> info = {"_info"};
    switch (kind) {
        case Kind::Gauge:
            return none;
        case Kind::Counter:
            return counter;
        case Kind::Histogram:
            return histogram;
        case Kind::Info:
            break;
    }
    return info;
}

std::string_view KindName(Kind kind)
{
    constexpr std::array<std::string_view, 4> names = {"gauge", "counter", "histogram", "info"};
    return names[static_cast<std::size_t>(kind)];
}

/// An object, not a function, so that a loop over a text contains it.
constexpr auto isPlain = [](char c) {
    return static_cast<unsigned char>(c) < 0x80 && c != '\\' && c != '"' && c != '\n';
};

/// A number in the shortest form that reads back as the same one.
template <class T>
std::string_view Print(T value, std::array<char, 32>& room)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(value)) {
            return "NaN";
        }
        if (std::isinf(value)) {
            return value > 0 ? "+Inf" : "-Inf";
        }
    }
    const auto [end, error] = std::to_chars(room.data(), room.data() + room.size(), value);
    return {room.data(), static_cast<std::size_t>(end - room.data())};
}

/// The bounds of buckets have a point, so that all writers give the same text, which collectors compare.
std::string PrintBound(double bound)
{
    std::array<char, 32> room;
    std::string text(Print(bound, room));
    return text.find_first_not_of("-0123456789") == std::string::npos ? text + ".0" : text;
}

}  // namespace

void OpenMetrics::Begin(Kind kind, std::string_view name, std::string_view unit, std::string_view help,
                        LabelNames labels)
{
    if (!IsName(name, true)) {
        VX_THROW(ERROR_PARAMETER, "\"%s\" is no name of a metric.", std::string(name));
    }
    const bool named =
        name.size() > unit.size() + 1 && name.ends_with(unit) && name[name.size() - unit.size() - 1] == '_';
    if (!unit.empty() && (!named || kind == Kind::Info)) {
        VX_THROW(ERROR_PARAMETER, "The metric \"%s\" does not end in its unit \"%s\".", std::string(name),
                 std::string(unit));
    }
    std::vector<std::string> prefixes;
    for (auto label = labels.begin(); label != labels.end(); ++label) {
        if (!IsName(*label, false) || label->starts_with("__") || (kind == Kind::Histogram && *label == "le") ||
            std::find(labels.begin(), label, *label) != label) {
            VX_THROW(ERROR_PARAMETER, "The metric \"%s\" cannot have a label \"%s\".", std::string(name),
                     std::string(*label));
        }
        prefixes.push_back((prefixes.empty() ? "{" : "\",") + std::string(*label) + "=\"");
    }
    std::set<std::string, std::less<>> names{std::string(name)};
    for (const std::string_view suffix : Suffixes(kind)) {
        names.insert(std::string(name) + std::string(suffix));
    }
    for (const std::string& own : names) {
        if (taken_.contains(own)) {
            VX_THROW(ERROR_PARAMETER, "The name \"%s\" of a metric is taken.", own);
        }
    }
    taken_.merge(names);
    open_ = true;
    kind_ = kind;
    name_ = name;
    labels_ = std::move(prefixes);

    const auto append = [this](auto... parts) { ((text_ += parts), ...); };
    append("# TYPE ", name, " ", KindName(kind), "\n");
    if (!unit.empty()) {
        append("# UNIT ", name, " ", unit, "\n");
    }
    append("# HELP ", name, " ");
    AppendEscaped(help);
    text_ += '\n';
}

void OpenMetrics::CheckSample(bool histogram, LabelValues labels) const
{
    if (!open_ || histogram != (kind_ == Kind::Histogram) || labels.size() != labels_.size()) {
        VX_THROW(ERROR_PARAMETER, "A sample does not fit the metric \"%s\".", name_);
    }
}

void OpenMetrics::AddNumber(Number value, LabelValues labels)
{
    CheckSample(false, labels);
    const bool fits = std::visit(
        [this](auto number) {
            return kind_ == Kind::Gauge || (kind_ == Kind::Counter ? number >= decltype(number){} : number == 1);
        },
        value);
    if (!fits) {
        VX_THROW(ERROR_PARAMETER, "The metric \"%s\" cannot have this value.", name_);
    }
    AppendSample(Suffixes(kind_).front(), labels, {}, value);
}

void OpenMetrics::AddHistogram(std::span<const double> bounds, std::span<const std::uint64_t> counts, double sum,
                               LabelValues labels)
{
    CheckSample(true, labels);
    const auto isRising = [](double left, double right) { return !(left < right); };
    if (counts.size() != bounds.size() + 1 || !(sum >= 0) ||
        std::adjacent_find(bounds.begin(), bounds.end(), isRising) != bounds.end() ||
        !std::all_of(bounds.begin(), bounds.end(), [](double bound) { return std::isfinite(bound); })) {
        VX_THROW(ERROR_PARAMETER, "The buckets of \"%s\" do not fit together.", name_);
    }
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        count += counts[i];
        AppendSample("_bucket", labels, i < bounds.size() ? PrintBound(bounds[i]) : "+Inf", count);
    }
    AppendSample("_count", labels, {}, count);
    AppendSample("_sum", labels, {}, sum);
}

std::string OpenMetrics::Finish() &&
{
    open_ = false;
    text_ += "# EOF\n";
    return std::move(text_);
}

void OpenMetrics::AppendSample(std::string_view suffix, LabelValues labels, std::string_view bound, Number value)
{
    text_ += name_;
    text_ += suffix;
    for (std::size_t i = 0; i < labels.size(); ++i) {
        text_ += labels_[i];
        const auto& label = labels.begin()[i].value_;
        if (const auto* text = std::get_if<std::string_view>(&label)) {
            AppendEscaped(*text);
        } else {
            AppendNumber(std::get<std::uint64_t>(label));
        }
    }
    if (!bound.empty()) {
        text_ += labels.size() == 0 ? "{le=\"" : "\",le=\"";
        text_ += bound;
    }
    text_ += labels.size() == 0 && bound.empty() ? " " : "\"} ";
    AppendNumber(value);
    text_ += '\n';
}

void OpenMetrics::AppendNumber(Number value)
{
    std::array<char, 32> room;
    text_ += std::visit([&](auto number) { return Print(number, room); }, value);
}

void OpenMetrics::AppendEscaped(std::string_view text)
{
    if (std::all_of(text.begin(), text.end(), isPlain)) {
        text_ += text;
        return;
    }
    // The JSON library's writer replaces invalid UTF-8.
    using nlohmann::json;
    const std::string clean =
        json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)).get<std::string>();
    for (const char c : clean) {
        if (c == '\\' || c == '"') {
            text_ += '\\';
        }
        if (c == '\n') {
            text_ += "\\n";
        } else {
            text_ += c;
        }
    }
}

}  // namespace VxHost
