#pragma once
// A reduced controller for hosts without a persist manager.

#include <VxApi/Event.h>
#include <VxCommon/Persistence/IPersistController.h>
#include <VxCommon/Persistence/PersistHandlerList.h>

namespace VxCommon
{

/// Takes registrations and notifications, flags them and raises an event, but never drives a handler. Not locked.
class VXCOMMON_API PersistControllerStub final : public IPersistController, public PersistHandlerList
{
public:
    using NotifyEvent = Vx::Event<IPersistHandler&, PersistDomain>;

    void* RegisterHandler(IPersistHandler& handler, const std::string& name) override { return Add(handler, name); }
    void UnregisterHandler(void* handle) override;
    void NotifyChange(IPersistHandler& handler, PersistDomain domain) override;
    void NotifyLoad(IPersistHandler& handler, PersistDomain domain) override;

    /// Raised by NotifyChange after the handler was flagged.
    NotifyEvent& DomainChangedEvent() noexcept { return domainChangedEvent_; }

    /// Raised by NotifyLoad after the handler was flagged.
    NotifyEvent& DomainLoadEvent() noexcept { return domainLoadEvent_; }

private:
    NotifyEvent domainChangedEvent_;
    NotifyEvent domainLoadEvent_;
};

}  // namespace VxCommon
