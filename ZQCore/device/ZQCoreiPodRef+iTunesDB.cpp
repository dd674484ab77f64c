// The device name lookup: reads only the master playlist's title out of a library database,
// without building tracks or playlists.

#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/reader/RecordLayouts.h"
#include "ZQCore/reader/WalkLimits.h"
#include "ZQCore/reader/XRDataReader.h"

#include <optional>

namespace zq {

using namespace layout;

namespace {

constexpr std::uint32_t kTitleType = 1;

/// The master playlist's title in the playlist list at the reader's position, or "Unknown".
/// Where several playlists say they are the master, the last one's title wins.
std::string getiPodNameFromPlaylistListWithReader(XRDataReader& reader)
{
    std::optional<std::string> name;
    const std::uint32_t start = reader.position();
    const auto list = reader.readBlock<ListHeader::size>();
    const std::uint32_t count = le32(list, ChunkStart::childCount);
    reader.setPosition(start + le32(list, ChunkStart::headerLength));

    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t p = reader.position();
        const auto header = reader.readBlock<MHYPHeader::size>();
        const std::uint32_t objects = le32(header, MHYPHeader::dataObjectCount);
        const bool master = u8(header, MHYPHeader::master) == 1;
        reader.setPosition(p + le32(header, ChunkStart::headerLength));
        for (std::uint32_t j = 0; j < objects; ++j) {
            const std::uint32_t q = reader.position();
            const auto object = reader.readBlock<MHODHeader::size>();
            if (le32(object, MHODHeader::type) == kTitleType) {
                const auto stringHeader = reader.readBlock<MHODString::headerSize>();
                if (master) {
                    const std::uint32_t length = le32(stringHeader, MHODString::length - MHODHeader::size);
                    name = reader.readString(static_cast<std::int32_t>(length), StringEncoding::UTF16LE);
                }
            }
            reader.setPosition(q + le32(object, ChunkStart::totalLength));
        }
        reader.setPosition(p + le32(header, ChunkStart::totalLength));
    }
    return name ? *name : std::string("Unknown");
}

} // namespace

std::string ZQCoreiPodRef::getNameFromiTunesDBWithData(const Data& data)
{
    if (data.empty())
        return "iPod";
    return getNameFromiTunesDBWithReader(*XRDataReader::dataReaderWithData(data, true));
}

std::string ZQCoreiPodRef::getNameFromiTunesDBWithReader(XRDataReader& reader)
{
    try {
        return walkNameFromiTunesDB(reader);
    } catch (const Exception&) {
        return "iPod";
    }
}

std::string ZQCoreiPodRef::walkNameFromiTunesDB(XRDataReader& readerRef)
{
    std::string name = "iPod";
    if (readerRef.length() == 0)
        return name;
    XRDataReader* reader = &readerRef;
    reader->setReadLimit(walkReadLimit(static_cast<std::size_t>(reader->length())));
    const std::uint32_t start = reader->position();
    const auto header = reader->readBlock<MHBDHeader::size>();
    const auto dataSets = static_cast<std::int32_t>(le32(header, MHBDHeader::dataSetCount));
    reader->setPosition(start + le32(header, ChunkStart::headerLength));
    // The databases of the first iPods have only the plain playlist list: without a grouped
    // one, the name comes from there.
    std::optional<std::uint32_t> plainList;
    bool grouped = false;
    for (std::int32_t set = 1; set <= dataSets; ++set) {
        const std::uint32_t p = reader->position();
        const auto setHeader = reader->readBlock<MHSDHeader::size>();
        const std::uint32_t type = le32(setHeader, MHSDHeader::type);
        if (type == MHSDHeader::playlistListGrouped) {
            reader->setPosition(p + le32(setHeader, ChunkStart::headerLength));
            name = getiPodNameFromPlaylistListWithReader(*reader);
            grouped = true;
        } else if (type == MHSDHeader::playlistListPlain && !plainList) {
            plainList = p + le32(setHeader, ChunkStart::headerLength);
        }
        reader->setPosition(p + le32(setHeader, ChunkStart::totalLength));
    }
    if (!grouped && plainList) {
        reader->setPosition(*plainList);
        name = getiPodNameFromPlaylistListWithReader(*reader);
    }
    return name;
}

} // namespace zq
