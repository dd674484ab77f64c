// Album art images: the stored-size rule, decoding through the library object (5-6-5 on a
// mounted device, 1-5-5-5 through a device session), reads that fail and are tried again, and
// the shared no-artwork picture.

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Resources.h"
#include "tests/support/DeviceImage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::ArtworkDBSpec;
using test::ArtworkImageSpec;
using test::TempDir;
using test::ThumbnailSpec;
using test::VolumeSpec;

/// A library object with no device behind it, reading files of the local file system.
struct DiskLibrary : ZQCoreiPod {
    DiskLibrary() = default;
};

/// The same, but reaching its files the way a device session does (as over AFC).
struct SessionLibrary : ZQCoreiPod {
    SessionLibrary() = default;
    bool readsFilesThroughDevice() const override { return true; }
};

struct RepFields {
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    std::int16_t verticalPadding = 0;
    std::int16_t horizontalPadding = 0;
    std::uint16_t height = 0;
    std::uint16_t width = 0;
};

/// A representation made from a 44-byte thumbnail header holding `f`.
std::shared_ptr<AlbumArtRep> rep(const RepFields& f, const std::optional<std::string>& path,
                                 const std::shared_ptr<ZQCoreiPod>& library)
{
    std::array<std::uint8_t, 44> header{};
    auto put = [&](std::size_t at, std::uint32_t v, int width) {
        for (int i = 0; i < width; ++i)
            header[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    };
    put(20, f.offset, 4);
    put(24, f.length, 4);
    put(28, static_cast<std::uint16_t>(f.verticalPadding), 2);
    put(30, static_cast<std::uint16_t>(f.horizontalPadding), 2);
    put(32, f.height, 2);
    put(34, f.width, 2);
    return AlbumArtRep::initWithMHNIHeader(header, path, library);
}

void writeBytes(const std::string& path, const std::vector<std::uint8_t>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::uint8_t> words(std::size_t count, std::uint16_t word)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(word));
        bytes.push_back(static_cast<std::uint8_t>(word >> 8));
    }
    return bytes;
}

TEST(ArtworkImages, StoredSizeRoundsOddSidesUpExceptForThreeWidths)
{
    struct Case {
        std::uint16_t width, height;
        std::int16_t horizontalPadding, verticalPadding;
        std::int32_t storedWidth, storedHeight;
    };
    const Case cases[] = {
        {39, 39, 2, 2, 41, 41},    // 41 is exempt: both sides stay odd
        {39, 39, 0, 0, 40, 40},
        {100, 101, 0, 0, 100, 102},
        {37, 37, 0, 0, 37, 37},
        {55, 55, 0, 0, 55, 55},
        {54, 55, 1, 0, 55, 55},    // the exemption looks at the stored width, padding included
        {36, 37, 0, 0, 36, 38},    // a height of 37 is not exempt; only the width decides
        {37, 36, 0, 1, 37, 37},
        {99, 99, 0, 0, 100, 100},
        {200, 191, 0, 0, 200, 192},
        {10, 10, -13, -15, -3, -5}, // negative sides are not rounded (and never decode)
        {0, 0, 0, 0, 0, 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(AlbumArtRep::storedSize(c.width, c.height, c.horizontalPadding, c.verticalPadding),
                  std::make_pair(c.storedWidth, c.storedHeight))
            << c.width << " x " << c.height << " padded " << c.horizontalPadding << ", " << c.verticalPadding;
}

// The same rule end to end: the pixels are written at the stored size the test names (not
// computed by the writer), and the picture comes out at that size.
TEST(ArtworkImages, ThumbnailsDecodeAtTheirStoredSize)
{
    struct Case {
        std::uint16_t width, height;
        std::int16_t horizontalPadding, verticalPadding;
        std::uint32_t storedWidth, storedHeight;
    };
    const Case cases[] = {{39, 39, 2, 2, 41, 41}, {39, 39, 0, 0, 40, 40}, {100, 101, 0, 0, 100, 102},
                          {55, 53, 0, 0, 55, 53}};
    TempDir dir;
    ArtworkImageSpec item{.imageID = 100};
    for (const auto& c : cases)
        item.thumbnails.push_back({.width = c.width, .height = c.height, .horizontalPadding = c.horizontalPadding,
                                   .verticalPadding = c.verticalPadding, .storedWidth = c.storedWidth,
                                   .storedHeight = c.storedHeight});
    test::writeVolume(dir.path(), VolumeSpec{.database = test::DatabaseSpec{.tracks = {{.trackID = 1, .artworkLink = 100}}},
                                             .artwork = ArtworkDBSpec{.images = {item}}});
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir.path()));
    const auto art = library->allTracks()[0]->albumArt();
    ASSERT_EQ(art->artReps().size(), std::size(cases));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        auto image = art->artReps()[i]->image();
        ASSERT_TRUE(image) << "case " << i;
        EXPECT_EQ(image->width(), cases[i].storedWidth) << "case " << i;
        EXPECT_EQ(image->height(), cases[i].storedHeight) << "case " << i;
    }
}

TEST(ArtworkImages, DecodedPixelsShowTheStoredPicture)
{
    TempDir dir;
    ArtworkImageSpec item{.imageID = 100, .thumbnails = {{.width = 100, .height = 100}}};
    test::writeVolume(dir.path(), VolumeSpec{.database = test::DatabaseSpec{.tracks = {{.trackID = 1, .artworkLink = 100}}},
                                             .artwork = ArtworkDBSpec{.images = {item}}});
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir.path()));
    auto image = library->allTracks()[0]->albumArt()->image();
    ASSERT_TRUE(image);
    using P = Image::Pixel;
    EXPECT_EQ(image->pixelAt(10, 10), (P{255, 255, 0, 0}));     // red quadrant
    EXPECT_EQ(image->pixelAt(90, 10), (P{255, 0, 255, 0}));     // green
    EXPECT_EQ(image->pixelAt(10, 90), (P{255, 0, 0, 255}));     // blue
    EXPECT_EQ(image->pixelAt(90, 90), (P{255, 255, 255, 255})); // white
    EXPECT_EQ(image->pixelAt(50, 20), (P{255, 0, 0, 0}));       // the cross
    EXPECT_EQ(image->pixelAt(0, 0), test::testPicture(0, 0, 100, 100));
}

