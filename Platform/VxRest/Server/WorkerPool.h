#pragma once
// The threads that carry resource calls out, behind a bounded queue.

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <thread>
#include <vector>

#include <Nucleo/Lock.h>

namespace VxRest::Http
{

/// One piece of work: either Run or Refuse is called, once.
class Work
{
public:
    virtual ~Work() = default;

    /// Called on a worker. Must not throw.
    virtual void Run() noexcept = 0;

    /// Called by Close for work that has not begun. Must not throw.
    virtual void Refuse() noexcept = 0;
};

/// Safe on any thread; not to be destroyed from inside a worker.
class WorkerPool
{
public:
    WorkerPool(std::size_t workers, std::size_t queueLimit);

    /// Closes and joins.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// False when the queue is full or the pool is closed; nothing is kept then.
    bool TryPost(std::shared_ptr<Work> work);

    /// Takes no more work and refuses, on this thread, what has not begun. Does not wait for what is running. Needs no
    /// memory, so that Join always comes to an end. May be called again.
    void Close() noexcept;

    /// Waits for what is running. Called by one thread, after Close.
    void Join();

private:
    void Serve();
    std::shared_ptr<Work> TakeWaiting();

    Nucleo::Mutex mutex_;
    std::condition_variable_any wake_;
    std::deque<std::shared_ptr<Work>> queue_ VX_GUARDED_BY(mutex_);
    bool closed_ VX_GUARDED_BY(mutex_) = false;
    const std::size_t queueLimit_;
    std::vector<std::thread> threads_;
};

}  // namespace VxRest::Http
