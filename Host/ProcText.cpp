#include "ProcText.h"

#include "ToNumber.h"

namespace VxHost
{
namespace
{

/// The part of `text` up to `end`, which is taken away with it.
std::string_view Take(std::string_view& text, char end)
{
    const std::size_t at = text.find(end);
    const std::string_view taken = text.substr(0, at);
    text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
    return taken;
}

std::string_view TakeWord(std::string_view& text)
{
    const std::size_t begin = text.find_first_not_of(' ');
    text.remove_prefix(begin == std::string_view::npos ? text.size() : begin);
    return Take(text, ' ');
}

/// The next numbers of a line, at most `most`, up to the first word that is none.
std::vector<std::uint64_t> TakeNumbers(std::string_view& line, std::size_t most)
{
    std::vector<std::uint64_t> numbers;
    while (numbers.size() < most) {
        const auto number = ToNumber<std::uint64_t>(TakeWord(line));
        if (!number) {
            break;
        }
        numbers.push_back(*number);
    }
    return numbers;
}

}  // namespace

std::vector<CoreTimes> ParseCoreTimes(std::string_view text)
{
    std::vector<CoreTimes> cores;
    while (!text.empty()) {
        std::string_view line = Take(text, '\n');
        const std::string_view name = TakeWord(line);
        const auto core = ToNumber<std::uint32_t>(name.substr(name.starts_with("cpu") ? 3 : name.size()));
        // user nice system idle iowait irq softirq steal; guests are part of user and nice. Old kernels have four.
        const std::vector<std::uint64_t> times = TakeNumbers(line, 8);
        if (!core || times.size() < 4) {
            continue;
        }
        CoreTimes& added = cores.emplace_back();
        added.core = *core;
        for (std::size_t i = 0; i < times.size(); ++i) {
            (i == 3 || i == 4 ? added.idle : added.busy) += times[i];
        }
    }
    return cores;
}

std::vector<InterfaceBytes> ParseInterfaceBytes(std::string_view text)
{
    std::vector<InterfaceBytes> interfaces;
    while (!text.empty()) {
        std::string_view line = Take(text, '\n');
        if (line.find(':') == std::string_view::npos) {
            continue;  // A heading.
        }
        std::string_view start = Take(line, ':');
        const std::string_view name = TakeWord(start);
        // Received bytes are the first of eight columns, sent ones the first of the next eight.
        const std::vector<std::uint64_t> columns = TakeNumbers(line, 9);
        if (!name.empty() && columns.size() == 9) {
            interfaces.push_back({std::string(name), columns[0], columns[8]});
        }
    }
    return interfaces;
}

}  // namespace VxHost
