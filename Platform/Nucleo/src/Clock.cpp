#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>

#include <Nucleo/Clock.h>

namespace Nucleo
{
namespace
{

std::uint64_t Nanoseconds(clockid_t clock) noexcept
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

std::uint64_t MachineDateTime()
{
    return Nanoseconds(CLOCK_REALTIME) / 1'000;
}

std::uint64_t MachineTimer()
{
    return Nanoseconds(CLOCK_MONOTONIC);
}

constexpr ClockSource machine{&MachineDateTime, &MachineTimer, 1, 1'000};

std::atomic<const ClockSource*> current{&machine};

const ClockSource& Source() noexcept
{
    return *current.load(std::memory_order_acquire);
}

std::uint64_t Scale(const ClockSource& clock, std::uint64_t raw) noexcept
{
    if (&clock == &machine) {
        return raw / machine.divider;
    }
    const std::uint64_t result = raw / clock.divider * clock.multiplier;
    const std::uint64_t rest = raw % clock.divider;
    if (rest == 0 || clock.multiplier <= std::numeric_limits<std::uint64_t>::max() / rest) {
        return result + rest * clock.multiplier / clock.divider;
    }
    // rest * multiplier takes more than 64 bits: multiply bit by bit and divide as it grows.
    std::uint64_t quotient = 0;
    std::uint64_t remainder = 0;
    const auto add = [&](std::uint64_t amount) {  // Both are below the divider, and so is the remainder afterwards.
        const bool carry = remainder >= clock.divider - amount;
        remainder = carry ? remainder - (clock.divider - amount) : remainder + amount;
        quotient += carry ? 1 : 0;
    };
    for (int bit = 63; bit >= 0; --bit) {
        quotient *= 2;
        add(remainder);
        if ((clock.multiplier >> bit & 1) != 0) {
            add(rest);
        }
    }
    return result + quotient;
}

#if defined(__x86_64__)
std::uint64_t Ticks() noexcept
{
    return __builtin_ia32_rdtsc();
}

/// Whether the kernel takes the time from the processor's ticks itself: then they run evenly and alike on all cores.
bool AskWhetherTicksCanBeTrusted() noexcept
{
    std::FILE* file = std::fopen("/sys/devices/system/clocksource/clocksource0/current_clocksource", "re");
    if (file == nullptr) {
        return false;
    }
    char name[8] = {};
    const bool read = std::fgets(name, sizeof name, file) != nullptr;
    static_cast<void>(std::fclose(file));
    return read && std::strcmp(name, "tsc\n") == 0;
}
#else
std::uint64_t Ticks() noexcept
{
    return 0;
}

bool AskWhetherTicksCanBeTrusted() noexcept
{
    return false;
}
#endif

/// What a thread knows of its clocks: from where on it may count the processor's ticks instead of asking the kernel,
/// which takes twice as long, and the wall clock as a difference to the timer. In nanoseconds.
struct ClockSample
{
    std::uint64_t taken;       // A count of the timer.
    std::uint64_t difference;  // From it to the wall clock.
    std::uint64_t ticks;       // The processor's at that moment.
    std::uint64_t rate;        // Nanoseconds a tick, times 2^32.
    std::uint64_t span;        // Ticks for which the sample may be counted on from; 0 while the rate is not known.
    std::uint64_t last;        // The count that was answered last: none before it is answered any more.
};

constexpr std::uint64_t tooOld = std::uint64_t{1} << 63;       // For any count: taken in a sample that is none yet.
constexpr std::uint64_t longestUse = 1'000'000;                // Of a sample.
constexpr std::uint64_t longestBase = 4'000'000'000;           // Between two samples that give a rate; below 2^32.
constexpr std::uint64_t slowestTick = std::uint64_t{8} << 32;  // As rate; a slower counter would be too coarse.

/// Learns the rate of the ticks from the old sample to the new one. It is used once two in a row agree: while a machine
/// sleeps, its ticks may go on when its timer does not.
void TakeRate(ClockSample& sample, std::uint64_t now, std::uint64_t ticks) noexcept
{
    const std::uint64_t passed = now - sample.taken;
    const std::uint64_t ticked = ticks - sample.ticks;
    if (passed > longestBase || ticked == 0) {
        return;
    }
    const std::uint64_t rate = (passed << 32) / ticked;
    const std::uint64_t change = rate > sample.rate ? rate - sample.rate : sample.rate - rate;
    const bool agrees = rate != 0 && rate < slowestTick && change <= rate / 1'000;
    sample.span = agrees ? (longestUse << 32) / rate : 0;
    sample.rate = rate;
}

/// Samples the clocks again and answers the timer's count at that moment.
std::uint64_t TakeSample(ClockSample& sample) noexcept
{
    static const bool ticksCanBeTrusted = AskWhetherTicksCanBeTrusted();
    // A thread that is held up between the clocks would be wrong by that until the next sample; it tries again.
    for (int attempt = 0;; ++attempt) {
        const std::uint64_t before = MachineTimer();
        const std::uint64_t wall = Nanoseconds(CLOCK_REALTIME);
        const std::uint64_t ticks = Ticks();
        const std::uint64_t now = MachineTimer();
        const bool atOnce = now - before < 1'000;
        if (atOnce || attempt == 3) {
            sample.span = 0;
            if (ticksCanBeTrusted && atOnce) {
                TakeRate(sample, now, ticks);
            }
            sample.taken = now;
            sample.ticks = ticks;
            sample.difference = wall - now;
            return now;
        }
    }
}

// The two are kept apart from the usual way, which they would make longer by all that they have to save.

[[gnu::noinline]] std::uint64_t TimerWithoutTicks(ClockSample& sample) noexcept
{
    const std::uint64_t now = MachineTimer();
    return now - sample.taken > longestUse ? TakeSample(sample) : now;
}

[[gnu::noinline]] ClockReading ReadReplaced(const ClockSource& clock) noexcept
{
    const std::uint64_t timer = clock.timer();
    return {timer, Scale(clock, timer), clock.dateTime()};
}

constexpr std::uint64_t lastDateTime = 253'402'300'799'999'999;  // 9999-12-31, in its last microsecond.

/// Writes the last `count` decimal digits of `value`.
void PutDigits(char* at, int count, std::uint64_t value) noexcept
{
    while (count-- > 0) {
        at[count] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

}  // namespace

std::uint64_t DateTime_Now() noexcept
{
    return Source().dateTime();
}

Status DateTime_Format(std::uint64_t dateTime, DateTimeStyle style, char* buffer, std::size_t capacity) noexcept
{
    if (capacity != 0) {
        buffer[0] = '\0';
    }
    if (style < DateTimeStyle::Date || style > DateTimeStyle::Iso8601 || dateTime > lastDateTime) {
        return ERROR_PARAMETER;
    }
    char text[] = "yyyy-mm-dd HH:MM:SS.mmmZ";
    constexpr std::size_t timeAt = 11;
    const std::size_t begin = style == DateTimeStyle::Time ? timeAt : 0;
    const std::size_t end = style == DateTimeStyle::Date          ? timeAt - 1
                            : style == DateTimeStyle::Time        ? timeAt + 8
                            : style == DateTimeStyle::DateAndTime ? sizeof text - 2
                                                                  : sizeof text - 1;
    if (end - begin >= capacity) {
        return ERROR_CAPACITY;
    }
    const std::uint64_t seconds = dateTime / 1'000'000;
    const std::uint64_t ofDay = seconds % 86'400;
    const std::chrono::year_month_day date(
        std::chrono::sys_days(std::chrono::days(static_cast<std::int32_t>(seconds / 86'400))));
    PutDigits(text, 4, static_cast<std::uint64_t>(static_cast<int>(date.year())));
    PutDigits(text + 5, 2, static_cast<unsigned>(date.month()));
    PutDigits(text + 8, 2, static_cast<unsigned>(date.day()));
    PutDigits(text + timeAt, 2, ofDay / 3'600);
    PutDigits(text + timeAt + 3, 2, ofDay / 60 % 60);
    PutDigits(text + timeAt + 6, 2, ofDay % 60);
    PutDigits(text + timeAt + 9, 3, dateTime / 1'000 % 1'000);
    if (style == DateTimeStyle::Iso8601) {
        text[timeAt - 1] = 'T';
    }
    std::memcpy(buffer, text + begin, end - begin);
    buffer[end - begin] = '\0';
    return OK;
}

std::uint64_t Timer_Query() noexcept
{
    return Source().timer();
}

std::uint64_t Timer_Multiplier() noexcept
{
    return Source().multiplier;
}

std::uint64_t Timer_Divider() noexcept
{
    return Source().divider;
}

std::uint64_t Timer_Scale(std::uint64_t raw) noexcept
{
    return Scale(Source(), raw);
}

std::uint64_t UpTime_At(std::uint64_t timer) noexcept
{
    const ClockSource& clock = Source();
    if (&clock != &machine) {
        return Scale(clock, timer);
    }
    static const std::uint64_t start = timer;
    // Another thread may have read the timer before this one and come here later.
    return timer > start ? Scale(machine, timer - start) : 0;
}

std::uint64_t UpTime_Now() noexcept
{
    return UpTime_At(Timer_Query());
}

ClockReading Clock_Read() noexcept
{
    const ClockSource& clock = Source();
    if (&clock != &machine) {
        return ReadReplaced(clock);
    }
    // In the thread's fixed block, where it is found without a call: that halves what there is to do beside the ticks.
    [[gnu::tls_model("initial-exec")]] constinit thread_local ClockSample sample{tooOld, 0, 0, 0, 0, 0};
    const std::uint64_t ticked = Ticks() - sample.ticks;
    const std::uint64_t now =
        ticked < sample.span ? sample.taken + (ticked * sample.rate >> 32) : TimerWithoutTicks(sample);
    sample.last = std::max(sample.last, now);
    return {sample.last, Scale(machine, sample.last), (sample.last + sample.difference) / 1'000};
}

void Clock_Replace(const ClockSource* source) noexcept
{
    current.store(source != nullptr ? source : &machine, std::memory_order_release);
}

}  // namespace Nucleo
