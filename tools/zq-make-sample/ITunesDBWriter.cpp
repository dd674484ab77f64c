// The iTunesDB writer behind buildITunesDB and buildSmartRuleBlob.
//
// Records are written front to back into one growing buffer: a record's header is reserved
// first, its children appended, and its total length patched in last. Header fields are written
// through a view that drops whatever does not fit inside the record's declared header length,
// so a test that asks for a short header gets exactly that many header bytes.

#include "tools/zq-make-sample/DeviceImage.h"

#include "ZQCore/foundation/UTF16.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <stdexcept>

#include <zlib.h>

namespace zq::sample {

namespace {

constexpr std::uint32_t kObjectHeaderLength = 0x18;  // 16-byte object header + 8 unused bytes
constexpr std::uint32_t kStringHeaderEnd = 40;       // text starts here in a string object
constexpr std::uint32_t kDataSetHeaderLength = 0x60;
constexpr std::uint32_t kListHeaderLength = 0x5C;
constexpr std::uint32_t kItemHeaderLength = 0x4C;
constexpr std::uint32_t kPositionObjectLength = 0x2C;
constexpr std::uint32_t kColumnsObjectLength = 0x288;
constexpr std::uint32_t kPrefsObjectLength = 0x60;
constexpr std::uint32_t kRuleBlobHeaderLength = 136;
constexpr std::uint32_t kNumericRuleLength = 120;
constexpr std::uint16_t kGroupHeaderFlag = 0x0100;

class ByteSink {
public:
    std::vector<std::uint8_t>& bytes() { return bytes_; }
    std::size_t size() const { return bytes_.size(); }
    void reserve(std::size_t n) { bytes_.reserve(n); }

    /// Appends `n` zero bytes and answers where they start.
    std::size_t grow(std::size_t n)
    {
        std::size_t at = bytes_.size();
        bytes_.resize(at + n);
        return at;
    }
    void append(const void* data, std::size_t n)
    {
        const auto* p = static_cast<const std::uint8_t*>(data);
        bytes_.insert(bytes_.end(), p, p + n);
    }
    void put(std::size_t at, std::uint64_t value, unsigned width, bool littleEndian = true)
    {
        for (unsigned i = 0; i < width; ++i) {
            unsigned shift = 8 * (littleEndian ? i : width - 1 - i);
            bytes_[at + i] = static_cast<std::uint8_t>(value >> shift);
        }
    }

private:
    std::vector<std::uint8_t> bytes_;
};

/// The header of one record: field writes that do not fit in its declared length are dropped.
class Header {
public:
    Header(ByteSink& sink, const char* tag, std::uint32_t headerLength)
        : sink_(sink), start_(sink.grow(headerLength)), length_(headerLength)
    {
        for (unsigned i = 0; i < 4; ++i)
            put8(i, static_cast<std::uint8_t>(tag[i]));
        put32(4, headerLength);
    }

    std::size_t start() const { return start_; }
    void put8(std::size_t offset, std::uint8_t v) { put(offset, v, 1); }
    void put16(std::size_t offset, std::uint16_t v) { put(offset, v, 2); }
    void put32(std::size_t offset, std::uint32_t v) { put(offset, v, 4); }
    void put64(std::size_t offset, std::uint64_t v) { put(offset, v, 8); }

    /// Stores the bytes written since the header began (or `forced`) as the total length.
    void finish(std::optional<std::uint32_t> forced = std::nullopt)
    {
        put32(8, forced ? *forced : static_cast<std::uint32_t>(sink_.size() - start_));
    }

private:
    void put(std::size_t offset, std::uint64_t v, unsigned width)
    {
        if (offset + width <= length_)
            sink_.put(start_ + offset, v, width);
    }