TEST(ArtworkImages, SessionLibrariesReadTheSameBytesAsOneFiveFiveFive)
{
    TempDir dir;
    const std::string file = dir.file("F1.ithmb");
    writeBytes(file, words(4, 0x7C00)); // 0 11111 00000 00000
    const RepFields fields{.length = 8, .height = 2, .width = 2};

    auto disk = std::make_shared<DiskLibrary>();
    auto session = std::make_shared<SessionLibrary>();
    auto fromDisk = rep(fields, file, disk)->image();
    auto fromSession = rep(fields, file, session)->image();
    ASSERT_TRUE(fromDisk);
    ASSERT_TRUE(fromSession);
    // 5-6-5: red 01111, green 100000, blue 0, opaque.
    EXPECT_EQ(fromDisk->pixelAt(1, 1), (Image::Pixel{255, 123, 130, 0}));
    // 1-5-5-5: no alpha bit, red 11111.
    EXPECT_EQ(fromSession->pixelAt(1, 1), (Image::Pixel{0, 255, 0, 0}));
}

TEST(ArtworkImages, FailedReadsAnswerNoImageAndAreTriedAgain)
{
    TempDir dir;
    const std::string file = dir.file("F1028_1.ithmb");
    auto library = std::make_shared<DiskLibrary>();
    auto r = rep({.offset = 6, .length = 4 * 4 * 2, .height = 4, .width = 4}, file, library);

    EXPECT_EQ(r->image(), nullptr) << "no file";
    EXPECT_EQ(r->image(), nullptr) << "still no file";

    std::vector<std::uint8_t> bytes(6, 0xAA);
    auto pixels = words(16, 0xFFFF);
    bytes.insert(bytes.end(), pixels.begin(), pixels.end() - 1); // one byte short
    writeBytes(file, bytes);
    EXPECT_EQ(r->image(), nullptr) << "one byte short of 4 x 4 x 2";

    bytes.push_back(0xFF);
    writeBytes(file, bytes);
    auto image = r->image();
    ASSERT_TRUE(image) << "the next call reads again";
    EXPECT_EQ(image->pixelAt(3, 3), (Image::Pixel{255, 255, 255, 255}));

    fs::remove(file);
    EXPECT_EQ(r->image(), image) << "a decoded picture is kept";
}

TEST(ArtworkImages, ByteCountsMustMatchTheStoredSizeExactly)
{
    TempDir dir;
    const std::string file = dir.file("F.ithmb");
    auto library = std::make_shared<DiskLibrary>();
    struct Case {
        const char* what;
        std::size_t fileBytes;
        std::uint32_t recordLength;
        bool decodes;
    };
    const Case cases[] = {
        {"exact", 32, 32, true},
        {"record one short", 32, 31, false},
        {"record one long, file holds more", 40, 33, false},
        {"record longer, file ends with the picture", 32, 4000, true},
        {"record huge, file holds more", 64, 0xFFFFFFFF, false},
    };
    for (const auto& c : cases) {
        writeBytes(file, std::vector<std::uint8_t>(c.fileBytes, 0x11));
        auto image = rep({.length = c.recordLength, .height = 4, .width = 4}, file, library)->image();
        EXPECT_EQ(image != nullptr, c.decodes) << c.what;
    }
}

TEST(ArtworkImages, NoLibraryOrNoPathMeansNoImage)
{
    TempDir dir;
    const std::string file = dir.file("F.ithmb");
    writeBytes(file, words(4, 0x1234));
    auto library = std::make_shared<DiskLibrary>();
    auto orphan = rep({.length = 8, .height = 2, .width = 2}, file, library);
    auto nameless = rep({.length = 8, .height = 2, .width = 2}, std::nullopt, library);
    EXPECT_EQ(nameless->image(), nullptr);
    library.reset();
    EXPECT_EQ(orphan->image(), nullptr) << "the library object is not owned by its artwork";
}

TEST(ArtworkImages, SharedStandInShowsTheNoImagePicture)
{
    auto standIn = AlbumArt::noAlbumArtInstance();
    ASSERT_TRUE(standIn);
    EXPECT_EQ(AlbumArt::noAlbumArtInstance(), standIn);
    EXPECT_TRUE(standIn->artReps().empty());
    EXPECT_EQ(standIn->artworkID(), 0u);
    EXPECT_EQ(standIn->trackID(), 0u);
    auto picture = standIn->image();
    ASSERT_TRUE(picture);
    auto resource = Resources::imageForResource("NoImage", "png");
    ASSERT_TRUE(resource);
    EXPECT_EQ(picture->width(), resource->width());
    EXPECT_EQ(picture->height(), resource->height());
    EXPECT_EQ(std::vector<std::uint8_t>(picture->bytes(), picture->bytes() + picture->byteCount()),
              std::vector<std::uint8_t>(resource->bytes(), resource->bytes() + resource->byteCount()));

    EXPECT_EQ(AlbumArt::initWithReps({}, 5, 6)->image(), nullptr) << "only the stand-in has a fixed picture";
    auto own = std::make_shared<const Image>(3, 3);
    EXPECT_EQ(AlbumArt::initWithImage(own)->image(), own);
}

} // namespace
} // namespace zq
