// The logger's life, its filters and cycles, and its way out.

#include <VxCommon/Logger/VcLogger.h>

#include <atomic>

#include <VxRest/HttpServer.h>

using namespace Nucleo::Statuses;
using Nucleo::Allocator;
using Nucleo::Status;

namespace
{

std::atomic<VcLogger*> instance{nullptr};

/// Takes the private log's page back from the HTTP server. What the host shows instead stays.
Status HidePage()
{
    VrPrivateLogFx shown = nullptr;
    Status status = VrHttpServer_SetPrivateLogHandler(nullptr, &shown);
    if (status == OK && shown != nullptr && shown != &VcLogger_RenderPrivate) {
        status = VrHttpServer_SetPrivateLogHandler(shown, nullptr);
    }
    return status;
}

Status VcLogger_VRelease(Nucleo::Object* object)
{
    auto& logger = static_cast<VcLogger&>(*object);
    if (const Status status = HidePage(); status != OK) {
        return status;
    }
    instance = nullptr;  // First: what cannot be released must not be logged to either.
    for (VcLog** log : {&logger.privateLog, &logger.publicLog}) {
        if (const Status status = Nucleo::Destroy(*log); status != OK) {
            return status;
        }
        *log = nullptr;
    }
    return OK;  // The sets and the lock go with the object.
}

Status Init(VcLogger& logger, std::uint32_t sourceId, std::uint64_t timeOrigin, Allocator& allocator)
{
    logger.sourceId = sourceId;
    logger.timeOrigin = timeOrigin;
    Status status = VcLog_Construct(&logger.privateLog, VcLogger::LogCapacity, &allocator);
    if (status == OK) {
        status = VcLog_Construct(&logger.publicLog, VcLogger::LogCapacity, &allocator);
    }
    if (status == OK) {
        status = VcLog_InitHealthProbe(logger.publicLog, 0, &allocator);
    }
    return status == OK ? VrHttpServer_SetPrivateLogHandler(&VcLogger_RenderPrivate, nullptr) : status;
}

Status Render(VcLog* VcLogger::*log, Nucleo::Stream* stream)
{
    VcLogger* logger = instance;
    if (logger == nullptr) {
        return OK;
    }
    const Vx::Locker locker(logger->lock);
    return VcLog_Render(logger->*log, stream);
}

}  // namespace

const Nucleo::Type& VcLogger::StaticType() noexcept
{
    static const Nucleo::Type type{"VcLogger", &Nucleo::Object::StaticType(), sizeof(VcLogger), &VcLogger_VRelease};
    return type;
}

Status VcLogger_Construct(VcLogger** logger, std::uint32_t sourceId, std::uint64_t timeOrigin, Allocator* allocator)
{
    *logger = nullptr;
    if (instance != nullptr) {
        return ERROR_ALREADY_EXISTS;
    }
    Allocator& source = allocator != nullptr ? *allocator : Nucleo::DefaultAllocator();
    Nucleo::Handle<VcLogger> made;
    Status status = Nucleo::Construct(made.Receive(), &source, source);
    if (status == OK) {
        status = Init(*made, sourceId, timeOrigin, source);
    }
    if (status == OK) {
        *logger = made.Detach();
    }
    instance = *logger;
    return status;
}

VcLogger* VcLogger_Instance()
{
    return instance;
}

VcLog* VcLogger_PrivateLog()
{
    return instance.load()->privateLog;
}

VcLog* VcLogger_PublicLog()
{
    return instance.load()->publicLog;
}

std::uint32_t VcLogger_PublicMessageFilterEnabled()
{
    return instance.load()->publicFilterEnabled;
}

Status VcLogger_Lock() VX_NO_THREAD_SAFETY_ANALYSIS
{
    instance.load()->lock.Enter();
    return OK;
}

Status VcLogger_Unlock() VX_NO_THREAD_SAFETY_ANALYSIS
{
    instance.load()->lock.Leave();
    return OK;
}

Vx::Locker VcLogger_GetLock() VX_NO_THREAD_SAFETY_ANALYSIS
{
    return Vx::Locker(instance.load()->lock);
}

Status VcLogger_EnablePrivateLogging(std::uint32_t enable)
{
    VcLogger& logger = *instance;
    const Vx::Locker locker(logger.lock);
    logger.privateLoggingEnabled = enable;
    return OK;
}

Status VcLogger_EnablePublicMessageFilter(std::uint32_t enable)
{
    VcLogger& logger = *instance;
    const Vx::Locker locker(logger.lock);
    logger.publicFilterEnabled = enable;
    return OK;
}

std::uint32_t VcLogger_IsMessageFiltered(std::uint32_t publicFilter, const char* text)
{
    const VcLogger& logger = *instance;
    if (logger.inCycle != 0 && (logger.cyclePrevious.Contains(text) || logger.cycleCurrent.Contains(text))) {
        return 1;
    }
    return publicFilter != 0 && logger.messageFilter.Contains(text) ? 1 : 0;
}

Status VcLogger_AddToMessageFilter(VcLogger* logger, std::uint32_t publicFilter, const char* text)
{
    if (logger->inCycle != 0) {
        return VcLogger_AddToCycleFilter(logger, text);
    }
    return publicFilter != 0 ? logger->messageFilter.Add(text) : OK;
}

Status VcLogger_AddToCycleFilter(VcLogger* logger, const char* text)
{
    return logger->cycleCurrent.Add(text);
}

Status VcLogger_ClearMessageFilters()
{
    VcLogger& logger = *instance;
    logger.messageFilter.Clear();
    logger.cycleCurrent.Clear();
    logger.cyclePrevious.Clear();
    return OK;
}

std::size_t VcLogger_FilterCount()
{
    const VcLogger& logger = *instance;
    return logger.messageFilter.Count() + logger.cycleCurrent.Count() + logger.cyclePrevious.Count();
}

Status VcLogger_ClearPublicLogAndFilter()
{
    VcLogger* logger = instance;
    if (logger == nullptr) {
        return OK;
    }
    const Vx::Locker locker(logger->lock);
    const Status status = VcLog_Clear(logger->publicLog);
    return status == OK ? VcLogger_ClearMessageFilters() : status;
}

Status VcLogger_BeginLogCycle()
{
    VcLogger& logger = *instance;
    const Vx::Locker locker(logger.lock);
    logger.inCycle = 1;
    return OK;
}

Status VcLogger_EndLogCycle()
{
    VcLogger& logger = *instance;
    const Vx::Locker locker(logger.lock);
    if (logger.inCycle != 0) {
        logger.cycleCurrent.Swap(logger.cyclePrevious);
        logger.cycleCurrent.Clear();
        logger.inCycle = 0;
    }
    return OK;
}

Status VcLogger_RenderPrivate(Nucleo::Stream* stream)
{
    return Render(&VcLogger::privateLog, stream);
}

Status VcLogger_RenderPublic(Nucleo::Stream* stream)
{
    return Render(&VcLogger::publicLog, stream);
}

Status xxVcLogger_Register(Nucleo::Assembly* assembly)
{
    const Nucleo::TypeOverride overrides[] = {{"VRelease", &VcLogger_VRelease}};
    return assembly->AddClass(VcLogger::StaticType(), overrides);
}