    ByteSink& sink_;
    std::size_t start_;
    std::uint32_t length_;
};

void appendLE32(std::vector<std::uint8_t>& out, std::uint32_t v)
{
    for (unsigned i = 0; i < 4; ++i)
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

void appendBE(std::vector<std::uint8_t>& out, std::uint64_t v, unsigned width)
{
    for (unsigned i = width; i-- > 0;)
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

/// The 24 bytes of a string object after its 16-byte header and before the text: 8 unused
/// bytes, then position 1, the byte length, and the 1 and 0 iTunes always writes.
void appendStringHeader(std::vector<std::uint8_t>& out, std::uint32_t lengthField)
{
    out.insert(out.end(), 8, 0);
    appendLE32(out, 1);
    appendLE32(out, lengthField);
    appendLE32(out, 1);
    appendLE32(out, 0);
}

void writeStringObject(ByteSink& sink, std::uint32_t type, const std::string& utf8)
{
    std::string text = zq::encodeUTF16(utf8, true);
    Header h(sink, "mhod", kObjectHeaderLength);
    h.put32(12, type);
    std::size_t at = sink.grow(kStringHeaderEnd - kObjectHeaderLength);
    sink.put(at + 0, 1, 4);
    sink.put(at + 4, text.size(), 4);
    sink.put(at + 8, 1, 4);
    sink.append(text.data(), text.size());
    h.finish();
}

void writeRawObject(ByteSink& sink, const RawObject& object)
{
    // Written by hand rather than through Header: a raw object's header length is whatever the
    // test says, while its type and total length always sit at their usual offsets.
    std::size_t start = sink.grow(16);
    const char* tag = "mhod";
    for (unsigned i = 0; i < 4; ++i)
        sink.bytes()[start + i] = static_cast<std::uint8_t>(tag[i]);
    sink.put(start + 4, object.headerLength, 4);
    sink.put(start + 8, object.totalLength ? *object.totalLength : 16 + object.body.size(), 4);
    sink.put(start + 12, object.type, 4);
    sink.append(object.body.data(), object.body.size());
}

/// The file kind code iTunes stores at 24 ("MP3 " read as a little-endian number) and the two
/// type bytes at 28 and 29, chosen from the location's extension.
struct FileKind {
    std::uint32_t code;
    std::uint8_t type1, type2;
};

FileKind fileKindOf(const std::optional<std::string>& location)
{
    auto fourCC = [](const char* s) {
        return static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[0])) << 24 |
               static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[1])) << 16 |
               static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[2])) << 8 |
               static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[3]));
    };
    std::size_t dot = location ? location->rfind('.') : std::string::npos;
    if (dot == std::string::npos)
        return {0, 0, 0};
    std::string ext = location->substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ext == "mp3")
        return {fourCC("MP3 "), 1, 1};
    if (ext == "m4a" || ext == "m4b" || ext == "m4p")
        return {fourCC("M4A "), 0, 0};
    if (ext == "m4v" || ext == "mp4" || ext == "mov")
        return {fourCC("M4V "), 0, 0};
    if (ext == "wav")
        return {fourCC("WAV "), 0, 0};
    return {0, 0, 0};
}

void writeTrack(ByteSink& sink, const TrackSpec& t)
{
    const std::pair<std::uint32_t, const std::optional<std::string>*> strings[] = {
        {1, &t.title},      {2, &t.location},         {3, &t.album},       {4, &t.artist},
        {5, &t.genre},      {6, &t.fileType},         {7, &t.EQSetting},   {8, &t.comment},
        {9, &t.podcastCategory}, {12, &t.composer},   {13, &t.grouping},   {14, &t.description},
        {22, &t.albumArtist},
    };
    std::uint32_t objects = static_cast<std::uint32_t>(t.extraObjects.size());
    for (const auto& s : strings)
        objects += s.second->has_value() ? 1 : 0;

    Header h(sink, "mhit", t.headerLength);
    FileKind kind = fileKindOf(t.location);
    h.put32(12, t.objectCount ? *t.objectCount : objects);
    h.put32(16, t.trackID);
    h.put32(20, 1);  // visible
    h.put32(24, kind.code);
    h.put8(28, kind.type1);
    h.put8(29, kind.type2);
    h.put8(30, t.compilation);
    h.put8(31, t.rating);
    h.put32(32, t.lastModified);
    h.put32(36, t.fileSize);
    h.put32(40, t.trackLength);
    h.put32(44, t.trackNumber);
    h.put32(48, t.trackTotal);
    h.put32(52, t.year);
    h.put32(56, t.bitrate);
    h.put16(62, t.sampleRate);
    h.put32(64, t.volume);
    h.put32(68, t.startTime);
    h.put32(72, t.endTime);
    h.put32(76, t.soundcheckValue);
    h.put32(80, t.playCount);
    h.put32(84, t.playCount);  // plays since the last sync: iTunes writes the same number
    h.put32(88, t.lastPlayedTime);
    h.put32(92, t.discNumber);
    h.put32(96, t.discTotal);
    h.put32(104, t.dateAdded);
    h.put64(112, t.dbid);
    h.put8(120, t.checked);
    h.put16(122, t.BPM);
    h.put16(124, t.artworkCount);
    {
        // The sample rate again, as a 32-bit float, where later devices look for it.
        float rate = static_cast<float>(t.sampleRate);
        std::uint32_t bits;
        std::memcpy(&bits, &rate, sizeof bits);
        h.put32(136, bits);
    }
    h.put32(140, t.dateReleased);
    h.put32(156, t.skipCount);
    h.put32(160, t.lastSkippedTime);
    h.put8(164, t.artworkCount ? 1 : 2);  // has artwork: 1 yes, 2 no
    h.put64(168, t.dbid);                 // the second copy of the database ID
    h.put8(176, t.hasLyrics);
    h.put8(177, t.isMovie);
    h.put8(178, t.hasBeenPlayed);
    h.put32(208, t.mediaType);
    h.put32(212, t.seasonNumber);
    h.put32(216, t.episodeNumber);
    h.put16(314, t.albumID);
    h.put32(352, t.artworkLink);

    for (const auto& s : strings)
        if (s.second->has_value())
            writeStringObject(sink, s.first, **s.second);
    for (const auto& extra : t.extraObjects)
        writeRawObject(sink, extra);
    h.finish(t.totalLength);
}

