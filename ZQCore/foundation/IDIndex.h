#pragma once

// A map from 64-bit persistent IDs to positions in a list, for the loaders' lookups of many
// thousand rows.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace zq {

/// IDs to positions (below 2^32 - 1) in one flat array, probed linearly.
///
/// A load looks up an ID for every track and every playlist membership. A node-based map
/// follows a pointer per lookup into memory allocated all over the heap, and those cache misses
/// were most of its cost; here a lookup usually reads one cache line.
class IDIndex {
public:
    static constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

    /// Makes room for `count` IDs without growing again.
    void reserve(std::size_t count)
    {
        std::size_t capacity = 16;
        while (capacity < count * 2)
            capacity *= 2;
        if (capacity > slots_.size())
            rehash(capacity);
    }

    /// Adds `id` at `position` unless the ID is there already; tells whether it was added.
    bool insert(std::uint64_t id, std::uint32_t position) { return place(id, position, false); }
    /// Adds `id` at `position`, or moves an ID that is there already to `position`.
    void assign(std::uint64_t id, std::uint32_t position) { place(id, position, true); }

    /// The position of `id`, or kNone.
    std::uint32_t find(std::uint64_t id) const
    {
        if (slots_.empty())
            return kNone;
        for (std::size_t i = mix(id) & mask();; i = (i + 1) & mask()) {
            const Slot& slot = slots_[i];
            if (slot.position == kNone)
                return kNone;
            if (slot.id == id)
                return slot.position;
        }
    }

    std::size_t size() const { return size_; }

private:
    struct Slot {
        std::uint64_t id = 0;
        std::uint32_t position = kNone;
    };

    // Persistent IDs may share all their low bits; every bit takes part in the slot choice.
    static std::size_t mix(std::uint64_t id)
    {
        id ^= id >> 30;
        id *= 0xBF58476D1CE4E5B9ull;
        id ^= id >> 27;
        id *= 0x94D049BB133111EBull;
        return static_cast<std::size_t>(id ^ (id >> 31));
    }

    std::size_t mask() const { return slots_.size() - 1; }

    bool place(std::uint64_t id, std::uint32_t position, bool replace)
    {
        // At most half full, so that a probe ends soon.
        if ((size_ + 1) * 2 > slots_.size())
            rehash(slots_.empty() ? 16 : slots_.size() * 2);
        for (std::size_t i = mix(id) & mask();; i = (i + 1) & mask()) {
            Slot& slot = slots_[i];
            if (slot.position == kNone) {
                slot = {id, position};
                ++size_;
                return true;
            }
            if (slot.id == id) {
                if (replace)
                    slot.position = position;
                return false;
            }
        }
    }

    void rehash(std::size_t capacity)
    {
        std::vector<Slot> old(capacity);
        old.swap(slots_);
        for (const Slot& slot : old)
            if (slot.position != kNone)
                for (std::size_t i = mix(slot.id) & mask();; i = (i + 1) & mask())
                    if (slots_[i].position == kNone) {
                        slots_[i] = slot;
                        break;
                    }
    }

    std::vector<Slot> slots_;
    std::size_t size_ = 0;
};

} // namespace zq
