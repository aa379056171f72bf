#include <VxApi/Logging.h>
#include <VxCommon/Persistence/PersistControllerStub.h>

namespace VxCommon
{

void PersistControllerStub::UnregisterHandler(void* handle)
{
    if (!Remove(handle)) {
        Vx_Debug_Log(Warning, "An unknown persistence handler was to be unregistered; ignored.");
    }
}

void PersistControllerStub::NotifyChange(IPersistHandler& handler, PersistDomain domain)
{
    if (Handler* record = Find(handler)) {
        SetDomainChanged(*record, domain, true);
    }
    domainChangedEvent_.Raise(handler, domain);
}

void PersistControllerStub::NotifyLoad(IPersistHandler& handler, PersistDomain domain)
{
    if (Handler* record = Find(handler)) {
        SetDomainLoad(*record, domain, true);
    }
    domainLoadEvent_.Raise(handler, domain);
}

}  // namespace VxCommon
