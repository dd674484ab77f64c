#pragma once
// What the track table needs of a loaded library beyond the framework's objects: the text
// columns case-folded once, side by side in one buffer, so that a typed word is looked for and
// a text column sorted without converting 100,000 tracks' strings on every keystroke or click.

#include <ZQCore/device/ZQCoreiPod.h>
#include <ZQCore/model/iPodTrack.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace gui {

class LibraryIndex {
public:
    /// The text columns, in the order they are folded.
    enum TextField { Title, Artist, Album, AlbumArtist, Genre, Kind, TextFieldCount };

    /// Folds every track of the library (run off the UI thread: it reads every text).
    /// `cancelled` is asked between tracks; when it answers true the index stops early and
    /// is left incomplete (its owner throws it away).
    static std::shared_ptr<const LibraryIndex> build(const std::shared_ptr<zq::ZQCoreiPod>& library,
                                                     const std::function<bool()>& cancelled = {});

    const std::shared_ptr<zq::ZQCoreiPod>& library() const { return library_; }
    std::size_t size() const { return tracks_.size(); }
    const zq::iPodTrack& track(std::uint32_t index) const { return *tracks_[index]; }
    const std::shared_ptr<zq::iPodTrack>& trackPointer(std::uint32_t index) const { return tracks_[index]; }

    /// The folded text of one field of one track.
    std::string_view folded(std::uint32_t index, TextField field) const
    {
        const std::size_t at = static_cast<std::size_t>(index) * TextFieldCount + field;
        return std::string_view(text_).substr(offsets_[at], offsets_[at + 1] - offsets_[at] - 1);
    }
    /// All folded text fields of one track, separated by a byte no word contains.
    std::string_view foldedRecord(std::uint32_t index) const
    {
        const std::size_t at = static_cast<std::size_t>(index) * TextFieldCount;
        return std::string_view(text_).substr(offsets_[at], offsets_[at + TextFieldCount] - offsets_[at]);
    }
    /// The library index of a track (one of a playlist's); -1 for a track not of this library.
    std::int64_t indexOf(const zq::iPodTrack* track) const
    {
        auto found = positions_.find(track);
        return found == positions_.end() ? -1 : found->second;
    }
    /// The library indices of a playlist's tracks, in its order (tracks not in the library,
    /// which a damaged database can name, are left out).
    std::vector<std::uint32_t> indicesOf(const std::vector<std::shared_ptr<zq::iPodTrack>>& tracks) const;

private:
    std::shared_ptr<zq::ZQCoreiPod> library_;
    std::vector<std::shared_ptr<zq::iPodTrack>> tracks_;
    std::string text_;
    std::vector<std::uint32_t> offsets_;  // TextFieldCount per track, and one past the end
    std::unordered_map<const zq::iPodTrack*, std::uint32_t> positions_;
};

} // namespace gui
