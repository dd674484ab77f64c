#include "ZQCore/foundation/PixelConversion.h"

#include <stdexcept>

#if defined(__x86_64__) && defined(__SSE2__)
#define ZQ_PIXEL_KERNELS_X86 1
#include <immintrin.h>
#endif

namespace zq {

namespace {

// ---- the plain form -----------------------------------------------------------------------------

std::uint8_t widen5(unsigned v) { return static_cast<std::uint8_t>((v << 3) | (v >> 2)); }
std::uint8_t widen6(unsigned v) { return static_cast<std::uint8_t>((v << 2) | (v >> 4)); }

unsigned wordAt(const std::uint8_t* source, std::size_t index)
{
    return static_cast<unsigned>(source[2 * index] | (source[2 * index + 1] << 8));
}

void portable565(const std::uint8_t* source, std::size_t begin, std::size_t end, std::uint8_t* destination,
                 std::uint8_t alpha)
{
    for (std::size_t i = begin; i < end; ++i) {
        const unsigned p = wordAt(source, i);
        std::uint8_t* out = destination + 4 * i;
        out[0] = alpha;
        out[1] = widen5(p >> 11);
        out[2] = widen6((p >> 5) & 0x3F);
        out[3] = widen5(p & 0x1F);
    }
}

void portable1555(const std::uint8_t* source, std::size_t begin, std::size_t end, std::uint8_t* destination)
{
    for (std::size_t i = begin; i < end; ++i) {
        const unsigned p = wordAt(source, i);
        std::uint8_t* out = destination + 4 * i;
        out[0] = (p & 0x8000) ? 0xFF : 0x00;
        out[1] = widen5((p >> 10) & 0x1F);
        out[2] = widen5((p >> 5) & 0x1F);
        out[3] = widen5(p & 0x1F);
    }
}

#if ZQ_PIXEL_KERNELS_X86
// ---- the vector forms -----------------------------------------------------------------------------
//
// All work in 16-bit lanes, one pixel word per lane, and build two words per pixel: alpha in
// the low byte and red in the high byte of one, green low and blue high in the other. Each
// widened channel is assembled straight from the pixel word: its n bits shifted to the top of
// their byte, or-ed with its top 8 - n bits shifted to the bottom. Interleaving the two words
// gives 32-bit lanes whose bytes, on this little-endian machine, are alpha, red, green, blue.
//
// The 256- and 512-bit interleaves work within 128-bit lanes, so the input's 64-bit quarters
// are first put in the order that makes the interleaved output come out in pixel order.
//
// In 5-6-5 words (bits 15-11 red, 10-5 green, 4-0 blue):
//   red << 8   = (p & 0xF800) | ((p >> 5) & 0x0700)
//   green      = ((p >> 3) & 0x00FC) | ((p >> 9) & 0x0003)
//   blue << 8  = (p << 11) | ((p << 6) & 0x0700)
// In 1-5-5-5 words (bit 15 alpha, 14-10 red, 9-5 green, 4-0 blue):
//   alpha      = (p >>arithmetic 15) & 0x00FF
//   red << 8   = ((p << 1) & 0xF800) | ((p >> 4) & 0x0700)
//   green      = ((p >> 2) & 0x00F8) | ((p >> 7) & 0x0007)
//   blue << 8  as above

std::size_t sse2565(const std::uint8_t* source, std::size_t count, std::uint8_t* destination, std::uint8_t alpha)
{
    const __m128i alphaLane = _mm_set1_epi16(alpha);
    const __m128i redHigh = _mm_set1_epi16(static_cast<short>(0xF800));
    const __m128i low3High = _mm_set1_epi16(0x0700);
    const __m128i greenHigh = _mm_set1_epi16(0x00FC);
    const __m128i greenLow = _mm_set1_epi16(0x0003);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 2 * i));
        const __m128i red = _mm_or_si128(_mm_and_si128(p, redHigh), _mm_and_si128(_mm_srli_epi16(p, 5), low3High));
        const __m128i green =
            _mm_or_si128(_mm_and_si128(_mm_srli_epi16(p, 3), greenHigh), _mm_and_si128(_mm_srli_epi16(p, 9), greenLow));
        const __m128i blue = _mm_or_si128(_mm_slli_epi16(p, 11), _mm_and_si128(_mm_slli_epi16(p, 6), low3High));
        const __m128i alphaRed = _mm_or_si128(alphaLane, red);
        const __m128i greenBlue = _mm_or_si128(green, blue);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + 4 * i), _mm_unpacklo_epi16(alphaRed, greenBlue));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + 4 * i + 16), _mm_unpackhi_epi16(alphaRed, greenBlue));
    }
    return i;
}

