// Artwork in the command-line tool: `zqpod art PATH OUTDIR` and the artwork fields of
// `zqpod library --json`, run as a separate process on the demo's sample device.

#include "ZQCore/foundation/Image.h"
#include "tests/support/DeviceImage.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace zq {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::TempDir;
using test::VolumeSpec;

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

std::string contentsOf(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

ToolRun zqpod(const std::vector<std::string>& args)
{
    TempDir capture;
    std::string command = quoted(ZQPOD_PATH);
    for (const auto& arg : args)
        command += " " + quoted(arg);
    command += " >" + quoted(capture.file("out")) + " 2>" + quoted(capture.file("err")) + " </dev/null";
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, contentsOf(capture.file("out")), contentsOf(capture.file("err"))};
}

TEST(ArtworkTool, ArtWritesOneDecodablePicturePerAlbum)
{
    TempDir device, out;
    test::writeVolume(device.path(), test::makeSampleDevice());
    const ToolRun run = zqpod({"art", device.path(), out.file("covers")});
    ASSERT_EQ(run.status, 0) << run.err;

    // Five albums and two shows, each with its own cover at the larger stored size.
    std::size_t files = 0;
    for (const auto& entry : fs::directory_iterator(out.file("covers"))) {
        ++files;
        const std::string bytes = contentsOf(entry.path());
        auto image = Image::imageWithPNGData(Data(bytes));
        ASSERT_TRUE(image) << entry.path();
        EXPECT_EQ(image->width(), 200u) << entry.path();
        EXPECT_EQ(image->height(), 200u) << entry.path();
        EXPECT_NE(run.out.find("wrote " + entry.path().string() + " (200 x 200"), std::string::npos) << run.out;
    }
    EXPECT_EQ(files, 7u);
    EXPECT_NE(run.out.find("The Hollow Pines - Northern Lights.png"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("7 files written"), std::string::npos) << run.out;
}

TEST(ArtworkTool, ArtFallsBackToASizeThatReadsAndNamesAlbumsWithout)
{
    TempDir device, out;
    VolumeSpec volume = test::makeSampleDevice();
    // Only the "Tokyo Nights" cover keeps a readable large size; the others lose their 200-pixel
    // thumbnails (as on a device whose larger thumbnail file is gone), and "Summer Hits 2012"
    // has no cover at all.
    for (auto& image : volume.artwork->images)
        if (image.imageID != 103)
            image.thumbnails[1].fileName = ":F1029_9.ithmb";
    std::erase_if(volume.artwork->images, [](const auto& image) { return image.imageID == 104; });
    test::writeVolume(device.path(), volume);
    fs::remove(device.file("iPod_Control/Artwork/F1029_9.ithmb"));

    const ToolRun run = zqpod({"art", device.path(), out.path()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("DJ Kōji - Tokyo Nights.png (200 x 200"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("The Hollow Pines - Northern Lights.png (100 x 100"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("no artwork: Various Artists - Summer Hits 2012"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("6 files written"), std::string::npos) << run.out;

    const ToolRun usage = zqpod({"art"});
    EXPECT_EQ(usage.status, 2);
    EXPECT_NE(usage.err.find("usage: zqpod art [DEVICE] OUTDIR"), std::string::npos) << usage.err;
}

TEST(ArtworkTool, LibraryJSONCarriesEachTracksArtwork)
{
    TempDir device;
    const VolumeSpec sample = test::makeSampleDevice();
    test::writeVolume(device.path(), sample);
    const ToolRun run = zqpod({"library", "--json", device.path()});
    ASSERT_EQ(run.status, 0) << run.err;
    const Json json = Json::parse(run.out);
    const Json& tracks = json.at("tracks");
    ASSERT_EQ(tracks.size(), sample.database->tracks.size());
    for (const auto& track : tracks) {
        ASSERT_TRUE(track.at("artworkID").is_number()) << track.at("title");
        EXPECT_EQ(track.at("artworkWidth"), 200);
        EXPECT_EQ(track.at("artworkHeight"), 200);
    }
    // "Cicha noc": the first track is found by its dbid, the second through the album.
    EXPECT_EQ(tracks[3].at("artworkID"), 101);
    EXPECT_EQ(tracks[4].at("artworkID"), 101);
    EXPECT_EQ(tracks[4].at("artworkLink"), 0);

    // A device without artwork says so with nulls.
    TempDir bare;
    VolumeSpec plain = sample;
    plain.artwork.reset();
    test::writeVolume(bare.path(), plain);
    const Json without = Json::parse(zqpod({"library", "--json", bare.path()}).out);
    for (const auto& track : without.at("tracks"))
        for (const char* key : {"artworkID", "artworkWidth", "artworkHeight"})
            EXPECT_TRUE(track.at(key).is_null()) << key;
}

} // namespace
} // namespace zq
