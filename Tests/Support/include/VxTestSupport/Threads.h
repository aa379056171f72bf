#pragma once

#include <thread>
#include <vector>

namespace VxTestSupport
{

/// Calls `work` with 0 to `count` - 1, each on a thread of its own, and waits for all.
template <class Work>
void OnThreads(int count, const Work& work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&work, i] { work(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace VxTestSupport
