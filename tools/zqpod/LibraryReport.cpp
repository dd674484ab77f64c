#include "LibraryReport.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"

#include <nlohmann/json.hpp>

#include <ostream>

namespace zqpod {

using Json = nlohmann::ordered_json;

namespace {

Json text(const std::optional<std::string>& value) { return value ? Json(*value) : Json(nullptr); }
Json date(const std::optional<zq::Date>& value) { return value ? Json(value->iso8601()) : Json(nullptr); }

std::string serialOf(const zq::ZQCoreiPod& library)
{
    const zq::Value* serial = library.properties().find("SerialNumber");
    return serial && serial->string() ? *serial->string() : std::string();
}

const char* kindOf(const zq::Playlist& playlist)
{
    if (dynamic_cast<const zq::Podcasts*>(&playlist))
        return "podcasts";
    if (dynamic_cast<const zq::PlaylistFolder*>(&playlist))
        return "folder";
    if (dynamic_cast<const zq::PurchasedPlaylist*>(&playlist))
        return "purchased";
    if (dynamic_cast<const zq::SmartPlaylist*>(&playlist))
        return "smart";
    return "playlist";
}

Json trackIDs(const zq::Playlist::Tracks& tracks)
{
    Json ids = Json::array();
    for (const auto& track : tracks)
        ids.push_back(track->trackID());
    return ids;
}

Json trackJSON(const zq::iPodTrack& t)
{
    // The artwork the track carries: its image identifier and the visible size of the stored
    // size its image is made from; null for a track without artwork.
    Json artworkID = nullptr, artworkWidth = nullptr, artworkHeight = nullptr;
    if (t.hasAlbumArt()) {
        const auto art = t.albumArt();
        artworkID = art->artworkID();
        if (const auto& rep = art->preferredRep()) {
            artworkWidth = rep->width();
            artworkHeight = rep->height();
        }
    }
    return Json{
        {"trackID", t.trackID()},
        {"dbid", t.dbid()},
        {"title", text(t.title())},
        {"artist", text(t.artist())},
        {"album", text(t.album())},
        {"albumArtist", text(t.albumArtist())},
        {"genre", text(t.genre())},
        {"composer", text(t.composer())},
        {"comment", text(t.comment())},
        {"grouping", text(t.grouping())},
        {"fileType", text(t.fileType())},
        {"EQSetting", text(t.EQSetting())},
        {"podcastCategory", text(t.podcastCategory())},
        {"trackDescription", text(t.trackDescription())},
        {"filePath", text(t.filePath())},
        {"rating", t.rating()},
        {"fileSize", t.fileSize()},
        {"trackLength", t.trackLength()},
        {"trackNumber", t.trackNumber()},
        {"trackTotal", t.trackTotal()},
        {"discNumber", t.discNumber()},
        {"discTotal", t.discTotal()},
        {"year", t.year()},
        {"bitrate", t.bitrate()},
        {"sampleRate", t.sampleRate()},
        {"volume", t.volume()},
        {"startTime", t.startTime()},
        {"endTime", t.endTime()},
        {"soundcheckValue", t.soundcheckValue()},
        {"playCount", t.playCount()},
        {"BPM", t.BPM()},
        {"mediaType", t.mediaType()},
        {"lastModified", date(t.lastModified())},
        {"lastPlayedTime", date(t.lastPlayedTime())},
        {"dateAdded", date(t.dateAdded())},
        {"dateReleased", date(t.dateReleased())},
        {"lastSkippedTime", date(t.lastSkippedTime())},
        {"compilation", t.compilation()},
        {"albumID", t.albumID()},
        {"artworkLink", t.artworkLink()},
        {"artworkID", artworkID},
        {"artworkWidth", artworkWidth},
        {"artworkHeight", artworkHeight},
    };
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
        {"kind", kindOf(playlist)},
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
    Json json;
    json["name"] = text(library.name());
    const zq::Value* serial = library.properties().find("SerialNumber");
    json["serialNumber"] = serial && serial->string() ? Json(*serial->string()) : Json(nullptr);
    json["type"] = library.type();
    Json tracks = Json::array();
    for (const auto& track : library.allTracks())
        tracks.push_back(trackJSON(*track));
    json["tracks"] = std::move(tracks);
    Json playlists = Json::array();
    for (const auto& playlist : library.allPlaylists())
        if (!insideSomeFolder(library, *playlist))
            playlists.push_back(playlistJSON(*playlist));
    json["playlists"] = std::move(playlists);
    out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
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
                    << show->tracks().size() << (show->tracks().size() == 1 ? " episode" : " episodes") << '\n';
        }
    }
}

} // namespace zqpod
