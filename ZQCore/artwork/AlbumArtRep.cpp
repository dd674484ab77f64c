#include "ZQCore/artwork/AlbumArtRep.h"

#include "ZQCore/artwork/ArtworkLayouts.h"
#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/foundation/PixelConversion.h"

namespace zq {

std::shared_ptr<AlbumArtRep> AlbumArtRep::initWithMHNIHeader(std::span<const std::uint8_t> header,
                                                             const std::optional<std::string>& streamFile,
                                                             const std::shared_ptr<TrackLibrary>& iPod)
{
    using namespace layout;
    auto rep = std::make_shared<AlbumArtRep>(Key());
    if (header.size() >= MHNIHeader::size) {
        rep->fileOffset_ = le32(header, MHNIHeader::fileOffset);
        rep->dataLength_ = le32(header, MHNIHeader::dataLength);
        rep->verticalPadding_ = static_cast<std::int16_t>(le16(header, MHNIHeader::verticalPadding));
        rep->horizontalPadding_ = static_cast<std::int16_t>(le16(header, MHNIHeader::horizontalPadding));
        rep->imageHeight_ = le16(header, MHNIHeader::imageHeight);
        rep->imageWidth_ = le16(header, MHNIHeader::imageWidth);
    }
    rep->setPath(streamFile);
    rep->parentiPod_ = iPod;
    return rep;
}

std::shared_ptr<AlbumArtRep> AlbumArtRep::initWithImageFile(const std::string& path,
                                                            const std::shared_ptr<TrackLibrary>& iPod)
{
    auto rep = std::make_shared<AlbumArtRep>(Key());
    rep->imageFile_ = true;
    rep->imageWidth_ = rep->imageHeight_ = 1;
    rep->setPath(path);
    rep->parentiPod_ = iPod;
    return rep;
}

std::pair<std::int32_t, std::int32_t> AlbumArtRep::storedSize(std::uint16_t imageWidth, std::uint16_t imageHeight,
                                                              std::int16_t horizontalPadding,
                                                              std::int16_t verticalPadding)
{
    std::int32_t width = std::int32_t(imageWidth) + horizontalPadding;
    std::int32_t height = std::int32_t(imageHeight) + verticalPadding;
    // The exemption is decided by the width alone and then covers the height too; a negative
    // side (padding larger than the picture) is left as it is and later refused.
    if (width != 37 && width != 41 && width != 55) {
        if (width > 0 && width % 2 == 1)
            ++width;
        if (height > 0 && height % 2 == 1)
            ++height;
    }
    return {width, height};
}

std::shared_ptr<const Image> AlbumArtRep::image() const
{
    if (image_)
        return image_;
    auto library = parentiPod_.lock();
    if (!library || !path_)
        return nullptr;
    if (imageFile_) {
        // A cover file is a few hundred kilobytes; one claiming far more is not read at all.
        constexpr std::uint64_t kMaxImageFile = 32u << 20;
        const auto size = library->files().sizeOfFile(*path_);
        if (size && *size > kMaxImageFile)
            return nullptr;
        auto bytes = library->files().contentsOfFile(*path_);
        if (!bytes || bytes->size() > kMaxImageFile)
            return nullptr;
        image_ = Image::imageWithEncodedData(*bytes);
        return image_;
    }
    const auto [width, height] = storedSize(imageWidth_, imageHeight_, horizontalPadding_, verticalPadding_);
    if (width <= 0 || height <= 0)
        return nullptr; // no read could ever give an image of this size

    // Only a read of exactly width × height × 2 bytes converts. A record whose byte count is
    // smaller can never give that many; one whose count is larger needs just one byte past the
    // picture to show that the file holds too many. So the read never asks for more than the
    // picture plus one byte, whatever the record claims.
    const std::uint64_t needed = std::uint64_t(width) * std::uint64_t(height) * 2;
    if (needed > dataLength_)
        return nullptr;
    const auto length = static_cast<std::uint32_t>(std::min<std::uint64_t>(dataLength_, needed + 1));
    auto bytes = library->files().chunkOfFile(*path_, Range{fileOffset_, length});
    if (!bytes || bytes->empty())
        return nullptr;
    image_ = convertRGB565ToImage(*bytes, width, height);
    return image_;
}

std::shared_ptr<Image> AlbumArtRep::convertRGB565ToImage(const Data& data, std::int32_t width,
                                                         std::int32_t height) const
{
    auto library = parentiPod_.lock();
    const bool phone = library && library->holdsPhoneFiles();
    return imageWith16BitPixels(data.span(), width, height, phone ? PixelLayout::ARGB1555 : PixelLayout::RGB565);
}

} // namespace zq
