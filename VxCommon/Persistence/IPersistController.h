#pragma once

#include <string>

#include <VxCommon/Persistence/IPersistHandler.h>

namespace VxCommon
{

/// What handlers see of persistence.
class IPersistController
{
public:
    virtual ~IPersistController() = default;

    /// Registers `handler` under `name` and returns a handle that names this registration. With a name, which is the
    /// scope of its views too, a handler is saved and loaded on its own notifications, and its Init is never called;
    /// with an empty name it works on whole domain stores and is driven by the domain-wide operations. Names need not
    /// be unique. `handler` must stay alive until it is unregistered.
    virtual void* RegisterHandler(IPersistHandler& handler, const std::string& name) = 0;

    /// Ends a registration; the handler is not called any more. An unknown handle is ignored and logged.
    virtual void UnregisterHandler(void* handle) = 0;

    /// Says that the handler's state of `domain` has changed and needs saving.
    virtual void NotifyChange(IPersistHandler& handler, PersistDomain domain) = 0;

    /// Asks for the handler to be loaded again from `domain`: from its own view, or without a name from the domain's
    /// whole store. A handler that is not registered is not loaded.
    virtual void NotifyLoad(IPersistHandler& handler, PersistDomain domain) = 0;
};

}  // namespace VxCommon
