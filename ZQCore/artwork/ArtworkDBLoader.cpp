// The walk of the artwork database (ArtworkDB) and the linking of its artwork to tracks.
//
// The file is a tree of records in little-endian order, walked by its own lengths exactly as
// the library database is (see iTunesDBLoader.cpp): children at the parent's start plus
// its header length, siblings at the previous start plus its total length, tags never
// examined. Only headers are read here; a representation fetches its pixels when first asked.

#include "ZQCore/artwork/ArtworkDBLoader.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/artwork/ArtworkLayouts.h"
#include "ZQCore/artwork/ArtworkLinking.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/reader/WalkLimits.h"
#include "ZQCore/reader/XRDataReader.h"

#include <algorithm>
#include <filesystem>
#include <span>

namespace zq {

using namespace layout;

namespace {

using Artworks = std::vector<std::shared_ptr<AlbumArt>>;

/// The thumbnail file name of a stored size, as written (":F1028_1.ithmb"); no value when the
/// name record cannot be read. The reader stands at the name record.
std::optional<std::string> readFileName(XRDataReader& reader)
{
    try {
        const std::uint32_t start = reader.position();
        const auto record = reader.readBlock<ArtworkFileName::recordSize>();
        reader.setPosition(start + le32(record, ChunkStart::headerLength));
        const auto header = reader.readBlock<ArtworkFileName::stringHeaderSize>();
        const std::uint32_t length = le32(header, ArtworkFileName::length);
        return reader.readString(static_cast<std::int32_t>(length), StringEncoding::UTF16LE);
    } catch (const Exception&) {
        return std::nullopt;
    }
}

/// The full path of a thumbnail file: the name, less the one colon it is written with, as a
/// single component of the artwork folder. A later colon is part of the name. A name that
/// cannot be a single component (empty, "." or "..", or holding "/" or NUL) names no file: a
/// database cannot send the reader outside the artwork folder.
std::optional<std::string> thumbnailPath(const std::string& folderPath, std::optional<std::string> name)
{
    if (!name)
        return std::nullopt;
    if (!name->empty() && name->front() == ':')
        name->erase(0, 1);
    if (name->empty() || *name == "." || *name == ".." || name->find('/') != std::string::npos ||
        name->find('\0') != std::string::npos)
        return std::nullopt;
    return (std::filesystem::path(folderPath) / *name).string();
}

/// The artwork of the image list at the reader's position, in file order.
Artworks readImageList(XRDataReader& reader, const std::string& folderPath, const std::shared_ptr<TrackLibrary>& library)
{
    const std::uint32_t listStart = reader.position();
    const auto list = reader.readBlock<MHLIHeader::size>();
    const std::uint32_t count = le32(list, ChunkStart::childCount);
    reader.setPosition(listStart + le32(list, ChunkStart::headerLength));

    Artworks artworks;
    // The count is the file's claim; reserve only what the bytes could hold.
    artworks.reserve(std::min<std::uint64_t>(count, static_cast<std::uint64_t>(reader.length()) / MHIIHeader::size + 1));
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t itemStart = reader.position();
        const auto item = reader.readBlock<MHIIHeader::size>();
        reader.setPosition(itemStart + le32(item, ChunkStart::headerLength));

        AlbumArt::Reps reps;
        const auto children = static_cast<std::int32_t>(le32(item, MHIIHeader::childCount));
        for (std::int32_t j = 0; j < children; ++j) {
            const std::uint32_t childStart = reader.position();
            const auto child = reader.readBlock<ArtworkChild::size>();
            if (le16(child, ArtworkChild::type) == ArtworkChild::thumbnail) {
                reader.setPosition(childStart + le32(child, ChunkStart::headerLength));
                const std::uint32_t thumbnailStart = reader.position();
                const auto thumbnail = reader.readBlock<MHNIHeader::size>();
                reader.setPosition(thumbnailStart + le32(thumbnail, ChunkStart::headerLength));
                reps.push_back(
                    AlbumArtRep::initWithMHNIHeader(thumbnail, thumbnailPath(folderPath, readFileName(reader)), library));
            }
            reader.setPosition(childStart + le32(child, ChunkStart::totalLength));
        }
        artworks.push_back(AlbumArt::initWithReps(std::move(reps), le32(item, MHIIHeader::imageID),
                                                  le64(item, MHIIHeader::songID)));
        reader.setPosition(itemStart + le32(item, ChunkStart::totalLength));
    }
    return artworks;
}

/// Attaches to each track the artwork that linking `lists` one after another leaves it with.
void linkLists(const ArtworkDBLoader::Tracks& tracks, const std::vector<const Artworks*>& lists)
{
    std::vector<std::vector<ArtworkKeys>> keys;
    keys.reserve(lists.size());
    std::size_t total = 0;
    for (const Artworks* list : lists) {
        auto& listKeys = keys.emplace_back();
        listKeys.reserve(list->size());
        for (const auto& artwork : *list)
            listKeys.push_back({artwork->artworkID(), artwork->trackID()});
        total += list->size();
    }
    if (total == 0 || tracks.empty())
        return;
    std::vector<std::span<const ArtworkKeys>> listSpans(keys.begin(), keys.end());

    std::vector<TrackArtworkKeys> trackKeys;
    trackKeys.reserve(tracks.size());
    for (const auto& track : tracks)
        trackKeys.push_back(track ? TrackArtworkKeys{track->dbid(), track->artworkLink(), track->albumID()}
                                  : TrackArtworkKeys{});

    const auto outcome = resolveArtworkLinks(trackKeys, listSpans);
    for (std::size_t t = 0; t < tracks.size(); ++t)
        if (outcome[t] && tracks[t])
            tracks[t]->setAlbumArt((*lists[outcome[t]->list])[outcome[t]->index]);
}

std::vector<const Artworks*> pointersTo(const std::vector<Artworks>& lists)
{
    std::vector<const Artworks*> pointers;
    for (const auto& list : lists)
        pointers.push_back(&list);
    return pointers;
}

} // namespace

