// The 16-bit thumbnail pixel conversions: every possible word in both layouts, the vector path
// against the plain one at every length and alignment, and the image maker's refusals.

#include "ZQCore/foundation/PixelConversion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace zq {
namespace {

std::vector<std::uint8_t> allWords()
{
    std::vector<std::uint8_t> bytes(65536 * 2);
    for (std::uint32_t w = 0; w < 65536; ++w) {
        bytes[2 * w] = static_cast<std::uint8_t>(w);
        bytes[2 * w + 1] = static_cast<std::uint8_t>(w >> 8);
    }
    return bytes;
}

// What every widened channel must satisfy, whatever the arithmetic: its top n bits are the
// stored value (so narrowing gives the value back), 0 stays 0 and the maximum becomes 255, and
// it is within one step of the exact scaling value × 255 / maximum.
void expectWidened(unsigned value, unsigned bits, std::uint8_t widened, std::uint32_t word, const char* channel)
{
    const unsigned maximum = (1u << bits) - 1;
    EXPECT_EQ(widened >> (8 - bits), value) << channel << " of word " << word;
    const double exact = value * 255.0 / maximum;
    EXPECT_LE(std::abs(widened - exact), 1.0) << channel << " of word " << word;
    EXPECT_TRUE((value != 0 || widened == 0) && (value != maximum || widened == 255)) << channel << " of " << word;
}

TEST(ArtworkPixels, EveryWordOfBothLayoutsWidensAsDocumented)
{
    const auto words = allWords();
    std::vector<std::uint8_t> rgb(65536 * 4), argb(65536 * 4);
    convertRGB565ToARGB8888(words.data(), 65536, rgb.data(), 0xA5);
    convertARGB1555ToARGB8888(words.data(), 65536, argb.data());
    for (std::uint32_t w = 0; w < 65536; ++w) {
        const std::uint8_t* p = &rgb[4 * w]; // alpha, red, green, blue
        ASSERT_EQ(p[0], 0xA5) << "alpha of word " << w;
        expectWidened(w >> 11, 5, p[1], w, "red");
        expectWidened((w >> 5) & 0x3F, 6, p[2], w, "green");
        expectWidened(w & 0x1F, 5, p[3], w, "blue");
        p = &argb[4 * w];
        ASSERT_EQ(p[0], (w & 0x8000) ? 0xFF : 0x00) << "alpha of word " << w;
        expectWidened((w >> 10) & 0x1F, 5, p[1], w, "1555 red");
        expectWidened((w >> 5) & 0x1F, 5, p[2], w, "1555 green");
        expectWidened(w & 0x1F, 5, p[3], w, "1555 blue");
        if (::testing::Test::HasFailure())
            return;
    }
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

TEST(ArtworkPixels, ImageMakerRefusesWrongCountsAndImpossibleSizes)
{
    const std::vector<std::uint8_t> sixPixels(12, 0xFF);
    struct Case {
        std::size_t bytes;
        std::int32_t width, height;
        bool accepted;
    };
    const Case cases[] = {
        {12, 3, 2, true},
        {12, 2, 3, true},
        {11, 3, 2, false},  // one byte short
        {12, 4, 2, false},  // one pixel more than the bytes hold
        {12, 6, 0, false},
        {12, -3, -2, false},  // a negative product of the right size is still no image
        {0, 0, 0, false},
    };
    for (const auto& c : cases) {
        auto image = imageWith16BitPixels(std::span(sixPixels.data(), c.bytes), c.width, c.height, PixelLayout::RGB565);
        EXPECT_EQ(image != nullptr, c.accepted) << c.bytes << " bytes as " << c.width << " x " << c.height;
        if (image) {
            EXPECT_EQ(image->width(), static_cast<std::uint32_t>(c.width));
            EXPECT_EQ(image->height(), static_cast<std::uint32_t>(c.height));
        }
    }
    // A side beyond what Image allows is refused, not thrown, even when the count matches.
    const std::vector<std::uint8_t> tall(2 * (Image::kMaxDimension + 1), 0);
    EXPECT_EQ(imageWith16BitPixels(tall, 1, Image::kMaxDimension + 1, PixelLayout::RGB565), nullptr);
}

} // namespace
} // namespace zq
