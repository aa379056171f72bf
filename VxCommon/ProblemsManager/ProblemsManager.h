#pragma once
// The current problems of the system: counted reports, and an event when the list changes.
//
// Any thread may call. One re-entrant lock guards the list and the counters. The event is raised without it, on the
// thread that made the change, so that listeners may call back: they may add, remove, clear and open batches.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <Nucleo/Format.h>
#include <Nucleo/Lock.h>
#include <VxApi/Event.h>
#include <VxCommon/ProblemsManager/ProblemList.h>
#include <VxCommon/VcLib/Export.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{

/// A problem is listed while at least one report of it has not been withdrawn. Failures are thrown as Vx::Exception.
class VXCOMMON_API ProblemsManager
{
public:
    using Iterator = ProblemIterator;

    /// Messages are shorter than this.
    static constexpr std::size_t MessageCapacity = 512;

    /// An empty list. Throws ERROR_MEMORY when there is no memory for the lock.
    ProblemsManager();

    /// The same problems with the same numbers of reports, outside every batch and with nobody subscribed. The copy has
    /// entries of its own: iterators of `other` designate nothing in it.
    ProblemsManager(const ProblemsManager& other);

    /// The same, but for the iterators, which go along. `other` is empty afterwards.
    ProblemsManager(ProblemsManager&& other) noexcept(false);

    ProblemsManager& operator=(const ProblemsManager&) = delete;
    ~ProblemsManager();

    /// Reports a problem: `format` printed with `args` (see Nucleo::Print), empty without a format. Each report has to
    /// be withdrawn by one Remove. A report of a problem that has one left changes nothing else: it keeps its severity,
    /// and nobody is notified. A problem that is listed without a report, since its removal is just being told, keeps
    /// its place and severity, and listeners are notified of its return. A new one is added at the end and written to
    /// the private log.
    /// Throws ERROR_PARAMETER when the message, or the format without its positional markers, has MessageCapacity and
    /// more characters; ERROR_MEMORY when there is no memory. What a listener throws comes out too, a lack of memory as
    /// ERROR_MEMORY. Whatever is thrown, the report does not count.
    template <class... Args>
    Iterator Add(VcProblemSeverity severity, const std::string& source, const char* format, const Args&... args)
    {
        return AddFormatted(severity, source, format, Nucleo::MakeFormatArgs(args...));
    }

    /// Add with an argument list that was made before.
    Iterator AddFormatted(VcProblemSeverity severity, const std::string& source, const char* format,
                          Nucleo::FormatArgs args);

    /// Withdraws a report. With the last one listeners are notified, who find the problem still listed, but not in a
    /// snapshot, and then it is taken out, unless somebody reported it again or took it out meanwhile; it is also taken
    /// out when a listener throws. Throws ERROR_PARAMETER, and changes nothing, for the end, for a problem that is not
    /// in this list any more, and for one without a report left.
    void Remove(const Iterator& problem);

    /// Remove for whoever may come too late: false where Remove would throw ERROR_PARAMETER.
    bool TryRemove(const Iterator& problem);

    /// Reports the problem once more: false, and nothing is reported, where Remove would throw ERROR_PARAMETER.
    bool Retain(const Iterator& problem);

    /// Takes all problems out, whoever reports them, and notifies.
    void Clear();

    /// Opens a batch, or nests one deeper: notifications are held back. With the end of the outermost batch they come
    /// as one, if there were any.
    void BeginUpdate();

    /// Throws ERROR_STATE, and changes nothing, when no batch is open.
    void EndUpdate();

    std::uint64_t Count() const;

    /// How many problems are blocking.
    std::uint32_t BlockingCount() const;

    /// The listed problem with the message and source of `problem`; the end when there is none.
    Iterator ProblemExists(const Problem& problem) const;

    /// The list itself, from the first problem to the last, those included whose removal is just being told. The caller
    /// holds GetLock() for the walk unless no other thread changes the list.
    ProblemsEnumerator Enumerate() const;

    /// What is to be shown: a copy of the problems that have a report left, from the first to the last. A listener that
    /// takes it finds what its notification tells of, removals included.
    std::vector<Problem> Snapshot() const;

    /// Raised after a change of the list, without the lock.
    Vx::Event<>& UpdatedEvent() noexcept { return updatedEvent_; }

    /// Notifies: raises the event, or counts that inside a batch. The caller does not hold the lock.
    void OnUpdated();

    /// The lock of the list, for walks. Whoever holds it changes nothing: the event would be raised under it.
    Nucleo::Lock& GetLock() const noexcept VX_RETURN_CAPABILITY(*lock_) { return *lock_; }

private:
    Iterator AddImpl(std::string msg, const std::string& source, VcProblemSeverity severity);

    /// Adds a problem that is not listed and writes it to the log.
    Iterator Append(Problem problem) VX_REQUIRES(*lock_);

    bool IsReported(const Iterator& problem) const VX_REQUIRES(*lock_);

    /// Takes the problem out when it is listed and nobody reports it.
    void DropUnreported(const Iterator& problem) VX_REQUIRES(*lock_);

    // Constant after construction.
    const std::shared_ptr<Nucleo::Lock> lock_;

    // Guarded by lock_.
    ProblemList problems_ VX_GUARDED_BY(*lock_);
    std::int32_t pendingUpdates_ VX_GUARDED_BY(*lock_) = 0;  // Notifications held back while a batch is open.
    std::uint32_t updateDepth_ VX_GUARDED_BY(*lock_) = 0;    // Of nested batches.
    std::uint32_t blockingCount_ VX_GUARDED_BY(*lock_) = 0;

    Vx::Event<> updatedEvent_;
};

}  // namespace VxCommon