/// The type-100 object of a playlist: the column layout of its view in iTunes (title, artist,
/// album, time, rating, play count), as iTunes writes it for every playlist.
void writeColumnsObject(ByteSink& sink)
{
    Header h(sink, "mhod", kObjectHeaderLength);
    h.put32(12, 100);
    std::size_t body = sink.grow(kColumnsObjectLength - kObjectHeaderLength);
    auto at = [&](std::size_t objectOffset) { return body + objectOffset - kObjectHeaderLength; };
    const std::pair<std::uint16_t, std::uint16_t> columns[] = {
        {0x01, 0x2D}, {0x02, 0xC8}, {0x03, 0xB4}, {0x0D, 0x3B}, {0x19, 0x60}, {0x1F, 0x50},
    };
    sink.put(at(0x2A), 1, 2);
    sink.put(at(0x2C), 0x18, 4);
    sink.put(at(0x30), std::size(columns), 4);
    sink.put(at(0x34), 4, 4);
    for (std::size_t i = 0; i < std::size(columns); ++i) {
        sink.put(at(0x38 + 16 * i), columns[i].first, 2);
        sink.put(at(0x3A + 16 * i), columns[i].second, 2);
    }
    sink.put(at(0x238), 0x8C, 4);
    sink.put(at(0x244), 0x12C, 4);
    h.finish();
}

void writePrefsObject(ByteSink& sink, const SmartPrefsSpec& prefs)
{
    Header h(sink, "mhod", kObjectHeaderLength);
    h.put32(12, 50);
    std::size_t body = sink.grow(kPrefsObjectLength - kObjectHeaderLength);
    sink.put(body + 0, prefs.liveUpdating, 1);
    sink.put(body + 1, prefs.enableRules, 1);
    sink.put(body + 2, prefs.enableLimits, 1);
    sink.put(body + 3, prefs.limitType, 1);
    sink.put(body + 4, prefs.limitSort, 1);
    sink.put(body + 8, prefs.limitValue, 4);
    sink.put(body + 12, prefs.matchChecked, 1);
    sink.put(body + 13, prefs.reverseLimitSort, 1);
    h.finish();
}

void writeRulesObject(ByteSink& sink, const SmartRulesSpec& rules)
{
    Data blob = buildSmartRuleBlob(rules);
    Header h(sink, "mhod", kObjectHeaderLength);
    h.put32(12, 51);
    sink.append(blob.bytes(), blob.size());
    h.finish();
}

/// Playlist items carry IDs of their own, counted across a whole playlist list as iTunes does;
/// an episode names its show by the ID of the show's group header item.
struct ItemNumbering {
    std::uint32_t nextID = 0x6000;
};

