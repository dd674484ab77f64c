#include "ZQCore/reader/CompressedDatabase.h"

#include "ZQCore/foundation/Application.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/reader/RecordLayouts.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <new>
#include <vector>

namespace zq {

using namespace layout;

namespace {

/// The piece the output grows by while inflating: memory follows the bytes inflated so far.
constexpr std::size_t kInflatePiece = std::size_t{64} << 10;

[[noreturn]] void damaged(const std::string& name, const std::string& what)
{
    throw Exception(ErrorKind::Damaged, applicationIdentifier() + ".DatabaseDamaged",
                    "The compressed library database " + name + " is damaged: " + what + ".");
}

/// A zlib stream header (RFC 1950): deflate with a window of at most 32 KB, and a check value
/// that makes the first two bytes a multiple of 31. "mhsd", the start of a data set, is not one.
bool opensZlibStream(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < 2)
        return false;
    const unsigned cmf = bytes[0], flg = bytes[1];
    return (cmf & 0x0F) == 8 && (cmf >> 4) <= 7 && ((cmf << 8) | flg) % 31 == 0;
}

/// The header length of a database that is long enough to have one, else 0.
std::uint32_t headerLengthOf(std::span<const std::uint8_t> database)
{
    return database.size() >= ChunkStart::size ? le32(database, ChunkStart::headerLength) : 0;
}

} // namespace

bool isCompressedDatabase(std::span<const std::uint8_t> database)
{
    const std::uint64_t headerLength = headerLengthOf(database);
    if (headerLength < ChunkStart::size || headerLength >= database.size())
        return false;
    if (headerLength >= CompressedHeader::flagEnd && le16(database, CompressedHeader::flag) == 1)
        return true;
    // Without the flag the stream itself decides. Devices set it, but a database is also met
    // with a header cut short of the flag's offset, or rewritten by a tool that left the flag
    // at 0 while the data sets stayed compressed: walked as they stand, those would read as an
    // empty or broken library, while their stream inflates to the real one.
    return opensZlibStream(database.subspan(headerLength));
}

Data inflateCompressedDatabase(const Data& database, const std::string& name, const InflateBounds& bounds)
{
    const std::span<const std::uint8_t> bytes = database.span();
    if (bytes.size() < ChunkStart::size)
        damaged(name, "it is " + std::to_string(bytes.size()) + " bytes long, too short for a database header");
    const std::uint64_t headerLength = headerLengthOf(bytes);
    if (headerLength < ChunkStart::size || headerLength >= bytes.size())
        damaged(name, "its header length (" + std::to_string(headerLength) + ") does not fit the file of " +
                          std::to_string(bytes.size()) + " bytes");
    // A database in iTunesCDB that is not compressed is still the library: the walk judges it.
    if (!isCompressedDatabase(bytes))
        return database;
    if (bytes.size() > bounds.cap)
        damaged(name, "it is " + std::to_string(bytes.size()) + " bytes long, more than any library database");

    const std::span<const std::uint8_t> stream = bytes.subspan(headerLength);
    const std::uint64_t limit = bounds.limitFor(stream.size());
    // The total length is the stored file's (header and stream). One that points past the end
    // is a file cut short, unless it is the inflated length (a writer that did not update it),
    // which the inflated size settles below; a claim beyond what the stream may inflate to is
    // refused before anything is inflated.
    const std::uint64_t totalLength = le32(bytes, ChunkStart::totalLength);
    if (totalLength > bytes.size() && totalLength - headerLength > limit)
        damaged(name, "its header says it is " + std::to_string(totalLength) + " bytes long, more than " +
                          std::to_string(bytes.size()) + " stored bytes may inflate to (" + std::to_string(limit) +
                          ")");

    z_stream z{};
    if (inflateInit(&z) != Z_OK)
        throw Exception(ErrorKind::Damaged, applicationIdentifier() + ".DatabaseDamaged",
                        "The compressed library database " + name + " could not be inflated: zlib could not start.");
    struct End {
        z_stream& z;
        ~End() { inflateEnd(&z); }
    } end{z};
    z.next_in = const_cast<Bytef*>(stream.data()); // zlib's input is not written, only typed so
    z.avail_in = static_cast<uInt>(stream.size());

    // The header first, then the data sets as they inflate, in one buffer.
    std::vector<std::uint8_t> image(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(headerLength));
    std::uint64_t inflated = 0;
    for (;;) {
        // Room for one more piece, but never for more than one byte past the limit: that byte
        // is how a stream that goes on past the limit is told from one that ends at it.
        const std::uint64_t room = std::min<std::uint64_t>(kInflatePiece, limit + 1 - inflated);
        const std::size_t at = image.size();
        image.resize(at + room);
        z.next_out = image.data() + at;
        z.avail_out = static_cast<uInt>(room);
        const int result = inflate(&z, Z_NO_FLUSH);
        const std::uint64_t produced = room - z.avail_out;
        image.resize(at + produced);
        inflated += produced;
        if (inflated > limit)
            damaged(name, "its " + std::to_string(stream.size()) + " compressed bytes inflate to more than " +
                              std::to_string(limit) + " bytes");
        if (result == Z_STREAM_END)
            break;
        if (result == Z_DATA_ERROR || result == Z_NEED_DICT)
            damaged(name, std::string("its compressed data is corrupt (zlib: ") +
                              (result == Z_NEED_DICT ? "needs a preset dictionary" : z.msg ? z.msg : "data error") +
                              ")");
        if (result == Z_MEM_ERROR)
            throw std::bad_alloc();
        if (result != Z_OK && result != Z_BUF_ERROR)
            damaged(name, "zlib could not inflate it (error " + std::to_string(result) + ")");
        if (z.avail_in == 0 && (result == Z_BUF_ERROR || produced < room))
            damaged(name, "its compressed data ends after " + std::to_string(stream.size()) +
                              " bytes, before the end of the stream; the file is truncated");
    }
    // Bytes after the end of the stream are left alone: the stream says where the data ends.

    if (totalLength > bytes.size() && totalLength != image.size())
        damaged(name, "the file is shorter than its header says (" + std::to_string(bytes.size()) + " of " +
                          std::to_string(totalLength) + " bytes); it is truncated");

    // The image is an ordinary database: its total length is its own, and it is not compressed.
    auto put32 = [&](std::size_t offset, std::uint32_t value) {
        for (int i = 0; i < 4; ++i)
            image[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    };
    put32(ChunkStart::totalLength, static_cast<std::uint32_t>(image.size()));
    if (headerLength >= CompressedHeader::flagEnd)
        image[CompressedHeader::flag] = image[CompressedHeader::flag + 1] = 0;
    return Data(std::move(image));
}

} // namespace zq
