// Artwork as a client and the command-line tool see it. A real device's artwork (the
// itunes-art-142 sample: an iTunesDB of 142 tracks, its ArtworkDB of 120 images in formats 1028
// and 1029, and the 1028 thumbnail file only) laid out as on a device and loaded whole.

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Log.h"
#include "tests/support/Expectations.h"
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
        const std::string folder = test::sampleFolder("itunes-art-142");
        if (folder.empty())
            GTEST_SKIP() << test::samplesMissing("itunes-art-142");
        const fs::path sample(folder);
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

} // namespace
} // namespace zq
