// Images: a PNG written and read back keeps every pixel, alpha and unpremultiplied colour.

#include "ZQCore/foundation/Image.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using zq::Image;

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

} // namespace
