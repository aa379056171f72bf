#include "SettingResource.h"

#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>

namespace VxHost
{

SettingResource::SettingResource(Setting& setting)
    : setting_(setting), path_("/settings/" + setting.Name()), changed_(setting.ChangedEvent().Subscribe([this] {
          NotificationEvent().Raise(VxRest::EventType::Updated, path_);
      }))
{}

SettingResource::~SettingResource()
{
    // The event is raised under the lock: no other thread is inside the listener afterwards.
    const Vx::Locker locker(setting_.ManagerLock());
    changed_.Reset();
}

nlohmann::json SettingResource::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& /*response*/)
{
    nlohmann::json document = setting_.Document();
    if (request.IsSchemaRequested()) {
        document["_schema"] = setting_.Schema();
    }
    return document;
}

void SettingResource::UpdateDocument(const VxRest::RequestInfo& /*request*/, const nlohmann::json& document)
{
    try {
        setting_.Update(document);
    } catch (const Vx::Exception& exception) {
        if (exception.Status() == Nucleo::ERROR_PARAMETER) {
            Vx::Logging::Public(Vx::Logging::Level::Warning, "Settings", "A change of %s was refused: %s",
                                setting_.Name(), exception.what());
        }
        throw;
    }
}

}  // namespace VxHost
