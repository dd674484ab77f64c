// The walk of the binary library database (iTunesDB): data sets, the track list and the
// playlist list with smart-playlist data. Record layouts are in RecordLayouts.h; the fields
// are placed into tracks and playlists by iPodTrack+MHIT.cpp and Playlist+MHYP.cpp.
//
// The walk follows the file's own lengths: every child is found at its parent's start plus
// the parent's header length, every sibling at the previous one's start plus its total length,
// through XRDataReader::setPosition (which clamps to the last byte, so a length pointing past
// the end makes the next read fail with "XRDataReaderInvalidRead"). Tags are never examined.

#include "ZQCore/reader/iTunesDBLoader.h"

#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/IDIndex.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/foundation/UTF16.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/model/SmartPlaylistRule.h"
#include "ZQCore/reader/RecordLayouts.h"
#include "ZQCore/reader/TrackListBuilder.h"
#include "ZQCore/reader/WalkLimits.h"
#include "ZQCore/reader/XRDataReader.h"

#include <algorithm>
#include <climits>
#include <optional>
#include <unordered_map>

namespace zq {

using namespace layout;

namespace {

constexpr std::uint32_t kTitleType = 1;
constexpr std::uint32_t kSmartPrefsType = 50;
constexpr std::uint32_t kSmartRulesType = 51;
// How far ahead of a playlist's member the track list is brought into the cache.
constexpr std::size_t kMemberPrefetch = 8;

enum class TextRead {
    Text,       // decoded (a string read past the end decodes as "")
    NotText,    // the bytes are not UTF-16 (an odd byte count)
    Unreadable, // the 24-byte string header itself runs past the end
};

/// Reads a string object's 24-byte string header and hands out its UTF-16LE bytes undecoded
/// (valid until the next read); the reader stands just after the object's 16-byte header. A
/// text that reads as "" (its bytes run past the end) has none.
TextRead readObjectBytes(XRDataReader& reader, std::span<const std::uint8_t>& out)
{
    out = {};
    std::span<const std::uint8_t> header;
    try {
        header = reader.readRawBytes(MHODString::headerSize);
    } catch (const Exception&) {
        return TextRead::Unreadable;
    }
    const std::uint32_t length = le32(header, MHODString::length - MHODHeader::size);
    try {
        out = reader.readRawBytes(static_cast<std::int32_t>(length));
    } catch (const Exception&) {
        return TextRead::Text;
    }
    return out.size() % 2 == 0 ? TextRead::Text : TextRead::NotText;
}

/// The same, decoded into `out`, which is "" unless the result is Text.
TextRead readObjectText(XRDataReader& reader, std::string& out)
{
    std::span<const std::uint8_t> bytes;
    const TextRead read = readObjectBytes(reader, bytes);
    out.clear();
    if (read == TextRead::Text)
        decodeUTF16Into(out, bytes.data(), bytes.size(), true);
    return read;
}

/// One track record read in place, in one look at its bytes instead of a read per object: the
/// records of a large library are nearly all alike and plain. Returns false, having read
/// nothing, for a record that is not wholly in the file or strays from the plain layout (an
/// object or text outside the record, an object shorter than its header, more than the read
/// limit allows): the general walk then takes it, with its rules for damaged records. A record
/// read here gives the builder, the cursor and the read limit exactly what that walk gives.
bool readPlainTrackRecord(XRDataReader& reader, TrackListBuilder& builder)
{
    constexpr std::uint32_t kLargestPlainRecord = 1u << 16;
    const std::uint32_t p = reader.position();
    const auto head = reader.peekRawBytes(MHITHeader::size);
    if (head.empty())
        return false;
    const std::uint64_t headerLength = le32(head, ChunkStart::headerLength);
    const std::uint32_t total = le32(head, ChunkStart::totalLength);
    const std::uint32_t objects = le32(head, MHITHeader::dataObjectCount);
    if (total < MHITHeader::size || total > kLargestPlainRecord || headerLength > total)
        return false;
    const auto record = reader.peekRawBytes(total);
    if (record.empty())
        return false;

    // Checked whole before anything is handed over.
    std::uint64_t counted = MHITHeader::size;
    std::uint64_t q = headerLength;
    for (std::uint32_t j = 0; j < objects; ++j) {
        if (q + MHODHeader::size > total)
            return false;
        const std::uint32_t type = le32(record, q + MHODHeader::type);
        const std::uint32_t length = le32(record, q + ChunkStart::totalLength);
        counted += MHODHeader::size;
        if (TrackListBuilder::reachesField(type)) {
            if (q + MHODString::text > total)
                return false;
            const std::uint64_t textLength = le32(record, q + MHODString::length);
            if (textLength > static_cast<std::uint64_t>(INT32_MAX) || q + MHODString::text + textLength > total)
                return false;
            counted += MHODString::headerSize + textLength;
        }
        if (length < MHODHeader::size)
            return false;
        q += length;
    }
    if (counted > reader.readLimit())
        return false;

    if (builder.wantsWholeRecords()) {
        builder.addPlainRecord(record, static_cast<std::uint32_t>(headerLength));
    } else {
        // Text that is not UTF-16 (an odd byte count) is left out, as in the general walk.
        builder.beginTrack(record.first(MHITHeader::size));
        TrackListBuilder::forEachText(record, headerLength, [&](std::uint32_t type, std::span<const std::uint8_t> text) {
            builder.addText(type, text);
        });
        builder.endTrack();
    }
    reader.countAsRead(counted);
    reader.setPosition(p + total);
    return true;
}

Value::Dictionary readSmartPrefs(XRDataReader& reader)
{
    // The block follows the 16-byte object header; field offsets count from the object's start.
    const auto block = reader.readBlock<SmartPrefs::blockSize>();
    auto at = [&](std::size_t offset) { return offset - MHODHeader::size; };
    return Value::Dictionary{
        {"liveUpdating", u8(block, at(SmartPrefs::liveUpdating)) != 0},
        {"enableRules", u8(block, at(SmartPrefs::enableRules)) != 0},
        {"enableLimits", u8(block, at(SmartPrefs::enableLimits)) != 0},
        {"limitType", u8(block, at(SmartPrefs::limitType))},
        {"limitSort", u8(block, at(SmartPrefs::limitSort))},
        {"limitValue", le32(block, at(SmartPrefs::limitValue))},
        {"matchChecked", u8(block, at(SmartPrefs::matchChecked)) != 0},
        {"reverseLimitSort", u8(block, at(SmartPrefs::reverseLimitSort)) != 0},
    };
}

} // namespace

iTunesDBLoader::iTunesDBLoader(std::shared_ptr<TrackLibrary> parent, std::string basePath, Tracks tracks,
                               Playlists playlists)
    : tracks_(std::move(tracks)), playlists_(std::move(playlists)), parent_(std::move(parent)),
      basePath_(std::move(basePath))
{
}

void iTunesDBLoader::warnAboutLoad(const std::string& warning)
{
    log(warning);
    warnings_.push_back(warning);
}

std::string iTunesDBLoader::keyForStringMHODType(std::int32_t type)
{
    switch (type) {
    case 1: return "title";
    case 2: return "location";
    case 3: return "album";
    case 4: return "artist";
    case 5: return "genre";
    case 6: return "fileType";
    case 7: return "EQSetting";
    case 8: return "comment";
    case 9: return "podcastCategory";
    case 12: return "composer";
    case 13: return "grouping";
    case 14: return "description";
    case 18: return "subtitle";
    case 19: return "show";
    case 20: return "episodeNumber";
    case 21: return "tvNetwork";
    case 22: return "albumArtist";
    case 24: return "keywords";
    case 25: return "tvShowLocale";
    case 27: return "sortingTitle";
    case 28: return "sortingAlbum";
    case 29: return "sortingAlbumArtist";
    case 30: return "sortingComposer";
    case 31: return "sortingTVShow";
    default: return std::to_string(type);
    }
}

void iTunesDBLoader::parseiTunesDBWithData(const Data& data)
{
    if (data.empty())
        return;
    parseiTunesDBWithReader(*XRDataReader::dataReaderWithData(data, true));
}

void iTunesDBLoader::parseiTunesDBWithReader(XRDataReader& readerRef)
{
    if (readerRef.length() == 0)
        return;
    XRDataReader* reader = &readerRef;
    reader->setReadLimit(walkReadLimit(static_cast<std::size_t>(reader->length())));

    const std::uint32_t start = reader->position();
    const auto header = reader->readBlock<MHBDHeader::size>();
    const auto dataSets = static_cast<std::int32_t>(le32(header, MHBDHeader::dataSetCount));
    reader->setPosition(start + le32(header, ChunkStart::headerLength));

    // The index of the track list this file gives, made while it is read.
    std::optional<TrackIDIndex> walked;
    // The databases of the first iPods (iTunes of 2003-2005) have only the plain playlist list;
    // without a grouped one, the playlists come from there.
    std::optional<std::uint32_t> plainList;
    bool groupedListMet = false;
    for (std::int32_t set = 1; set <= dataSets; ++set) {
        const std::uint32_t p = reader->position();
        const auto setHeader = reader->readBlock<MHSDHeader::size>();
        const std::uint32_t type = le32(setHeader, MHSDHeader::type);
        if (type == MHSDHeader::trackList) {
            reader->setPosition(p + le32(setHeader, ChunkStart::headerLength));
            walked.emplace();
            tracks_ = parseTrackList(*reader, *walked);
        } else if (type == MHSDHeader::playlistListGrouped) {
            reader->setPosition(p + le32(setHeader, ChunkStart::headerLength));
            playlists_ = parseWalkedPlaylistList(*reader, walked, true);
            groupedListMet = true;
        } else if (type == MHSDHeader::playlistListPlain && !plainList) {
            plainList = p + le32(setHeader, ChunkStart::headerLength);
        }
        reader->setPosition(p + le32(setHeader, ChunkStart::totalLength));
    }
    if (!groupedListMet && plainList) {
        // A damaged plain list costs the playlists, not the tracks already read.
        try {
            reader->setPosition(*plainList);
            playlists_ = parseWalkedPlaylistList(*reader, walked, false);
        } catch (const Exception& error) {
            warnAboutLoad("The playlists of the library database could not be read: " + error.reason());
        }
    }
}

iTunesDBLoader::Playlists iTunesDBLoader::parseWalkedPlaylistList(XRDataReader& reader, std::optional<TrackIDIndex>& walked,
                                                          bool grouped)
{
    // Built from the tracks already read: a playlist data set that comes before the track list
    // resolves nothing. A later track of the same ID takes its place, as in the cache of the
    // public walk.
    if (!walked) {
        walked.emplace();
        walked->reserve(tracks_.size());
        for (const auto& track : tracks_)
            walked->add(track->trackID());
    }
    const TrackIDIndex& cache = *walked;
    // Playlists mostly list tracks in the track list's order: the track after the last one
    // found is tried first. Only when no ID repeats, where it is the cache's answer.
    std::uint32_t next = 0;
    return parsePlaylistList(reader, tracks_, [&](std::uint64_t trackID) {
        std::uint32_t index = next;
        if (cache.repeatedIDs || index >= cache.idAt.size() || cache.idAt[index] != trackID)
            index = cache.byID.find(trackID);
        if (index == IDIndex::kNone)
            return std::uint32_t{0};
        next = index + 1;
        return index;
    }, cache.idAt, grouped);
}

iTunesDBLoader::Tracks iTunesDBLoader::parseTrackList(XRDataReader& reader)
{
    TrackIDIndex unused;
    return parseTrackList(reader, unused);
}

iTunesDBLoader::Tracks iTunesDBLoader::parseTrackList(XRDataReader& reader, TrackIDIndex& index)
{
    const std::uint32_t start = reader.position();
    const auto list = reader.readBlock<ListHeader::size>();
    const std::uint32_t count = le32(list, ChunkStart::childCount);
    reader.setPosition(start + le32(list, ChunkStart::headerLength));
    // The count is the file's claim; reserve only what the remaining bytes could hold.
    TrackListBuilder builder(parent_, basePath_,
                             std::min<std::uint64_t>(count, static_cast<std::uint64_t>(reader.length()) / MHITHeader::size + 1));

    std::span<const std::uint8_t> text;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (walkReadsPlainRecordsInPlace && readPlainTrackRecord(reader, builder))
            continue;
        const std::uint32_t p = reader.position();
        const auto header = reader.readBlock<MHITHeader::size>();
        const std::uint32_t objects = le32(header, MHITHeader::dataObjectCount);
        reader.setPosition(p + le32(header, ChunkStart::headerLength));
        builder.beginTrack(header);

        for (std::uint32_t j = 0; j < objects; ++j) {
            const std::uint32_t q = reader.position();
            const auto object = reader.readBlock<MHODHeader::size>();
            const std::uint32_t type = le32(object, MHODHeader::type);
            // Text that is not UTF-16 (an odd byte count) is left out rather than stored: the
            // field keeps what an earlier object of the type gave, or stays absent.
            if (TrackListBuilder::reachesField(type) &&
                readObjectBytes(reader, text) != TextRead::NotText)
                builder.addText(type, text);
            reader.setPosition(q + le32(object, ChunkStart::totalLength));
        }
        builder.endTrack();
        reader.setPosition(p + le32(header, ChunkStart::totalLength));
    }
    auto tracks = builder.finish();
    index = builder.takeIndex();
    return tracks;
}