std::size_t sse21555(const std::uint8_t* source, std::size_t count, std::uint8_t* destination)
{
    const __m128i lowByte = _mm_set1_epi16(0x00FF);
    const __m128i redHigh = _mm_set1_epi16(static_cast<short>(0xF800));
    const __m128i low3High = _mm_set1_epi16(0x0700);
    const __m128i greenHigh = _mm_set1_epi16(0x00F8);
    const __m128i greenLow = _mm_set1_epi16(0x0007);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 2 * i));
        const __m128i alpha = _mm_and_si128(_mm_srai_epi16(p, 15), lowByte);
        const __m128i red =
            _mm_or_si128(_mm_and_si128(_mm_slli_epi16(p, 1), redHigh), _mm_and_si128(_mm_srli_epi16(p, 4), low3High));
        const __m128i green =
            _mm_or_si128(_mm_and_si128(_mm_srli_epi16(p, 2), greenHigh), _mm_and_si128(_mm_srli_epi16(p, 7), greenLow));
        const __m128i blue = _mm_or_si128(_mm_slli_epi16(p, 11), _mm_and_si128(_mm_slli_epi16(p, 6), low3High));
        const __m128i alphaRed = _mm_or_si128(alpha, red);
        const __m128i greenBlue = _mm_or_si128(green, blue);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + 4 * i), _mm_unpacklo_epi16(alphaRed, greenBlue));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + 4 * i + 16), _mm_unpackhi_epi16(alphaRed, greenBlue));
    }
    return i;
}

#define ZQ_TARGET_AVX2 __attribute__((target("avx2")))
#define ZQ_TARGET_AVX512 __attribute__((target("avx512f,avx512bw")))

ZQ_TARGET_AVX2 std::size_t avx2565(const std::uint8_t* source, std::size_t count, std::uint8_t* destination,
                                   std::uint8_t alpha)
{
    const __m256i alphaLane = _mm256_set1_epi16(alpha);
    const __m256i redHigh = _mm256_set1_epi16(static_cast<short>(0xF800));
    const __m256i low3High = _mm256_set1_epi16(0x0700);
    const __m256i greenHigh = _mm256_set1_epi16(0x00FC);
    const __m256i greenLow = _mm256_set1_epi16(0x0003);
    std::size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        // Quarters 0 2 1 3: the in-lane interleaves then yield pixels 0-7 and 8-15.
        const __m256i p =
            _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + 2 * i)), 0xD8);
        const __m256i red =
            _mm256_or_si256(_mm256_and_si256(p, redHigh), _mm256_and_si256(_mm256_srli_epi16(p, 5), low3High));
        const __m256i green = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(p, 3), greenHigh),
                                              _mm256_and_si256(_mm256_srli_epi16(p, 9), greenLow));
        const __m256i blue = _mm256_or_si256(_mm256_slli_epi16(p, 11), _mm256_and_si256(_mm256_slli_epi16(p, 6), low3High));
        const __m256i alphaRed = _mm256_or_si256(alphaLane, red);
        const __m256i greenBlue = _mm256_or_si256(green, blue);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination + 4 * i), _mm256_unpacklo_epi16(alphaRed, greenBlue));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination + 4 * i + 32),
                            _mm256_unpackhi_epi16(alphaRed, greenBlue));
    }
    return i;
}

ZQ_TARGET_AVX2 std::size_t avx21555(const std::uint8_t* source, std::size_t count, std::uint8_t* destination)
{
    const __m256i lowByte = _mm256_set1_epi16(0x00FF);
    const __m256i redHigh = _mm256_set1_epi16(static_cast<short>(0xF800));
    const __m256i low3High = _mm256_set1_epi16(0x0700);
    const __m256i greenHigh = _mm256_set1_epi16(0x00F8);
    const __m256i greenLow = _mm256_set1_epi16(0x0007);
    std::size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256i p =
            _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + 2 * i)), 0xD8);
        const __m256i alpha = _mm256_and_si256(_mm256_srai_epi16(p, 15), lowByte);
        const __m256i red = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(p, 1), redHigh),
                                            _mm256_and_si256(_mm256_srli_epi16(p, 4), low3High));
        const __m256i green = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(p, 2), greenHigh),
                                              _mm256_and_si256(_mm256_srli_epi16(p, 7), greenLow));
        const __m256i blue = _mm256_or_si256(_mm256_slli_epi16(p, 11), _mm256_and_si256(_mm256_slli_epi16(p, 6), low3High));
        const __m256i alphaRed = _mm256_or_si256(alpha, red);
        const __m256i greenBlue = _mm256_or_si256(green, blue);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination + 4 * i), _mm256_unpacklo_epi16(alphaRed, greenBlue));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination + 4 * i + 32),
                            _mm256_unpackhi_epi16(alphaRed, greenBlue));
    }
    return i;
}

