#pragma once
// Maps request paths to resources, carries requests out, and gathers change notices.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include <VxRest/Resource.h>

namespace VxRest
{

/// What is asked of a resource.
enum class Operation
{
    Document,
    UpdateDocument,
    Create,
    Delete,
    Invoke
};

/// All functions may be called from any thread; no lock is held while a resource is called.
///
/// A pattern serves its own paths and, when its last segment is a key, the parent path as well ("/jobs/files" of
/// "/jobs/files/:jobFile"), then without that key; a pattern registered for exactly that path goes first. A literal
/// segment goes before a key. Request paths are percent-decoded segment by segment; empty segments are left out.
class ResourceRouter
{
public:
    ResourceRouter();

    /// Ends the subscriptions. Resources that are still registered are not touched any more.
    ~ResourceRouter();
    ResourceRouter(const ResourceRouter&) = delete;
    ResourceRouter& operator=(const ResourceRouter&) = delete;

    /// Registers `resource`, which must live until Deregister has returned, and subscribes to its notices. Throws
    /// Vx::Exception: ERROR_ALREADY_EXISTS when the pattern is taken (the names of keys make no difference),
    /// ERROR_PARAMETER when it does not begin with "/" or has a key without a name or the same key twice.
    void Register(const std::string& pattern, ResourceBase& resource);

    /// Removes the pattern and, when `recursive`, everything beneath it; waits for calls into the removed resources
    /// that are still running, but for the caller's own when called from inside a resource. Unknown patterns are
    /// ignored. A request that still waits for its turn in a serialised sub-tree fails with ERROR_NOT_FOUND. The caller
    /// holds no lock that those calls need, and two resources do not deregister each other from inside their calls.
    void Deregister(const std::string& pattern, bool recursive);

    /// From now on requests at and beneath `root`, a path without keys, run one at a time. Such requests check first
    /// and act then, and nothing else may act in between. A resource may make requests of the same sub-tree from inside
    /// its own call. Ends when `root` is deregistered.
    void Serialize(const std::string& root);

    /// The registered patterns, in byte order.
    std::vector<std::string> Patterns() const;

    /// A path taken apart and looked up. Holds the resource in place: Deregister waits for its destruction, so it is
    /// destroyed soon and never kept by a thread that deregisters.
    class Match;

    /// Looks `path` up (without query). Throws Vx::Exception: ERROR_NOT_FOUND when nothing serves it, ERROR_PARAMETER
    /// when its percent-encoding is broken.
    Match Find(std::string_view path) const;

    /// Raised for every notice of every registered resource, on the thread that raised it. Listeners must not throw,
    /// block or call back into resources.
    ResourceBase::NotificationEventType& NotificationEvent() noexcept;

private:
    struct State;
    std::shared_ptr<State> state_;
};

class ResourceRouter::Match
{
public:
    Match(Match&&) noexcept;
    Match& operator=(Match&&) noexcept;
    ~Match();

    ResourceBase& Resource() const;

    /// The decoded keys of the path.
    const RequestInfo::KeyMap& Keys() const;

    /// Whether this path takes `operation`: documents for GET, those that can be changed for PUT, Create on a
    /// collection's own path, Delete on a member's, Invoke on commands.
    bool Allows(Operation operation) const;

    // The operations. Each takes the sub-tree's guard where one is set, and throws Vx::Exception with ERROR_UNSUPPORTED
    // when the path does not take it, ERROR_NOT_FOUND when it was deregistered meanwhile. What the resource throws
    // passes through.
    nlohmann::json Document(const RequestInfo& request, ResponseInfo& response) const;
    void UpdateDocument(const RequestInfo& request, const nlohmann::json& document) const;
    CreateResult Create(const RequestInfo& request, const nlohmann::json& document) const;
    void Delete(const RequestInfo& request) const;
    nlohmann::json Invoke(const RequestInfo& request, const nlohmann::json& args) const;

    /// Document for a thread that must not wait: false, and nothing is called, when another request holds the guard.
    bool TryDocument(const RequestInfo& request, ResponseInfo& response, nlohmann::json& document) const;

private:
    friend class ResourceRouter;
    struct Call;
    class Running;
    explicit Match(std::unique_ptr<Call> call);
    std::unique_ptr<Call> call_;
};

}  // namespace VxRest
