#pragma once

// A map from 64-bit persistent IDs to positions in a list, for the loaders' lookups of many
// thousand rows.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace zq {

/// IDs to positions (below 2^32 - 1): a direct table for IDs close above the first one, and a
/// flat array probed linearly for the rest.
///
/// A load looks up an ID for every track and every playlist membership. A node-based map
/// follows a pointer per lookup into memory allocated all over the heap, and those cache misses
/// were most of its cost; here a lookup usually reads one cache line. Most devices number their
/// tracks upwards from a small number, so most IDs land in the direct table, where IDs added in
/// order are written in order and a lookup is an index. The table is bounded by the expected
/// count (see reserve), so IDs spread anywhere cost no more memory than the probed array.
class IDIndex {
public:
    static constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

    /// Makes room for about `count` IDs: the direct table may span four times as many IDs, and
    /// the probed array, when first needed, is made for `count` without growing again.
    void reserve(std::size_t count)
    {
        expected_ = std::max(expected_, count);
        directLimit_ = std::max(directLimit_, std::min<std::uint64_t>(count * 4 + 64, kNone));
    }

    /// Adds `id` at `position` unless the ID is there already; tells whether it was added.
    bool insert(std::uint64_t id, std::uint32_t position) { return place(id, position, false); }
    /// Adds `id` at `position`, or moves an ID that is there already to `position`.
    void assign(std::uint64_t id, std::uint32_t position) { place(id, position, true); }

    /// The position of `id`, or kNone.
    std::uint32_t find(std::uint64_t id) const
    {
        if (inDirectRange(id))
            return id - base_ < direct_.size() ? direct_[id - base_] : kNone;
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

    // The first ID added sets where the direct range starts (and is the table's first entry);
    // whether an ID is in it never changes after that. An ID below the first wraps round to
    // far above it.
    bool inDirectRange(std::uint64_t id) const { return !direct_.empty() && id - base_ < directLimit_; }

    bool place(std::uint64_t id, std::uint32_t position, bool replace)
    {
        if (direct_.empty() && directLimit_ > 0) {
            base_ = id;
            direct_.assign(1, kNone);
        }
        if (inDirectRange(id)) {
            const std::size_t at = id - base_;
            if (at >= direct_.size())
                direct_.resize(std::min<std::size_t>(std::max(at + 1, direct_.size() * 2), directLimit_), kNone);
            std::uint32_t& entry = direct_[at];
            if (entry == kNone) {
                entry = position;
                ++size_;
                return true;
            }
            if (replace)
                entry = position;
            return false;
        }
        // At most half full, so that a probe ends soon. It is first made for the IDs still
        // expected: all of them when the IDs are spread, a few when only some stray.
        if ((hashed_ + 1) * 2 > slots_.size()) {
            std::size_t capacity = 16;
            while (capacity < (expected_ > size_ ? expected_ - size_ : 0) * 2)
                capacity *= 2;
            rehash(std::max(capacity, slots_.size() * 2));
        }
        for (std::size_t i = mix(id) & mask();; i = (i + 1) & mask()) {
            Slot& slot = slots_[i];
            if (slot.position == kNone) {
                slot = {id, position};
                ++size_;
                ++hashed_;
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

    std::vector<std::uint32_t> direct_;
    std::vector<Slot> slots_;
    std::uint64_t base_ = 0;
    std::uint64_t directLimit_ = 0;
    std::size_t expected_ = 0;
    std::size_t size_ = 0;
    std::size_t hashed_ = 0;
};

} // namespace zq
