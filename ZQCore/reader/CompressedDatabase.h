#pragma once

// The compressed library database (iTunesCDB) of the iPod nano of the 5th to 7th generation and
// of phones of the iOS 3 and 4 era: the database header as in iTunesDB, uncompressed, and after
// it (at the header's own length) one zlib stream holding the data sets. The header marks it in
// three places: the 16-bit word at 0xA8 is 1, the word at 0x0C is 2 (where an iTunesDB has 1),
// and the total length at 8 is the size of the file as stored (header plus compressed stream),
// not the size the data sets inflate to.
//
// Inflating it gives back an ordinary iTunesDB image that the record walk reads unchanged.

#include "ZQCore/foundation/Data.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>

namespace zq {

namespace CompressedHeader {
/// The 16-bit compression flag: 1 while the data sets are compressed, 0 once inflated.
constexpr std::size_t flag = 0xA8;
/// What a header must hold for the flag to be in it.
constexpr std::size_t flagEnd = flag + 2;
} // namespace CompressedHeader

/// How far a compressed database may inflate before it counts as damaged rather than large. Real
/// databases inflate to 4 to 17 times their compressed size (the most for an empty library,
/// whose padding compresses best); far beyond that is a stream made to exhaust memory. Small
/// databases may always take the floor, so that no real one is ever refused for its ratio, and
/// nothing takes more than the cap (a library of tens of thousands of tracks inflates to tens
/// of megabytes).
struct InflateBounds {
    std::uint64_t ratio = 64;
    std::uint64_t floor = std::uint64_t{1} << 20;
    std::uint64_t cap = std::uint64_t{256} << 20;

    /// The most the data sets of a stream of `compressedBytes` may inflate to.
    constexpr std::uint64_t limitFor(std::uint64_t compressedBytes) const
    {
        // The multiple saturates rather than wrapping round to a small number.
        const std::uint64_t scaled =
            ratio != 0 && compressedBytes > UINT64_MAX / ratio ? UINT64_MAX : compressedBytes * ratio;
        return std::min(cap, std::max(floor, scaled));
    }
};

/// Whether `database` holds its data sets compressed: the flag is set, or (a header too short
/// for the flag, or a writer that left it 0) the bytes after the header open a zlib stream.
bool isCompressedDatabase(std::span<const std::uint8_t> database);

/// The iTunesDB image of the compressed database `database`: its header (total length made the
/// image's length, the flag cleared) and the inflated data sets. A database that is not
/// compressed comes back as it is. `name` names the file in errors (its path).
///
/// Damage is a zq::Exception "<application identifier>.DatabaseDamaged" whose reason names the
/// file and what is wrong: a header that does not fit the file, a total length beyond the file
/// (a truncated file) or one that claims more than the stream may inflate to, a corrupt stream,
/// a stream that ends early, one that inflates past `bounds`. Memory grows with the bytes
/// actually inflated, never with what a field claims.
Data inflateCompressedDatabase(const Data& database, const std::string& name, const InflateBounds& bounds = {});

} // namespace zq
