#include <atomic>
#include <condition_variable>
#include <map>
#include <thread>
#include <unordered_map>

#include <Nucleo/Lock.h>
#include <VxApi/TimeService.h>

namespace Vx
{
namespace
{

// The process's own service: one thread, started with the first timer, joined when the process ends.
class ThreadTimeService final : public TimeService
{
public:
    ~ThreadTimeService() override
    {
        {
            const Nucleo::MutexGuard guard(mutex_);
            stopping_ = true;
            changed_.notify_all();
        }
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    TimePoint Now() const override { return std::chrono::steady_clock::now(); }

    Ticket Schedule(TimePoint deadline, std::function<void()> callback) override
    {
        const Nucleo::MutexGuard guard(mutex_);
        if (!thread_.joinable()) {
            thread_ = std::thread([this] { Run(); });
        }
        const Ticket ticket = ++lastTicket_;
        queue_.emplace(Key{deadline, ticket}, std::move(callback));
        deadlines_.emplace(ticket, deadline);
        changed_.notify_all();
        return ticket;
    }

    void Cancel(Ticket ticket) override
    {
        std::function<void()> dropped;  // Destroyed after the lock is left: its captures may do anything.
        const Nucleo::MutexGuard guard(mutex_);
        const auto found = deadlines_.find(ticket);
        if (found == deadlines_.end()) {
            return;
        }
        const auto entry = queue_.find(Key{found->second, ticket});
        dropped = std::move(entry->second);
        queue_.erase(entry);
        deadlines_.erase(found);
    }

    void Wait(Ticket ticket) override
    {
        mutex_.lock();
        while (running_ == ticket && std::this_thread::get_id() != thread_.get_id()) {
            changed_.wait(mutex_);
        }
        mutex_.unlock();
    }

private:
    using Key = std::pair<TimePoint, Ticket>;

    void Run()
    {
        mutex_.lock();
        while (!stopping_) {
            if (queue_.empty()) {
                changed_.wait(mutex_);
                continue;
            }
            const TimePoint deadline = queue_.begin()->first.first;
            if (Now() < deadline) {
                changed_.wait_until(mutex_, deadline);
                continue;
            }
            auto entry = queue_.extract(queue_.begin());
            running_ = entry.key().second;
            deadlines_.erase(running_);
            mutex_.unlock();
            entry.mapped()();
            entry = {};
            mutex_.lock();
            running_ = 0;
            changed_.notify_all();
        }
        mutex_.unlock();
    }

    Nucleo::Mutex mutex_;
    std::condition_variable_any changed_;
    std::map<Key, std::function<void()>> queue_ VX_GUARDED_BY(mutex_);
    std::unordered_map<Ticket, TimePoint> deadlines_ VX_GUARDED_BY(mutex_);
    Ticket lastTicket_ VX_GUARDED_BY(mutex_) = 0;
    Ticket running_ VX_GUARDED_BY(mutex_) = 0;
    bool stopping_ VX_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

std::atomic<TimeService*> replacement{nullptr};

}  // namespace

void TimeService::Sleep(std::chrono::microseconds duration)
{
    std::this_thread::sleep_for(duration);
}

TimeService& TimeService::Current()
{
    if (TimeService* replaced = replacement.load(std::memory_order_acquire)) {
        return *replaced;
    }
    static ThreadTimeService service;
    return service;
}

TimeService* TimeService::Replace(TimeService* service)
{
    return replacement.exchange(service, std::memory_order_acq_rel);
}

}  // namespace Vx
