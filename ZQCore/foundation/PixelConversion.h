#pragma once

// Expanding the 16-bit pixels of device thumbnails into Image's 32-bit alpha, red, green, blue
// bytes.
//
// Both layouts store one little-endian 16-bit word per pixel:
//   5-6-5     bits 15-11 red, 10-5 green, 4-0 blue; no alpha (a constant is supplied)
//   1-5-5-5   bit 15 alpha, bits 14-10 red, 9-5 green, 4-0 blue
//
// Widening rule. A channel of n bits is widened to 8 by shifting it to the top and replicating
// its high bits into the low ones that the shift leaves empty: a 5-bit value v becomes
// (v << 3) | (v >> 2), a 6-bit value (v << 2) | (v >> 4), and the alpha bit becomes 0 or 255.
// This maps 0 to 0 and the channel's maximum to 255 exactly, spreads the values in between
// evenly (it equals round(v × 255 / max) within one step), and is what the device's own
// firmware and the usual image libraries do, so a picture looks the same here as on the device.
//
// Each conversion is one pass over the pixels into a buffer the caller owns; nothing is
// allocated. On x86-64 the pixels go through the widest vector unit the processor has (8 per
// step with SSE2, which every x86-64 processor has, 16 with AVX2, 32 with AVX-512), chosen once
// at run time; elsewhere, and for the last few pixels, a plain loop does the same arithmetic.
// Every path gives identical bytes.

#include "ZQCore/foundation/Image.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace zq {

/// Converts `pixelCount` 5-6-5 pixels at `source` (2 bytes each) into `destination` (4 bytes
/// each, alpha first) with every alpha byte set to `alpha`. The buffers must not overlap.
void convertRGB565ToARGB8888(const std::uint8_t* source, std::size_t pixelCount, std::uint8_t* destination,
                             std::uint8_t alpha) noexcept;

/// Converts `pixelCount` 1-5-5-5 pixels at `source` into `destination` (alpha 0 or 255).
void convertARGB1555ToARGB8888(const std::uint8_t* source, std::size_t pixelCount,
                               std::uint8_t* destination) noexcept;

/// The ways a conversion can be computed, for tests that hold every path to the plain one and
/// for benchmarks that compare them. Applications just call the functions above.
namespace pixelkernels {
/// In order of width; each vector kernel hands the pixels that do not fill its last step to
/// the narrower ones.
enum class Kernel { Portable, SSE2, AVX2, AVX512 };
/// Portable first, then each vector kernel this processor can run, in order of width. The
/// functions above use the last one.
std::vector<Kernel> supported();
const char* name(Kernel kernel);
/// As convertRGB565ToARGB8888 / convertARGB1555ToARGB8888, through `kernel`, which must be
/// one of supported().
void convertRGB565(Kernel kernel, const std::uint8_t* source, std::size_t pixelCount, std::uint8_t* destination,
                   std::uint8_t alpha) noexcept;
void convertARGB1555(Kernel kernel, const std::uint8_t* source, std::size_t pixelCount,
                     std::uint8_t* destination) noexcept;
} // namespace pixelkernels

/// The two 16-bit layouts of device thumbnails.
enum class PixelLayout {
    RGB565,   ///< disk-mode devices; opaque
    ARGB1555, ///< devices reached over AFC
};

/// An image of `width` × `height` pixels from 16-bit words in `layout` (5-6-5 pixels are
/// opaque). nullptr when `pixels` does not hold exactly width × height × 2 bytes, when a side is
/// not positive, or when the image would be larger than Image allows; a device file can claim
/// any size, and none of these is an error worth an exception.
std::shared_ptr<Image> imageWith16BitPixels(std::span<const std::uint8_t> pixels, std::int32_t width,
                                            std::int32_t height, PixelLayout layout);

} // namespace zq
