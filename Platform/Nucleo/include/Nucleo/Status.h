#pragma once
// Status codes: what every function of the base runtime and of the sensor platform answers.
// All functions here may be called from any thread.

#include <cstdint>
#include <string_view>

namespace Nucleo
{

/// Result of an operation: OK (1) or one of the negative codes below. Values cross library and network boundaries and
/// never change.
using Status = std::int32_t;

inline namespace Statuses
{
inline constexpr Status OK = 1;

inline constexpr Status ERROR_STATE = -1000;          ///< Not possible in the present state.
inline constexpr Status ERROR_NOT_FOUND = -999;       ///< The named thing does not exist.
inline constexpr Status ERROR_PARAMETER = -997;       ///< An argument is outside what the operation takes.
inline constexpr Status ERROR_MEMORY = -996;          ///< No memory could be had.
inline constexpr Status ERROR_CAPACITY = -995;        ///< The result does not fit into the buffer that was given.
inline constexpr Status ERROR_NAME = -994;            ///< A file name that the storage does not take.
inline constexpr Status ERROR_IO = -993;              ///< The device failed to read or write.
inline constexpr Status ERROR_DISK_FULL = -992;       ///< No space is left, or a quota is used up.
inline constexpr Status ERROR_READ_ONLY = -991;       ///< The storage can only be read.
inline constexpr Status ERROR_TOO_MANY_FILES = -990;  ///< The process or the system has too many files open.
inline constexpr Status ERROR_END = -989;             ///< The end of the data was reached.
inline constexpr Status ERROR_FORMAT = -988;          ///< The data is damaged or of another format.
inline constexpr Status ERROR_ALREADY_EXISTS = -987;  ///< A thing of that name exists already.
inline constexpr Status ERROR_ACCESS = -986;          ///< Not permitted.
inline constexpr Status ERROR_LIMIT = -985;           ///< Larger than the documented limit.
inline constexpr Status ERROR_CONTENT = -984;         ///< Well formed, but holds nothing that can be used.
inline constexpr Status ERROR_UNSUPPORTED = -983;     ///< This object does not offer the operation.
inline constexpr Status ERROR_BUSY = -982;            ///< In use by someone else.
}  // namespace Statuses

/// The code's name, such as "ERROR_NOT_FOUND"; "ERROR_UNKNOWN" for a value that is none of the above.
/// A NUL follows it.
std::string_view StatusName(Status status) noexcept;

/// One plain sentence for people, without a full stop, such as "the named thing does not exist".
std::string_view StatusText(Status status) noexcept;

}  // namespace Nucleo
