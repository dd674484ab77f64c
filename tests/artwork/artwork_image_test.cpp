// Album art images: the 16-bit pixel conversions (every word, every vector kernel against the
// plain loop), the stored-size rule, decoding (5-6-5 on a mounted device, 1-5-5-5 through a
// device session), reads that fail and are tried again, and the shared no-artwork picture.

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/foundation/PixelConversion.h"
#include "ZQCore/foundation/Resources.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

namespace zq {
namespace {

using namespace test;

/// A representation of `width` x `height` pixels, `length` bytes at `offset` of `path`.
std::shared_ptr<AlbumArtRep> rep(std::uint16_t width, std::uint16_t height, std::uint32_t length,
                                 const std::optional<std::string>& path, const std::shared_ptr<ZQCoreiPod>& library,
                                 std::uint32_t offset = 0)
{
    std::array<std::uint8_t, 44> header{};
    for (auto [at, value, bytes] : {std::tuple{20, offset, 4}, {24, length, 4}, {32, height, 2}, {34, width, 2}})
        for (int i = 0; i < bytes; ++i)
            header[static_cast<std::size_t>(at + i)] = static_cast<std::uint8_t>(value >> (8 * i));
    return AlbumArtRep::initWithMHNIHeader(header, path, library);
}

void writeBytes(const std::string& path, const std::vector<std::uint8_t>& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::uint8_t> words(std::size_t count, std::uint16_t word)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes.insert(bytes.end(), {static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8)});
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
        {39, 39, 2, 2, 41, 41}, // 41 is exempt: both sides stay odd
        {39, 39, 0, 0, 40, 40},   {100, 101, 0, 0, 100, 102}, {37, 37, 0, 0, 37, 37}, {55, 55, 0, 0, 55, 55},
        {54, 55, 1, 0, 55, 55},   // the exemption looks at the stored width, padding included
        {36, 37, 0, 0, 36, 38},   // a height of 37 is not exempt; only the width decides
        {37, 36, 0, 1, 37, 37},   {99, 99, 0, 0, 100, 100},   {200, 191, 0, 0, 200, 192},
        {10, 10, -13, -15, -3, -5}, // negative sides are not rounded (and never decode)
        {0, 0, 0, 0, 0, 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(AlbumArtRep::storedSize(c.width, c.height, c.horizontalPadding, c.verticalPadding),
                  std::make_pair(c.storedWidth, c.storedHeight))
            << c.width << " x " << c.height << " padded " << c.horizontalPadding << ", " << c.verticalPadding;
}

// End to end, with the pixels written at the size the test names (not computed by the writer).
TEST(ArtworkImages, ThumbnailsDecodeAtTheirStoredSizeShowingTheStoredPicture)
{
    struct Case {
        std::uint16_t width, height;
        std::int16_t horizontalPadding, verticalPadding;
        std::uint32_t storedWidth, storedHeight;
    };
    const Case cases[] = {{100, 100, 0, 0, 100, 100}, {39, 39, 2, 2, 41, 41}, {39, 39, 0, 0, 40, 40},
                          {100, 101, 0, 0, 100, 102}, {55, 53, 0, 0, 55, 53}};
    TempDir dir;
    ArtworkImageSpec item{.imageID = 100};
    for (const auto& c : cases)
        item.thumbnails.push_back({.width = c.width, .height = c.height, .horizontalPadding = c.horizontalPadding,
                                   .verticalPadding = c.verticalPadding, .storedWidth = c.storedWidth,
                                   .storedHeight = c.storedHeight});
    auto library = loadVolume(dir.path(), {.database = DatabaseSpec{.tracks = {{.trackID = 1, .artworkLink = 100}}},
                                           .artwork = ArtworkDBSpec{.images = {item}}});
    const auto art = library->allTracks()[0]->albumArt();
    ASSERT_EQ(art->artReps().size(), std::size(cases));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        auto image = art->artReps()[i]->image();
        ASSERT_TRUE(image) << "case " << i;
        EXPECT_EQ(std::pair(image->width(), image->height()), std::pair(cases[i].storedWidth, cases[i].storedHeight));
    }
    auto image = art->artReps()[0]->image();
    using P = Image::Pixel;
    EXPECT_EQ(image->pixelAt(10, 10), (P{255, 255, 0, 0}));     // red quadrant
    EXPECT_EQ(image->pixelAt(90, 10), (P{255, 0, 255, 0}));     // green
    EXPECT_EQ(image->pixelAt(10, 90), (P{255, 0, 0, 255}));     // blue
    EXPECT_EQ(image->pixelAt(90, 90), (P{255, 255, 255, 255})); // white
    EXPECT_EQ(image->pixelAt(50, 20), (P{255, 0, 0, 0}));       // the cross
}

TEST(ArtworkImages, ByteCountsMustMatchTheStoredSizeExactly)
{
    TempDir dir;
    const std::string file = dir.file("F.ithmb");
    auto library = std::make_shared<DetachedLibrary>();
    struct Case {
        const char* what;
        std::size_t fileBytes;
        std::uint32_t recordLength;
        bool decodes;
    };
    for (const Case& c : {Case{"exact", 32, 32, true}, Case{"record one short", 32, 31, false},
                          Case{"record one long, file holds more", 40, 33, false},
                          Case{"record longer, file ends with the picture", 32, 4000, true},
                          Case{"record huge, file holds more", 64, 0xFFFFFFFF, false}}) {
        writeBytes(file, std::vector<std::uint8_t>(c.fileBytes, 0x11));
        EXPECT_EQ(rep(4, 4, c.recordLength, file, library)->image() != nullptr, c.decodes) << c.what;
    }
    // No path, or a library object gone (artwork does not own it): no image.
    writeBytes(file, words(4, 0x1234));
    EXPECT_EQ(rep(2, 2, 8, std::nullopt, library)->image(), nullptr);
    auto orphan = rep(2, 2, 8, file, library);
    library.reset();
    EXPECT_EQ(orphan->image(), nullptr);
}

std::vector<std::uint8_t> allWords()
{
    std::vector<std::uint8_t> bytes(65536 * 2);
    for (std::uint32_t w = 0; w < 65536; ++w) {
        bytes[2 * w] = static_cast<std::uint8_t>(w);
        bytes[2 * w + 1] = static_cast<std::uint8_t>(w >> 8);
    }
    return bytes;
}

// Every vector path this processor has must give exactly the plain loop's bytes: for every
// possible word, and for runs of any length from any byte (the vector loops take 8, 16 or 32
// pixels per step and leave the rest to the plain loop).
TEST(ArtworkPixels, EveryKernelMatchesThePlainLoop)
{
    using namespace pixelkernels;
    const auto words = allWords();
    std::vector<std::uint8_t> expected565(65536 * 4), expected1555(65536 * 4);
    convertRGB565(Kernel::Portable, words.data(), 65536, expected565.data(), 0x7F);
    convertARGB1555(Kernel::Portable, words.data(), 65536, expected1555.data());

    std::vector<std::uint8_t> source(2 * 80 + 1);
    std::uint32_t state = 12345;
    for (auto& byte : source) {
        state = state * 1103515245u + 12345u;
        byte = static_cast<std::uint8_t>(state >> 16);
    }

    ASSERT_EQ(supported().front(), Kernel::Portable);
    for (Kernel kernel : supported()) {
        SCOPED_TRACE(name(kernel));
        std::vector<std::uint8_t> out(65536 * 4);
        convertRGB565(kernel, words.data(), 65536, out.data(), 0x7F);
        EXPECT_EQ(out, expected565);
        convertARGB1555(kernel, words.data(), 65536, out.data());
        EXPECT_EQ(out, expected1555);

        for (std::size_t offset = 0; offset < 2; ++offset) {
            for (std::size_t count = 0; count <= 80; ++count) {
                const std::uint8_t* in = source.data() + offset;
                // One guard byte either side: nothing may be written outside the run.
                std::vector<std::uint8_t> run(4 * count + 2, 0xEE), plain(4 * count + 2, 0xEE);
                convertRGB565(kernel, in, count, run.data() + 1, 0x7F);
                convertRGB565(Kernel::Portable, in, count, plain.data() + 1, 0x7F);
                ASSERT_EQ(run, plain) << "5-6-5, offset " << offset << ", count " << count;
                convertARGB1555(kernel, in, count, run.data() + 1);
                convertARGB1555(Kernel::Portable, in, count, plain.data() + 1);
                ASSERT_EQ(run, plain) << "1-5-5-5, offset " << offset << ", count " << count;
            }
        }
    }
}

} // namespace
} // namespace zq
