#include "ZQCore/model/TrackArena.h"

#include <sys/mman.h>

#include <cstdint>
#include <algorithm>
#include <new>

namespace zq {

namespace {

// Chunks double from 256 KiB up to this: small libraries stay small, large ones get chunks
// that huge pages can back.
constexpr std::size_t kLargestChunk = std::size_t{16} << 20;

thread_local std::shared_ptr<TrackArena> currentArena;

} // namespace

TrackArena::~TrackArena()
{
    for (const auto& [address, size] : chunks_)
        ::munmap(address, size);
}

void* TrackArena::allocate(std::size_t size, std::size_t alignment)
{
    auto aligned = [&](char* p) {
        return reinterpret_cast<char*>((reinterpret_cast<std::uintptr_t>(p) + alignment - 1) & ~(alignment - 1));
    };
    char* start = next_ ? aligned(next_) : nullptr;
    if (!start || static_cast<std::size_t>(end_ - start) < size) {
        std::size_t chunk = nextChunk_;
        while (chunk < size + alignment)
            chunk *= 2;
        void* memory = ::mmap(nullptr, chunk, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::bad_alloc();
        if (chunk >= (std::size_t{4} << 20))
            ::madvise(memory, chunk, MADV_HUGEPAGE); // only advice: without it, pages stay small
        chunks_.emplace_back(memory, chunk);
        next_ = static_cast<char*>(memory);
        end_ = next_ + chunk;
        nextChunk_ = std::min(chunk * 2, kLargestChunk);
        start = aligned(next_);
    }
    next_ = start + size;
    return start;
}

const std::shared_ptr<TrackArena>& TrackArena::current() { return currentArena; }

TrackArena::Use::Use(std::shared_ptr<TrackArena> arena) : previous_(std::move(currentArena))
{
    currentArena = std::move(arena);
}

TrackArena::Use::~Use() { currentArena = std::move(previous_); }

} // namespace zq
