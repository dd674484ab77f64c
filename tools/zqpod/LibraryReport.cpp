#include "LibraryReport.h"
#include "JsonStream.h"
#include "TerminalText.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/DeviceModel.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
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

// One track object at indent 4, members at 6, in the order programs have always seen. Member
// names are written with their line breaks and indent in one piece.
#define ZQPOD_MEMBER(name) ",\n      \"" name "\": "
void writeTrack(JsonStream& json, const zq::iPodTrack& t)
{
    using T = zq::iPodTrack;
    json.open('{');
    json.member("\n      \"trackID\": ");
    json.number(t.trackID());
    auto number = [&](std::string_view member, auto value) {
        json.member(member);
        json.number(value);
    };
    auto string = [&](std::string_view member, T::StringField field) {
        json.member(member);
        json.text(t.textView(field));
    };
    auto date = [&](std::string_view member, const std::optional<zq::Date>& value) {
        json.member(member);
        json.date(value);
    };
    number(ZQPOD_MEMBER("dbid"), t.dbid());
    string(ZQPOD_MEMBER("title"), T::Title);
    string(ZQPOD_MEMBER("artist"), T::Artist);
    string(ZQPOD_MEMBER("album"), T::Album);
    string(ZQPOD_MEMBER("albumArtist"), T::AlbumArtist);
    string(ZQPOD_MEMBER("genre"), T::Genre);
    string(ZQPOD_MEMBER("composer"), T::Composer);
    string(ZQPOD_MEMBER("comment"), T::Comment);
    string(ZQPOD_MEMBER("grouping"), T::Grouping);
    string(ZQPOD_MEMBER("fileType"), T::FileType);
    string(ZQPOD_MEMBER("EQSetting"), T::EQSettingText);
    string(ZQPOD_MEMBER("podcastCategory"), T::PodcastCategory);
    string(ZQPOD_MEMBER("trackDescription"), T::TrackDescription);
    string(ZQPOD_MEMBER("filePath"), T::FilePath);
    number(ZQPOD_MEMBER("rating"), t.rating());
    number(ZQPOD_MEMBER("fileSize"), t.fileSize());
    number(ZQPOD_MEMBER("trackLength"), t.trackLength());
    number(ZQPOD_MEMBER("trackNumber"), t.trackNumber());
    number(ZQPOD_MEMBER("trackTotal"), t.trackTotal());
    number(ZQPOD_MEMBER("discNumber"), t.discNumber());
    number(ZQPOD_MEMBER("discTotal"), t.discTotal());
    number(ZQPOD_MEMBER("year"), t.year());
    number(ZQPOD_MEMBER("bitrate"), t.bitrate());
    number(ZQPOD_MEMBER("sampleRate"), t.sampleRate());
    number(ZQPOD_MEMBER("volume"), t.volume());
    number(ZQPOD_MEMBER("startTime"), t.startTime());
    number(ZQPOD_MEMBER("endTime"), t.endTime());
    number(ZQPOD_MEMBER("soundcheckValue"), t.soundcheckValue());
    number(ZQPOD_MEMBER("playCount"), t.playCount());
    number(ZQPOD_MEMBER("BPM"), t.BPM());
    number(ZQPOD_MEMBER("mediaType"), t.mediaType());
    date(ZQPOD_MEMBER("lastModified"), t.lastModified());
    date(ZQPOD_MEMBER("lastPlayedTime"), t.lastPlayedTime());
    date(ZQPOD_MEMBER("dateAdded"), t.dateAdded());
    date(ZQPOD_MEMBER("dateReleased"), t.dateReleased());
    date(ZQPOD_MEMBER("lastSkippedTime"), t.lastSkippedTime());
    json.member(ZQPOD_MEMBER("compilation"));
    json.boolean(t.compilation());
    number(ZQPOD_MEMBER("albumID"), t.albumID());
    number(ZQPOD_MEMBER("artworkLink"), t.artworkLink());
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
    auto optionalNumber = [&](std::string_view member, auto value) {
        json.member(member);
        if (value)
            json.number(*value);
        else
            json.null();
    };
    optionalNumber(ZQPOD_MEMBER("artworkID"), artworkID);
    optionalNumber(ZQPOD_MEMBER("artworkWidth"), artworkWidth);
    optionalNumber(ZQPOD_MEMBER("artworkHeight"), artworkHeight);
    json.close('}', 4);
}
#undef ZQPOD_MEMBER

