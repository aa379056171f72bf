#pragma once
// Writes metrics in the OpenMetrics text format, version 1.0.0, which monitoring systems collect.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace VxHost
{

/// A page of metric families, written from top to bottom by one thread: Begin opens a family and ends the one before,
/// Add gives it samples, Finish ends the page. The caller sees to it that no two samples of a family have the same
/// labels. What would make the page malformed throws Vx::Exception with ERROR_PARAMETER and leaves the page as it was.
class OpenMetrics
{
public:
    /// The Content-Type of a page.
    static constexpr std::string_view mediaType = "application/openmetrics-text; version=1.0.0; charset=utf-8";

    enum class Kind
    {
        Gauge,
        Counter,    ///< Never below 0. Its samples have the suffix "_total".
        Histogram,  ///< See AddHistogram.
        Info,       ///< Labels alone, as samples of value 1 with the suffix "_info".
    };

    /// What a label says: a text, in which invalid UTF-8 is replaced by U+FFFD, or a whole number.
    class LabelValue
    {
    public:
        // NOLINTBEGIN(google-explicit-constructor): the values of labels are listed as they are.
        LabelValue(std::string_view text) : value_(text) {}
        LabelValue(const std::string& text) : value_(std::string_view(text)) {}
        LabelValue(const char* text) : value_(std::string_view(text)) {}
        LabelValue(std::unsigned_integral auto number) : value_(std::uint64_t{number}) {}
        // NOLINTEND(google-explicit-constructor)

    private:
        friend class OpenMetrics;
        std::variant<std::string_view, std::uint64_t> value_;
    };
    using LabelNames = std::initializer_list<std::string_view>;
    using LabelValues = std::initializer_list<LabelValue>;

    /// Opens a family. `name` ends in "_" and `unit`, a base unit, unless that is empty; suffixes of samples are left
    /// out. All samples have the labels that are named here. Refused: names with bytes that names do not have, a label
    /// that is named twice or reserved, a family that was opened before or has samples named like another's.
    void Begin(Kind kind, std::string_view name, std::string_view unit, std::string_view help, LabelNames labels = {});

    /// Adds a sample of a gauge, a counter or an info. `labels` are the values of the labels, in the order of Begin.
    /// Whole numbers are exact.
    void Add(std::integral auto value, LabelValues labels = {})
    {
        if constexpr (std::is_signed_v<decltype(value)>) {
            AddNumber(std::int64_t{value}, labels);
        } else {
            AddNumber(std::uint64_t{value}, labels);
        }
    }
    void Add(double value, LabelValues labels = {}) { AddNumber(value, labels); }

    /// Adds the samples of a histogram: how many values were above the bound before and not above the own one, for each
    /// of the rising `bounds` and, at last, for what is above them all; the sum of the values.
    void AddHistogram(std::span<const double> bounds, std::span<const std::uint64_t> counts, double sum,
                      LabelValues labels = {});

    /// The whole page. Nothing is added any more.
    std::string Finish() &&;

private:
    using Number = std::variant<std::int64_t, std::uint64_t, double>;

    void AddNumber(Number value, LabelValues labels);
    void CheckSample(bool histogram, LabelValues labels) const;
    void AppendSample(std::string_view suffix, LabelValues labels, std::string_view bound, Number value);
    void AppendNumber(Number value);
    void AppendEscaped(std::string_view text);

    std::string text_;
    std::set<std::string, std::less<>> taken_;  ///< Names of families and of their samples.

    // The open family.
    bool open_ = false;
    Kind kind_ = Kind::Gauge;
    std::string name_;
    std::vector<std::string> labels_;  ///< What precedes the value of each.
};

}  // namespace VxHost
