#pragma once

#include <string>

#include <VxCommon/Persistence/IPersistStore.h>
#include <VxCommon/Persistence/PersistDomain.h>

namespace VxCommon
{

/// A participant in persistence: a component with state to keep. Init, Load and Save may throw: the failure is logged
/// and collected, and the other handlers are served all the same. They run on the thread that started the pass, under
/// the persist manager's lock; a handler must not hold a lock of its own while it notifies the controller.
class IPersistHandler
{
public:
    virtual ~IPersistHandler() = default;

    /// The text that stands for the handler in logs and error messages.
    virtual std::string DisplayName() const = 0;

    /// Resets the handler's state of `domain` to its defaults and writes them into `store`. `store` is the handler's
    /// own view when it is registered with a name, else the whole store of the domain.
    virtual void Init(PersistDomain domain, IPersistStore& store) = 0;

    /// Reads the handler's state of `domain` from `store`.
    virtual void Load(PersistDomain domain, IPersistStore& store) = 0;

    /// Writes the handler's state of `domain` into `store`.
    virtual void Save(PersistDomain domain, IPersistStore& store) = 0;
};

}  // namespace VxCommon