iTunesDBLoader::Playlists iTunesDBLoader::parsePlaylistListWithReader(XRDataReader& reader, const Tracks& tracks,
                                                              const TrackIndexCache& cache)
{
    return parsePlaylistList(reader, tracks, [&](std::uint64_t trackID) {
        auto cached = cache.find(trackID);
        return cached == cache.end() ? 0 : static_cast<std::uint32_t>(cached->second);
    });
}

iTunesDBLoader::Playlists iTunesDBLoader::parsePlaylistList(XRDataReader& reader, const Tracks& tracks,
                                                    const std::function<std::uint32_t(std::uint64_t)>& cachedIndex,
                                                    std::span<const std::uint32_t> idAt, bool grouped)
{
    // The cache is a fast path, always checked against the track's own ID. A miss falls back to
    // the first of the library's tracks with that ID; that search is answered from an index
    // made on the first miss, so a list full of unknown IDs costs no more than one of known ones.
    std::unordered_map<std::uint32_t, const std::shared_ptr<iPodTrack>*> firstByID;
    bool firstByIDBuilt = false;
    const bool idsGiven = idAt.size() == tracks.size();
    auto resolve = [&](std::uint32_t trackID) -> const std::shared_ptr<iPodTrack>* {
        const std::uint32_t index = cachedIndex(trackID);
        if (index < tracks.size() &&
            (idsGiven ? idAt[index] == trackID : tracks[index] && tracks[index]->trackID() == trackID)) {
            // Members mostly follow the track list: the tracks a few places on are fetched into
            // the cache now, so that taking a reference to each (a write to its count) does not
            // wait for memory. The count lies just before a track made in one piece with it.
            if (index + kMemberPrefetch < tracks.size()) {
                const auto* ahead = reinterpret_cast<const char*>(tracks[index + kMemberPrefetch].get());
                __builtin_prefetch(ahead - 32, 1);
                __builtin_prefetch(ahead, 1);
            }
            return &tracks[index];
        }
        if (!firstByIDBuilt) {
            for (const auto& track : tracks_)
                firstByID.try_emplace(track->trackID(), &track);
            firstByIDBuilt = true;
        }
        auto found = firstByID.find(trackID);
        return found == firstByID.end() ? nullptr : found->second;
    };

    Playlists playlists;
    const std::uint32_t start = reader.position();
    const auto list = reader.readBlock<ListHeader::size>();
    const std::uint32_t count = le32(list, ChunkStart::childCount);
    reader.setPosition(start + le32(list, ChunkStart::headerLength));

    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t p = reader.position();
        const auto header = reader.readBlock<MHYPHeader::size>();
        const std::uint32_t objects = le32(header, MHYPHeader::dataObjectCount);
        const std::uint32_t items = le32(header, MHYPHeader::itemCount);
        const bool podcastFlag = le16(header, MHYPHeader::podcastFlag) == 1;
        bool smart = false;
        std::optional<Value::Dictionary> options;
        std::optional<std::string> name;
        reader.setPosition(p + le32(header, ChunkStart::headerLength));

        for (std::uint32_t j = 0; j < objects; ++j) {
            const std::uint32_t q = reader.position();
            const auto object = reader.readBlock<MHODHeader::size>();
            const std::uint32_t type = le32(object, MHODHeader::type);
            const std::uint32_t total = le32(object, ChunkStart::totalLength);
            if (type == kSmartPrefsType) {
                smart = true;
                options = readSmartPrefs(reader);
            } else if (type == kSmartRulesType) {
                reader.readRawBytes(SmartRules::skippedBeforeBlob);
                auto blob = reader.readRawBytes(static_cast<std::int32_t>(total - SmartRules::blobOffset));
                // The rule list is big-endian; the reader is left that way, which the rest of
                // this walk does not mind (it reads whole blocks and strings only).
                reader.setIsLittleEndian(false);
                auto rules = parseSmartPlaylistRulesInData(Data(blob.data(), blob.size()));
                // Rules met before any preferences object have nothing to join, and are lost.
                if (options)
                    for (auto& [key, value] : rules)
                        options->insert_or_assign(key, std::move(value));
            } else if (type == kTitleType) {
                // An unreadable title is the empty name; text that is not UTF-16, no name.
                std::string title;
                TextRead read = readObjectText(reader, title);
                name = read == TextRead::NotText ? std::nullopt : std::optional<std::string>(std::move(title));
            }
            reader.setPosition(q + total);
        }

        std::shared_ptr<Playlist> playlist;
        std::shared_ptr<Podcasts> podcasts;
        if (podcastFlag)
            playlist = podcasts = Podcasts::initWithMHYP(header, name);
        else if (smart)
            playlist = SmartPlaylist::initWithMHYP(header, name, options ? *options : Value::Dictionary());
        else
            playlist = Playlist::initWithMHYP(header, name);

        std::shared_ptr<Playlist> group;
        // A plain list's members are gathered and added at once (one change notice). The count
        // is the file's claim: room is made for no more than the library's tracks.
        Playlist::Tracks members;
        if (!podcasts)
            members.reserve(std::min<std::size_t>(items, tracks.size()));
        for (std::uint32_t k = 0; k < items; ++k) {
            const std::uint32_t r = reader.position();
            const auto item = reader.readBlock<MHIPHeader::size>();
            const std::uint32_t trackID = le32(item, MHIPHeader::trackID);
            if (trackID == 0 && podcasts && grouped) {
                // A group header item opens the next show; its title object follows its header.
                group = Playlist::init();
                reader.setPosition(r + le32(item, ChunkStart::headerLength));
                const auto object = reader.readBlock<MHODHeader::size>();
                if (le32(object, MHODHeader::type) == kTitleType) {
                    // A title that cannot be read leaves the show with its initial name.
                    std::string title;
                    TextRead read = readObjectText(reader, title);
                    if (read != TextRead::Unreadable)
                        group->setName(read == TextRead::Text ? std::optional<std::string>(std::move(title)) : std::nullopt);
                }
                podcasts->addPodcast(group);
            } else if (podcasts && grouped) {
                // Episodes listed before the first show header belong to no show and are dropped.
                if (const auto* track = group ? resolve(trackID) : nullptr)
                    group->addTrack(*track);
            } else if (podcasts) {
                // The plain list names episodes without shows: each goes to the show named after
                // its album, in the order the shows first appear; one without an album to none.
                const auto* track = resolve(trackID);
                if (track && (*track)->album()) {
                    std::shared_ptr<Playlist> show;
                    for (const auto& candidate : podcasts->podcasts())
                        if (candidate->name() == (*track)->album())
                            show = candidate;
                    if (!show) {
                        show = Playlist::initWithName((*track)->album());
                        podcasts->addPodcast(show);
                    }
                    show->addTrack(*track);
                }
            } else if (const auto* track = resolve(trackID)) {
                members.push_back(*track);
            }
            reader.setPosition(r + le32(item, ChunkStart::totalLength));
        }
        if (!members.empty())
            playlist->addTracks(std::move(members));
        playlists.push_back(std::move(playlist));
        reader.setPosition(p + le32(header, ChunkStart::totalLength));
    }
    return playlists;
}

