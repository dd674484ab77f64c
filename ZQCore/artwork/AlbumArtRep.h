#pragma once

#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/Image.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace zq {

class TrackLibrary;

/// One stored size of an album cover: the position of its 16-bit pixels in a thumbnail file on
/// the device, and the image made from them the first time it is asked for.
///
/// The pixels stay on the device until image() is called; then they are read through the
/// library object's files (so a device reached over AFC reads them over AFC),
/// converted once and kept. A read that finds nothing (device gone, file missing) or bytes of
/// the wrong count answers no image and is tried again on the next call.
///
/// The library object is not owned: it outlives its artwork, and a representation whose library
/// has gone answers no image.
class ZQ_EXPORT AlbumArtRep {
    struct Key {
        explicit Key() = default;
    };

public:
    explicit AlbumArtRep(Key) {}

    /// A representation from the 44-byte thumbnail header of the artwork database (offset,
    /// byte count, the two paddings, visible height and width at 20, 24, 28, 30, 32 and 34),
    /// the full path of its thumbnail file (no value when the file name could not be read) and
    /// the library object that reads the file.
    static std::shared_ptr<AlbumArtRep> initWithMHNIHeader(std::span<const std::uint8_t> header,
                                                           const std::optional<std::string>& streamFile,
                                                           const std::shared_ptr<TrackLibrary>& iPod);

    /// A representation that is a whole JPEG or PNG file on the device (the covers of iOS 5 and
    /// later), decoded when its image is first asked for. Its size is not known before that and
    /// counts as 1 × 1, so that it can still be preferred.
    static std::shared_ptr<AlbumArtRep> initWithImageFile(const std::string& path, const std::shared_ptr<TrackLibrary>& iPod);

    /// Visible size, without the padding.
    std::int32_t width() const { return imageWidth_; }
    std::int32_t height() const { return imageHeight_; }

    std::uint32_t fileOffset() const { return fileOffset_; }
    std::uint32_t dataLength() const { return dataLength_; }
    std::int16_t verticalPadding() const { return verticalPadding_; }
    std::int16_t horizontalPadding() const { return horizontalPadding_; }

    const std::optional<std::string>& path() const { return path_; }
    void setPath(const std::optional<std::string>& path) { path_ = path; }

    /// The cover at its stored size (visible size plus padding, rounded as described in
    /// storedSize()); nullptr while it cannot be read. Made once, then kept.
    std::shared_ptr<const Image> image() const;
    void setImage(std::shared_ptr<const Image> image) { image_ = std::move(image); }

    /// The size the pixels are stored at: visible size plus padding, with an odd side made even
    /// by adding 1 (the thumbnail formats store even sizes), except for the stored widths 37, 41
    /// and 55, which the device keeps odd in both directions.
    static std::pair<std::int32_t, std::int32_t> storedSize(std::uint16_t imageWidth, std::uint16_t imageHeight,
                                                            std::int16_t horizontalPadding,
                                                            std::int16_t verticalPadding);

    /// `data` as `width` × `height` 16-bit pixels: 1-5-5-5 when this representation's library
    /// holds a phone's files (through a device session, or a folder holding a phone's
    /// iTunes_Control: phones store an alpha bit), 5-6-5 and opaque otherwise. nullptr when the byte count is not exactly width × height × 2.
    std::shared_ptr<Image> convertRGB565ToImage(const Data& data, std::int32_t width, std::int32_t height) const;

private:
    std::uint32_t fileOffset_ = 0;
    std::uint32_t dataLength_ = 0;
    std::int16_t verticalPadding_ = 0;
    std::int16_t horizontalPadding_ = 0;
    std::uint16_t imageHeight_ = 0;
    std::uint16_t imageWidth_ = 0;
    bool imageFile_ = false;
    std::optional<std::string> path_;
    mutable std::shared_ptr<const Image> image_;
    std::weak_ptr<TrackLibrary> parentiPod_;
};

} // namespace zq
