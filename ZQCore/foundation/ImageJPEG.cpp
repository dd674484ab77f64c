// JPEG decoding through libjpeg-turbo: the covers of iOS 5 and later devices are JPEG files.

#include "ZQCore/foundation/Image.h"

#include <turbojpeg.h>

#include <memory>

namespace zq {

std::shared_ptr<Image> Image::imageWithJPEGData(const Data& jpeg)
{
    if (jpeg.size() < 4 || jpeg.size() > 0x7FFFFFFF)
        return nullptr;
    std::unique_ptr<void, int (*)(tjhandle)> decoder(tjInitDecompress(), tjDestroy);
    if (!decoder)
        return nullptr;
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    auto* bytes = const_cast<unsigned char*>(jpeg.bytes());
    const auto size = static_cast<unsigned long>(jpeg.size());
    if (tjDecompressHeader3(decoder.get(), bytes, size, &width, &height, &subsampling, &colorspace) != 0)
        return nullptr;
    // The header's size is checked before anything is allocated for it.
    if (width <= 0 || height <= 0 || static_cast<std::uint32_t>(width) > kMaxDimension ||
        static_cast<std::uint32_t>(height) > kMaxDimension)
        return nullptr;
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    // TJPF_ARGB is this type's own byte order (alpha, red, green, blue), alpha set opaque. A
    // truncated file is a failure, not a half-grey picture.
    if (tjDecompress2(decoder.get(), bytes, size, pixels.data(), width, width * 4, height, TJPF_ARGB,
                      TJFLAG_STOPONWARNING) != 0)
        return nullptr;
    return std::make_shared<Image>(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                   std::move(pixels));
}

std::shared_ptr<Image> Image::imageWithEncodedData(const Data& data)
{
    const auto* b = data.bytes();
    if (data.size() >= 8 && b[0] == 0x89 && b[1] == 'P' && b[2] == 'N' && b[3] == 'G')
        return imageWithPNGData(data);
    if (data.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF)
        return imageWithJPEGData(data);
    return nullptr;
}

} // namespace zq
