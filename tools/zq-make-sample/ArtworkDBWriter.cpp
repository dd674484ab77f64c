// The ArtworkDB and thumbnail-file writer behind buildArtwork.
//
// Laid out the way iPods and iTunes write it, independently of the framework's reader: a file
// header ("mhfd", 0x84 bytes), then data sets ("mhsd", 0x60): the image list ("mhli") of image
// items ("mhii", 0x98), each with one type-2 child ("mhod", 0x18) per stored size holding an
// "mhni" record (0x4C) and its file-name string record ("mhod" type 3: 0x18 header, then
// length, encoding 2 and a zero word, then UTF-16LE text padded to four bytes); the album list
// ("mhla", empty); and the file list ("mhlf") with one "mhif" per thumbnail format.
// Pixels are 16-bit little-endian words, row by row, at the stored size.

#include "tools/zq-make-sample/DeviceImage.h"

#include "ZQCore/foundation/UTF16.h"

#include <algorithm>
#include <set>

namespace zq::sample {

namespace {

constexpr std::uint32_t kDataSetHeaderLength = 0x60;
constexpr std::uint32_t kListHeaderLength = 0x5C;
constexpr std::uint32_t kObjectHeaderLength = 0x18;
constexpr std::uint32_t kFileEntryLength = 0x7C;
constexpr std::uint16_t kThumbnailChild = 2;
constexpr std::uint16_t kFileNameObject = 3;
constexpr std::uint32_t kUTF16Encoding = 2;

class Sink {
public:
    std::vector<std::uint8_t> bytes;

