#pragma once
// Collects the log records of a scope, so that a test can expect the lines that the system must write.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <Nucleo/Lock.h>
#include <Nucleo/Log.h>

namespace VxTestSupport
{

struct LogLine
{
    std::uint64_t options;
    std::string source;
    std::string text;
};

class ScopedLogCapture
{
public:
    ScopedLogCapture() { Nucleo::Log_AddHandler(&OnRecord, this); }
    ~ScopedLogCapture() { Nucleo::Log_RemoveHandler(&OnRecord, this); }
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

    std::vector<LogLine> Lines() const
    {
        const Nucleo::MutexGuard guard(mutex_);
        return lines_;
    }

    /// The texts alone, in order, each with its severity's letter in front: "E Load GLOBAL failed (...)."; only records
    /// of `source` when that is not empty.
    std::vector<std::string> Texts(const std::string& source = {}) const
    {
        std::vector<std::string> texts;
        for (const LogLine& line : Lines()) {
            if (source.empty() || line.source == source) {
                constexpr char letters[] = "IWEI";
                const char letter = letters[line.options & Nucleo::LogOption::SeverityMask];
                texts.push_back(std::string(1, letter) + " " + line.text);
            }
        }
        return texts;
    }

    /// How many records have exactly this text.
    int Count(const std::string& text) const
    {
        const Nucleo::MutexGuard guard(mutex_);
        return static_cast<int>(std::ranges::count(lines_, text, &LogLine::text));
    }

    /// Forgets what was collected.
    void Clear()
    {
        const Nucleo::MutexGuard guard(mutex_);
        lines_.clear();
    }

private:
    static Nucleo::Status OnRecord(void* receiver, const Nucleo::LogArgs& record)
    {
        auto& self = *static_cast<ScopedLogCapture*>(receiver);
        const Nucleo::MutexGuard guard(self.mutex_);
        self.lines_.push_back({record.options, record.source, record.message});
        return Nucleo::OK;
    }

    mutable Nucleo::Mutex mutex_;
    std::vector<LogLine> lines_ VX_GUARDED_BY(mutex_);
};

}  // namespace VxTestSupport