// AVX-512 adds the three-input logic instruction, which does a masked merge of two values in
// one step: select(mask, a, b) = (a & mask) | (b & ~mask), truth table 0xE4 with the operands
// (a, b, mask).
constexpr int kSelect = 0xE4;

// The full-mask form of the quarter permutation: the unmasked intrinsic starts from an
// undefined register, which GCC 12 reports as a use of an uninitialised value.
ZQ_TARGET_AVX512 inline __m512i reorder(__m512i order, __m512i value)
{
    return _mm512_maskz_permutexvar_epi64(0xFF, order, value);
}

ZQ_TARGET_AVX512 std::size_t avx512565(const std::uint8_t* source, std::size_t count, std::uint8_t* destination,
                                       std::uint8_t alpha)
{
    const __m512i alphaLane = _mm512_set1_epi16(alpha);
    const __m512i lowByte = _mm512_set1_epi16(0x00FF);
    const __m512i low3High = _mm512_set1_epi16(0x0700);
    const __m512i greenHigh = _mm512_set1_epi16(0x00FC);
    // Quarters 0 4 1 5 2 6 3 7: the in-lane interleaves then yield pixels 0-15 and 16-31.
    const __m512i order = _mm512_set_epi64(7, 3, 6, 2, 5, 1, 4, 0);
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m512i p = reorder(order, _mm512_loadu_si512(source + 2 * i));
        // alpha | red << 8: the alpha byte below the word's own top byte, then bits 10-8 from
        // the word shifted right by 5.
        const __m512i alphaAndTop = _mm512_ternarylogic_epi64(alphaLane, p, lowByte, kSelect);
        const __m512i alphaRed = _mm512_ternarylogic_epi64(_mm512_srli_epi16(p, 5), alphaAndTop, low3High, kSelect);
        const __m512i green = _mm512_ternarylogic_epi64(_mm512_srli_epi16(p, 3), _mm512_srli_epi16(p, 9), greenHigh, kSelect);
        const __m512i greenBlueTop = _mm512_or_si512(green, _mm512_slli_epi16(p, 11));
        const __m512i greenBlue = _mm512_ternarylogic_epi64(_mm512_slli_epi16(p, 6), greenBlueTop, low3High, kSelect);
        _mm512_storeu_si512(destination + 4 * i, _mm512_unpacklo_epi16(alphaRed, greenBlue));
        _mm512_storeu_si512(destination + 4 * i + 64, _mm512_unpackhi_epi16(alphaRed, greenBlue));
    }
    return i;
}

ZQ_TARGET_AVX512 std::size_t avx5121555(const std::uint8_t* source, std::size_t count, std::uint8_t* destination)
{
    const __m512i lowByte = _mm512_set1_epi16(0x00FF);
    const __m512i low3High = _mm512_set1_epi16(0x0700);
    const __m512i greenHigh = _mm512_set1_epi16(0x00F8);
    const __m512i order = _mm512_set_epi64(7, 3, 6, 2, 5, 1, 4, 0);
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m512i p = reorder(order, _mm512_loadu_si512(source + 2 * i));
        const __m512i alphaAndTop = _mm512_ternarylogic_epi64(_mm512_srai_epi16(p, 15), _mm512_slli_epi16(p, 1),
                                                              lowByte, kSelect);
        const __m512i alphaRed = _mm512_ternarylogic_epi64(_mm512_srli_epi16(p, 4), alphaAndTop, low3High, kSelect);
        // Green's low bits come from the word shifted right by 7, which also carries the alpha
        // bit into bit 8; the last select below replaces bits 10-8, so it does no harm.
        const __m512i green = _mm512_ternarylogic_epi64(_mm512_srli_epi16(p, 2), _mm512_srli_epi16(p, 7), greenHigh, kSelect);
        const __m512i greenBlueTop = _mm512_or_si512(green, _mm512_slli_epi16(p, 11));
        const __m512i greenBlue = _mm512_ternarylogic_epi64(_mm512_slli_epi16(p, 6), greenBlueTop, low3High, kSelect);
        _mm512_storeu_si512(destination + 4 * i, _mm512_unpacklo_epi16(alphaRed, greenBlue));
        _mm512_storeu_si512(destination + 4 * i + 64, _mm512_unpackhi_epi16(alphaRed, greenBlue));
    }
    return i;
}

