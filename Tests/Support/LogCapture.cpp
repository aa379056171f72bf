#include <algorithm>

#include <VxTestSupport/LogCapture.h>

namespace VxTestSupport
{

ScopedLogCapture::ScopedLogCapture()
{
    Nucleo::Log_AddHandler(&OnRecord, this);
}

ScopedLogCapture::~ScopedLogCapture()
{
    Nucleo::Log_RemoveHandler(&OnRecord, this);
}

std::vector<LogLine> ScopedLogCapture::Lines() const
{
    const Nucleo::MutexGuard guard(mutex_);
    return lines_;
}

std::vector<std::string> ScopedLogCapture::Texts(const std::string& source) const
{
    std::vector<std::string> texts;
    for (const LogLine& line : Lines()) {
        if (source.empty() || line.source == source) {
            constexpr char letters[] = "IWEI";
            texts.push_back(std::string(1, letters[line.options & Nucleo::LogOption::SeverityMask]) + " " + line.text);
        }
    }
    return texts;
}

int ScopedLogCapture::Count(const std::string& text) const
{
    const auto lines = Lines();
    return static_cast<int>(
        std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) { return line.text == text; }));
}

void ScopedLogCapture::Clear()
{
    const Nucleo::MutexGuard guard(mutex_);
    lines_.clear();
}

Nucleo::Status ScopedLogCapture::OnRecord(void* receiver, const Nucleo::LogArgs& record)
{
    auto& self = *static_cast<ScopedLogCapture*>(receiver);
    const Nucleo::MutexGuard guard(self.mutex_);
    self.lines_.push_back({record.options, record.source, record.message});
    return Nucleo::OK;
}

}  // namespace VxTestSupport
