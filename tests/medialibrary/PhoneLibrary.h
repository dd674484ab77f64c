#pragma once
// A loaded phone library in words, and the same words made from the phone's description alone,
// so that a test compares a whole library (every track field, every playlist with its members in
// order, folders, the podcast group, covers, cloud items) in one assertion.

#include "tests/support/SampleDevice.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

namespace zq::test {

inline const char* generationName(MediaLibraryGeneration generation)
{
    switch (generation) {
    case MediaLibraryGeneration::Modern: return "Modern";
    case MediaLibraryGeneration::IOS6: return "IOS6";
    case MediaLibraryGeneration::IOS8: return "IOS8";
    }
    return "?";
}

inline std::string orNone(const std::optional<std::string>& text) { return text ? "'" + *text + "'" : "-"; }
inline std::string dateText(const std::optional<Date>& date) { return date ? date->iso8601() : "-"; }

struct TrackWords {
    std::string title, artist, album, albumArtist, genre, composer, comment, grouping, description, eq, file;
    bool cloud = false;
    std::int64_t rating = 0, fileSize = 0, length = 0, number = 0, count = 0, disc = 0, discs = 0, year = 0,
                 bitrate = 0, sampleRate = 0, volume = 0, start = 0, stop = 0, soundcheck = 0, plays = 0, bpm = 0,
                 kind = 0, compilation = 0;
    std::uint64_t dbid = 0, albumID = 0;
    std::string modified{}, played{}, added{}, released{}, skipped{}, art{};

