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
        const std::size_t index = Lookup(Bits(key));
        return index < count_ ? &entries_[index].value : nullptr;
    }

    /// Adds the key with `value` unless it is there, and hands out where its value is: valid until the next addition.
    /// On failure (the allocator's status; ERROR_MEMORY beyond 2^30 keys) the map is unchanged and `*there` is null.
    Status Add(Key key, Value value, Value** there) noexcept
    {
        const std::uint64_t bits = Bits(key);
        if (expected_ < stored_ && Bits(entries_[expected_].key) == bits && expected_ <= count_) {
            *there = Take(expected_, value);
            return OK;
        }
        return AddUnexpected(key, value, there);
    }

    /// Removes the key that was added last; there is one.
    void DropLast() noexcept { --count_; }

    /// Removes all keys and keeps the room.
    void Clear() noexcept { count_ = expected_ = 0; }

    /// Removes all keys and gives the room back. The allocator's status, OK when there was no room.
    Status Release() noexcept
    {
        const Status status = entries_ != nullptr ? allocator_->Free(entries_) : OK;
        entries_ = nullptr;
        slots_ = const_cast<Slot*>(noSlots);
        count_ = stored_ = expected_ = capacity_ = 0;
        slotMask_ = 1;
        shift_ = 63;
        return status;
    }

private:
    struct Entry
    {
        Key key;
        Value value;
    };
    using Slot = std::uint32_t;  // The index of an entry.

    static constexpr std::size_t maxCapacity = std::size_t{1} << 30;
    static constexpr Slot none = 0xFFFFFFFF;
    static constexpr Slot noSlots[2] = {none, none};   // Never written: a map without room looks its keys up here.
    static constexpr std::size_t longestSearch = 256;  // Keys that nobody chose hardly ever come near.
    static constexpr std::uint64_t golden = 0x9E3779B97F4A7C15;  // 2^64 / golden ratio: spreads sequences evenly.

    static std::uint64_t Bits(Key key) noexcept
    {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &key, sizeof key);
        return bits;
    }

    // The slot where the search for a key begins.
    std::size_t FirstSlot(std::uint64_t bits) const noexcept
    {
        return static_cast<std::size_t>((bits * multiplier_) >> shift_);
    }

    // The entry with the key, remembered ones included.
    std::size_t Lookup(std::uint64_t bits) const noexcept
    {
        std::size_t slot = FirstSlot(bits);
        while (slots_[slot] != none && Bits(entries_[slots_[slot]].key) != bits) {
            slot = (slot + 1) & slotMask_;
        }
        return slots_[slot];
    }

    // The value of an entry, which is there or the first remembered one and gets `value` then.
    Value* Take(std::size_t index, Value value) noexcept
    {
        Entry& entry = entries_[index];
        if (index == count_) {
            entry.value = value;
            ++count_;
        }
        expected_ = index + 1;
        return &entry.value;
    }

    [[gnu::noinline]] Status AddUnexpected(Key key, Value value, Value** there) noexcept
    {
        const std::size_t index = Lookup(Bits(key));
        if (index <= count_) {
            *there = Take(index, value);
            return OK;
        }
        *there = nullptr;
        if (count_ < stored_) {
            Index();  // What was remembered did not come again.
        } else if (count_ == capacity_) {
            if (const Status status = Grow(); status != OK) {
                return status;
            }
        }
        entries_[count_].key = key;
        const bool crowded = Place(count_) > longestSearch;
        *there = Take(count_, value);
        if (crowded) {
            // Someone may have chosen keys that meet in one place. Where they lie now nobody outside knows.
            multiplier_ = (multiplier_ ^ reinterpret_cast<std::uintptr_t>(slots_)) * golden | 1;
            Index();
        }
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
        slotMask_ = 2 * capacity - 1;
        shift_ = std::countl_zero(std::uint64_t{slotMask_});
        Index();
        return OK;
    }

    // Fills the slots anew with the keys that are there.
    void Index() noexcept
    {
        std::fill_n(slots_, slotMask_ + 1, none);
        for (std::size_t index = 0; index < count_; ++index) {
            Place(index);
        }
        stored_ = count_;
    }

    // Puts the entry's index into a slot. The steps that it took.
    std::size_t Place(std::size_t index) noexcept
    {
        std::size_t slot = FirstSlot(Bits(entries_[index].key));
        std::size_t steps = 0;
        for (; slots_[slot] != none; ++steps) {
            slot = (slot + 1) & slotMask_;
        }
        slots_[slot] = static_cast<Slot>(index);
        stored_ = index + 1;
        return steps;
    }

    Allocator* allocator_;
    Entry* entries_ = nullptr;
    Slot* slots_ = const_cast<Slot*>(noSlots);
    std::size_t count_ = 0;     // Keys that are there.
    std::size_t stored_ = 0;    // With those that are remembered behind them.
    std::size_t expected_ = 0;  // Where the next key was the last time.
    std::size_t capacity_ = 0;
    std::size_t slotMask_ = 1;
    std::uint64_t multiplier_ = golden;
    int shift_ = 63;
};

}  // namespace Nucleo
