#include "LibraryIndex.h"

#include "Text.h"

namespace gui {

namespace {

std::optional<std::string_view> textOf(const zq::iPodTrack& track, LibraryIndex::TextField field)
{
    switch (field) {
    case LibraryIndex::Title: return track.textView(zq::iPodTrack::Title);
    case LibraryIndex::Artist: return track.textView(zq::iPodTrack::Artist);
    case LibraryIndex::Album: return track.textView(zq::iPodTrack::Album);
    case LibraryIndex::AlbumArtist: return track.textView(zq::iPodTrack::AlbumArtist);
    case LibraryIndex::Genre: return track.textView(zq::iPodTrack::Genre);
    case LibraryIndex::Kind: return track.textView(zq::iPodTrack::FileType);
    case LibraryIndex::TextFieldCount: break;
    }
    return std::nullopt;
}

} // namespace

std::shared_ptr<const LibraryIndex> LibraryIndex::build(const std::shared_ptr<zq::ZQCoreiPod>& library,
                                                        const std::function<bool()>& cancelled)
{
    auto index = std::make_shared<LibraryIndex>();
    index->library_ = library;
    index->tracks_ = library->allTracks();
    const std::size_t count = index->tracks_.size();
    index->offsets_.reserve(count * TextFieldCount + 1);
    index->text_.reserve(count * 64);
    index->positions_.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (cancelled && (i & 1023) == 0 && cancelled())
            break;
        const zq::iPodTrack& track = *index->tracks_[i];
        for (int field = 0; field < TextFieldCount; ++field) {
            index->offsets_.push_back(static_cast<std::uint32_t>(index->text_.size()));
            if (auto text = textOf(track, static_cast<TextField>(field)))
                index->text_ += foldedUtf8(*text);
            // A separator keeps a word from matching across two fields.
            index->text_ += '\x1f';
        }
        index->positions_.emplace(index->tracks_[i].get(), static_cast<std::uint32_t>(i));
    }
    index->offsets_.push_back(static_cast<std::uint32_t>(index->text_.size()));
    return index;
}

std::vector<std::uint32_t> LibraryIndex::indicesOf(const std::vector<std::shared_ptr<zq::iPodTrack>>& tracks) const
{
    std::vector<std::uint32_t> result;
    result.reserve(tracks.size());
    for (const auto& track : tracks)
        if (const auto at = indexOf(track.get()); at >= 0)
            result.push_back(static_cast<std::uint32_t>(at));
    return result;
}

} // namespace gui
