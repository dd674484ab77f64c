#include "ZQCore/foundation/Image.h"

#include <png.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

namespace zq {

namespace {

// A decoded image never has more pixels than this (64 MiB of pixel bytes), whatever its
// header says. Nothing a device stores comes near it.
constexpr std::uint64_t kMaxPixelCount = std::uint64_t(1) << 24;

// Ancillary chunks (text, colour profiles) are not used here; libpng still buffers them, so
// their size is capped to keep a hostile file from asking for a large buffer.
constexpr png_alloc_size_t kMaxChunkBytes = 1u << 20;

// Deflate cannot compress by more than about 1032:1, so a genuine PNG of N bytes never
// inflates to more than ~1032 × N bytes of scan lines. A header promising more is a lie that
// would only make us allocate a buffer the data can never fill.
constexpr std::uint64_t kMaxDeflateRatio = 1032;

void checkDimensions(std::uint32_t width, std::uint32_t height)
{
    if (width > Image::kMaxDimension || height > Image::kMaxDimension ||
        std::uint64_t(width) * height > kMaxPixelCount)
        throw std::length_error("image of " + std::to_string(width) + " x " + std::to_string(height) +
                                " pixels is larger than the framework supports");
}

std::uint32_t bigEndian32(const std::uint8_t* bytes)
{
    return std::uint32_t(bytes[0]) << 24 | std::uint32_t(bytes[1]) << 16 | std::uint32_t(bytes[2]) << 8 | bytes[3];
}

// ---- libpng plumbing ------------------------------------------------------------------------
//
// libpng reports errors by longjmp to the setjmp of the caller. Jumping across a C++ frame that
// owns objects with destructors is undefined, so each setjmp sits in a function whose only
// locals are trivial, and all owning state lives in a job object that the caller owns. The
// callbacks below never hold non-trivial objects when they call png_error.

[[noreturn]] void failSilently(png_structp png, png_const_charp)
{
    // The default handler prints to stderr; a library must not, and the caller learns of the
    // failure from the result.
    png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

struct ReadJob {
    const std::uint8_t* bytes = nullptr;
    std::size_t size = 0;
    std::size_t position = 0;
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    std::vector<std::uint8_t> pixels;
    std::vector<png_bytep> rows;
};

void readFromMemory(png_structp png, png_bytep out, png_size_t length)
{
    auto* job = static_cast<ReadJob*>(png_get_io_ptr(png));
    if (length > job->size - job->position)
        png_error(png, "PNG data ends early");
    std::memcpy(out, job->bytes + job->position, length);
    job->position += length;
}

void readAll(png_structp png, png_infop info, ReadJob* job)
{
    png_set_read_fn(png, job, readFromMemory);
    png_set_user_limits(png, Image::kMaxDimension, Image::kMaxDimension);
    png_set_chunk_malloc_max(png, kMaxChunkBytes);
    png_read_info(png, info);

    png_uint_32 width = 0;
    png_uint_32 height = 0;
    int bitDepth = 0;
    int colorType = 0;
    int interlace = 0;
    png_get_IHDR(png, info, &width, &height, &bitDepth, &colorType, &interlace, nullptr, nullptr);
    if (std::uint64_t(width) * height > kMaxPixelCount)
        png_error(png, "PNG has too many pixels");
    const std::uint64_t channels = png_get_channels(png, info);
    const std::uint64_t scanLineBytes = height * (1 + (width * channels * std::uint64_t(bitDepth) + 7) / 8);
    if (scanLineBytes > kMaxDeflateRatio * job->size + 1024)
        png_error(png, "PNG header promises more pixels than its data can hold");

    // Whatever the stored format, ask libpng for 8-bit red, green, blue, alpha, then have it
    // move alpha to the front so the rows land in our byte order without a second pass.
    const bool hasTransparency = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    if (colorType == PNG_COLOR_TYPE_PALETTE)
        png_set_palette_to_rgb(png);
    if (colorType == PNG_COLOR_TYPE_GRAY && bitDepth < 8)
        png_set_expand_gray_1_2_4_to_8(png);
    if (hasTransparency)
        png_set_tRNS_to_alpha(png);
    if (bitDepth == 16)
        png_set_scale_16(png);
    if (colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA)
        png_set_gray_to_rgb(png);
    if (!(colorType & PNG_COLOR_MASK_ALPHA) && !hasTransparency)
        png_set_add_alpha(png, 0xff, PNG_FILLER_AFTER);
    png_set_swap_alpha(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != std::size_t(width) * 4)
        png_error(png, "unexpected PNG row layout");

    job->pixels.resize(std::size_t(width) * height * 4);
    job->rows.resize(height);
    for (png_uint_32 row = 0; row < height; ++row)
        job->rows[row] = job->pixels.data() + std::size_t(row) * width * 4;
    png_read_image(png, job->rows.data());
    png_read_end(png, nullptr);
    job->width = width;
    job->height = height;
}

bool decode(png_structp png, png_infop info, ReadJob* job)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    readAll(png, info, job);
    return true;
}

struct WriteJob {
    const Image* image = nullptr;
    std::vector<std::uint8_t> output;
};

void writeToMemory(png_structp png, png_bytep bytes, png_size_t length)
{
    auto* job = static_cast<WriteJob*>(png_get_io_ptr(png));
    bool stored = true;
    try {
        job->output.insert(job->output.end(), bytes, bytes + length);
    } catch (const std::bad_alloc&) {
        stored = false;
    }
    if (!stored)
        png_error(png, "out of memory while encoding PNG");
}

void flushNothing(png_structp) {}

void writeAll(png_structp png, png_infop info, WriteJob* job)
{
    const Image& image = *job->image;
    png_set_write_fn(png, job, writeToMemory, flushNothing);
    png_set_IHDR(png, info, image.width(), image.height(), 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    // Our rows are alpha-first; PNG stores alpha last. libpng reorders a copy of each row.
    png_set_swap_alpha(png);
    for (std::uint32_t row = 0; row < image.height(); ++row)
        png_write_row(png, const_cast<png_bytep>(image.bytes() + row * image.bytesPerRow()));
    png_write_end(png, info);
}

bool encode(png_structp png, png_infop info, WriteJob* job)
{
    if (setjmp(png_jmpbuf(png)))
        return false;
    writeAll(png, info, job);
    return true;
}

} // namespace

Image::Image(std::uint32_t width, std::uint32_t height) : width_(width), height_(height)
{
    checkDimensions(width, height);
    pixels_.assign(std::size_t(width) * height * 4, 0);
}

Image::Image(std::uint32_t width, std::uint32_t height, std::vector<std::uint8_t> argbBytes)
    : width_(width), height_(height)
{
    checkDimensions(width, height);
    if (argbBytes.size() != std::size_t(width) * height * 4)
        throw std::invalid_argument("pixel buffer of " + std::to_string(argbBytes.size()) + " bytes does not fit " +
                                    std::to_string(width) + " x " + std::to_string(height) + " pixels");
    pixels_ = std::move(argbBytes);
}

std::shared_ptr<Image> Image::imageWithPNGData(const Data& png)
{
    if (png.size() < 8 || png_sig_cmp(png.bytes(), 0, 8) != 0)
        return nullptr;

    png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, failSilently, ignoreWarning);
    if (!reader)
        return nullptr;
    png_infop info = png_create_info_struct(reader);
    struct Cleanup {
        png_structp* reader;
        png_infop* info;
        ~Cleanup() { png_destroy_read_struct(reader, info, nullptr); }
    } cleanup{&reader, &info};
    if (!info)
        return nullptr;

