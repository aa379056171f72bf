#pragma once
// The logger of the process: one instance with a private log, which holds everything, and a public log, which holds
// what users may see. A public message filter shows a text once only; within a repeating cycle of work a text is shown
// again only after a whole cycle without it.
//
// Any thread may log. One re-entrant lock guards the instance and both rings; who reads a ring holds it. But for
// VcLogger_Construct, VcLogger_Instance, the two log-handler functions, VcLogger_LogCallback, the two render functions
// and VcLogger_ClearPublicLogAndFilter, all functions need the instance to exist. It is released by Nucleo::Destroy
// when no other thread uses it any more. See VcLogMsg.h for the rules of the C-style layer.

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <Nucleo/Format.h>
#include <Nucleo/Lock.h>
#include <Nucleo/String.h>
#include <Nucleo/StringSet.h>
#include <Nucleo/XmlDocument.h>
#include <VxApi/Locker.h>
#include <VxCommon/Logger/VcLog.h>

/// Read and changed through the functions below; everything is guarded by `lock`.
struct VcLogger final : Nucleo::Object
{
    static constexpr std::uint64_t LogCapacity = 0x100000;  ///< Bytes of message memory of each ring.
    static constexpr std::size_t TextCapacity = 512;        ///< Of a printed text or a stripped format, with its NUL.
    static constexpr std::size_t ArgumentCapacity = 256;    ///< Of an argument's text, with its NUL.

    explicit VcLogger(Nucleo::Allocator& allocator)
        : messageFilter(allocator), cycleCurrent(allocator), cyclePrevious(allocator)
    {}
    static const Nucleo::Type& StaticType() noexcept;

    Nucleo::Lock lock;
    std::uint32_t sourceId = 0;  ///< Stamped on every message.
    VcLog* privateLog = nullptr;
    VcLog* publicLog = nullptr;
    std::uint64_t timeOrigin = 0;  ///< Scaled platform timer, subtracted from it to give timestamps.
    Nucleo::StringSet messageFilter;
    std::atomic<std::uint32_t> publicFilterEnabled = 0;  // Also read without the lock.
    Nucleo::StringSet cycleCurrent;
    Nucleo::StringSet cyclePrevious;
    std::uint32_t inCycle = 0;
    std::uint32_t privateLoggingEnabled = 1;
    char formatBuffer[TextCapacity] = {};
};