void writePositionObject(ByteSink& sink, std::uint32_t position)
{
    Header h(sink, "mhod", kObjectHeaderLength);
    h.put32(12, 100);
    std::size_t body = sink.grow(kPositionObjectLength - kObjectHeaderLength);
    sink.put(body, position, 4);
    h.finish();
}

void writeItem(ByteSink& sink, const PlaylistItem& item, const PlaylistSpec& playlist,
               std::uint32_t itemID, std::uint32_t groupID)
{
    // Every item carries one object: a group header its show's title, any other item (and a
    // group header without a name) the type-100 position object.
    const bool titled = item.isGroupHeader && item.groupName;
    std::uint32_t objects = item.objects ? static_cast<std::uint32_t>(item.objects->size()) : 1;
    Header h(sink, "mhip", kItemHeaderLength);
    h.put32(12, objects);
    if (item.isGroupHeader)
        h.put16(16, kGroupHeaderFlag);
    h.put32(20, itemID);
    h.put32(24, item.trackID);
    h.put32(28, playlist.creationTimestamp);
    if (!item.isGroupHeader)
        h.put32(32, groupID);
    if (item.objects) {
        for (const auto& object : *item.objects)
            writeRawObject(sink, object);
    } else if (titled) {
        writeStringObject(sink, 1, *item.groupName);
    } else {
        writePositionObject(sink, itemID);
    }
    h.finish();
}

void writePlaylist(ByteSink& sink, const PlaylistSpec& p, bool grouped, std::uint64_t databaseID,
                   ItemNumbering& numbering)
{
    std::uint32_t objects = 0;
    for (PlaylistObject kind : p.objectOrder) {
        switch (kind) {
        case PlaylistObject::Title: objects += p.name ? 1 : 0; break;
        case PlaylistObject::Columns: objects += p.columnsObject ? 1 : 0; break;
        case PlaylistObject::Prefs: objects += p.smartPrefs ? 1 : 0; break;
        case PlaylistObject::Rules: objects += p.smartRules ? 1 : 0; break;
        case PlaylistObject::Extras: objects += static_cast<std::uint32_t>(p.extraObjects.size()); break;
        }
    }
    std::uint32_t items = 0;
    for (const auto& item : p.items)
        items += (grouped || !item.isGroupHeader) ? 1 : 0;

    Header h(sink, "mhyp", p.headerLength);
    h.put32(12, p.objectCount ? *p.objectCount : objects);
    h.put32(16, p.itemCount ? *p.itemCount : items);
    h.put8(20, p.master);
    h.put32(24, p.creationTimestamp);
    h.put64(28, p.playlistID);
    h.put16(40, p.name ? 1 : 0);  // string objects among the data objects
    h.put16(42, p.podcast);
    h.put32(44, p.sortOrder);
    h.put64(60, databaseID);
    h.put64(68, p.playlistID);
    h.put32(88, p.creationTimestamp);  // last modified

    for (PlaylistObject kind : p.objectOrder) {
        switch (kind) {
        case PlaylistObject::Title:
            if (p.name)
                writeStringObject(sink, 1, *p.name);
            break;
        case PlaylistObject::Columns:
            if (p.columnsObject)
                writeColumnsObject(sink);
            break;
        case PlaylistObject::Prefs:
            if (p.smartPrefs)
                writePrefsObject(sink, *p.smartPrefs);
            break;
        case PlaylistObject::Rules:
            if (p.smartRules)
                writeRulesObject(sink, *p.smartRules);
            break;
        case PlaylistObject::Extras:
            for (const auto& extra : p.extraObjects)
                writeRawObject(sink, extra);
            break;
        }
    }

    std::uint32_t groupID = 0;
    for (const auto& item : p.items) {
        if (item.isGroupHeader && !grouped)
            continue;
        std::uint32_t itemID = numbering.nextID++;
        if (item.isGroupHeader)
            groupID = itemID;
        writeItem(sink, item, p, itemID, groupID);
    }
    h.finish();
}