    std::string line() const
    {
        std::ostringstream out;
        out << "track " << dbid << " " << title << " | " << artist << " | " << album << " | " << albumArtist << " | "
            << genre << " | " << composer << " | " << comment << " | " << grouping << " | " << description << " | "
            << eq << " | file " << file << (cloud ? " (cloud)" : "") << " | rating " << rating << " size " << fileSize
            << " length " << length << " track " << number << "/" << count << " disc " << disc << "/" << discs
            << " year " << year << " bitrate " << bitrate << " rate " << sampleRate << " volume " << volume
            << " times " << start << "-" << stop << " soundcheck " << soundcheck << " plays " << plays << " bpm "
            << bpm << " kind " << kind << " compilation " << compilation << " album " << albumID << " | modified "
            << modified << " played " << played << " added " << added << " released " << released << " skipped "
            << skipped << " | art " << art << "\n";
        return out.str();
    }
};

inline std::string playlistWords(const Playlist& playlist, const std::string& indent)
{
    std::string kind = "playlist";
    if (dynamic_cast<const SmartPlaylist*>(&playlist))
        kind = "smart";
    else if (dynamic_cast<const PurchasedPlaylist*>(&playlist))
        kind = "purchased";
    else if (dynamic_cast<const PlaylistFolder*>(&playlist))
        kind = "folder";
    else if (dynamic_cast<const Podcasts*>(&playlist))
        kind = "podcasts";
    std::string words = indent + kind + " " + orNone(playlist.name()) + ":";
    if (const auto* podcasts = dynamic_cast<const Podcasts*>(&playlist)) {
        for (const auto& show : podcasts->podcasts()) {
            words += "\n" + indent + "  show " + orNone(show->name()) + ":";
            for (const auto& track : show->tracks())
                words += " " + track->title().value_or("?");
        }
        return words + "\n";
    }
    if (const auto* folder = dynamic_cast<const PlaylistFolder*>(&playlist)) {
        words += "\n";
        for (const auto& child : folder->playlists())
            words += playlistWords(*child, indent + "  ");
        return words;
    }
    for (const auto& track : playlist.tracks())
        words += " " + track->title().value_or("?");
    return words + "\n";
}

/// The library as loaded. Covers are decoded; "ok" says that the picture is `side` square and
/// that its colours are those of `covers` (JPEG is lossy: within a small distance).
inline std::string describeLibrary(const ZQCoreiPod& library, const PhoneSpec& phone)
{
    std::string words = "name " + orNone(library.name()) + "\n";
    for (const auto& t : library.allTracks()) {
        TrackWords w{orNone(t->title()), orNone(t->artist()), orNone(t->album()), orNone(t->albumArtist()),
                     orNone(t->genre()), orNone(t->composer()), orNone(t->comment()), orNone(t->grouping()),
                     orNone(t->trackDescription()), orNone(t->EQSetting()), t->filePath().value_or("-")};
        w.cloud = t->additionalData().contains(iPodTrack::kCloudOnlyKey);
        w.rating = t->rating(), w.fileSize = t->fileSize(), w.length = t->trackLength(), w.number = t->trackNumber();
        w.count = t->trackTotal(), w.disc = t->discNumber(), w.discs = t->discTotal(), w.year = t->year();
        w.bitrate = t->bitrate(), w.sampleRate = t->sampleRate(), w.volume = t->volume(), w.start = t->startTime();
        w.stop = t->endTime(), w.soundcheck = t->soundcheckValue(), w.plays = t->playCount(), w.bpm = t->BPM();
        w.kind = t->mediaType(), w.compilation = t->compilation(), w.dbid = t->dbid(), w.albumID = t->albumID();
        w.modified = dateText(t->lastModified()), w.played = dateText(t->lastPlayedTime());
        w.added = dateText(t->dateAdded()), w.released = dateText(t->dateReleased());
        w.skipped = dateText(t->lastSkippedTime());
        w.art = "-";
        if (t->hasAlbumArt()) {
            auto image = t->albumArt()->image();
            auto cover = phone.covers.find(t->albumID());
            w.art = image ? std::to_string(image->width()) + "x" + std::to_string(image->height()) : "unreadable";
            if (image && cover != phone.covers.end() && image->width() == cover->second.first) {
                bool close = true;
                for (std::uint32_t at : {5u, 40u, 90u}) {
                    const auto got = image->pixelAt(at, at), want = cover->second.second(at, at);
                    for (auto [a, b] : {std::pair{got.red, want.red}, {got.green, want.green}, {got.blue, want.blue}})
                        close = close && std::abs(int(a) - int(b)) <= 24;
                }
                w.art += close ? " ok" : " wrong colours";
            }
        }
        words += w.line();
    }
    for (const auto& playlist : library.allPlaylists())
        words += playlistWords(*playlist, "");
    return words;
}

/// The same words from the description: what a phone of `phone.generation` written by
/// writePhone must load as, its files below `mediaRoot`.
inline std::string expectLibrary(const PhoneSpec& phone, const std::string& mediaRoot)
{
    // The iOS 8 layout keeps every field the modern one does.
    const bool modern = phone.generation != MediaLibraryGeneration::IOS6;
    const DatabaseSpec& d = phone.database;
    auto date = [](std::uint32_t value1904) {
        return value1904 ? Date(Date::from1904LocalSeconds(value1904).timeIntervalSinceReferenceDate()).iso8601()
                         : std::string("-");
    };
    auto text = [](const std::optional<std::string>& value) { return orNone(value); };
    std::string words;
    for (const auto& p : d.playlists)
        if (p.master == 1)
            words = "name " + orNone(p.name) + "\n";

    std::vector<const TrackSpec*> tracks;
    for (const auto& t : d.tracks)
        tracks.push_back(&t);
    auto pid = [](const TrackSpec* t) { return t->dbid ? t->dbid : t->trackID; };
    std::stable_sort(tracks.begin(), tracks.end(), [&](auto* a, auto* b) { return pid(a) < pid(b); });
    std::map<std::uint32_t, std::string> titles;
    for (const TrackSpec* tp : tracks) {
        const TrackSpec& t = *tp;
        titles[t.trackID] = t.title.value_or("?");
        TrackWords w{text(t.title), text(t.artist), text(t.album), text(t.albumArtist), text(t.genre),
                     text(t.composer), text(t.comment), modern ? text(t.grouping) : "-", text(t.description),
                     modern ? text(t.EQSetting) : "-",
                     t.location ? (std::filesystem::path(mediaRoot) / relativePathOfLocation(*t.location)).string() : "-"};
        w.cloud = !t.location;
        w.rating = t.rating, w.fileSize = t.location ? t.fileSize : 0, w.length = t.trackLength;
        w.number = t.trackNumber, w.count = t.trackTotal, w.disc = t.discNumber, w.discs = t.discTotal, w.year = t.year;
        if (modern) {
            w.bitrate = t.bitrate, w.sampleRate = t.sampleRate, w.volume = t.volume, w.start = t.startTime;
            w.stop = t.endTime, w.soundcheck = t.soundcheckValue, w.bpm = t.BPM;
        }
        w.plays = t.playCount, w.kind = t.mediaType, w.compilation = t.compilation == 1, w.dbid = pid(&t);
        w.albumID = t.albumID;
        w.modified = date(t.lastModified), w.played = date(t.lastPlayedTime), w.added = date(t.dateAdded);
        w.released = date(t.dateReleased), w.skipped = date(t.lastSkippedTime);
        auto cover = phone.covers.find(t.albumID);
        w.art = cover != phone.covers.end() ? std::to_string(cover->second.first) + "x" +
                                                  std::to_string(cover->second.first) + " ok"
                                            : "-";
        words += w.line();
    }

    // Playlists in id order, the podcast container aside (the device's own list is the master
    // playlist, with every track); children in their folders.
    std::vector<const PlaylistSpec*> playlists;
    for (const auto& p : d.playlists)
        if (p.podcast != 1)
            playlists.push_back(&p);
    std::stable_sort(playlists.begin(), playlists.end(), [](auto* a, auto* b) { return a->playlistID < b->playlistID; });
    std::function<std::string(const PlaylistSpec&, const std::string&)> describe = [&](const PlaylistSpec& p,
                                                                                      const std::string& indent) {
        std::string kind = p.distinguishedKind == 19 ? "purchased" : p.folder ? "folder" : p.smartPrefs ? "smart" : "playlist";
        std::string line = indent + kind + " " + orNone(p.name) + ":";
        if (p.folder) {
            line += "\n";
            for (const auto* child : playlists)
                if (child->parentID == p.playlistID)
                    line += describe(*child, indent + "  ");
            return line;
        }
        for (const auto& item : p.items)
            line += " " + titles[item.trackID];
        return line + "\n";
    };
    for (const auto* p : playlists)
        if (p->parentID == 0)
            words += describe(*p, "");

    // The podcast group: one show per album, in track order.
    std::vector<std::pair<std::string, std::string>> shows;
    for (const TrackSpec* t : tracks) {
        if (!(t->mediaType & 4) || !t->album)
            continue;
        auto show = std::find_if(shows.begin(), shows.end(), [&](auto& s) { return s.first == *t->album; });
        if (show == shows.end())
            show = shows.insert(shows.end(), {*t->album, ""});
        show->second += " " + t->title.value_or("?");
    }
    if (!shows.empty()) {
        words += "podcasts 'Podcasts':";
        for (const auto& [name, episodes] : shows)
            words += "\n  show '" + name + "':" + episodes;
        words += "\n";
    }
    return words;
}

} // namespace zq::test
