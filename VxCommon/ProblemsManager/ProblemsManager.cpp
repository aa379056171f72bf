#include <VxCommon/ProblemsManager/ProblemsManager.h>

#include <new>

#include <Nucleo/StdAllocator.h>
#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>

namespace VxCommon
{
namespace
{

// Lines and functions are part of the reports that their readers know.
constexpr Vx::Location At(int line, std::string_view function)
{
    return {"ProblemsManager/ProblemsManager", line, function};
}

std::shared_ptr<Nucleo::Lock> MakeLock()
{
    try {
        return std::allocate_shared<Nucleo::Lock>(Nucleo::StdAllocator<Nucleo::Lock>(Nucleo::DefaultAllocator()));
    } catch (const std::bad_alloc&) {
        VX_THROW_AT(At(12, "VxCommon::ProblemsManager::ProblemsManager"), ERROR_MEMORY);
    }
}

}  // namespace

ProblemsManager::ProblemsManager() : lock_(MakeLock()) {}

ProblemsManager::ProblemsManager(const ProblemsManager& other) : ProblemsManager()
{
    // One that is just being removed would stay for ever: it is not in a snapshot.
    for (Problem& problem : other.Snapshot()) {
        blockingCount_ += problem.severity == VcProblemSeverity_Blocking ? 1 : 0;
        problems_.Append(std::move(problem));
    }
}

ProblemsManager::ProblemsManager(ProblemsManager&& other) noexcept(false) : ProblemsManager()
{
    const Vx::Locker locker(*other.lock_);
    problems_.Swap(other.problems_);
    std::swap(blockingCount_, other.blockingCount_);
}

ProblemsManager::~ProblemsManager() = default;

ProblemIterator ProblemsManager::AddFormatted(VcProblemSeverity severity, const std::string& source, const char* format,
                                              Nucleo::FormatArgs args)
{
    constexpr std::string_view function = "VxCommon::ProblemsManager::Add";
    char stripped[MessageCapacity];
    char msg[MessageCapacity];
    std::size_t length = 0;
    if (format != nullptr && (!Vx::Logging::StripPositionalParameters(format, stripped, sizeof stripped) ||
                              Nucleo::PrintTo(msg, sizeof msg, &length, stripped, args) != OK)) {
        Vx::Logging::Debug(Vx::Logging::Level::Error, At(79, function),
                           "Message is too long or could not be formatted: %s", format);
        VX_THROW_AT(At(80, function), ERROR_PARAMETER);
    }
    try {
        return AddImpl({msg, length}, source, severity);
    } catch (const std::bad_alloc&) {
        VX_THROW_AT(VX_HERE_AS(function), ERROR_MEMORY);
    }
}

ProblemIterator ProblemsManager::AddImpl(std::string msg, const std::string& source, VcProblemSeverity severity)
{
    Iterator reported;
    {
        const Vx::Locker locker(*lock_);
        reported = problems_.Find(msg, source);
        if (!reported) {
            reported = Append({std::move(msg), source, severity, 1});
        } else if (++problems_.RefCount(reported) > 1) {
            return reported;
        }
    }
    try {
        OnUpdated();
    } catch (...) {
        // Nobody gets the iterator, so nobody could withdraw the report.
        const Vx::Locker locker(*lock_);
        if (IsReported(reported)) {
            --problems_.RefCount(reported);
            DropUnreported(reported);
        }
        throw;
    }
    return reported;
}

ProblemIterator ProblemsManager::Append(Problem problem)
{
    Iterator added = problems_.Append(std::move(problem));
    // Without arguments the message is no format: a "%" in it comes out as it is.
    constexpr std::string_view function = "VxCommon::ProblemsManager::AddImpl";
    if (added->severity == VcProblemSeverity_Potential) {
        Vx::Logging::Debug(Vx::Logging::Level::Warning, At(33, function), added->msg);
    } else if (added->severity == VcProblemSeverity_Blocking) {
        Vx::Logging::Debug(Vx::Logging::Level::Error, At(37, function), added->msg);
        ++blockingCount_;
    }
    return added;
}

void ProblemsManager::Remove(const Iterator& problem)
{
    if (!TryRemove(problem)) {
        VX_THROW_AT(At(97, "VxCommon::ProblemsManager::Remove"), ERROR_PARAMETER);
    }
}

bool ProblemsManager::TryRemove(const Iterator& problem)
{
    {
        const Vx::Locker locker(*lock_);
        if (!IsReported(problem)) {
            return false;
        }
        if (--problems_.RefCount(problem) > 0) {
            return true;
        }
    }
    try {
        OnUpdated();
    } catch (...) {
        const Vx::Locker locker(*lock_);
        DropUnreported(problem);
        throw;
    }
    const Vx::Locker locker(*lock_);
    DropUnreported(problem);
    return true;
}

bool ProblemsManager::IsReported(const Iterator& problem) const
{
    return problems_.Holds(problem) && problem->refCount > 0;
}

void ProblemsManager::DropUnreported(const Iterator& problem)
{
    if (problems_.Holds(problem) && problem->refCount == 0) {
        blockingCount_ -= problem->severity == VcProblemSeverity_Blocking ? 1 : 0;
        problems_.Remove(problem);
    }
}

bool ProblemsManager::Retain(const Iterator& problem)
{
    const Vx::Locker locker(*lock_);
    if (!IsReported(problem)) {
        return false;
    }
    ++problems_.RefCount(problem);
    return true;
}

void ProblemsManager::Clear()
{
    {
        const Vx::Locker locker(*lock_);
        problems_.Clear();
        blockingCount_ = 0;
    }
    OnUpdated();
}

void ProblemsManager::OnUpdated()
{
    {
        const Vx::Locker locker(*lock_);
        if (updateDepth_ > 0) {
            ++pendingUpdates_;
            return;
        }
    }
    updatedEvent_.Raise();
}

void ProblemsManager::BeginUpdate()
{
    const Vx::Locker locker(*lock_);
    ++updateDepth_;
}

void ProblemsManager::EndUpdate()
{
    {
        const Vx::Locker locker(*lock_);
        if (updateDepth_ == 0) {
            VX_THROW_AT(At(173, "VxCommon::ProblemsManager::EndUpdate"), ERROR_STATE);
        }
        if (--updateDepth_ > 0 || pendingUpdates_ == 0) {
            return;
        }
        pendingUpdates_ = 0;
    }
    OnUpdated();
}

std::uint64_t ProblemsManager::Count() const
{
    const Vx::Locker locker(*lock_);
    return problems_.Count();
}

std::uint32_t ProblemsManager::BlockingCount() const
{
    const Vx::Locker locker(*lock_);
    return blockingCount_;
}

ProblemIterator ProblemsManager::ProblemExists(const Problem& problem) const
{
    const Vx::Locker locker(*lock_);
    return problems_.Find(problem.msg, problem.source);
}

ProblemsEnumerator ProblemsManager::Enumerate() const
{
    const Vx::Locker locker(*lock_);
    return ProblemsEnumerator(problems_);
}

std::vector<Problem> ProblemsManager::Snapshot() const
{
    const Vx::Locker locker(*lock_);
    std::vector<Problem> problems;
    problems.reserve(problems_.Count());
    for (const Problem& problem : ProblemsEnumerator(problems_)) {
        if (problem.refCount > 0) {
            problems.push_back(problem);
        }
    }
    return problems;
}

}  // namespace VxCommon