void writeDataSet(ByteSink& sink, const DataSet& set, const DatabaseSpec& db)
{
    Header h(sink, "mhsd", kDataSetHeaderLength);
    h.put32(12, set.type);
    const auto& tracks = set.tracks ? *set.tracks : db.tracks;
    const auto& playlists = set.playlists ? *set.playlists : db.playlists;
    switch (set.type) {
    case 1: {
        Header list(sink, "mhlt", kListHeaderLength);
        list.put32(8, static_cast<std::uint32_t>(tracks.size()));
        for (const auto& track : tracks)
            writeTrack(sink, track);
        break;
    }
    case 2:
    case 3: {
        Header list(sink, "mhlp", kListHeaderLength);
        list.put32(8, static_cast<std::uint32_t>(playlists.size()));
        ItemNumbering numbering;
        for (const auto& playlist : playlists)
            writePlaylist(sink, playlist, set.type == 3, db.databaseID, numbering);
        break;
    }
    case 4: {
        Header list(sink, "mhla", kListHeaderLength);
        list.put32(8, 0);
        break;
    }
    case 5: {
        Header list(sink, "mhlp", kListHeaderLength);
        list.put32(8, 0);
        break;
    }
    default:
        break;
    }
    h.finish(set.totalLength);
}

/// An upper bound of the bytes a database will take, so the buffer is allocated once.
std::size_t estimateSize(const DatabaseSpec& db)
{
    auto stringBound = [](const std::optional<std::string>& s) {
        return s ? kStringHeaderEnd + 2 * s->size() : 0;
    };
    auto trackBound = [&](const TrackSpec& t) {
        std::size_t n = t.headerLength;
        for (const auto* s : {&t.title, &t.location, &t.album, &t.artist, &t.genre, &t.fileType,
                              &t.EQSetting, &t.comment, &t.podcastCategory, &t.composer,
                              &t.grouping, &t.description, &t.albumArtist})
            n += stringBound(*s);
        for (const auto& e : t.extraObjects)
            n += 16 + e.body.size();
        return n;
    };
    auto playlistBound = [&](const PlaylistSpec& p) {
        std::size_t n = p.headerLength + kColumnsObjectLength + kPrefsObjectLength + stringBound(p.name) +
                        kObjectHeaderLength + kRuleBlobHeaderLength;
        if (p.smartRules)
            for (const auto& r : p.smartRules->rules)
                n += 4 + kNumericRuleLength + (r.text ? 2 * r.text->size() : 0);
        for (const auto& e : p.extraObjects)
            n += 16 + e.body.size();
        n += p.items.size() * (kItemHeaderLength + kPositionObjectLength);
        for (const auto& item : p.items) {
            n += stringBound(item.groupName);
            if (item.objects)
                for (const auto& e : *item.objects)
                    n += 16 + e.body.size();
        }
        return n;
    };
    std::size_t n = db.headerLength;
    for (const auto& set : db.dataSets) {
        n += kDataSetHeaderLength + kListHeaderLength;
        if (set.type == 1)
            for (const auto& t : set.tracks ? *set.tracks : db.tracks)
                n += trackBound(t);
        if (set.type == 2 || set.type == 3)
            for (const auto& p : set.playlists ? *set.playlists : db.playlists)
                n += playlistBound(p);
    }
    return n;
}

} // namespace

RawObject RawObject::string(std::uint32_t type, const std::string& utf8, std::optional<std::uint32_t> lengthField)
{
    std::string text = zq::encodeUTF16(utf8, true);
    return stringBytes(type, std::vector<std::uint8_t>(text.begin(), text.end()), lengthField);
}

RawObject RawObject::stringBytes(std::uint32_t type, std::vector<std::uint8_t> textBytes,
                                 std::optional<std::uint32_t> lengthField)
{
    RawObject object{.type = type};
    appendStringHeader(object.body, lengthField ? *lengthField : static_cast<std::uint32_t>(textBytes.size()));
    object.body.insert(object.body.end(), textBytes.begin(), textBytes.end());
    return object;
}

PlaylistItem PlaylistItem::group(std::optional<std::string> name)
{
    PlaylistItem item(0);
    item.isGroupHeader = true;
    item.groupName = std::move(name);
    return item;
}

DataSet DataSet::withTotalLength(std::uint32_t type, std::uint32_t totalLength)
{
    DataSet set(type);
    set.totalLength = totalLength;
    return set;
}

DataSet DataSet::withTracks(std::vector<TrackSpec> tracks)
{
    DataSet set(1);
    set.tracks = std::move(tracks);
    return set;
}

