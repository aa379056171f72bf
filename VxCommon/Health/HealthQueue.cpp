#include <VxCommon/Health/HealthQueue.h>

#include <VxApi/Exception.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon
{

HealthQueue::HealthQueue()
{
    const Nucleo::MutexGuard guard(mutex_);
    VX_CHECK(messages_.Init(MaxMessages, Nucleo::DefaultAllocator()));
}

bool HealthQueue::Push(TesselLib::HealthMessage& message)
{
    const std::size_t records = message.Content().ItemCount();
    const Nucleo::MutexGuard guard(mutex_);
    if (records > MaxRecords - records_ || messages_.Append(&message) != OK) {
        ++dropped_;
        return false;
    }
    message.Share();
    records_ += records;
    return true;
}

Vx::Object<TesselLib::HealthMessage*> HealthQueue::Pop()
{
    const Nucleo::MutexGuard guard(mutex_);
    if (messages_.Count() == 0) {
        return {};
    }
    Vx::Object<TesselLib::HealthMessage*> first(messages_.TakeFirst());
    records_ -= first.Get()->Content().ItemCount();
    return first;
}

std::size_t HealthQueue::Clear()
{
    std::size_t count = 0;
    while (Pop()) {
        ++count;
    }
    const Nucleo::MutexGuard guard(mutex_);
    dropped_ += count;
    return count;
}

std::size_t HealthQueue::Count() const
{
    const Nucleo::MutexGuard guard(mutex_);
    return messages_.Count();
}

std::uint64_t HealthQueue::Dropped() const
{
    const Nucleo::MutexGuard guard(mutex_);
    return dropped_;
}

}  // namespace VxCommon
