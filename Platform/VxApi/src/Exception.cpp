#include <execinfo.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include <nlohmann/json.hpp>

#include <VxApi/Exception.h>
#include <VxApi/Logging.h>

namespace Vx
{
namespace
{

constexpr int maxFrames = 32;

/// The frames from `caller` on. How many lie before it differs: builds inline, and sanitizers put one in between.
std::vector<void*> BackTrace(const void* caller)
{
    void* frames[maxFrames];
    void** const end = frames + backtrace(frames, maxFrames);
    void** const first = std::find(frames, end, caller);
    return std::vector<void*>(first != end ? first : frames, end);  // Braces would list two frames.
}

std::string Words(Nucleo::Status status, const std::string& message)
{
    if (!message.empty()) {
        return message;
    }
    std::string words(Nucleo::StatusText(status));
    words += " (";
    words += Nucleo::StatusName(status);
    words += ", " + std::to_string(status) + ")";
    return words;
}

}  // namespace

std::string ShowNuls(const std::string& text)
{
    std::string shown;
    for (std::size_t begin = 0;;) {
        const std::size_t nul = text.find('\0', begin);
        shown.append(text, begin, nul - begin);
        if (nul == std::string::npos) {
            return shown;
        }
        shown += "\\x00";
        begin = nul + 1;
    }
}

Exception::Exception(Location location, Nucleo::Status status, std::string message)
    : status_(status),
      line_(location.line),
      file_(location.file),
      function_(location.function),
      message_(message.find('\0') == std::string::npos ? std::move(message) : ShowNuls(message)),
      what_(Words(status_, message_)),
      trace_(BackTrace(__builtin_return_address(0)))
{}

void Exception::Log(const Location& location) const noexcept
{
    Logging::Debug(Logging::Level::Error, location, "Exception %d (%s) in %s, %s:%d: %s", status_,
                   Nucleo::StatusName(status_).data(), function_, file_, line_, what_);
    const std::unique_ptr<char*, decltype(&std::free)> symbols(
        backtrace_symbols(trace_.data(), static_cast<int>(trace_.size())), &std::free);
    if (!symbols) {
        return;
    }
    for (std::size_t i = 0; i < trace_.size(); ++i) {
        Logging::Debug(Logging::Level::Error, location, "  #%llu %s", static_cast<unsigned long long>(i),
                       static_cast<const char*>(symbols.get()[i]));
    }
}

Nucleo::Status CarriedStatus(const std::exception& exception) noexcept
{
    const auto* carrier = dynamic_cast<const Exception*>(&exception);
    return carrier != nullptr ? carrier->Status() : Nucleo::OK;
}

Nucleo::Status StatusOf(const std::exception& exception) noexcept
{
    if (const auto* carrier = dynamic_cast<const Exception*>(&exception)) {
        return carrier->Status();
    }
    if (dynamic_cast<const std::bad_alloc*>(&exception) != nullptr) {
        return Nucleo::ERROR_MEMORY;
    }
    if (dynamic_cast<const nlohmann::json::exception*>(&exception) != nullptr) {
        return Nucleo::ERROR_PARAMETER;
    }
    return Nucleo::ERROR_STATE;
}

Nucleo::Status StatusOf(const std::exception_ptr& exception) noexcept
{
    if (!exception) {
        return Nucleo::OK;
    }
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& caught) {
        return StatusOf(caught);
    } catch (...) {
        return Nucleo::ERROR_STATE;
    }
}

void LogException(const Location& location, const std::exception& exception) noexcept
{
    if (const auto* carrier = dynamic_cast<const Exception*>(&exception)) {
        carrier->Log(location);
    } else {
        Logging::Debug(Logging::Level::Error, location, "Exception: %s", exception.what());
    }
}

void Check(const Location& location, Nucleo::Status status)
{
    if (status != Nucleo::OK) {
        throw Exception(location, status);
    }
}

}  // namespace Vx