bool processorHas(pixelkernels::Kernel kernel)
{
    switch (kernel) {
    case pixelkernels::Kernel::Portable:
    case pixelkernels::Kernel::SSE2:
        return true;
    case pixelkernels::Kernel::AVX2:
        return __builtin_cpu_supports("avx2");
    case pixelkernels::Kernel::AVX512:
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
    }
    return false;
}
#else
bool processorHas(pixelkernels::Kernel kernel) { return kernel == pixelkernels::Kernel::Portable; }
#endif

pixelkernels::Kernel fastest()
{
    static const pixelkernels::Kernel kernel = pixelkernels::supported().back();
    return kernel;
}

} // namespace

namespace pixelkernels {

std::vector<Kernel> supported()
{
    std::vector<Kernel> kernels;
    for (Kernel kernel : {Kernel::Portable, Kernel::SSE2, Kernel::AVX2, Kernel::AVX512})
        if (processorHas(kernel))
            kernels.push_back(kernel);
    return kernels;
}

const char* name(Kernel kernel)
{
    switch (kernel) {
    case Kernel::Portable: return "portable";
    case Kernel::SSE2: return "SSE2";
    case Kernel::AVX2: return "AVX2";
    case Kernel::AVX512: return "AVX-512";
    }
    return "?";
}

// A kernel takes as many whole steps as fit, then hands the rest to the next narrower one, so
// that at most seven pixels are left to the plain loop.
void convertRGB565(Kernel kernel, const std::uint8_t* source, std::size_t pixelCount, std::uint8_t* destination,
                   std::uint8_t alpha) noexcept
{
    std::size_t done = 0;
#if ZQ_PIXEL_KERNELS_X86
    if (kernel >= Kernel::AVX512)
        done += avx512565(source, pixelCount, destination, alpha);
    if (kernel >= Kernel::AVX2)
        done += avx2565(source + 2 * done, pixelCount - done, destination + 4 * done, alpha);
    if (kernel >= Kernel::SSE2)
        done += sse2565(source + 2 * done, pixelCount - done, destination + 4 * done, alpha);
#else
    (void)kernel;
#endif
    portable565(source, done, pixelCount, destination, alpha);
}

void convertARGB1555(Kernel kernel, const std::uint8_t* source, std::size_t pixelCount,
                     std::uint8_t* destination) noexcept
{
    std::size_t done = 0;
#if ZQ_PIXEL_KERNELS_X86
    if (kernel >= Kernel::AVX512)
        done += avx5121555(source, pixelCount, destination);
    if (kernel >= Kernel::AVX2)
        done += avx21555(source + 2 * done, pixelCount - done, destination + 4 * done);
    if (kernel >= Kernel::SSE2)
        done += sse21555(source + 2 * done, pixelCount - done, destination + 4 * done);
#else
    (void)kernel;
#endif
    portable1555(source, done, pixelCount, destination);
}

} // namespace pixelkernels

void convertRGB565ToARGB8888(const std::uint8_t* source, std::size_t pixelCount, std::uint8_t* destination,
                             std::uint8_t alpha) noexcept
{
    pixelkernels::convertRGB565(fastest(), source, pixelCount, destination, alpha);
}

void convertARGB1555ToARGB8888(const std::uint8_t* source, std::size_t pixelCount, std::uint8_t* destination) noexcept
{
    pixelkernels::convertARGB1555(fastest(), source, pixelCount, destination);
}

std::shared_ptr<Image> imageWith16BitPixels(std::span<const std::uint8_t> pixels, std::int32_t width,
                                            std::int32_t height, PixelLayout layout)
{
    if (width <= 0 || height <= 0)
        return nullptr;
    const std::uint64_t count = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
    // The byte count must match exactly and stay below 2^31 (the thumbnail files' own limit).
    if (count * 2 >= (std::uint64_t(1) << 31) || pixels.size() != count * 2)
        return nullptr;
    if (static_cast<std::uint32_t>(width) > Image::kMaxDimension ||
        static_cast<std::uint32_t>(height) > Image::kMaxDimension)
        return nullptr;
    // Twice the bytes already read, so a hostile size cannot make this large on its own.
    std::vector<std::uint8_t> argb(static_cast<std::size_t>(count) * 4);
    if (layout == PixelLayout::RGB565)
        convertRGB565ToARGB8888(pixels.data(), static_cast<std::size_t>(count), argb.data(), 0xFF);
    else
        convertARGB1555ToARGB8888(pixels.data(), static_cast<std::size_t>(count), argb.data());
    try {
        return std::make_shared<Image>(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                       std::move(argb));
    } catch (const std::length_error&) {
        return nullptr; // more pixels in all than an Image may have
    }
}

} // namespace zq
