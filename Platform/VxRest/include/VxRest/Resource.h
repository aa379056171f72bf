#pragma once
// Resource bases and interfaces: what can be registered on a router.
//
// A resource is called on the server's threads, several at once unless the router serialises its sub-tree. It reports
// failures by throwing Vx::Exception (the status decides the HTTP answer) or an error of the JSON library (400).

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include <VxApi/Event.h>
#include <VxRest/EventType.h>
#include <VxRest/Request.h>

namespace VxRest
{

/// Answers GET, PUT and PATCH.
class IDocumentResource
{
public:
    virtual ~IDocumentResource() = default;

    /// The document as it is now, or null and a text of another media type, see ResponseInfo::SetText.
    virtual nlohmann::json Document(const RequestInfo& request, ResponseInfo& response) = 0;

    /// Whether UpdateDocument may take anything on a path with these keys; where it is false, PUT and PATCH are neither
    /// offered nor passed on. Must not block.
    virtual bool TakesUpdates(const RequestInfo::KeyMap& keys) const = 0;

    /// Takes a new document. Throws when it is refused; nothing has changed then.
    virtual void UpdateDocument(const RequestInfo& request, const nlohmann::json& document) = 0;
};

/// Answers POST on a collection and DELETE of a member.
class IParentResource
{
public:
    virtual ~IParentResource() = default;
    virtual CreateResult Create(const RequestInfo& request, const nlohmann::json& document) = 0;
    virtual void Delete(const RequestInfo& request) = 0;
};

/// Answers POST on a command.
class ICallableResource
{
public:
    virtual ~ICallableResource() = default;

    /// Carries the command out; `args` is the request's body, null when there was none.
    virtual nlohmann::json Invoke(const RequestInfo& request, const nlohmann::json& args) = 0;
};

/// Base of every resource: which interfaces it offers, and its change notices.
class ResourceBase
{
public:
    using NotificationEventType = Vx::Event<EventType, const std::string&>;

    ResourceBase() = default;
    virtual ~ResourceBase() = default;

    /// A copied or moved resource starts with nobody subscribed to its notices.
    ResourceBase(const ResourceBase&) {}
    ResourceBase& operator=(const ResourceBase&) { return *this; }

    /// The interfaces that this resource offers; null for those it does not.
    virtual IDocumentResource* DocumentProvider() { return nullptr; }
    virtual IParentResource* ParentProvider() { return nullptr; }
    virtual ICallableResource* CallableProvider() { return nullptr; }

    /// True when GET of this resource neither blocks nor takes longer than some ten microseconds, so that it may be
    /// answered on the thread that serves the sockets.
    virtual bool IsImmediate() const { return false; }

    /// Whether the field of this name is a text. Beside a body of plain bytes the fields come from the query: a text as
    /// it was written ("007", "1e3", "true"), any other by its look. Must not block.
    virtual bool IsTextField(std::string_view /*name*/) const { return false; }

    /// Raised with an event type and a path when something changed. Listeners must not throw.
    NotificationEventType& NotificationEvent() noexcept { return notificationEvent_; }

private:
    NotificationEventType notificationEvent_;
};

/// Base of resources with a document.
class DocumentResourceBase : public ResourceBase, public IDocumentResource
{
public:
    IDocumentResource* DocumentProvider() override { return this; }

    // Can only be read. Resources that can be changed override both.

    bool TakesUpdates(const RequestInfo::KeyMap& /*keys*/) const override { return false; }

    /// Refuses: ERROR_UNSUPPORTED.
    void UpdateDocument(const RequestInfo& request, const nlohmann::json& document) override;
};

/// Base of commands.
class CommandResourceBase : public ResourceBase, public ICallableResource
{
public:
    ICallableResource* CallableProvider() override { return this; }
};

}  // namespace VxRest