extern "C" {

// Life and access

/// Makes the one instance. `timeOrigin` is in microseconds of the platform timer (Nucleo::Timer_Scale). A null
/// allocator is the default one. ERROR_ALREADY_EXISTS when there is an instance, which stays and keeps working;
/// ERROR_PARAMETER when the allocator cannot hold objects. The private log becomes the HTTP server's private-log page
/// until the instance is released; a page that the host sets meanwhile stays.
VXCOMMON_API Nucleo::Status VcLogger_Construct(VcLogger** logger, std::uint32_t sourceId, std::uint64_t timeOrigin,
                                               Nucleo::Allocator* allocator);

VXCOMMON_API VcLogger* VcLogger_Instance();  ///< Null when there is none.
VXCOMMON_API VcLog* VcLogger_PrivateLog();
VXCOMMON_API VcLog* VcLogger_PublicLog();
VXCOMMON_API std::uint32_t VcLogger_PublicMessageFilterEnabled();

VXCOMMON_API Nucleo::Status VcLogger_Lock();
VXCOMMON_API Nucleo::Status VcLogger_Unlock();

/// Whether platform records reach the private log; 1 at first.
VXCOMMON_API Nucleo::Status VcLogger_EnablePrivateLogging(std::uint32_t enable);

/// Whether the `publicFilter` argument of the log functions is honoured; 0 at first.
VXCOMMON_API Nucleo::Status VcLogger_EnablePublicMessageFilter(std::uint32_t enable);

// The runtime's log handler

/// Puts every record of the runtime's log into the rings from now on. ERROR_ALREADY_EXISTS when it does already. Needs
/// no instance; records that come while there is none are dropped.
VXCOMMON_API Nucleo::Status VcLogger_AddLogHandler();

/// Ends that; no record is being taken any more when it returns. ERROR_NOT_FOUND when it was not on. The caller does
/// not hold the logger's lock.
VXCOMMON_API Nucleo::Status VcLogger_RemoveLogHandler();

/// The handler: into the private log while that is enabled, then, when its option word says so, into the public log.
/// OK without effect when there is no instance.
VXCOMMON_API Nucleo::Status VcLogger_LogCallback(void* receiver, const Nucleo::LogArgs& logArgs);

// Logging, into `log`, which is one of the two rings. `publicFilter` asks for the public message filter. A text that a
// filter or the cycle holds back is not inserted, which is no failure. What cannot be inserted is not remembered by a
// filter. Texts must not lie in `log` itself: making room for them may free them.

/// A plain text; it is never used as a format.
VXCOMMON_API Nucleo::Status VcLogger_LogImpl(VcLogger* logger, VcLog* log, VcLogMsgType type,
                                             std::uint32_t publicFilter, const char* text);

/// A platform record.
VXCOMMON_API Nucleo::Status VcLogger_LogImplLogArgs(VcLogger* logger, VcLog* log, std::uint32_t publicFilter,
                                                    const Nucleo::LogArgs* logArgs);

/// A printf-style format with its arguments. Positional markers ("2$") are passed over: arguments are taken in order.
/// With `structured` the entry's text is the format and its arguments are attached to it as VcLogger_FormatArg writes
/// them, texts cut at 255 bytes or at the character before; otherwise it is the printed text. ERROR_STATE when a
/// listener dropped the entry before its arguments were attached, ERROR_CAPACITY when the stripped format or the
/// printed text has 512 bytes or more.
VXCOMMON_API Nucleo::Status VcLogger_LogfImpl(VcLogger* logger, VcLog* log, std::uint32_t structured, VcLogMsgType type,
                                              std::uint32_t publicFilter, const char* format,
                                              const Nucleo::FormatArgs& args);

/// A platform record whose text is a format, with its arguments attached to the entry.
VXCOMMON_API Nucleo::Status VcLogger_LogfImplLogArgs(VcLogger* logger, VcLog* log, std::uint32_t publicFilter,
                                                     const Nucleo::LogArgs* logArgs, const Nucleo::FormatArgs& args);

/// Prints `format` into `capacity` bytes at `buffer`. The caller holds the logger's lock. ERROR_CAPACITY when the
/// stripped format has 512 bytes or more or the text does not fit.
VXCOMMON_API Nucleo::Status VcLogger_MakeLogText(const char* format, const Nucleo::FormatArgs& args, char* buffer,
                                                 std::size_t capacity);

// Filters and cycles. The first three, VcLogger_ClearMessageFilters and VcLogger_FilterCount take no lock: the caller
// holds it.

/// 1 when `text` would not be shown: it was seen in this cycle or the one before, or, with `publicFilter`, is in the
/// message filter.
VXCOMMON_API std::uint32_t VcLogger_IsMessageFiltered(std::uint32_t publicFilter, const char* text);
VXCOMMON_API Nucleo::Status VcLogger_AddToMessageFilter(VcLogger* logger, std::uint32_t publicFilter, const char* text);
VXCOMMON_API Nucleo::Status VcLogger_AddToCycleFilter(VcLogger* logger, const char* text);
VXCOMMON_API Nucleo::Status VcLogger_ClearMessageFilters();

/// Texts that the message filter and the two cycle sets hold together. They grow without bound until they are cleared.
VXCOMMON_API std::size_t VcLogger_FilterCount();

/// Clears the public log, then the filters. OK without effect when there is no instance.
VXCOMMON_API Nucleo::Status VcLogger_ClearPublicLogAndFilter();

VXCOMMON_API Nucleo::Status VcLogger_BeginLogCycle();
VXCOMMON_API Nucleo::Status VcLogger_EndLogCycle();

// Output

/// Writes the log as text, see VcLog_Render. OK without output when there is no instance.
VXCOMMON_API Nucleo::Status VcLogger_RenderPrivate(Nucleo::Stream* stream);
VXCOMMON_API Nucleo::Status VcLogger_RenderPublic(Nucleo::Stream* stream);

/// Adds an element "Log" with the entries of the ids `startId` to `endId` under the document's root. Ids outside the
/// ring are moved to its ends; the largest `endId` means "to the newest". The logger's lock is held while the entries
/// are copied and not while elements are made of them. ERROR_STATE when the document has no root, ERROR_MEMORY.
VXCOMMON_API Nucleo::Status VcLogger_GenerateXML(std::uint32_t isPublic, Nucleo::XmlDocument* document,
                                                 std::uint64_t startId, std::uint64_t endId);

/// Adds one entry under `parent`.
VXCOMMON_API Nucleo::Status VcLogger_GenerateXMLForLogMsg(const VcLogMsg* msg, Nucleo::XmlDocument* document,
                                                          Nucleo::XmlNode parent);

// The reader of format strings

/// Reads on from `*cursor` to the end of the next specifier and tells the type of its argument. ERROR_PARAMETER when
/// there is no further specifier; the cursor then is at the end of the text, never beyond it.
VXCOMMON_API Nucleo::Status VcLogger_ParseSpecificer(const char** cursor, const Nucleo::Type** argType);

/// Reads the length modifier and conversion at `*cursor`. ERROR_PARAMETER at the end of the text.
VXCOMMON_API Nucleo::Status VcLogger_ParseSpecType(const char** cursor, const Nucleo::Type** argType);

/// Writes the next argument as text, by the type that was read for its specifier. A text is cut so that it fits with
/// its NUL, never inside a character. A text where a number is expected, a number where a text is, and a missing
/// argument give "(?)", here as in the printed text. Otherwise the two may differ:
/// - Width, precision and flags are printed alone, and so is another base than ten: "%04x" of 255 prints "00ff" and
///   gives "255" here. Floating-point numbers have their shortest form here.
/// - Behind a length modifier everything is a signed integer here, of 64 bits for "hh", "ll", "I64" and "q" and of 32
///   bits for the others, whatever is printed: "%lu" of 3000000000 gives "-1294967296", "%llu" of 2^63 a negative
///   number, "%lf" the low 32 bits of its slot, "%hhd" all 64. So is what follows a second flag ("%-+f"). "%ls" prints
///   a text and gives "(?)".
/// - A slot of the other kind of number prints "(?)"; here its bits are read as the type says.
/// - A conversion that nothing prints ("%p") prints "(?)" and gives a 32-bit integer here. A "%" that ends a specifier
///   which holds anything else ("%5%") prints "%" and takes no argument; here it takes one.
/// ERROR_PARAMETER for a type that is none of the printed ones and for a character with a capacity below 2.
VXCOMMON_API Nucleo::Status VcLogger_FormatArg(Nucleo::ArgCursor* argCursor, const Nucleo::Type* argType, char* buffer,
                                               std::size_t capacity);

/// Registers the class "VcLogger".
VXCOMMON_API Nucleo::Status xxVcLogger_Register(Nucleo::Assembly* assembly);

}  // extern "C"

/// Holds the logger's lock for a scope.
VXCOMMON_API Vx::Locker VcLogger_GetLock();
