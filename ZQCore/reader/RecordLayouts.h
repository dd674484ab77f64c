#pragma once

// Byte layouts of the records of the binary library database. Only offsets and sizes live here;
// the walks that use them are in iTunesDBLoader.cpp. Every record is read as a whole
// fixed-size block first, so a field load below never leaves its block (the static_asserts
// check each offset against its block's size).

#include <bit>
#include <cstdint>
#include <cstring>
#include <span>

namespace zq::layout {

inline std::uint8_t u8(std::span<const std::uint8_t> block, std::size_t offset) { return block[offset]; }

// Fields are loaded whole and byte-swapped only on a big-endian host (a compiler does not
// always see through four byte loads and shifts, and the track walk makes tens of millions).
template <class T>
constexpr T byteswap(T value)
{
    if constexpr (sizeof value == 2)
        return __builtin_bswap16(value);
    else if constexpr (sizeof value == 4)
        return __builtin_bswap32(value);
    else
        return __builtin_bswap64(value);
}

template <class T, std::endian Order>
inline T load(std::span<const std::uint8_t> block, std::size_t offset)
{
    T value;
    std::memcpy(&value, block.subspan(offset, sizeof value).data(), sizeof value);
    if constexpr (std::endian::native != Order)
        value = byteswap(value);
    return value;
}

inline std::uint16_t le16(std::span<const std::uint8_t> block, std::size_t offset) { return load<std::uint16_t, std::endian::little>(block, offset); }
inline std::uint32_t le32(std::span<const std::uint8_t> block, std::size_t offset) { return load<std::uint32_t, std::endian::little>(block, offset); }
inline std::uint64_t le64(std::span<const std::uint8_t> block, std::size_t offset) { return load<std::uint64_t, std::endian::little>(block, offset); }
inline std::uint32_t be32(std::span<const std::uint8_t> block, std::size_t offset) { return load<std::uint32_t, std::endian::big>(block, offset); }
inline std::uint64_t be64(std::span<const std::uint8_t> block, std::size_t offset) { return load<std::uint64_t, std::endian::big>(block, offset); }

/// The first twelve bytes of every record: a tag that is never examined, the header length
/// (start of the first child or payload) and the total length (start of the next sibling; list
/// records hold their child count there instead).
namespace ChunkStart {
constexpr std::size_t size = 12;
constexpr std::size_t headerLength = 4;
constexpr std::size_t totalLength = 8;
constexpr std::size_t childCount = 8;
} // namespace ChunkStart

namespace MHBDHeader {
constexpr std::size_t size = 188;
constexpr std::size_t dataSetCount = 20;
static_assert(dataSetCount + 4 <= size);
} // namespace MHBDHeader

namespace MHSDHeader {
constexpr std::size_t size = 16;
constexpr std::size_t type = 12;
constexpr std::uint32_t trackList = 1;
/// The playlist list without podcast grouping: the only one in the databases of the first iPods.
constexpr std::uint32_t playlistListPlain = 2;
constexpr std::uint32_t playlistListGrouped = 3;
static_assert(type + 4 <= size);
} // namespace MHSDHeader

/// MHLT (tracks) and MHLP (playlists).
namespace ListHeader {
constexpr std::size_t size = 12;
} // namespace ListHeader

namespace MHITHeader {
constexpr std::size_t size = 356;
constexpr std::size_t dataObjectCount = 12;
constexpr std::size_t trackID = 16;
constexpr std::size_t compilation = 30;
constexpr std::size_t rating = 31;
constexpr std::size_t lastModified = 32;
constexpr std::size_t fileSize = 36;
constexpr std::size_t trackLength = 40;
constexpr std::size_t trackNumber = 44;
constexpr std::size_t trackTotal = 48;
constexpr std::size_t year = 52;
constexpr std::size_t bitrate = 56;
constexpr std::size_t sampleRate = 62; // integer half of the 16.16 number at 60
constexpr std::size_t volume = 64;
constexpr std::size_t startTime = 68;
constexpr std::size_t stopTime = 72;
constexpr std::size_t soundcheck = 76;
constexpr std::size_t playCount = 80;
constexpr std::size_t lastPlayed = 88;
constexpr std::size_t discNumber = 92;
constexpr std::size_t discTotal = 96;
constexpr std::size_t dateAdded = 104;
constexpr std::size_t dbid = 112;
constexpr std::size_t checked = 120;
constexpr std::size_t bpm = 122;
constexpr std::size_t artworkCount = 124;
constexpr std::size_t dateReleased = 140;
constexpr std::size_t skipCount = 156;
constexpr std::size_t lastSkipped = 160;
constexpr std::size_t hasLyrics = 176;
constexpr std::size_t isMovie = 177;
constexpr std::size_t hasBeenPlayed = 178;
constexpr std::size_t mediaType = 208;
constexpr std::size_t seasonNumber = 212;
constexpr std::size_t episodeNumber = 216;
constexpr std::size_t albumID = 314;
constexpr std::size_t artworkLink = 352;
static_assert(artworkLink + 4 == size);
} // namespace MHITHeader

namespace MHODHeader {
constexpr std::size_t size = 16;
constexpr std::size_t type = 12;
} // namespace MHODHeader

/// The string header that follows the 16-byte data-object header of string objects. Offsets
/// here are from the start of the data object, as the format documents them.
namespace MHODString {
constexpr std::size_t headerSize = 24;
constexpr std::size_t length = 28;
constexpr std::size_t text = 40;
static_assert(length + 4 <= MHODHeader::size + headerSize);
} // namespace MHODString

namespace MHYPHeader {
constexpr std::size_t size = 48;
constexpr std::size_t dataObjectCount = 12;
constexpr std::size_t itemCount = 16;
constexpr std::size_t master = 20;
constexpr std::size_t creationTimestamp = 24;
constexpr std::size_t playlistID = 28;
constexpr std::size_t podcastFlag = 42;
constexpr std::size_t sortOrder = 44;
static_assert(sortOrder + 4 == size);
} // namespace MHYPHeader

namespace MHIPHeader {
constexpr std::size_t size = 36;
constexpr std::size_t trackID = 24;
static_assert(trackID + 4 <= size);
} // namespace MHIPHeader

/// Smart-playlist preferences: a data object of type 50, read as its 16-byte header and one
/// block of 22 bytes; offsets from the start of the data object.
namespace SmartPrefs {
constexpr std::size_t blockSize = 22;
constexpr std::size_t liveUpdating = 24;
constexpr std::size_t enableRules = 25;
constexpr std::size_t enableLimits = 26;
constexpr std::size_t limitType = 27;
constexpr std::size_t limitSort = 28;
constexpr std::size_t limitValue = 32;
constexpr std::size_t matchChecked = 36;
constexpr std::size_t reverseLimitSort = 37;
static_assert(reverseLimitSort < MHODHeader::size + blockSize);
} // namespace SmartPrefs

/// The smart-playlist rule list (big-endian throughout).
namespace SmartRules {
constexpr std::size_t skippedBeforeBlob = 8; // offsets 16..23 of the type-51 object
constexpr std::size_t blobOffset = 24;       // where the blob starts in the data object
constexpr std::size_t headerSize = 136;
constexpr std::size_t ruleCount = 8;
constexpr std::size_t conjunctionLowByte = 15;
constexpr std::size_t stringRuleSize = 52;
constexpr std::size_t stringRuleLength = 48;
constexpr std::size_t numericRuleSize = 120;
constexpr std::size_t fromValue = 52;
constexpr std::size_t fromDate = 60;
constexpr std::size_t fromUnits = 68;
constexpr std::size_t toValue = 76;
constexpr std::size_t toDate = 84;
constexpr std::size_t toUnits = 92;
static_assert(toUnits + 8 <= numericRuleSize);
} // namespace SmartRules

} // namespace zq::layout
