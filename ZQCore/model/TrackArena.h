#pragma once

// One block of memory for the tracks of a large load.

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace zq {

/// Memory handed out by moving a pointer, never given back one piece at a time: the whole
/// arena goes when the last track made in it has gone.
///
/// A library of 100,000 tracks is two allocations per track (the track and its packed strings).
/// From the general allocator that costs as much as reading the database, and taking the
/// library apart costs nearly as much again; from here it is a pointer bump, and the memory
/// comes in large chunks that the system can back with huge pages (one page fault per 2 MiB
/// instead of per 4 KiB).
///
/// Not thread-safe: one thread makes the tracks of a load. Each track keeps the arena alive
/// through its allocator, so a client may keep tracks after their library has gone; the price
/// is that any one of them keeps the whole arena.
class TrackArena {
public:
    TrackArena() = default;
    ~TrackArena();
    TrackArena(const TrackArena&) = delete;
    TrackArena& operator=(const TrackArena&) = delete;

    /// `size` bytes aligned to `alignment` (at most 16). Throws std::bad_alloc when the system
    /// has no more.
    void* allocate(std::size_t size, std::size_t alignment);

    /// The arena that tracks made on this thread come from, or null (the general allocator).
    static const std::shared_ptr<TrackArena>& current();

    /// Makes `arena` this thread's current arena for the scope.
    class Use {
    public:
        explicit Use(std::shared_ptr<TrackArena> arena);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

    private:
        std::shared_ptr<TrackArena> previous_;
    };

private:
    std::vector<std::pair<void*, std::size_t>> chunks_;
    char* next_ = nullptr;
    char* end_ = nullptr;
    std::size_t nextChunk_ = std::size_t{256} << 10;
};

/// A standard allocator over a TrackArena; what it allocates holds the arena alive.
template <class T>
struct TrackArenaAllocator {
    using value_type = T;

    explicit TrackArenaAllocator(std::shared_ptr<TrackArena> a) : arena(std::move(a)) {}
    template <class U>
    TrackArenaAllocator(const TrackArenaAllocator<U>& other) : arena(other.arena)
    {
    }

    T* allocate(std::size_t count) { return static_cast<T*>(arena->allocate(count * sizeof(T), alignof(T))); }
    void deallocate(T*, std::size_t) noexcept {}

    template <class U>
    bool operator==(const TrackArenaAllocator<U>& other) const
    {
        return arena == other.arena;
    }

    std::shared_ptr<TrackArena> arena;
};

} // namespace zq
