#include "LibraryReport.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <ostream>
#include <string>
#include <string_view>

namespace zqpod {

using Json = nlohmann::ordered_json;

namespace {

Json text(const std::optional<std::string>& value) { return value ? Json(*value) : Json(nullptr); }

std::string serialOf(const zq::ZQCoreiPod& library)
{
    const zq::Value* serial = library.properties().find("SerialNumber");
    return serial && serial->string() ? *serial->string() : std::string();
}

Json trackIDs(const zq::Playlist::Tracks& tracks)
{
    Json ids = Json::array();
    for (const auto& track : tracks)
        ids.push_back(track->trackID());
    return ids;
}

// Writes the library's JSON as it is produced, in nlohmann's pretty-printed form (two-space
// indent, one element per line, "[]" for an empty array) so the text is the same as a
// whole-document dump, without holding a document of 100,000 tracks in memory. Text goes out
// in blocks; values that need nlohmann's rules (escapes, invalid UTF-8 replaced) go through its
// own serializer into the same block.
class JSONStream {
public:
    explicit JSONStream(std::ostream& out)
        : out_(out), serializer_(nlohmann::detail::output_adapter<char, std::string>(buffer_), ' ',
                                 Json::error_handler_t::replace)
    {
        buffer_.reserve(kBlock + 4096);
    }

    // "{" or "[" opening a container whose members are indented by indent + 2; an empty one is
    // written whole ("[]") by open and close together.
    void open(char bracket, unsigned indent, bool empty = false)
    {
        (void)indent;
        buffer_ += bracket;
        if (empty)
            buffer_ += bracket == '[' ? ']' : '}';
        first_ = true;
    }
    void close(char bracket, unsigned indent, bool empty = false)
    {
        if (empty) {
            first_ = false;
            return;
        }
        buffer_ += '\n';
        buffer_.append(indent, ' ');
        buffer_ += bracket;
        first_ = false;
        flushIfFull();
    }
    // Starts an array element at the given indent.
    void element(unsigned indent)
    {
        buffer_ += first_ ? "\n" : ",\n";
        buffer_.append(indent, ' ');
        first_ = true;
    }
    // Starts an object member; `name` is plain ASCII and needs no escaping.
    void key(std::string_view name, unsigned indent)
    {
        buffer_ += first_ ? "\n" : ",\n";
        buffer_.append(indent, ' ');
        buffer_ += '"';
        buffer_ += name;
        buffer_ += "\": ";
        first_ = false;
    }
    void text(const std::optional<std::string>& value)
    {
        if (!value) {
            buffer_ += "null";
            return;
        }
        // Printable ASCII without quote or backslash is written as it is; anything else takes
        // nlohmann's escaping and UTF-8 checks.
        for (unsigned char c : *value) {
            if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\') {
                serializer_.dump(Json(*value), true, false, 2, 0);
                return;
            }
        }
        buffer_ += '"';
        buffer_ += *value;
        buffer_ += '"';
    }
    template <class Integer>
    void number(Integer value)
    {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        buffer_.append(digits, end);
    }
    void boolean(bool value) { buffer_ += value ? "true" : "false"; }
    void null() { buffer_ += "null"; }
    void value(const Json& json, unsigned indent) { serializer_.dump(json, true, false, 2, indent); first_ = false; }
    void raw(std::string_view text) { buffer_ += text; }
    void endObject(unsigned indent)
    {
        close('}', indent);
    }

    void flush()
    {
        out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        buffer_.clear();
    }

private:
    static constexpr std::size_t kBlock = 1 << 16;
    void flushIfFull()
    {
        if (buffer_.size() >= kBlock)
            flush();
    }

