// The framework's compiled-in resources, and images: PNG encoding and decoding, icon
// containers, and the limits that keep a hostile picture from asking for huge buffers.

#include "ZQCore/foundation/Image.h"
#include "ZQCore/foundation/Resources.h"
#include "ZQCore/foundation/Value.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using zq::Image;
using zq::Resources;

void putBigEndian32(std::vector<std::uint8_t>& bytes, std::size_t at, std::uint32_t value)
{
    for (std::size_t i = 0; i < 4; ++i)
        bytes[at + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

std::uint32_t crc32(const std::uint8_t* bytes, std::size_t length)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 0; i < length; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

Image sampleImage()
{
    Image image(3, 2);
    image.setPixel(0, 0, {255, 255, 0, 0});
    image.setPixel(1, 0, {255, 0, 255, 0});
    image.setPixel(2, 0, {255, 0, 0, 255});
    image.setPixel(0, 1, {128, 10, 20, 30}); // colour is kept as given, not premultiplied
    image.setPixel(1, 1, {0, 0, 0, 0});
    image.setPixel(2, 1, {1, 254, 253, 252});
    return image;
}

TEST(FoundationImage, PNGRoundTripKeepsEveryPixel)
{
    const Image original = sampleImage();
    EXPECT_EQ(original.bytesPerRow(), 12u);
    EXPECT_EQ(original.bytes()[4 * 3 + 1], 10); // row 1, pixel 0: alpha, red, green, blue
    auto png = original.pngData();
    ASSERT_TRUE(png);
    auto decoded = Image::imageWithPNGData(*png);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(std::vector<std::uint8_t>(decoded->bytes(), decoded->bytes() + decoded->byteCount()),
              std::vector<std::uint8_t>(original.bytes(), original.bytes() + original.byteCount()));
}

TEST(FoundationImage, BadPNGBytesGiveNoImage)
{
    const auto png = *sampleImage().pngData();
    EXPECT_EQ(Image::imageWithPNGData(zq::Data()), nullptr);
    EXPECT_EQ(Image::imageWithPNGData(zq::Data(std::string_view("not a picture at all"))), nullptr);
    for (std::size_t cut : {8u, 20u, 40u})
        EXPECT_EQ(Image::imageWithPNGData(png.subdata(0, png.size() - cut)), nullptr) << cut;

    // Headers that claim far more pixels than the data could hold are refused before any
    // pixel buffer is made: 16384 x 16384 exceeds the pixel limit, 4000 x 4000 the most that
    // a few bytes of compressed data can inflate to.
    for (std::uint32_t side : {16384u, 4000u}) {
        std::vector<std::uint8_t> claim(png.bytes(), png.bytes() + png.size());
        for (std::size_t at : {16u, 20u})
            putBigEndian32(claim, at, side);
        putBigEndian32(claim, 29, crc32(claim.data() + 12, 17)); // the IHDR chunk stays valid
        EXPECT_EQ(Image::imageWithPNGData(zq::Data(claim)), nullptr) << side;
    }
}

} // namespace