// The elements of the track list, each at indent 4: most of the text of a large listing.
void writeTrackElements(JsonStream& json, const zq::ZQCoreiPod::Tracks& tracks)
{
    writeElementsInPieces(json, tracks.size(), [&](JsonStream& into, std::size_t i) {
        into.element(4);
        writeTrack(into, *tracks[i]);
    });
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

// A list of track IDs at `indent`, one per line, as nlohmann prints an array ("[]" when empty).
void writeTrackIDs(JsonStream& json, const zq::Playlist::Tracks& tracks, unsigned indent)
{
    json.open('[', tracks.empty());
    for (const auto& track : tracks) {
        json.item(indent + 2);
        json.number(track->trackID());
    }
    json.close(']', indent, tracks.empty());
}

// One playlist object at `indent` (members at indent + 2), written as it is produced: a master
// playlist lists every track of the library.
void writePlaylist(JsonStream& json, const zq::Playlist& playlist, unsigned indent)
{
    const unsigned inner = indent + 2;
    json.open('{');
    json.key("kind", inner);
    json.text(std::optional<std::string_view>(playlist.kind()));
    json.key("name", inner);
    json.text(playlist.name());
    json.key("playlistID", inner);
    json.number(playlist.playlistID());
    json.key("parentID", inner);
    json.number(playlist.parentID());
    json.key("isMaster", inner);
    json.boolean(playlist.isMaster());
    json.key("isPodcasts", inner);
    json.boolean(playlist.isPodcasts());
    json.key("trackIDs", inner);
    writeTrackIDs(json, playlist.tracks(), inner);
    if (const auto* smart = dynamic_cast<const zq::SmartPlaylist*>(&playlist)) {
        auto number = [&](std::string_view name, std::int32_t value) {
            json.key(name, inner);
            json.number(value);
        };
        auto boolean = [&](std::string_view name, bool value) {
            json.key(name, inner);
            json.boolean(value);
        };
        number("limitType", smart->limitType());
        number("limitSortType", smart->limitSortType());
        number("limit", smart->limit());
        boolean("liveUpdating", smart->liveUpdating());
        boolean("rulesEnabled", smart->rulesEnabled());
        boolean("limitsEnabled", smart->limitsEnabled());
        boolean("onlyMatchCheckedTracks", smart->onlyMatchCheckedTracks());
        boolean("limitSortReversed", smart->limitSortReversed());
        boolean("isOr", smart->isOr());
        // Rules are few: nlohmann writes them.
        Json rules = Json::array();
        for (const auto& rule : smart->rules())
            rules.push_back(ruleJSON(*rule));
        json.key("rules", inner);
        json.value(rules, inner);
    } else if (const auto* podcasts = dynamic_cast<const zq::Podcasts*>(&playlist)) {
        const auto& shows = podcasts->podcasts();
        json.key("groups", inner);
        json.open('[', shows.empty());
        for (const auto& show : shows) {
            json.element(inner + 2);
            json.open('{');
            json.key("name", inner + 4);
            json.text(show->name());
            json.key("trackIDs", inner + 4);
            writeTrackIDs(json, show->tracks(), inner + 4);
            json.close('}', inner + 2);
        }
        json.close(']', inner, shows.empty());
    } else if (const auto* folder = dynamic_cast<const zq::PlaylistFolder*>(&playlist)) {
        const auto& children = folder->playlists();
        json.key("children", inner);
        json.open('[', children.empty());
        for (const auto& child : children) {
            json.element(inner + 2);
            writePlaylist(json, *child, inner + 2);
        }
        json.close(']', inner, children.empty());
    }
    json.close('}', indent);
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

/// The model's parts, each null when unknown; "displayName" is null too when even the family is.
Json modelJSON(const zq::DeviceModel& model)
{
    const std::string display = model.displayName();
    return Json{{"number", text(model.modelNumber())}, {"name", text(model.name())},
                {"generation", text(model.generation())}, {"capacity", text(model.capacity())},
                {"colour", text(model.colour())}, {"displayName", display.empty() ? Json(nullptr) : Json(display)}};
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

std::string describeModel(const zq::DeviceModel& model)
{
    std::string text = model.isKnown() ? model.displayName() : model.modelNumber() ? "unknown" : "";
    if (model.modelNumber())
        text += " (" + *model.modelNumber() + ")";
    return text;
}

void printLibraryJSON(std::ostream& out, const zq::ZQCoreiPod& library)
{
    JsonStream json(out);
    json.open('{');
    json.key("name", 2);
    json.text(library.name());
    const zq::Value* serial = library.properties().find("SerialNumber");
    json.key("serialNumber", 2);
    json.text(serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt);
    json.key("type", 2);
    json.value(Json(library.type()), 2);
    json.key("model", 2);
    json.value(modelJSON(library.model()), 2);
    json.key("tracks", 2);
    const auto& tracks = library.allTracks();
    json.open('[', tracks.empty());
    writeTrackElements(json, tracks);
    json.close(']', 2, tracks.empty());
    json.key("playlists", 2);
    std::size_t written = 0;
    for (const auto& playlist : library.allPlaylists()) {
        if (insideSomeFolder(library, *playlist))
            continue;
        if (written++ == 0)
            json.open('[');
        json.element(4);
        writePlaylist(json, *playlist, 4);
    }
    if (written == 0)
        json.open('[', true);
    json.close(']', 2, written == 0);
    json.close('}', 0);
    json.raw("\n");
    json.flush();
}

void printLibraryText(std::ostream& terminal, const zq::ZQCoreiPod& library)
{
    // Written whole once made, with the device's texts made harmless on a terminal.
    std::ostringstream out;
    const auto name = library.name();
    const std::string serial = serialOf(library);
    const std::string model = describeModel(library.model());
    out << (name ? *name : std::string("(unnamed)")) << '\n';
    out << "  Serial number: " << (serial.empty() ? "unknown" : serial) << '\n';
    out << "  Model:         " << (model.empty() ? "unknown" : model) << '\n';
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
    terminal << terminalSafe(out.str());
}

} // namespace zqpod
