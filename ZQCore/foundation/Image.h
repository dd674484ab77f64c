#pragma once

#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace zq {

/// A bitmap of 32-bit pixels. The pixels are one byte vector of width × height × 4 bytes, rows
/// top to bottom without padding, each pixel's bytes in the order alpha, red, green, blue
/// (so a row is width × 4 bytes long). Colour is not premultiplied by alpha.
///
/// This is the form every producer in the framework fills: the PNG decoder, and the thumbnail
/// converters that expand a device's 16-bit pixels into the same byte order, which is why the
/// buffer can be adopted whole (the adopting constructor) or written in place (mutableBytes()).
class ZQ_EXPORT Image {
public:
    /// One pixel, in the order its bytes are stored.
    struct Pixel {
        std::uint8_t alpha = 0;
        std::uint8_t red = 0;
        std::uint8_t green = 0;
        std::uint8_t blue = 0;
        friend bool operator==(const Pixel&, const Pixel&) = default;
    };

    /// The largest side an image may have; larger requests are refused (a decoder reading a
    /// hostile header must never be talked into a huge allocation). Device artwork and our
    /// pictures are a few hundred pixels at most.
    static constexpr std::uint32_t kMaxDimension = 16384;

    /// A fully transparent image (every byte 0). Throws std::length_error when a side exceeds
    /// kMaxDimension. A side of 0 makes an empty image.
    Image(std::uint32_t width, std::uint32_t height);

    /// Adopts pixels already in alpha, red, green, blue order without copying them. Throws
    /// std::length_error when a side exceeds kMaxDimension and std::invalid_argument when the
    /// vector is not exactly width × height × 4 bytes.
    Image(std::uint32_t width, std::uint32_t height, std::vector<std::uint8_t> argbBytes);

    /// Decodes a PNG of any colour type and bit depth (palette, grey, with or without alpha,
    /// 16-bit samples are reduced to 8, interlacing undone). nullptr when the bytes are not a
    /// complete, valid PNG or its dimensions are implausible.
    static std::shared_ptr<Image> imageWithPNGData(const Data& png);

    /// Decodes a baseline or progressive JPEG (grey, colour or CMYK) into opaque pixels. nullptr
    /// when the bytes are not a complete, valid JPEG or its dimensions are implausible.
    static std::shared_ptr<Image> imageWithJPEGData(const Data& jpeg);

    /// A JPEG or PNG, told apart by their signatures; nullptr for anything else.
    static std::shared_ptr<Image> imageWithEncodedData(const Data& data);

    /// Decodes an icon container ("icns") by taking the largest of its PNG-encoded entries
    /// (by pixel count; the first of equal ones). Entries in the older raw-pixel formats are
    /// skipped. nullptr when there is no decodable PNG entry.
    static std::shared_ptr<Image> imageWithICNSData(const Data& icns);

    std::uint32_t width() const noexcept { return width_; }
    std::uint32_t height() const noexcept { return height_; }
    std::size_t bytesPerRow() const noexcept { return static_cast<std::size_t>(width_) * 4; }
    bool empty() const noexcept { return width_ == 0 || height_ == 0; }

    /// All pixel bytes (width × height × 4), alpha-red-green-blue per pixel.
    const std::uint8_t* bytes() const noexcept { return pixels_.data(); }
    std::uint8_t* mutableBytes() noexcept { return pixels_.data(); }
    std::size_t byteCount() const noexcept { return pixels_.size(); }

    /// The pixel at column x, row y (0,0 is the top left). Throws std::out_of_range outside
    /// the image.
    Pixel pixelAt(std::uint32_t x, std::uint32_t y) const;
    void setPixel(std::uint32_t x, std::uint32_t y, Pixel pixel);

    /// PNG encoding: 8 bits per sample, red-green-blue-alpha, not interlaced. No value for an
    /// empty image (PNG has no zero-sized images) or when the encoder fails.
    std::optional<Data> pngData() const;

private:
    std::size_t offsetOf(std::uint32_t x, std::uint32_t y) const;

    std::uint32_t width_ = 0;
    std::uint32_t height_ = 0;
    std::vector<std::uint8_t> pixels_;
};

} // namespace zq
