#pragma once
// A map of small keys for owners that fill it over and over, mostly with the same keys in the same order: Clear()
// remembers the keys, and a key that comes where it came the time before costs one comparison, no hash. Entries lie one
// after the other, indexed by a table with open addressing. Used by one thread at a time.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include <Nucleo/Allocator.h>

namespace Nucleo
{

/// Key: at most eight bytes without padding that are equal when their bytes are. Value: trivially copyable.
template <class Key, class Value>
class FlatMap
{
    static_assert(std::has_unique_object_representations_v<Key> && sizeof(Key) <= sizeof(std::uint64_t));
    static_assert(std::is_trivially_copyable_v<Key> && std::is_trivially_copyable_v<Value>);

public:
    /// Takes no memory before the first key; `allocator` must outlive the map.
    explicit FlatMap(Allocator& allocator) noexcept : allocator_(&allocator) {}
    FlatMap(const FlatMap&) = delete;
    FlatMap& operator=(const FlatMap&) = delete;
    ~FlatMap() { Release(); }

    std::size_t Count() const noexcept { return count_; }

    /// The key's value, null when it is not there. Valid until a key is added.
    const Value* Find(Key key) const noexcept
    {
        const std::size_t number = Lookup(Bits(key));
        return number - 1 < count_ ? &entries_[number - 1].value : nullptr;
    }

    /// Adds the key with `value` unless it is there, and hands out where its value is: valid until the next addition.
    /// On failure (the allocator's status; ERROR_MEMORY beyond 2^30 keys) the map is unchanged and `*there` is null.
    Status Add(Key key, Value value, Value** there) noexcept
    {
        const std::uint64_t bits = Bits(key);
        if (count_ < stored_ && Bits(entries_[count_].key) == bits) {
            Entry& entry = entries_[count_++];
            entry.value = value;
            *there = &entry.value;
            return OK;
        }
        return AddUnforeseen(key, value, there);
    }

    /// Removes the key that was added last; there is one.
    void DropLast() noexcept { --count_; }

    /// Removes all keys and keeps the room.
    void Clear() noexcept { count_ = 0; }

    /// Removes all keys and gives the room back. The allocator's status, OK when there was no room.
    Status Release() noexcept
    {
        const Status status = entries_ != nullptr ? allocator_->Free(entries_) : OK;
        entries_ = nullptr;
        count_ = stored_ = capacity_ = 0;
        return status;
    }

private:
    struct Entry
    {
        Key key;
        Value value;
    };
    using Slot = std::uint32_t;  // The number of an entry, from 1; 0 for none.

    static constexpr std::size_t maxCapacity = std::size_t{1} << 30;

    static std::uint64_t Bits(Key key) noexcept
    {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &key, sizeof key);
        return bits;
    }

    // The slot where the search for a key begins. The address makes it another one in each process, so that nobody
    // outside can choose keys that all meet in one.
    std::size_t FirstSlot(std::uint64_t bits) const noexcept
    {
        constexpr std::uint64_t golden = 0x9E3779B97F4A7C15;
        std::uint64_t hash = (bits ^ reinterpret_cast<std::uintptr_t>(slots_)) * golden;
        hash ^= hash >> 32;
        return static_cast<std::size_t>((hash * golden) >> shift_);
    }

    // The number of the entry with the key, remembered ones included; 0 for none.
    std::size_t Lookup(std::uint64_t bits) const noexcept
    {
        if (stored_ == 0) {
            return 0;
        }
        for (std::size_t slot = FirstSlot(bits);; slot = (slot + 1) & (2 * capacity_ - 1)) {
            const Slot number = slots_[slot];
            if (number == 0 || Bits(entries_[number - 1].key) == bits) {
                return number;
            }
        }
    }

    [[gnu::noinline]] Status AddUnforeseen(Key key, Value value, Value** there) noexcept
    {
        *there = nullptr;
        std::size_t number = Lookup(Bits(key));
        if (number - 1 >= count_) {
            if (count_ < stored_) {
                Index();  // What was remembered did not come again.
            } else if (count_ == capacity_) {
                if (const Status status = Grow(); status != OK) {
                    return status;
                }
            }
            entries_[count_] = {key, value};
            number = ++count_;
            Place(number);
        }
        *there = &entries_[number - 1].value;
        return OK;
    }

    Status Grow() noexcept
    {
        const std::size_t capacity = std::max<std::size_t>(8, 2 * capacity_);
        void* memory = nullptr;
        if (capacity > maxCapacity) {
            return ERROR_MEMORY;
        }
        // One block: the entries, then twice as many slots, so that half of them stay free.
        const Status status = allocator_->Allocate(capacity * (sizeof(Entry) + 2 * sizeof(Slot)), &memory);
        if (status != OK) {
            return status;
        }
        auto* entries = static_cast<Entry*>(memory);
        std::copy_n(entries_, count_, entries);
        allocator_->Free(entries_);
        entries_ = entries;
        capacity_ = capacity;
        slots_ = reinterpret_cast<Slot*>(entries + capacity);
        shift_ = std::countl_zero(std::uint64_t{2 * capacity}) + 1;
        Index();
        return OK;
    }

    // Fills the slots anew with the keys that are there.
    void Index() noexcept
    {
        std::fill_n(slots_, 2 * capacity_, Slot{0});
        for (std::size_t number = 1; number <= count_; ++number) {
            Place(number);
        }
        stored_ = count_;
    }

    void Place(std::size_t number) noexcept
    {
        std::size_t slot = FirstSlot(Bits(entries_[number - 1].key));
        while (slots_[slot] != 0) {
            slot = (slot + 1) & (2 * capacity_ - 1);
        }
        slots_[slot] = static_cast<Slot>(number);
        stored_ = number;
    }

    Allocator* allocator_;
    Entry* entries_ = nullptr;
    Slot* slots_ = nullptr;
    std::size_t count_ = 0;   // Keys that are there.
    std::size_t stored_ = 0;  // With those that are remembered behind them.
    std::size_t capacity_ = 0;
    int shift_ = 0;
};

}  // namespace Nucleo
