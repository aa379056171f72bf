#include "WorkerPool.h"

#include <utility>

namespace VxRest::Http
{

WorkerPool::WorkerPool(std::size_t workers, std::size_t queueLimit) : queueLimit_(queueLimit)
{
    threads_.reserve(workers);
    try {
        for (std::size_t i = 0; i < workers; ++i) {
            threads_.emplace_back([this] { Serve(); });
        }
    } catch (...) {
        Close();
        Join();
        throw;
    }
}

WorkerPool::~WorkerPool()
{
    Close();
    Join();
}

bool WorkerPool::TryPost(std::shared_ptr<Work> work)
{
    {
        const Nucleo::MutexGuard guard(mutex_);
        if (closed_ || queue_.size() >= queueLimit_) {
            return false;
        }
        queue_.push_back(std::move(work));
    }
    wake_.notify_one();
    return true;
}

void WorkerPool::Close() noexcept
{
    {
        const Nucleo::MutexGuard guard(mutex_);
        closed_ = true;
    }
    wake_.notify_all();
    while (const auto work = TakeWaiting()) {
        work->Refuse();
    }
}

std::shared_ptr<Work> WorkerPool::TakeWaiting()
{
    const Nucleo::MutexGuard guard(mutex_);
    if (queue_.empty()) {
        return nullptr;
    }
    std::shared_ptr<Work> work = std::move(queue_.front());
    queue_.pop_front();
    return work;
}

void WorkerPool::Join()
{
    for (std::thread& thread : threads_) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

void WorkerPool::Serve()
{
    for (;;) {
        std::shared_ptr<Work> work;
        {
            const Nucleo::MutexGuard guard(mutex_);
            while (queue_.empty() && !closed_) {
                wake_.wait(mutex_);
            }
            if (closed_) {
                return;
            }
            work = std::move(queue_.front());
            queue_.pop_front();
        }
        work->Run();
    }
}

}  // namespace VxRest::Http