Value::Dictionary iTunesDBLoader::parseSmartPlaylistRulesInData(const Data& data)
{
    auto reader = XRDataReader::dataReaderWithData(data, false);
    Value::Dictionary result;

    const auto header = reader->readBlock<SmartRules::headerSize>();
    // Only the low byte of the conjunction word counts.
    result["operatorOr"] = u8(header, SmartRules::conjunctionLowByte) != 0;
    const std::uint32_t count = be32(header, SmartRules::ruleCount);

    Value::Array rules;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t field = reader->readUInt32();
        Value::Dictionary rule{{"fieldType", field}};
        if (SmartPlaylistRule::isStringField(static_cast<std::int32_t>(field))) {
            const auto block = reader->readBlock<SmartRules::stringRuleSize>();
            rule["actionType"] = be32(block, 0);
            const std::uint32_t length = be32(block, SmartRules::stringRuleLength);
            if (length == 0) {
                rule["ruleValue"] = std::string();
            } else if (auto text = reader->readString(static_cast<std::int32_t>(length), StringEncoding::UTF16BE)) {
                rule["ruleValue"] = std::move(*text);
            }
        } else {
            const auto block = reader->readBlock<SmartRules::numericRuleSize>();
            rule["actionType"] = be32(block, 0);
            rule["fromValue"] = be64(block, SmartRules::fromValue);
            rule["fromDate"] = static_cast<std::int64_t>(be64(block, SmartRules::fromDate));
            rule["fromUnits"] = be64(block, SmartRules::fromUnits);
            rule["toValue"] = be64(block, SmartRules::toValue);
            rule["toDate"] = static_cast<std::int64_t>(be64(block, SmartRules::toDate));
            rule["toUnits"] = be64(block, SmartRules::toUnits);
        }
        rules.emplace_back(std::move(rule));
    }
    result["rules"] = std::move(rules);
    return result;
}

} // namespace zq
