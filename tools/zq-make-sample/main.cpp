// zq-make-sample [--nano | --phone[=modern|ios6|ios8]] [--tracks=N] DIR: writes the built-in
// sample device to DIR, for the demo and for trying the command-line tool without an iPod at hand.
// With --nano, the library is the compressed iTunesCDB of the later iPod nanos. With --phone,
// DIR becomes the file system of an iPhone (iTunes_Control, the SQLite databases beside iTunesDB)
// for zq-device-sim; with --phone=modern or --phone=ios6, that of an iOS 5+ phone whose library
// is MediaLibrary.sqlitedb.

#include "tools/zq-make-sample/DeviceImage.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// The sample as a phone keeps it: the same library in both formats, its tracks located under
// iTunes_Control (the files are written under iPod_Control and the tree is moved afterwards).
zq::sample::VolumeSpec phoneSample()
{
    zq::sample::VolumeSpec setup = zq::sample::makeSampleDevice();
    const std::string from = "iPod_Control", to = "iTunes_Control";
    for (auto& track : setup.database->tracks)
        if (track.location && track.location->rfind(":" + from + ":", 0) == 0)
            track.location = ":" + to + track.location->substr(from.size() + 1);
    // Phones store their thumbnails with an alpha bit (1-5-5-5), not 5-6-5.
    if (setup.artwork)
        for (auto& image : setup.artwork->images)
            for (auto& thumbnail : image.thumbnails)
                thumbnail.layout = zq::sample::ThumbnailLayout::ARGB1555;
    setup.format = zq::sample::LibraryFormat::Both;
    setup.sysInfo.reset();
    return setup;
}

// The sample as an iPod nano of the 5th to 7th generation keeps it: the library compressed in
// iTunesCDB with an empty iTunesDB beside it. The serial names a 5th-generation nano (the first
// to keep iTunesCDB; the model list knows no later one) and is the sample's own, so that a
// program opening both samples gets two libraries.
zq::sample::VolumeSpec nanoSample()
{
    zq::sample::VolumeSpec setup = zq::sample::makeSampleDevice();
    setup.compressedDatabase = true;
    setup.sysInfo = zq::sample::sysInfoText("5U0381NA72Q");
    return setup;
}

const char* const kHelp =
    "Usage: zq-make-sample [--nano | --phone[=modern|ios6|ios8]] [--tracks=N] DIR\n"
    "\n"
    "Writes the built-in sample device into DIR: five albums and two podcast shows of short WAV\n"
    "tunes, playlists, a smart playlist and covers. Prints the folder it wrote.\n"
    "\n"
    "  (default)  DIR is laid out as a disk-mode iPod's volume (iPod_Control with iTunesDB,\n"
    "             ArtworkDB and SysInfo); try it with: zqpod library DIR\n"
    "  --nano     DIR is laid out as the volume of an iPod nano of the 5th to 7th generation: the\n"
    "             same library compressed in iPod_Control/iTunes/iTunesCDB, an empty iTunesDB\n"
    "             beside it; try it with: zqpod library DIR\n"
    "  --phone    DIR is the file system of an iPhone (iTunes_Control with iTunesDB and the SQLite\n"
    "             databases), for zq-device-sim\n"
    "  --phone=modern, --phone=ios6\n"
    "             DIR is the file system of a phone of iOS 5 or later: the same library in\n"
    "             iTunes_Control/iTunes/MediaLibrary.sqlitedb, in the layout of a recent release\n"
    "             (modern) or of an iOS 6-era one (ios6), with changes still in its WAL, JPEG and\n"
    "             PNG covers, two songs that are only in the cloud and four base locations; try it\n"
    "             with: zqpod library DIR, or serve it with zq-device-sim\n"
    "  --phone=ios8\n"
    "             the same library in MediaLibrary.sqlitedb as a real iPhone of the iOS 8 era\n"
    "             writes it: its full schema, playlist members packed in container_items behind\n"
    "             a virtual table only the phone can read, the phone's own media-type numbering\n"
    "             and base locations (Purchases, Podcasts, CloudAssets); no covers\n"
    "  --tracks=N with --phone=modern, ios6 or ios8: instead of the sample, N small generated tracks\n"
    "             (for measuring copies and loads)\n"
    "\n"
    "An earlier sample's iPod_Control and iTunes_Control in DIR are replaced; nothing else in DIR\n"
    "is touched.\n";

} // namespace

int main(int argc, char** argv)
{
    bool phone = false, nano = false, optionsEnded = false;
    std::optional<zq::sample::MediaLibraryGeneration> generation;
    std::size_t tracks = 0;
    std::vector<std::string> folders;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (optionsEnded || argument.empty() || argument[0] != '-') {
            folders.push_back(argument);
        } else if (argument == "--") {
            optionsEnded = true;
        } else if (argument == "--help" || argument == "-h") {
            std::fputs(kHelp, stdout);
            return 0;
        } else if (argument == "--phone") {
            phone = true;
        } else if (argument == "--nano") {
            nano = true;
        } else if (argument == "--phone=modern") {
            generation = zq::sample::MediaLibraryGeneration::Modern;
        } else if (argument == "--phone=ios6") {
            generation = zq::sample::MediaLibraryGeneration::IOS6;
        } else if (argument == "--phone=ios8") {
            generation = zq::sample::MediaLibraryGeneration::IOS8;
        } else if (argument.rfind("--tracks=", 0) == 0 && argument.size() > 9 &&
                   argument.find_first_not_of("0123456789", 9) == std::string::npos && argument.size() < 17) {
            tracks = std::stoul(argument.substr(9));
        } else {
            std::fprintf(stderr, "zq-make-sample: unknown option %s (see zq-make-sample --help)\n", argument.c_str());
            return 2;
        }
    }
    if (folders.size() != 1) {
        std::fputs("usage: zq-make-sample [--nano | --phone[=modern|ios6|ios8]] [--tracks=N] DIR (see zq-make-sample --help)\n", stderr);
        return 2;
    }
    if (nano && (phone || generation)) {
        std::fputs("zq-make-sample: --nano and --phone write different devices; give one (see zq-make-sample --help)\n", stderr);
        return 2;
    }
    if ((phone && generation) || (tracks && !generation)) {
        std::fputs("zq-make-sample: --tracks goes with --phone=modern, ios6 or ios8 only (see zq-make-sample --help)\n", stderr);
        return 2;
    }
    try {
        const fs::path root = fs::absolute(folders.front()).lexically_normal();
        // Replace an earlier sample: only its control folders go, so DIR itself (perhaps a
        // mount point) and anything else in it are left alone.
        fs::remove_all(root / "iPod_Control");
        fs::remove_all(root / "iTunes_Control");
        if (generation) {
            zq::sample::writePhone(root.string(), tracks ? zq::sample::makeLargePhone(tracks, *generation)
                                                         : zq::sample::makeSamplePhone(*generation));
        } else if (phone) {
            zq::sample::writeVolume(root.string(), phoneSample());
            // writeVolume lays a disk-mode volume out; a phone keeps the same tree elsewhere.
            fs::rename(root / "iPod_Control", root / "iTunes_Control");
        } else {
            zq::sample::writeVolume(root.string(), nano ? nanoSample() : zq::sample::makeSampleDevice());
        }
        std::printf("%s\n", root.string().c_str());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zq-make-sample: %s\n", e.what());
        return 1;
    }
    return 0;
}
