#include "ZQCore/artwork/ArtworkLinking.h"

#include <unordered_map>

namespace zq {

// Why one pass gives what linking the lists one by one gives. Each list's two passes leave
// every track with the artwork of the last list that touched it, by a match of its own or
// through its album. So:
//
// - A track matches in list k when its dbid or its link is among the list's keys. The last list
//   it matches in is the later of the last list holding its dbid and the last list holding its
//   link, and its match there is the first artwork of that list with either key. Per key we
//   therefore keep the last list that holds it, with the key's first artwork in that list.
// - An album is noted in list k when one of its tracks matches in k. The last such list is the
//   latest last match among its tracks, and the note there is the match of the last of its
//   tracks (in track order) whose last match lies in that list.
// - A track's album is noted no earlier than the track's own last match, and in any list the
//   album pass follows the matches. So a track of a noted album ends with the album's note;
//   another track with a match ends with its last match; the rest are untouched.
//
// A position packs the list number above the index, so that comparing positions compares file
// order.

namespace {

using Position = std::uint64_t;
constexpr Position kNone = ~Position(0);

std::uint32_t listOf(Position position) { return static_cast<std::uint32_t>(position >> 32); }

template <typename Key>
void noteFirstInLastList(std::unordered_map<Key, Position>& firsts, Key key, Position position)
{
    auto [entry, inserted] = firsts.try_emplace(key, position);
    if (!inserted && listOf(entry->second) != listOf(position))
        entry->second = position; // a later list; within one list the first stays
}

} // namespace

std::vector<std::optional<ArtworkPosition>> resolveArtworkLinks(std::span<const TrackArtworkKeys> tracks,
                                                                std::span<const std::span<const ArtworkKeys>> lists)
{
    std::vector<std::optional<ArtworkPosition>> outcome(tracks.size());
    std::size_t total = 0;
    for (const auto& list : lists)
        total += list.size();
    if (total == 0)
        return outcome;

    std::unordered_map<std::uint64_t, Position> bySong;
    std::unordered_map<std::uint32_t, Position> byImage;
    bySong.reserve(total);
    byImage.reserve(total);
    for (std::size_t k = 0; k < lists.size(); ++k)
        for (std::size_t i = 0; i < lists[k].size(); ++i) {
            const Position position = (Position(k) << 32) | i;
            noteFirstInLastList(bySong, lists[k][i].trackID, position);
            noteFirstInLastList(byImage, lists[k][i].artworkID, position);
        }

    std::vector<Position> lastMatch(tracks.size(), kNone);
    std::unordered_map<std::uint64_t, Position> albums; // album -> its note in its last list
    for (std::size_t t = 0; t < tracks.size(); ++t) {
        const TrackArtworkKeys& track = tracks[t];
        Position match = kNone;
        if (auto song = bySong.find(track.dbid); song != bySong.end())
            match = song->second;
        if (track.artworkLink >> 32 == 0) {
            if (auto image = byImage.find(static_cast<std::uint32_t>(track.artworkLink)); image != byImage.end()) {
                const Position candidate = image->second;
                if (match == kNone || listOf(candidate) > listOf(match) ||
                    (listOf(candidate) == listOf(match) && candidate < match))
                    match = candidate;
            }
        }
        if (match == kNone)
            continue;
        lastMatch[t] = match;
        if (track.albumID != 0) {
            auto [note, inserted] = albums.try_emplace(track.albumID, match);
            if (!inserted && listOf(match) >= listOf(note->second))
                note->second = match;
        }
    }

    for (std::size_t t = 0; t < tracks.size(); ++t) {
        Position final = lastMatch[t];
        if (tracks[t].albumID != 0 && !albums.empty())
            if (auto note = albums.find(tracks[t].albumID); note != albums.end())
                final = note->second;
        if (final != kNone)
            outcome[t] = ArtworkPosition{listOf(final), static_cast<std::uint32_t>(final)};
    }
    return outcome;
}

} // namespace zq