    ReadJob job;
    job.bytes = png.bytes();
    job.size = png.size();
    if (!decode(reader, info, &job))
        return nullptr;
    return std::make_shared<Image>(job.width, job.height, std::move(job.pixels));
}

std::shared_ptr<Image> Image::imageWithICNSData(const Data& icns)
{
    const std::uint8_t* bytes = icns.bytes();
    if (icns.size() < 8 || std::memcmp(bytes, "icns", 4) != 0)
        return nullptr;
    // The container's own length is trusted only as far as the bytes we actually have.
    const std::size_t end = std::min<std::size_t>(bigEndian32(bytes + 4), icns.size());

    struct Candidate {
        std::size_t offset;
        std::size_t length;
        std::uint64_t pixels;
    };
    std::vector<Candidate> candidates;
    static const std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    std::size_t position = 8;
    // A declared length under 8 leaves no room for entries (and must not wrap end - position).
    while (position <= end && end - position >= 8) {
        const std::size_t length = bigEndian32(bytes + position + 4);
        if (length < 8 || length > end - position)
            break;
        const std::uint8_t* payload = bytes + position + 8;
        // Signature, then the IHDR chunk: length, "IHDR", width, height.
        if (length - 8 >= 24 && std::memcmp(payload, kSignature, 8) == 0 && std::memcmp(payload + 12, "IHDR", 4) == 0)
            candidates.push_back({position + 8, length - 8,
                                  std::uint64_t(bigEndian32(payload + 16)) * bigEndian32(payload + 20)});
        position += length;
    }

    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.pixels > b.pixels; });
    for (const Candidate& candidate : candidates)
        if (auto image = imageWithPNGData(Data(bytes + candidate.offset, candidate.length)))
            return image;
    return nullptr;
}

std::size_t Image::offsetOf(std::uint32_t x, std::uint32_t y) const
{
    if (x >= width_ || y >= height_)
        throw std::out_of_range("pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") is outside a " +
                                std::to_string(width_) + " x " + std::to_string(height_) + " image");
    return (std::size_t(y) * width_ + x) * 4;
}

Image::Pixel Image::pixelAt(std::uint32_t x, std::uint32_t y) const
{
    const std::uint8_t* pixel = pixels_.data() + offsetOf(x, y);
    return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

void Image::setPixel(std::uint32_t x, std::uint32_t y, Pixel value)
{
    std::uint8_t* pixel = pixels_.data() + offsetOf(x, y);
    pixel[0] = value.alpha;
    pixel[1] = value.red;
    pixel[2] = value.green;
    pixel[3] = value.blue;
}

std::optional<Data> Image::pngData() const
{
    if (empty())
        return std::nullopt;
    png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, failSilently, ignoreWarning);
    if (!writer)
        return std::nullopt;
    png_infop info = png_create_info_struct(writer);
    struct Cleanup {
        png_structp* writer;
        png_infop* info;
        ~Cleanup() { png_destroy_write_struct(writer, info); }
    } cleanup{&writer, &info};
    if (!info)
        return std::nullopt;

    WriteJob job;
    job.image = this;
    if (!encode(writer, info, &job))
        return std::nullopt;
    return Data(std::move(job.output));
}

} // namespace zq