void ArtworkDBLoader::parseArtworkDBAtPath(const DeviceFiles& files, const std::string& path, const Tracks& tracks,
                                           const std::shared_ptr<TrackLibrary>& library)
{
    auto data = files.contentsOfFile(path);
    if (!data || data->empty())
        return;
    parseArtworkDBWithData(*data, tracks, std::filesystem::path(path).parent_path().string(), library);
}

void ArtworkDBLoader::parseArtworkDBWithData(const Data& data, const Tracks& tracks, const std::string& folderPath,
                                             const std::shared_ptr<TrackLibrary>& library)
{
    if (data.empty())
        return;
    auto reader = XRDataReader::dataReaderWithData(data, true);
    reader->setReadLimit(walkReadLimit(data.size()));

    // Lists are linked together once the walk ends (see ArtworkLinking.h), which gives each
    // track what linking them one by one would, in time that does not grow with the number of
    // lists (a hostile file can hold thousands). A fault stops the walk: the list being read is
    // dropped and the finished ones are linked before the exception goes on.
    std::vector<Artworks> lists;
    try {
        const auto header = reader->readBlock<MHFDHeader::size>();
        const auto dataSets = static_cast<std::int32_t>(le32(header, MHFDHeader::dataSetCount));
        reader->setPosition(le32(header, ChunkStart::headerLength));
        for (std::int32_t set = 1; set <= dataSets; ++set) {
            const std::uint32_t setStart = reader->position();
            const auto setHeader = reader->readBlock<ArtworkDataSet::size>();
            if (le32(setHeader, ArtworkDataSet::type) == ArtworkDataSet::imageList) {
                reader->setPosition(setStart + le32(setHeader, ChunkStart::headerLength));
                lists.push_back(readImageList(*reader, folderPath, library));
            }
            reader->setPosition(setStart + le32(setHeader, ChunkStart::totalLength));
        }
    } catch (const Exception&) {
        linkLists(tracks, pointersTo(lists));
        throw;
    }
    linkLists(tracks, pointersTo(lists));
}

void ArtworkDBLoader::parseImageListWithReader(XRDataReader& reader, const Tracks& tracks, const std::string& folderPath,
                                               const std::shared_ptr<TrackLibrary>& library)
{
    linkArtwork(tracks, readImageList(reader, folderPath, library));
}

void ArtworkDBLoader::linkArtwork(const Tracks& tracks, const std::vector<std::shared_ptr<AlbumArt>>& artworks)
{
    // A caller's null entry is no artwork (null tracks are passed over by the link itself).
    if (std::find(artworks.begin(), artworks.end(), nullptr) != artworks.end()) {
        std::vector<std::shared_ptr<AlbumArt>> present = artworks;
        std::erase(present, nullptr);
        linkLists(tracks, {&present});
        return;
    }
    linkLists(tracks, {&artworks});
}

} // namespace zq
