#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zq {

/// N strings that may each be absent, packed into one heap block: a library of 100,000 tracks
/// holds over a million short strings, and one allocation per track instead of one per string
/// (plus no per-string object) keeps the model at a fraction of the database's size.
/// Block layout: N + 1 end offsets (uint32), a presence mask, then the characters.
template <std::size_t N>
class PackedStrings {
    static_assert(N < 32);

public:
    std::optional<std::string_view> get(std::size_t index) const
    {
        if (!block_ || !(mask() & (1u << index)))
            return std::nullopt;
        const std::uint32_t begin = index ? offset(index - 1) : 0;
        return std::string_view(characters() + begin, offset(index) - begin);
    }

    /// Replaces every string at once with copies of the characters viewed (which may be this
    /// object's own: the old block goes only once the new one is filled).
    void assign(const std::array<std::optional<std::string_view>, N>& strings)
    {
        assign(strings, [](std::size_t size) { return new char[size]; }, false);
    }

    /// The same, in a block from `allocate(size)` that belongs to whoever supplied it: these
    /// strings never free it.
    template <class Allocate>
    void assignBorrowed(const std::array<std::optional<std::string_view>, N>& strings, Allocate&& allocate)
    {
        assign(strings, allocate, true);
    }

    void set(std::size_t index, const std::optional<std::string>& value)
    {
        std::array<std::optional<std::string_view>, N> strings;
        for (std::size_t i = 0; i < N; ++i)
            strings[i] = i != index ? get(i) : value ? std::optional<std::string_view>(*value) : std::nullopt;
        assign(strings);
    }

private:
    static constexpr std::size_t kHeader = (N + 1) * 4;
    // The presence mask has a bit per string; its top bit marks a borrowed block.
    static constexpr std::uint32_t kBorrowed = 0x80000000u;

    struct BlockDeleter {
        void operator()(char* block) const
        {
            std::uint32_t mask;
            std::memcpy(&mask, block + N * 4, 4);
            if (!(mask & kBorrowed))
                delete[] block;
        }
    };

    template <class Allocate>
    void assign(const std::array<std::optional<std::string_view>, N>& strings, Allocate&& allocate, bool borrowed)
    {
        std::size_t total = 0;
        std::uint32_t presence = 0;
        for (std::size_t i = 0; i < N; ++i) {
            if (strings[i]) {
                total += strings[i]->size();
                presence |= 1u << i;
            }
        }
        if (!presence) {
            block_.reset();
            return;
        }
        char* const block = allocate(kHeader + total);
        const std::uint32_t mask = presence | (borrowed ? kBorrowed : 0);
        std::memcpy(block + N * 4, &mask, 4);
        std::unique_ptr<char[], BlockDeleter> filling(block);
        std::uint32_t end = 0;
        for (std::size_t i = 0; i < N; ++i) {
            if (strings[i]) {
                std::memcpy(block + kHeader + end, strings[i]->data(), strings[i]->size());
                end += static_cast<std::uint32_t>(strings[i]->size());
            }
            std::memcpy(block + i * 4, &end, 4);
        }
        block_ = std::move(filling);
    }

    std::uint32_t offset(std::size_t index) const
    {
        std::uint32_t value;
        std::memcpy(&value, block_.get() + index * 4, 4);
        return value;
    }
    std::uint32_t mask() const { return offset(N); }
    char* characters() const { return block_.get() + kHeader; }

    std::unique_ptr<char[], BlockDeleter> block_;
};

} // namespace zq
