#include "HealthStreams.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <utility>

#include <Nucleo/Clock.h>
#include <Nucleo/Log.h>
#include <TesselLib/VirtualSystem.h>

using namespace Nucleo::Statuses;

namespace TesselLib
{
namespace
{

void LogWarning(const char* format, std::uint64_t number)
{
    std::array<char, 128> text;
    std::snprintf(text.data(), text.size(), format, number);
    Nucleo::Log_Write({Nucleo::LogOption::Warning | Nucleo::LogOption::Debug, Nucleo::UpTime_Now(),
                       Nucleo::DateTime_Now(), "TesselLib/Health", text.data()});
}

}  // namespace

HealthStreams::~HealthStreams()
{
    std::thread ended;
    {
        const Nucleo::MutexGuard guard(mutex_);
        stopping_ = true;
        ended = std::move(thread_);
        DropAll();
        changed_.notify_all();
    }
    if (ended.joinable()) {
        ended.join();
    }
}

Nucleo::Status HealthStreams::SetHandler(HealthHandlerFx handler, void* receiver)
{
    const Nucleo::MutexGuard guard(mutex_);
    if (handler == nullptr) {
        handler_ = nullptr;
        DropAll();
        while (delivering_ && std::this_thread::get_id() != thread_.get_id()) {
            changed_.wait(mutex_);
        }
        return OK;
    }
    if (handler_ != nullptr) {
        return ERROR_ALREADY_EXISTS;
    }
    const Nucleo::Status status = StartThread();
    if (status == OK) {
        handler_ = handler;
        receiver_ = receiver;
    }
    return status;
}

void HealthStreams::OpenSystem()
{
    const Nucleo::MutexGuard guard(mutex_);
    systemOpen_ = true;
}

Nucleo::Status HealthStreams::OpenNode(std::uint32_t id)
{
    const Nucleo::MutexGuard guard(mutex_);
    try {
        openNodes_.insert(id);
        return OK;
    } catch (const std::exception&) {
        return ERROR_MEMORY;
    }
}

void HealthStreams::CloseAll()
{
    const Nucleo::MutexGuard guard(mutex_);
    systemOpen_ = false;
    openNodes_.clear();
    DropAll();
}

Nucleo::Status HealthStreams::Inject(HealthMessage& message)
{
    {
        const Nucleo::MutexGuard guard(mutex_);
        if (!IsHeard(message)) {
            return ERROR_STATE;
        }
        if (queue_.Append(&message) == OK) {
            message.Share();
            changed_.notify_all();
            return OK;
        }
        if (dropped_++ != 0) {
            return ERROR_CAPACITY;
        }
    }
    LogWarning("The queue of health messages is full: they are dropped, the first from node %" PRIu64 ".",
               message.SourceNode());
    return ERROR_CAPACITY;
}

Nucleo::Status HealthStreams::Flush(std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    const Nucleo::MutexGuard guard(mutex_);
    while (queue_.Count() != 0 || delivering_) {
        if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) {
            return queue_.Count() != 0 || delivering_ ? ERROR_BUSY : OK;
        }
    }
    return OK;
}

void HealthStreams::Run()
{
    mutex_.lock();
    while (!stopping_) {
        if (queue_.Count() == 0) {
            changed_.wait(mutex_);
        } else {
            DeliverFirst();
        }
    }
    mutex_.unlock();
}

// Leaves the lock while the handler runs. There is a message.
void HealthStreams::DeliverFirst()
{
    const Nucleo::Handle<HealthMessage> message(queue_.TakeFirst());
    const HealthHandlerFx handler = handler_;
    void* const receiver = receiver_;
    const std::uint64_t dropped = std::exchange(dropped_, 0);
    delivering_ = true;
    mutex_.unlock();
    if (dropped != 0) {
        LogWarning("%" PRIu64 " health messages were dropped.", dropped);
    }
    handler(receiver, *message);
    mutex_.lock();
    delivering_ = false;
    changed_.notify_all();
}

bool HealthStreams::IsHeard(const HealthMessage& message) const
{
    return handler_ != nullptr && (systemOpen_ || openNodes_.count(message.SourceNode()) != 0);
}

Nucleo::Status HealthStreams::StartThread()
{
    if (thread_.joinable()) {
        return OK;
    }
    try {
        if (const Nucleo::Status status = queue_.Init(VirtualHealthQueue, Nucleo::DefaultAllocator()); status != OK) {
            return status;
        }
        thread_ = std::thread([this] { Run(); });
        return OK;
    } catch (const std::exception&) {
        queue_.Release();
        return ERROR_MEMORY;
    }
}

void HealthStreams::DropAll()
{
    while (queue_.Count() != 0) {
        Nucleo::Destroy(queue_.TakeFirst());
    }
    changed_.notify_all();
}

}  // namespace TesselLib
