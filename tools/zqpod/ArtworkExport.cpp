#include "ArtworkExport.h"
#include "TerminalText.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/Exception.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <set>
#include <vector>

namespace zqpod {

namespace {

namespace fs = std::filesystem;

struct Album {
    std::string artist;
    std::string name;
    std::vector<const zq::iPodTrack*> tracks;
};

/// A file name from free text: path separators, control characters and a leading dot are
/// replaced, so that a name from the device cannot leave the folder or hide the file.
std::string safeFileName(const std::string& text)
{
    std::string name;
    for (unsigned char c : text)
        name += (c == '/' || c == '\\' || c < 0x20 || c == 0x7F) ? '_' : static_cast<char>(c);
    if (name.empty() || name.front() == '.')
        name.insert(name.begin(), '_');
    if (name.size() > 200)
        name.resize(200); // well inside every file system's limit, even with a suffix
    return name;
}

} // namespace

std::shared_ptr<const zq::Image> bestImage(const zq::AlbumArt& art)
{
    if (auto image = art.image())
        return image;
    std::vector<std::shared_ptr<zq::AlbumArtRep>> reps = art.artReps();
    std::stable_sort(reps.begin(), reps.end(), [](const auto& a, const auto& b) { return a->width() > b->width(); });
    for (const auto& rep : reps)
        if (auto image = rep->image())
            return image;
    return nullptr;
}

ArtExport exportAlbumArt(std::ostream& out, std::ostream& err, const zq::ZQCoreiPod& library, const std::string& folder)
{
    std::vector<Album> albums;
    std::map<std::pair<std::string, std::string>, std::size_t> index;
    for (const auto& track : library.allTracks()) {
        const std::string artist = track->albumArtist().value_or(track->artist().value_or(""));
        const std::string name = track->album().value_or("");
        auto [entry, inserted] = index.try_emplace({artist, name}, albums.size());
        if (inserted)
            albums.push_back({artist, name, {}});
        albums[entry->second].tracks.push_back(track.get());
    }

    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw zq::Exception(zq::ErrorKind::DestinationFailed, "zqpod", "Cannot create the folder " + folder + ": " + error.message());

    std::set<std::string> used;
    ArtExport result;
    for (const Album& album : albums) {
        const std::string title = (album.artist.empty() ? "" : album.artist + " - ") +
                                  (album.name.empty() ? std::string("(no album)") : album.name);
        std::shared_ptr<zq::AlbumArt> art;
        std::shared_ptr<const zq::Image> image;
        for (const zq::iPodTrack* track : album.tracks) {
            if (!track->hasAlbumArt())
                continue;
            art = track->albumArt();
            if ((image = bestImage(*art)))
                break;
        }
        if (!image && !art) {
            out << "no artwork: " << terminalSafe(title) << '\n';
            continue;
        }
        // Artwork that is there but cannot be read is a failure, never "no artwork".
        if (!image) {
            err << "unreadable artwork: " << terminalSafe(title) << '\n';
            ++result.failed;
            continue;
        }
        auto png = image->pngData();
        if (!png) {
            err << "cannot encode artwork: " << terminalSafe(title) << '\n';
            ++result.failed;
            continue;
        }
        std::string base = safeFileName(title);
        std::string file = base + ".png";
        for (int n = 2; used.count(file); ++n)
            file = base + " (" + std::to_string(n) + ").png";
        used.insert(file);
        const fs::path path = fs::path(folder) / file;
        std::ofstream stream(path, std::ios::binary | std::ios::trunc);
        stream.write(reinterpret_cast<const char*>(png->bytes()), static_cast<std::streamsize>(png->size()));
        stream.close();
        if (!stream)
            throw zq::Exception(zq::ErrorKind::DestinationFailed, "zqpod", "Cannot write " + path.string());
        ++result.written;
        out << "wrote " << terminalSafe(path.string()) << " (" << image->width() << " x " << image->height() << ", artwork "
            << art->artworkID() << ", " << album.tracks.size() << (album.tracks.size() == 1 ? " track" : " tracks")
            << ")\n";
    }
    return result;
}

} // namespace zqpod
