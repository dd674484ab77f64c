// zq-make-sample [--phone] DIR: writes the built-in sample device to DIR, for the demo and for
// trying the command-line tool without an iPod at hand. With --phone, DIR becomes the file
// system of an iPhone (iTunes_Control, the SQLite databases beside iTunesDB) for zq-device-sim.

#include "tests/support/DeviceImage.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

// The sample as a phone keeps it: the same library in both formats, its tracks located under
// iTunes_Control (the files are written under iPod_Control and the tree is moved afterwards).
zq::test::VolumeSpec phoneSample()
{
    zq::test::VolumeSpec spec = zq::test::makeSampleDevice();
    const std::string from = "iPod_Control", to = "iTunes_Control";
    for (auto& track : spec.database->tracks)
        if (track.location && track.location->rfind(":" + from + ":", 0) == 0)
            track.location = ":" + to + track.location->substr(from.size() + 1);
    // Phones store their thumbnails with an alpha bit (1-5-5-5), not 5-6-5.
    if (spec.artwork)
        for (auto& image : spec.artwork->images)
            for (auto& thumbnail : image.thumbnails)
                thumbnail.layout = zq::test::ThumbnailLayout::ARGB1555;
    spec.format = zq::test::LibraryFormat::Both;
    spec.sysInfo.reset();
    return spec;
}

} // namespace

int main(int argc, char** argv)
{
    const bool phone = argc == 3 && std::strcmp(argv[1], "--phone") == 0;
    if (argc != 2 && !phone) {
        std::fprintf(stderr, "usage: %s [--phone] DIR\n", argc > 0 ? argv[0] : "zq-make-sample");
        return 2;
    }
    try {
        const fs::path root = fs::absolute(argv[argc - 1]).lexically_normal();
        // Replace an earlier sample: only its control folders go, so DIR itself (perhaps a
        // mount point) and anything else in it are left alone.
        fs::remove_all(root / "iPod_Control");
        fs::remove_all(root / "iTunes_Control");
        if (phone) {
            zq::test::writeVolume(root.string(), phoneSample());
            // writeVolume lays a disk-mode volume out; a phone keeps the same tree elsewhere.
            fs::rename(root / "iPod_Control", root / "iTunes_Control");
        } else {
            zq::test::writeVolume(root.string(), zq::test::makeSampleDevice());
        }
        std::printf("%s\n", root.string().c_str());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zq-make-sample: %s\n", e.what());
        return 1;
    }
    return 0;
}
