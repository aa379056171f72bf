#include <chrono>

#include <Nucleo/Clock.h>

namespace Nucleo
{

std::uint64_t DateTime_Now() noexcept
{
    using namespace std::chrono;
    return static_cast<std::uint64_t>(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
}

std::uint64_t UpTime_Now() noexcept
{
    using namespace std::chrono;
    static const steady_clock::time_point start = steady_clock::now();
    return static_cast<std::uint64_t>(duration_cast<microseconds>(steady_clock::now() - start).count());
}

}  // namespace Nucleo