DataSet DataSet::withPlaylists(std::uint32_t type, std::vector<PlaylistSpec> playlists)
{
    DataSet set(type);
    set.playlists = std::move(playlists);
    return set;
}

Data buildSmartRuleBlob(const SmartRulesSpec& setup)
{
    std::vector<std::uint8_t> out;
    out.reserve(kRuleBlobHeaderLength + setup.rules.size() * (4 + kNumericRuleLength));
    const char tag[] = {'S', 'L', 's', 't'};
    out.insert(out.end(), tag, tag + 4);
    appendBE(out, 0x00010001, 4);  // version
    appendBE(out, setup.ruleCount ? *setup.ruleCount : setup.rules.size(), 4);
    appendBE(out, setup.conjunction, 4);
    out.resize(kRuleBlobHeaderLength, 0);

    for (const auto& rule : setup.rules) {
        appendBE(out, rule.field, 4);
        appendBE(out, rule.action, 4);
        if (rule.text) {
            std::string text = zq::encodeUTF16(*rule.text, false);
            out.insert(out.end(), 44, 0);
            appendBE(out, rule.textLength ? *rule.textLength : text.size(), 4);
            out.insert(out.end(), text.begin(), text.end());
        } else {
            out.insert(out.end(), 44, 0);
            appendBE(out, 0x44, 4);  // iTunes' length of the numeric operands, never read
            appendBE(out, rule.fromValue, 8);
            appendBE(out, static_cast<std::uint64_t>(rule.fromDate), 8);
            appendBE(out, rule.fromUnits, 8);
            appendBE(out, rule.toValue, 8);
            appendBE(out, static_cast<std::uint64_t>(rule.toDate), 8);
            appendBE(out, rule.toUnits, 8);
            out.insert(out.end(), kNumericRuleLength - 100, 0);
        }
    }
    return Data(out.data(), out.size());
}

Data buildITunesDB(const DatabaseSpec& setup)
{
    ByteSink sink;
    sink.reserve(estimateSize(setup));

    Header h(sink, "mhbd", setup.headerLength);
    h.put32(12, 1);
    h.put32(16, setup.version);
    h.put32(20, setup.dataSetCount ? *setup.dataSetCount : static_cast<std::uint32_t>(setup.dataSets.size()));
    h.put64(24, setup.databaseID);
    h.put16(32, 2);  // platform: 2 is a Windows iTunes, 1 a Mac
    h.put8(0x46, 'e');
    h.put8(0x47, 'n');
    h.put64(0x48, setup.databaseID ^ 0x5A5A5A5A5A5A5A5AULL);  // library persistent ID

    for (const auto& set : setup.dataSets)
        writeDataSet(sink, set, setup);
    h.finish();
    return Data(sink.bytes().data(), sink.size());
}

Data compressITunesDB(const Data& plain, int level)
{
    const std::uint8_t* bytes = plain.bytes();
    auto le32At = [&](std::size_t at) {
        return plain.size() >= at + 4 ? static_cast<std::uint32_t>(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
                                                                   static_cast<std::uint32_t>(bytes[at + 3]) << 24)
                                      : 0u;
    };
    const std::size_t headerLength = std::min<std::size_t>(le32At(4), plain.size());
    std::vector<std::uint8_t> out(bytes, bytes + headerLength);
    const std::size_t bodyLength = plain.size() - headerLength;
    uLongf compressedLength = compressBound(static_cast<uLong>(bodyLength));
    out.resize(headerLength + compressedLength);
    if (compress2(out.data() + headerLength, &compressedLength, bytes + headerLength, static_cast<uLong>(bodyLength),
                  level) != Z_OK)
        throw std::runtime_error("zlib could not compress the database");
    out.resize(headerLength + compressedLength);

    auto put = [&](std::size_t at, std::uint32_t value, unsigned width) {
        for (unsigned i = 0; i < width && at + i < headerLength; ++i)
            out[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    };
    put(8, static_cast<std::uint32_t>(out.size()), 4);  // the stored file's length
    put(12, 2, 4);                                      // 2: a compressed database
    if (headerLength >= 0xAA)
        put(0xA8, 1, 2);                                // the compression flag
    return Data(out.data(), out.size());
}

Data buildITunesCDB(const DatabaseSpec& database) { return compressITunesDB(buildITunesDB(database)); }

} // namespace zq::sample
