// The flat index by persistent ID that the loaders look tracks and sub-rows up in, and the
// arena that large loads make their tracks in.

#include "ZQCore/foundation/IDIndex.h"
#include "ZQCore/model/TrackArena.h"
#include "ZQCore/model/iPodTrack.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <vector>

namespace zq {
namespace {

// Many IDs whose low 32 bits are all alike (as persistent IDs can be), through several rounds
// of growth: every one is found at its place, absent ones are not, an insert never replaces and
// an assign does.
TEST(FoundationIDIndex, FindsEveryIDThroughGrowthAndCollidingLowBits)
{
    IDIndex index;
    constexpr std::uint32_t kCount = 20000;
    for (std::uint32_t i = 0; i < kCount; ++i)
        ASSERT_TRUE(index.insert(std::uint64_t{i} << 32 | 0x5A5A, i));
    EXPECT_EQ(index.size(), kCount);
    EXPECT_FALSE(index.insert(std::uint64_t{7} << 32 | 0x5A5A, 99));
    index.assign(std::uint64_t{8} << 32 | 0x5A5A, 42);
    std::uint32_t wrong = 0;
    for (std::uint32_t i = 0; i < kCount; ++i)
        wrong += index.find(std::uint64_t{i} << 32 | 0x5A5A) != (i == 8 ? 42 : i);
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(index.find(std::uint64_t{kCount} << 32 | 0x5A5A), IDIndex::kNone);
    EXPECT_EQ(index.find(0x5A5A + 1), IDIndex::kNone);
    EXPECT_EQ(IDIndex().find(1), IDIndex::kNone);
}

// IDs numbered upwards from a first one (held in the direct table) mixed with IDs below it, far
// above it and spread over 64 bits (held in the probed array), as a device's library can mix
// them: inserts, assigns and lookups answer as a plain map does, whichever part holds the ID.
TEST(FoundationIDIndex, AnswersAsAMapWhereverAnIDIsHeld)
{
    for (const std::size_t reserved : {0, 1, 500, 5000}) {
        IDIndex index;
        index.reserve(reserved);
        std::map<std::uint64_t, std::uint32_t> expected;
        std::mt19937_64 random(reserved);
        constexpr std::uint64_t kFirst = 1000;
        auto pick = [&]() -> std::uint64_t {
            switch (random() % 5) {
            case 0: return kFirst - 1 - random() % kFirst;         // below the first
            case 1: return kFirst + reserved * 4 + random() % 200; // around the direct table's end
            case 2: return random();                               // anywhere
            default: return kFirst + random() % (reserved + 1);    // close above the first
            }
        };
        ASSERT_TRUE(index.insert(kFirst, 0));
        expected[kFirst] = 0;
        for (std::uint32_t step = 1; step < 6000; ++step) {
            const std::uint64_t id = pick();
            if (step % 3 == 0) {
                index.assign(id, step);
                expected[id] = step;
            } else {
                ASSERT_EQ(index.insert(id, step), expected.emplace(id, step).second) << id;
            }
        }
        EXPECT_EQ(index.size(), expected.size());
        std::size_t wrong = 0;
        for (const auto& [id, position] : expected)
            wrong += index.find(id) != position;
        for (int i = 0; i < 2000; ++i) {
            const std::uint64_t id = pick();
            const auto found = expected.find(id);
            wrong += index.find(id) != (found == expected.end() ? IDIndex::kNone : found->second);
        }
        EXPECT_EQ(wrong, 0u) << "reserved " << reserved;
    }
    // Every ID of the direct table's span and just past it, present or not, after a run of IDs
    // that stops short of the span's end.
    IDIndex index;
    index.reserve(100);
    for (std::uint32_t i = 0; i < 150; i += 3)
        index.insert(5000 + i, i);
    std::size_t wrong = 0;
    for (std::uint32_t i = 0; i < 4 * 100 + 64 + 10; ++i)
        wrong += index.find(5000 + i) != (i < 150 && i % 3 == 0 ? i : IDIndex::kNone);
    EXPECT_EQ(wrong, 0u);
}

// However many IDs the probed array holds, it keeps room: a lookup of an absent ID ends.
TEST(FoundationIDIndex, LookupsOfAbsentIDsEndAtEveryFill)
{
    std::mt19937_64 random(7);
    for (std::size_t count = 1; count <= 70; ++count) {
        IDIndex index;
        for (std::uint32_t i = 0; i < count; ++i)
            index.insert(random() | 1, i);
        std::size_t found = 0;
        for (int i = 0; i < 50; ++i)
            found += index.find(random() & ~std::uint64_t{1}) != IDIndex::kNone;
        EXPECT_EQ(found, 0u) << count;
    }
}

// Pieces of every size, one larger than any chunk included, come aligned and apart; the memory
// outlives the arena's last owner but one, a track made in it.
TEST(ModelTrackArena, PiecesAreAlignedApartAndLiveAsLongAsTheirTracks)
{
    std::shared_ptr<iPodTrack> kept;
    {
        auto arena = std::make_shared<TrackArena>();
        std::vector<std::pair<unsigned char*, std::size_t>> pieces;
        for (std::size_t size : {1, 3, 16, 1000, 300000, 40000000, 7, 5000000})
            for (std::size_t alignment : {1, 4, 8, 16}) {
                auto* piece = static_cast<unsigned char*>(arena->allocate(size, alignment));
                ASSERT_EQ(reinterpret_cast<std::uintptr_t>(piece) % alignment, 0u);
                std::memset(piece, static_cast<int>(pieces.size()), size);
                pieces.emplace_back(piece, size);
            }
        for (std::size_t i = 0; i < pieces.size(); ++i)
            EXPECT_EQ(pieces[i].first[0] + pieces[i].first[pieces[i].second - 1], 2 * static_cast<int>(i & 0xFF)) << i;

        // A track of the binary database, its texts packed in a block of the arena.
        const TrackArena::Use use(arena);
        const std::array<std::uint8_t, 356> header{};
        const std::string title(100, 't');
        std::array<std::optional<std::string_view>, iPodTrack::kMHITTextTypes> texts;
        texts[1] = title;
        LocalDateConverter dates;
        kept = iPodTrack::initWithMHIT(header, texts, nullptr, dates);
    }
    EXPECT_EQ(TrackArena::current(), nullptr);
    EXPECT_EQ(kept->title(), std::string(100, 't'));
    kept->setTitle("again");  // the arena's block is let go of, not freed
    EXPECT_EQ(kept->title(), "again");
}

} // namespace
} // namespace zq
