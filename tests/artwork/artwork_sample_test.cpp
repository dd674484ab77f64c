// Artwork as a client and the command-line tool see it. A real device's artwork (the
// itunes-art-142 sample: an iTunesDB of 142 tracks, its ArtworkDB of 120 images in formats 1028
// and 1029, and the 1028 thumbnail file only) laid out as on a device and loaded whole.

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Log.h"
#include "tests/support/SampleDevice.h"
#include "tests/tools/ToolProcess.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

class ArtworkRealSample : public ::testing::Test {
protected:
    void SetUp() override
    {
        const fs::path sample = fs::path(ZQ_SAMPLES_DIR) / "itunes-art-142";
        if (!fs::exists(sample / "ArtworkDB"))
            GTEST_SKIP() << "sample not found at " << sample;
        const fs::path root(dir_.path());
        fs::create_directories(root / "iPod_Control" / "iTunes");
        fs::create_directories(root / "iPod_Control" / "Artwork");
        fs::copy_file(sample / "iTunesDB", root / "iPod_Control" / "iTunes" / "iTunesDB");
        fs::copy_file(sample / "ArtworkDB", root / "iPod_Control" / "Artwork" / "ArtworkDB");
        fs::copy_file(sample / "F1028_1.ithmb", root / "iPod_Control" / "Artwork" / "F1028_1.ithmb");
        const LogHandler previous = setLogHandler([this](const std::string& line) { log_.push_back(line); });
        library_ = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir_.path()));
        setLogHandler(previous);
    }

    /// The distinct artwork the tracks carry, in track order.
    std::vector<std::shared_ptr<AlbumArt>> artworks() const
    {
        std::vector<std::shared_ptr<AlbumArt>> list;
        std::set<AlbumArt*> seen;
        for (const auto& track : library_->allTracks())
            if (track->hasAlbumArt() && seen.insert(track->albumArt().get()).second)
                list.push_back(track->albumArt());
        return list;
    }

    TempDir dir_;
    std::vector<std::string> log_;
    std::shared_ptr<ZQCoreiPod> library_;
};

// 120 distinct images, each on the track that names it (by link or dbid; or through its album),
// each with the 1028 and the wider, preferred 1029 size.
TEST_F(ArtworkRealSample, AllImagesAreFoundAndLinked)
{
    EXPECT_TRUE(log_.empty()) << log_.front();
    ASSERT_EQ(library_->allTracks().size(), 142u);
    std::size_t withArt = 0;
    for (const auto& track : library_->allTracks()) {
        if (!track->hasAlbumArt())
            continue;
        ++withArt;
        const auto art = track->albumArt();
        EXPECT_TRUE(track->artworkLink() == art->artworkID() || track->dbid() == art->trackID() || track->albumID())
            << track->description();
    }
    EXPECT_EQ(withArt, 120u);
    const auto list = artworks();
    ASSERT_EQ(list.size(), 120u);
    std::set<std::uint32_t> ids;
    for (const auto& art : list) {
        ids.insert(art->artworkID());
        ASSERT_EQ(art->artReps().size(), 2u) << art->artworkID();
        EXPECT_EQ(art->artReps()[0]->path(), dir_.path() + "/iPod_Control/Artwork/F1028_1.ithmb");
        EXPECT_EQ(art->artReps()[1]->path(), dir_.path() + "/iPod_Control/Artwork/F1029_1.ithmb");
        EXPECT_EQ(art->preferredRep(), art->artReps()[1]);
    }
    EXPECT_EQ(ids.size(), 120u);
}

// Mean absolute difference between neighbouring pixels, over the colour channels. Covers are
// mostly smooth; the same bytes taken in the wrong byte order are noise. Over this sample the
// median is about 8 decoded right and about 49 with the bytes swapped (a single busy or flat
// cover can be anywhere, so the median of all is what is checked).
double roughness(const Image& image)
{
    double sum = 0;
    std::size_t count = 0;
    for (std::uint32_t y = 0; y + 1 < image.height(); ++y)
        for (std::uint32_t x = 0; x + 1 < image.width(); ++x) {
            const auto p = image.pixelAt(x, y), right = image.pixelAt(x + 1, y), below = image.pixelAt(x, y + 1);
            for (const auto& q : {right, below}) {
                sum += std::abs(p.red - q.red) + std::abs(p.green - q.green) + std::abs(p.blue - q.blue);
                count += 3;
            }
        }
    return count ? sum / count : 0;
}

TEST_F(ArtworkRealSample, SmallThumbnailsDecodeToPictures)
{
    std::vector<double> roughnesses;
    for (const auto& art : artworks()) {
        auto image = art->artReps()[0]->image();
        ASSERT_TRUE(image) << art->artworkID();
        EXPECT_EQ(image->width(), 100u);
        EXPECT_EQ(image->height(), 100u);
        EXPECT_EQ(image->pixelAt(50, 50).alpha, 255);
        roughnesses.push_back(roughness(*image));
    }
    ASSERT_EQ(roughnesses.size(), 120u);
    std::nth_element(roughnesses.begin(), roughnesses.begin() + 60, roughnesses.end());
    EXPECT_LT(roughnesses[60], 12.0) << "the covers look like noise";
}

TEST_F(ArtworkRealSample, MissingThumbnailFileGivesNoImageAndIsTriedAgain)
{
    const auto list = artworks();
    ASSERT_FALSE(list.empty());
    const auto& art = list.front();
    EXPECT_EQ(art->image(), nullptr) << "the preferred 1029 size lies in a file that is not there";
    // Once the file appears, the same object reads it: the failure was not remembered.
    const auto& large = *art->artReps()[1];
    const auto [width, height] = AlbumArtRep::storedSize(static_cast<std::uint16_t>(large.width()),
                                                         static_cast<std::uint16_t>(large.height()),
                                                         large.horizontalPadding(), large.verticalPadding());
    std::vector<std::uint8_t> pixels(std::size_t(large.fileOffset()) + std::size_t(width) * height * 2, 0);
    test::writeVolume(dir_.path(), test::VolumeSpec{.files = {{"iPod_Control/Artwork/F1029_1.ithmb", Data(pixels)}}});
    auto image = art->image();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), static_cast<std::uint32_t>(width));
    EXPECT_EQ(image->height(), static_cast<std::uint32_t>(height));
}

// ---- `zqpod art PATH OUTDIR` and the artwork fields of `zqpod library --json`, run as a separate
// process on the demo's sample device.

using Json = nlohmann::json;
using test::VolumeSpec;

using ToolRun = test::Outcome;
using test::contentsOf;
using test::zqpod;

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
        auto image = Image::imageWithPNGData(Data(contentsOf(entry.path())));
        ASSERT_TRUE(image) << entry.path();
        EXPECT_EQ(std::pair(image->width(), image->height()), std::pair(200u, 200u)) << entry.path();
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
    for (const char* line : {"DJ Kōji - Tokyo Nights.png (200 x 200", "The Hollow Pines - Northern Lights.png (100 x 100",
                             "no artwork: Various Artists - Summer Hits 2012", "6 files written"})
        EXPECT_NE(run.out.find(line), std::string::npos) << line << "\n" << run.out;

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