    std::ostream& out_;
    std::string buffer_;
    nlohmann::detail::serializer<Json> serializer_;
    bool first_ = true;
};

void writeDate(JSONStream& json, const std::optional<zq::Date>& value)
{
    if (value)
        json.text(value->iso8601());
    else
        json.null();
}

// One track object at indent 4, members at 6, in the order programs have always seen.
void writeTrack(JSONStream& json, const zq::iPodTrack& t)
{
    constexpr unsigned kIndent = 6;
    json.open('{', 4);
    auto number = [&](std::string_view name, auto value) {
        json.key(name, kIndent);
        json.number(value);
    };
    auto string = [&](std::string_view name, const std::optional<std::string>& value) {
        json.key(name, kIndent);
        json.text(value);
    };
    auto date = [&](std::string_view name, const std::optional<zq::Date>& value) {
        json.key(name, kIndent);
        writeDate(json, value);
    };
    number("trackID", t.trackID());
    number("dbid", t.dbid());
    string("title", t.title());
    string("artist", t.artist());
    string("album", t.album());
    string("albumArtist", t.albumArtist());
    string("genre", t.genre());
    string("composer", t.composer());
    string("comment", t.comment());
    string("grouping", t.grouping());
    string("fileType", t.fileType());
    string("EQSetting", t.EQSetting());
    string("podcastCategory", t.podcastCategory());
    string("trackDescription", t.trackDescription());
    string("filePath", t.filePath());
    number("rating", t.rating());
    number("fileSize", t.fileSize());
    number("trackLength", t.trackLength());
    number("trackNumber", t.trackNumber());
    number("trackTotal", t.trackTotal());
    number("discNumber", t.discNumber());
    number("discTotal", t.discTotal());
    number("year", t.year());
    number("bitrate", t.bitrate());
    number("sampleRate", t.sampleRate());
    number("volume", t.volume());
    number("startTime", t.startTime());
    number("endTime", t.endTime());
    number("soundcheckValue", t.soundcheckValue());
    number("playCount", t.playCount());
    number("BPM", t.BPM());
    number("mediaType", t.mediaType());
    date("lastModified", t.lastModified());
    date("lastPlayedTime", t.lastPlayedTime());
    date("dateAdded", t.dateAdded());
    date("dateReleased", t.dateReleased());
    date("lastSkippedTime", t.lastSkippedTime());
    json.key("compilation", kIndent);
    json.boolean(t.compilation());
    number("albumID", t.albumID());
    number("artworkLink", t.artworkLink());
    // The artwork the track carries: its image identifier and the visible size of the stored
    // size its image is made from; null for a track without artwork.
    std::optional<std::uint32_t> artworkID;
    std::optional<std::int32_t> artworkWidth, artworkHeight;
    if (t.hasAlbumArt()) {
        const auto art = t.albumArt();
        artworkID = art->artworkID();
        if (const auto& rep = art->preferredRep()) {
            artworkWidth = rep->width();
            artworkHeight = rep->height();
        }
    }
    auto optionalNumber = [&](std::string_view name, auto value) {
        json.key(name, kIndent);
        if (value)
            json.number(*value);
        else
            json.null();
    };
    optionalNumber("artworkID", artworkID);
    optionalNumber("artworkWidth", artworkWidth);
    optionalNumber("artworkHeight", artworkHeight);
    json.endObject(4);
}

Json ruleJSON(const zq::SmartPlaylistRule& rule)
{
    Json json{{"field", rule.field()}, {"action", rule.action()}, {"isStringRule", rule.isStringRule()}};
    if (rule.isStringRule()) {
        json["ruleValue"] = text(rule.ruleValue());
    } else {
        json["fromValue"] = rule.fromValue();
        json["toValue"] = rule.toValue();
        if (rule.numericRuleIsDateStamp()) {
            json["fromUnit"] = rule.fromUnit();
            json["toUnit"] = rule.toUnit();
            json["fromDate"] = rule.fromDate();
            json["toDate"] = rule.toDate();
        }
    }
    json["description"] = rule.description();
    return json;
}

Json playlistJSON(const zq::Playlist& playlist)
{
    Json json{
        {"kind", playlist.kind()},
        {"name", text(playlist.name())},
        {"playlistID", playlist.playlistID()},
        {"parentID", playlist.parentID()},
        {"isMaster", playlist.isMaster()},
        {"isPodcasts", playlist.isPodcasts()},
        {"trackIDs", trackIDs(playlist.tracks())},
    };
    if (const auto* smart = dynamic_cast<const zq::SmartPlaylist*>(&playlist)) {
        json["limitType"] = smart->limitType();
        json["limitSortType"] = smart->limitSortType();
        json["limit"] = smart->limit();
        json["liveUpdating"] = smart->liveUpdating();
        json["rulesEnabled"] = smart->rulesEnabled();
        json["limitsEnabled"] = smart->limitsEnabled();
        json["onlyMatchCheckedTracks"] = smart->onlyMatchCheckedTracks();
        json["limitSortReversed"] = smart->limitSortReversed();
        json["isOr"] = smart->isOr();
        Json rules = Json::array();
        for (const auto& rule : smart->rules())
            rules.push_back(ruleJSON(*rule));
        json["rules"] = std::move(rules);
    } else if (const auto* podcasts = dynamic_cast<const zq::Podcasts*>(&playlist)) {
        Json groups = Json::array();
        for (const auto& show : podcasts->podcasts())
            groups.push_back(Json{{"name", text(show->name())}, {"trackIDs", trackIDs(show->tracks())}});
        json["groups"] = std::move(groups);
    } else if (const auto* folder = dynamic_cast<const zq::PlaylistFolder*>(&playlist)) {
        Json children = Json::array();
        for (const auto& child : folder->playlists())
            children.push_back(playlistJSON(*child));
        json["children"] = std::move(children);
    }
    return json;
}

// Folder children are printed under their folder, so a top-level listing skips playlists that
// some folder holds.
bool insideSomeFolder(const zq::ZQCoreiPod& library, const zq::Playlist& playlist)
{
    for (const auto& candidate : library.allPlaylists())
        if (const auto* folder = dynamic_cast<const zq::PlaylistFolder*>(candidate.get()))
            for (const auto& child : folder->playlists())
                if (child.get() == &playlist)
                    return true;
    return false;
}

void printIndented(std::ostream& out, const std::string& block, const std::string& indent)
{
    std::size_t start = 0;
    while (start < block.size()) {
        std::size_t end = block.find('\n', start);
        std::string line = block.substr(start, end == std::string::npos ? std::string::npos : end - start);
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        out << indent << line << '\n';
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
}

} // namespace

void printLibraryJSON(std::ostream& out, const zq::ZQCoreiPod& library)
{
    JSONStream json(out);
    json.open('{', 0);
    json.key("name", 2);
    json.text(library.name());
    const zq::Value* serial = library.properties().find("SerialNumber");
    json.key("serialNumber", 2);
    json.text(serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt);
    json.key("type", 2);
    json.value(Json(library.type()), 2);
    json.key("tracks", 2);
    const auto& tracks = library.allTracks();
    json.open('[', 2, tracks.empty());
    for (const auto& track : tracks) {
        json.element(4);
        writeTrack(json, *track);
    }
    json.close(']', 2, tracks.empty());
    // Playlists are few; each is built whole (its track IDs included) and written at once.
    json.key("playlists", 2);
    std::size_t written = 0;
    for (const auto& playlist : library.allPlaylists()) {
        if (insideSomeFolder(library, *playlist))
            continue;
        if (written++ == 0)
            json.open('[', 2);
        json.element(4);
        json.value(playlistJSON(*playlist), 4);
    }
    if (written == 0)
        json.open('[', 2, true);
    json.close(']', 2, written == 0);
    json.close('}', 0);
    json.raw("\n");
    json.flush();
}

void printLibraryText(std::ostream& out, const zq::ZQCoreiPod& library)
{
    const auto name = library.name();
    const std::string serial = serialOf(library);
    out << (name ? *name : std::string("(unnamed)")) << '\n';
    out << "  Serial number: " << (serial.empty() ? "unknown" : serial) << '\n';
    out << "  Model type:    " << library.type() << '\n';
    out << "  Mounted at:    " << library.path() << '\n';
    out << "  Tracks:        " << library.allTracks().size() << '\n';
    out << "  Playlists:     " << library.allPlaylists().size() << '\n';
    out << '\n';
    for (const auto& playlist : library.allPlaylists()) {
        if (insideSomeFolder(library, *playlist))
            continue;
        printIndented(out, playlist->description(), "");
        if (const auto* podcasts = dynamic_cast<const zq::Podcasts*>(playlist.get())) {
            for (const auto& show : podcasts->podcasts())
                out << "    " << (show->name() ? *show->name() : std::string("(unnamed show)")) << ": "
                    << show->trackCount() << (show->trackCount() == 1 ? " episode" : " episodes") << '\n';
        }
    }
}

} // namespace zqpod