    std::size_t size() const { return bytes.size(); }
    std::size_t grow(std::size_t n)
    {
        const std::size_t at = bytes.size();
        bytes.resize(at + n);
        return at;
    }
    void put(std::size_t at, std::uint64_t value, unsigned width)
    {
        for (unsigned i = 0; i < width; ++i)
            if (at + i < bytes.size())
                bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
    void append(const std::vector<std::uint8_t>& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }
};

/// A record header of `length` bytes: the tag, the header length, the rest zero. Writes beyond
/// the declared length are dropped, so a short header is exactly as short as asked.
class Record {
public:
    Record(Sink& sink, const char* tag, std::uint32_t length) : sink_(sink), start_(sink.grow(length)), length_(length)
    {
        for (unsigned i = 0; i < 4; ++i)
            put(i, static_cast<std::uint8_t>(tag[i]), 1);
        put(4, length, 4);
    }
    void put(std::size_t offset, std::uint64_t value, unsigned width)
    {
        if (offset + width <= length_)
            sink_.put(start_ + offset, value, width);
    }
    /// The bytes since the header began (or `forced`) as the total length at 8.
    void finish(std::optional<std::uint32_t> forced = std::nullopt)
    {
        put(8, forced ? *forced : static_cast<std::uint32_t>(sink_.size() - start_), 4);
    }

private:
    Sink& sink_;
    std::size_t start_;
    std::uint32_t length_;
};

std::string defaultFileName(const ThumbnailSpec& thumbnail)
{
    return ":F" + std::to_string(thumbnail.formatID) + "_1.ithmb";
}

/// The name of the thumbnail file in the Artwork folder, or nothing when the stored name does
/// not name a file there.
std::optional<std::string> folderFileName(const ThumbnailSpec& thumbnail)
{
    if (thumbnail.rawName)
        return std::nullopt;
    std::string name = thumbnail.fileName ? *thumbnail.fileName : defaultFileName(thumbnail);
    if (!name.empty() && name.front() == ':')
        name.erase(0, 1);
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
        return std::nullopt;
    return name;
}

std::vector<std::uint8_t> pixelBytes(const ThumbnailSpec& thumbnail)
{
    std::vector<std::uint8_t> out;
    auto append = [&](std::uint16_t word) {
        out.push_back(static_cast<std::uint8_t>(word));
        out.push_back(static_cast<std::uint8_t>(word >> 8));
    };
    if (!thumbnail.words.empty()) {
        for (std::uint16_t word : thumbnail.words)
            append(word);
        return out;
    }
    const auto [width, height] = defaultStoredSize(thumbnail);
    out.reserve(std::size_t(width) * height * 2);
    for (std::uint32_t y = 0; y < height; ++y)
        for (std::uint32_t x = 0; x < width; ++x)
            append(thumbnailWord(thumbnail.picture ? thumbnail.picture(x, y) : testPicture(x, y, width, height),
                                 thumbnail.layout));
    return out;
}

/// Places a thumbnail's pixels in its file; answers the offset and the count written.
std::pair<std::uint32_t, std::uint32_t> placePixels(const ThumbnailSpec& thumbnail,
                                                    std::map<std::string, std::vector<std::uint8_t>>& files)
{
    const auto name = folderFileName(thumbnail);
    std::vector<std::uint8_t> scratch;
    std::vector<std::uint8_t>& file = name ? files[*name] : scratch;
    const auto offset = thumbnail.fileOffset ? *thumbnail.fileOffset : static_cast<std::uint32_t>(file.size());
    if (!thumbnail.writePixels)
        return {offset, 0};
    const std::vector<std::uint8_t> pixels = pixelBytes(thumbnail);
    if (file.size() < offset + pixels.size())
        file.resize(offset + pixels.size());
    std::copy(pixels.begin(), pixels.end(), file.begin() + offset);
    return {offset, static_cast<std::uint32_t>(pixels.size())};
}

void writeThumbnail(Sink& sink, const ThumbnailSpec& thumbnail, std::map<std::string, std::vector<std::uint8_t>>& files)
{
    const auto [offset, written] = placePixels(thumbnail, files);
    const std::uint32_t dataLength = thumbnail.dataLength ? *thumbnail.dataLength : written;

    Record container(sink, "mhod", kObjectHeaderLength);
    container.put(12, kThumbnailChild, 2);

    Record mhni(sink, "mhni", thumbnail.headerLength);
    mhni.put(12, 1, 4); // one child: the file name
    mhni.put(16, thumbnail.formatID, 4);
    mhni.put(20, offset, 4);
    mhni.put(24, dataLength, 4);
    mhni.put(28, static_cast<std::uint16_t>(thumbnail.verticalPadding), 2);
    mhni.put(30, static_cast<std::uint16_t>(thumbnail.horizontalPadding), 2);
    mhni.put(32, thumbnail.height, 2);
    mhni.put(34, thumbnail.width, 2);
    mhni.put(40, dataLength, 4);

    std::vector<std::uint8_t> text;
    if (thumbnail.rawName) {
        text = *thumbnail.rawName;
    } else {
        const std::string utf16 = zq::encodeUTF16(thumbnail.fileName ? *thumbnail.fileName : defaultFileName(thumbnail), true);
        text.assign(utf16.begin(), utf16.end());
    }
    Record name(sink, "mhod", kObjectHeaderLength);
    name.put(12, kFileNameObject, 2);
    const std::size_t stringHeader = sink.grow(12);
    sink.put(stringHeader, thumbnail.nameLengthField ? *thumbnail.nameLengthField : static_cast<std::uint32_t>(text.size()), 4);
    sink.put(stringHeader + 4, kUTF16Encoding, 4);
    sink.append(text);
    sink.grow((4 - text.size() % 4) % 4);
    name.finish();
    mhni.finish();
    container.finish();
}

void writeImage(Sink& sink, const ArtworkImageSpec& image, std::map<std::string, std::vector<std::uint8_t>>& files)
{
    Record mhii(sink, "mhii", image.headerLength);
    mhii.put(12, image.childCount ? *image.childCount : image.thumbnails.size() + image.extraChildren.size(), 4);
    mhii.put(16, image.imageID, 4);
    mhii.put(20, image.songID, 8);
    std::uint32_t sourceSize = 0;
    for (const auto& thumbnail : image.thumbnails) {
        writeThumbnail(sink, thumbnail, files);
        sourceSize = std::max<std::uint32_t>(sourceSize, std::uint32_t(thumbnail.width) * thumbnail.height * 3);
    }
    mhii.put(48, sourceSize, 4); // size of the original picture; nothing reads it
    for (const auto& child : image.extraChildren) {
        const std::size_t start = sink.grow(16);
        sink.bytes[start] = 'm', sink.bytes[start + 1] = 'h', sink.bytes[start + 2] = 'o', sink.bytes[start + 3] = 'd';
        sink.put(start + 4, child.headerLength, 4);
        sink.put(start + 8, child.totalLength ? *child.totalLength : 16 + child.body.size(), 4);
        sink.put(start + 12, child.type, 2);
        sink.append(child.body);
    }
    mhii.finish(image.totalLength);
}

void writeFileList(Sink& sink, const std::vector<const ArtworkImageSpec*>& images)
{
    // One entry per thumbnail format, with the byte size of one of its pictures.
    std::map<std::uint32_t, std::uint32_t> formats;
    for (const auto* image : images)
        for (const auto& thumbnail : image->thumbnails) {
            const auto [width, height] = defaultStoredSize(thumbnail);
            formats.emplace(thumbnail.formatID, width * height * 2);
        }
    Record mhlf(sink, "mhlf", kListHeaderLength);
    mhlf.put(8, formats.size(), 4);
    for (const auto& [format, size] : formats) {
        Record mhif(sink, "mhif", kFileEntryLength);
        mhif.put(16, format, 4);
        mhif.put(20, size, 4);
        mhif.finish();
    }
}

} // namespace

ArtworkDataSet ArtworkDataSet::withImages(std::vector<ArtworkImageSpec> images)
{
    ArtworkDataSet set(1);
    set.images = std::move(images);
    return set;
}

std::pair<std::uint32_t, std::uint32_t> defaultStoredSize(const ThumbnailSpec& thumbnail)
{
    std::int32_t width = std::int32_t(thumbnail.width) + thumbnail.horizontalPadding;
    std::int32_t height = std::int32_t(thumbnail.height) + thumbnail.verticalPadding;
    if (width != 37 && width != 41 && width != 55) {
        width += width & 1;
        height += height & 1;
    }
    return {thumbnail.storedWidth ? *thumbnail.storedWidth : static_cast<std::uint32_t>(std::max(width, 0)),
            thumbnail.storedHeight ? *thumbnail.storedHeight : static_cast<std::uint32_t>(std::max(height, 0))};
}

zq::Image::Pixel testPicture(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height)
{
    const std::uint32_t bar = std::max<std::uint32_t>(1, std::min(width, height) / 10);
    const bool onCross = (x >= width / 2 - std::min(width / 2, bar / 2) && x < width / 2 + (bar + 1) / 2) ||
                         (y >= height / 2 - std::min(height / 2, bar / 2) && y < height / 2 + (bar + 1) / 2);
    if (onCross)
        return {255, 0, 0, 0};
    const bool right = x >= width / 2;
    const bool bottom = y >= height / 2;
    if (!right && !bottom)
        return {255, 255, 0, 0};
    if (right && !bottom)
        return {255, 0, 255, 0};
    if (!right && bottom)
        return {255, 0, 0, 255};
    return {255, 255, 255, 255};
}

std::uint16_t thumbnailWord(zq::Image::Pixel pixel, ThumbnailLayout layout)
{
    if (layout == ThumbnailLayout::RGB565)
        return static_cast<std::uint16_t>((pixel.red >> 3) << 11 | (pixel.green >> 2) << 5 | (pixel.blue >> 3));
    return static_cast<std::uint16_t>((pixel.alpha >= 0x80 ? 0x8000 : 0) | (pixel.red >> 3) << 10 |
                                      (pixel.green >> 3) << 5 | (pixel.blue >> 3));
}

ArtworkFiles buildArtwork(const ArtworkDBSpec& setup)
{
    std::map<std::string, std::vector<std::uint8_t>> files;
    Sink sink;
    Record mhfd(sink, "mhfd", setup.headerLength);
    mhfd.put(16, 2, 4);
    mhfd.put(20, setup.dataSetCount ? *setup.dataSetCount : setup.dataSets.size(), 4);
    std::uint32_t nextImageID = 100;
    std::vector<const ArtworkImageSpec*> allImages;
    for (const auto& set : setup.dataSets)
        for (const auto& image : set.images ? *set.images : setup.images)
            if (set.type == 1) {
                nextImageID = std::max(nextImageID, image.imageID + 1);
                allImages.push_back(&image);
            }
    mhfd.put(28, nextImageID, 4);

    for (const auto& set : setup.dataSets) {
        Record mhsd(sink, "mhsd", kDataSetHeaderLength);
        mhsd.put(12, set.type, 2);
        if (set.type == 1) {
            const auto& images = set.images ? *set.images : setup.images;
            Record mhli(sink, "mhli", kListHeaderLength);
            mhli.put(8, images.size(), 4);
            for (const auto& image : images)
                writeImage(sink, image, files);
        } else if (set.type == 2) {
            Record mhla(sink, "mhla", kListHeaderLength);
        } else if (set.type == 3) {
            writeFileList(sink, allImages);
        }
        mhsd.finish(set.totalLength);
    }
    mhfd.finish();

    ArtworkFiles out{zq::Data(std::move(sink.bytes)), {}};
    for (auto& [name, bytes] : files)
        out.thumbnails.emplace(name, zq::Data(std::move(bytes)));
    return out;
}

} // namespace zq::sample
