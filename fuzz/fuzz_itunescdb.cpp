// libFuzzer target: the compressed library database (iTunesCDB). Each input is read two ways:
//
// - as the stored file itself: inflated within the framework's bounds (any allocation beyond
//   them, crash or sanitizer report is a finding; a damaged file must end in the framework's
//   exception), then walked and asked for its name like any database;
// - as a plain database that a device compressed: the input is compressed as iTunesCDB is
//   written, and must inflate back to itself (but for the header words that mark a compressed
//   database), then walk as any database.
//
// The first covers hostile streams and headers; the second carries the walk's whole input space
// through the inflate path.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/reader/CompressedDatabase.h"
#include "tests/support/SampleDevice.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

namespace {

struct DetachedLibrary : zq::ZQCoreiPod {
    DetachedLibrary() = default;
};

/// What a walk of `image` gives: counts and a hash of every track's description, or the
/// exception it ended in.
std::string walk(const zq::Data& image)
{
    auto library = std::make_shared<DetachedLibrary>();
    std::string outcome;
    try {
        library->parseiTunesDBWithData(image);
    } catch (const zq::Exception& e) {
        outcome = e.name() + ": " + e.reason();
    }
    std::size_t texts = 0;
    for (const auto& track : library->allTracks())
        texts = texts * 31 + std::hash<std::string>()(track->description());
    for (const auto& playlist : library->allPlaylists())
        texts = texts * 31 + playlist->tracks().size();
    return outcome + "|" + std::to_string(library->allTracks().size()) + "|" +
           std::to_string(library->allPlaylists().size()) + "|" + std::to_string(texts);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const zq::Data stored(bytes, size);
    try {
        const zq::Data image = zq::inflateCompressedDatabase(stored, "iTunesCDB");
        (void)walk(image);
        (void)zq::ZQCoreiPodRef::getNameFromiTunesDBWithData(image);
    } catch (const zq::Exception&) {
    }

    // The round trip needs a header whose length lies inside the input (the rest is what gets
    // compressed), and no more than the bounds let any stream inflate to (the floor); other
    // inputs were covered above.
    if (size < 16 || size > zq::InflateBounds{}.floor)
        return 0;
    const std::uint32_t headerLength = bytes[4] | bytes[5] << 8 | bytes[6] << 16 | std::uint32_t{bytes[7]} << 24;
    if (headerLength < 16 || headerLength >= size)
        return 0;
    zq::Data image;
    try {
        image = zq::inflateCompressedDatabase(zq::sample::compressITunesDB(stored), "iTunesCDB");
    } catch (const zq::Exception&) {
        std::abort(); // a stream written the device's way must inflate
    }
    // The input itself, but for the header words that say it was compressed: its total length
    // (the image's own), the 2 at 0x0C and the flag, cleared once inflated.
    std::string expected(reinterpret_cast<const char*>(bytes), size);
    for (int i = 0; i < 4; ++i) {
        expected[8 + i] = static_cast<char>(static_cast<std::uint32_t>(size) >> (8 * i));
        expected[12 + i] = static_cast<char>(i == 0 ? 2 : 0);
    }
    if (headerLength >= zq::CompressedHeader::flagEnd)
        expected[zq::CompressedHeader::flag] = expected[zq::CompressedHeader::flag + 1] = 0;
    if (image.stringView() != expected)
        std::abort();
    (void)walk(image);
    return 0;
}
