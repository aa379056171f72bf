#pragma once
// Collects the log records of a scope, so that a test can expect the lines that the system must write.

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
    ScopedLogCapture();
    ~ScopedLogCapture();
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

    std::vector<LogLine> Lines() const;

    /// The texts alone, in order, each with its severity's letter in front: "E Load GLOBAL failed (...)."; only records
    /// of `source` when that is not empty.
    std::vector<std::string> Texts(const std::string& source = {}) const;

    /// How many records have exactly this text.
    int Count(const std::string& text) const;

    /// Forgets what was collected.
    void Clear();

private:
    static Nucleo::Status OnRecord(void* receiver, const Nucleo::LogArgs& record);

    mutable Nucleo::Mutex mutex_;
    std::vector<LogLine> lines_ VX_GUARDED_BY(mutex_);
};

}  // namespace VxTestSupport
