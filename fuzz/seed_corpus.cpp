// fuzz_seed_corpus OUTDIR [SAMPLES]: writes the starting inputs of the fuzz targets, one folder
// per target. OUTDIR/itunesdb: databases from the test image builder (every record kind, smart
// playlists, podcast groups), a rule blob, and the real databases under SAMPLES (any file named
// iTunesDB). OUTDIR/artworkdb: the sample device's artwork database, one with every kind of
// oddity the walk must survive, and the real ones under SAMPLES (any file named ArtworkDB).
// OUTDIR/itunescdb: compressed databases from the builder, and the plain databases they hold.

#include "tests/support/SampleDevice.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

void write(const fs::path& file, const zq::Data& data)
{
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(data.bytes()), static_cast<std::streamsize>(data.size()));
    std::printf("%s (%zu bytes)\n", file.c_str(), data.size());
}

using namespace zq::test;

// Image items linked by dbid and by image ID, odd-sized and padded stored sizes, a name that is
// not a single path component, a child of an unknown type and an unknown data set.
ArtworkDBSpec oddArtwork()
{
    ArtworkDBSpec setup;
    const std::uint64_t firstTrack = 0x7A3E000000000000ULL + 0x1111ULL;
    setup.images.push_back({.imageID = 0x64, .songID = firstTrack,
                           .thumbnails = {ThumbnailSpec{.width = 41, .height = 41},
                                          ThumbnailSpec{.formatID = 1029, .width = 198, .height = 190,
                                                        .horizontalPadding = 2, .verticalPadding = 9}}});
    setup.images.push_back({.imageID = 0x65,
                           .thumbnails = {ThumbnailSpec{.width = 3, .height = 5, .fileName = ":..:F1028_1.ithmb"}},
                           .extraChildren = {RawArtworkChild{.type = 6, .body = {1, 2, 3, 4}}}});
    setup.dataSets = {ArtworkDataSet(1), ArtworkDataSet(9), ArtworkDataSet(3)};
    return setup;
}

// Inputs that once made the walks loop, read past a record or take a count at its word; kept
// as seeds so that the fuzzers start from them.
void writeHostileSeeds(const fs::path& out, const fs::path& artOut)
{
    // A data set of total length 0 with a count of 2^31 - 1 sets: the walk must end in the
    // reader's exception, not go round the same bytes for ever.
    ArtworkDBSpec loop{.images = {{.imageID = 100, .thumbnails = {{.width = 2, .height = 2}}}}, .dataSets = {1},
                       .dataSetCount = 0x7FFFFFFF};
    loop.dataSets[0].totalLength = 0;
    write(artOut / "zero-length-loop", buildArtwork(loop).artworkDB);

    // A short track header of an early database, a record claiming fewer objects than it has,
    // and a short header as the last record with fewer than a full header's bytes left.
    DatabaseSpec early;
    early.tracks = {TrackSpec{.trackID = 1, .year = 1999, .title = "Early", .artist = "A", .headerLength = 0x9C},
                    TrackSpec{.trackID = 2, .title = "Counted", .artist = "Not counted", .objectCount = 1},
                    TrackSpec{.trackID = 3, .title = "Last", .headerLength = 0x9C}};
    write(out / "short-headers", buildITunesDB(early));

    // Smart-rule objects too short for the rule list they hold.
    DatabaseSpec rules;
    rules.playlists = {{.name = "Broken", .smartPrefs = SmartPrefsSpec{},
                        .extraObjects = {RawObject{.type = 51, .body = std::vector<std::uint8_t>(8 + 100, 0)}}}};
    write(out / "short-rule-object", buildITunesDB(rules));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUTDIR [SAMPLES]\n", argv[0]);
        return 2;
    }
    try {
        const fs::path out = fs::path(argv[1]) / "itunesdb";
        const fs::path artOut = fs::path(argv[1]) / "artworkdb";
        const fs::path compressedOut = fs::path(argv[1]) / "itunescdb";
        fs::create_directories(out);
        fs::create_directories(artOut);
        fs::create_directories(compressedOut);
        using namespace zq::test;
        const VolumeSpec device = makeSampleDevice();
        write(out / "sample-device", buildITunesDB(*device.database));
        // The compressed target reads its inputs both as stored files and as databases to
        // compress: both forms of the same libraries start it.
        for (const auto& [name, database] :
             {std::pair{"sample-device", *device.database},
              std::pair{"no-tracks", DatabaseSpec{.playlists = {PlaylistSpec{.name = "Nano", .master = 1}}}},
              std::pair{"short-header", DatabaseSpec{.tracks = {{.trackID = 1, .title = "T"}}, .headerLength = 0x68}}}) {
            write(compressedOut / (std::string(name) + ".cdb"), buildITunesCDB(database));
            write(compressedOut / (std::string(name) + ".db"), buildITunesDB(database));
        }
        write(artOut / "sample-device", buildArtwork(*device.artwork).artworkDB);
        write(artOut / "odd-records", buildArtwork(oddArtwork()).artworkDB);
        write(out / "generated-40", buildITunesDB(makeLargeLibrary(40, 3, 7)));
        write(out / "rule-blob", buildSmartRuleBlob(SmartRulesSpec{
                                     .conjunction = 1,
                                     .rules = {SmartRuleSpec{.field = 4, .action = 0x01000002, .text = "Pines"},
                                               SmartRuleSpec{.field = 7, .action = 0x100, .fromValue = 1990, .toValue = 1999}}}));
        writeHostileSeeds(out, artOut);
        if (argc > 2 && fs::is_directory(argv[2])) {
            for (const auto& entry : fs::recursive_directory_iterator(argv[2])) {
                const auto name = entry.path().filename();
                if (entry.is_regular_file() && (name == "iTunesDB" || name == "ArtworkDB")) {
                    const auto target = (name == "iTunesDB" ? out : artOut) /
                                        ("sample-" + entry.path().parent_path().filename().string());
                    fs::copy_file(entry.path(), target, fs::copy_options::overwrite_existing);
                    std::printf("%s\n", target.c_str());
                }
            }
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "fuzz_seed_corpus: %s\n", e.what());
        return 1;
    }
    return 0;
}
