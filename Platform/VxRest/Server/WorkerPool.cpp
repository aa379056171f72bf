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

void WorkerPool::Close()
{
    std::deque<std::shared_ptr<Work>> waiting;
    {
        const Nucleo::MutexGuard guard(mutex_);
        closed_ = true;
        waiting.swap(queue_);
    }
    wake_.notify_all();
    for (const auto& work : waiting) {
        work->Refuse();
    }
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
            if (queue_.empty()) {
                return;
            }
            work = std::move(queue_.front());
            queue_.pop_front();
        }
        work->Run();
    }
}

}  // namespace VxRest::Http
