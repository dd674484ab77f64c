// libFuzzer target: the artwork database walk, the linking of covers to tracks, and the reading
// and decoding of every stored size that the walk produced. Any exception other than the
// framework's own, any crash, sanitizer report, leak or runaway allocation is a finding.
//
// The input is an ArtworkDB. The tracks it is linked to are those of the demo's sample device,
// parsed afresh for every input (linking writes into them), and the thumbnail files are that
// device's, written once into a temporary folder, so that inputs naming ":F1028_1.ithmb" or
// ":F1029_1.ithmb" reach real pixels at any offset and size they claim.

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/Exception.h"
#include "tests/support/SampleDevice.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace {

struct DetachedLibrary : zq::ZQCoreiPod {
    DetachedLibrary() = default;
};

// What every input shares: the sample device's database and its thumbnail folder.
struct Fixture {
    Fixture()
    {
        const zq::test::VolumeSpec device = zq::test::makeSampleDevice();
        database = zq::test::buildITunesDB(*device.database);
        zq::test::writeVolume(root.path(), zq::test::VolumeSpec{.artwork = device.artwork});
        folder = root.file("iPod_Control/Artwork");
    }
    zq::test::TempDir root;
    zq::Data database;
    std::string folder;
};

const Fixture& fixture()
{
    static const Fixture shared;
    return shared;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const Fixture& f = fixture();
    auto library = std::make_shared<DetachedLibrary>();
    library->parseiTunesDBWithData(f.database);
    const auto& tracks = library->allTracks();
    try {
        library->parseArtworkDBWithData(zq::Data(bytes, size), tracks, f.folder);
    } catch (const zq::Exception&) {
        // A corrupt database keeps the lists finished before the fault; read those below.
    }
    for (const auto& track : tracks) {
        const auto art = track->albumArt();
        (void)art->image();
        for (const auto& rep : art->artReps())
            (void)rep->image();
    }
    return 0;
}
