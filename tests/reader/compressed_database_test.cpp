// The compressed library database (iTunesCDB): what it inflates to, held against the database
// it was made from, and every way a damaged or hostile one must end in an error that names the
// file, with memory that stays small whatever the file claims.

#include "ZQCore/foundation/Application.h"
#include "ZQCore/reader/CompressedDatabase.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <sys/resource.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <functional>
#include <new>
#include <vector>

namespace {

using namespace zq::test;
using Bytes = std::vector<std::uint8_t>;

const std::string kName = "/volume/iPod_Control/iTunes/iTunesCDB";

Bytes bytesOf(const zq::Data& data) { return Bytes(data.bytes(), data.bytes() + data.size()); }
zq::Data dataOf(const Bytes& bytes) { return zq::Data(bytes.data(), bytes.size()); }

void putLE(Bytes& bytes, std::size_t at, std::uint32_t value, unsigned width = 4)
{
    for (unsigned i = 0; i < width; ++i)
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t headerLengthOf(const Bytes& bytes)
{
    return bytes[4] | bytes[5] << 8 | bytes[6] << 16 | static_cast<std::uint32_t>(bytes[7]) << 24;
}

std::string summaryOf(const zq::Data& database)
{
    auto library = std::make_shared<DetachedLibrary>();
    library->parseiTunesDBWithData(database);
    return librarySummary(*library);
}

DatabaseSpec noTracks()
{
    return DatabaseSpec{.playlists = {PlaylistSpec{.name = "Empty nano", .master = 1}}};
}

// ---- what a compressed database inflates to --------------------------------------------------

struct InflateCase {
    const char* what;
    DatabaseSpec database;
    /// The stored file made from the plain database; compressITunesDB when not given.
    std::function<Bytes(const zq::Data& plain)> store = {};
    bool compressed = true;
};
void PrintTo(const InflateCase& c, std::ostream* out) { *out << c.what; }

class CompressedDatabaseInflates : public testing::TestWithParam<InflateCase> {};

// The image is the plain database byte for byte (but for the 2 that marks a compressed one at
// 0x0C), so the walk reads from it exactly the library it reads from the plain file.
TEST_P(CompressedDatabaseInflates, ToTheDatabaseItWasMadeFrom)
{
    const InflateCase& c = GetParam();
    const zq::Data plain = buildITunesDB(c.database);
    const Bytes stored = c.store ? c.store(plain) : bytesOf(compressITunesDB(plain));
    EXPECT_EQ(zq::isCompressedDatabase(stored), c.compressed);

    const zq::Data image = zq::inflateCompressedDatabase(dataOf(stored), kName);
    Bytes expected = bytesOf(plain);
    if (c.compressed)
        putLE(expected, 12, 2);
    EXPECT_EQ(bytesOf(image), expected);
    EXPECT_EQ(summaryOf(image), summaryOf(plain));
}

Bytes compressedAt(const zq::Data& plain, int level) { return bytesOf(compressITunesDB(plain, level)); }

INSTANTIATE_TEST_SUITE_P(
    Databases, CompressedDatabaseInflates,
    testing::Values(
        InflateCase{"the sample device", makeSampleDevice().database.value()},
        InflateCase{"the sample device, fastest level", makeSampleDevice().database.value(),
                    [](const zq::Data& plain) { return compressedAt(plain, 1); }},
        InflateCase{"the sample device, best level", makeSampleDevice().database.value(),
                    [](const zq::Data& plain) { return compressedAt(plain, 9); }},
        InflateCase{"no tracks", noTracks()},
        InflateCase{"no data sets at all", DatabaseSpec{.dataSets = {}}},
        // Without the flag the stream itself says that the data sets are compressed.
        InflateCase{"a header too short for the flag", DatabaseSpec{.tracks = {{.trackID = 4, .title = "Short"}},
                                                                    .headerLength = 0x68}},
        InflateCase{"the flag left at 0 by a rewriting tool", makeSampleDevice().database.value(),
                    [](const zq::Data& plain) {
                        Bytes stored = compressedAt(plain, 6);
                        putLE(stored, zq::CompressedHeader::flag, 0, 2);
                        return stored;
                    }},
        // A writer that did not update the total length after compressing.
        InflateCase{"the total length left at the inflated size", makeSampleDevice().database.value(),
                    [](const zq::Data& plain) {
                        Bytes stored = compressedAt(plain, 6);
                        putLE(stored, 8, static_cast<std::uint32_t>(plain.size()));
                        return stored;
                    }},
        // What the device writes after the stream is not the database's.
        InflateCase{"bytes after the end of the stream", makeSampleDevice().database.value(),
                    [](const zq::Data& plain) {
                        Bytes stored = compressedAt(plain, 6);
                        stored.insert(stored.end(), 300, 0xA5);
                        putLE(stored, 8, static_cast<std::uint32_t>(stored.size()));
                        return stored;
                    }},
        // An iTunesDB kept under the other name is read as it stands.
        InflateCase{"an uncompressed database", makeSampleDevice().database.value(),
                    [](const zq::Data& plain) { return bytesOf(plain); }, false}),
    [](const auto& testCase) {
        std::string name;
        for (const char* p = testCase.param.what; *p; ++p)
            if (std::isalnum(static_cast<unsigned char>(*p)))
                name += *p;
        return name;
    });

// ---- damage ------------------------------------------------------------------------------------

struct DamageCase {
    const char* what;
    std::function<Bytes(Bytes stored)> damage;
    const char* cause;  ///< what the reason must say
};
void PrintTo(const DamageCase& c, std::ostream* out) { *out << c.what; }

class CompressedDatabaseDamage : public testing::TestWithParam<DamageCase> {};

TEST_P(CompressedDatabaseDamage, IsAnErrorNamingTheFileAndTheCause)
{
    const Bytes stored = GetParam().damage(bytesOf(buildITunesCDB(makeSampleDevice().database.value())));
    try {
        (void)zq::inflateCompressedDatabase(dataOf(stored), kName);
        ADD_FAILURE() << "inflated";
    } catch (const zq::Exception& e) {
        EXPECT_EQ(e.name(), zq::applicationIdentifier() + ".DatabaseDamaged");
        EXPECT_NE(e.reason().find("The compressed library database " + kName + " is damaged: "), std::string::npos)
            << e.reason();
        EXPECT_NE(e.reason().find(GetParam().cause), std::string::npos) << e.reason();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, CompressedDatabaseDamage,
    testing::Values(
        DamageCase{"cut in half", [](Bytes b) { b.resize(b.size() / 2); return b; }, "before the end of the stream"},
        DamageCase{"its last byte (the check value) missing", [](Bytes b) { b.pop_back(); return b; },
                   "the file is truncated"},
        DamageCase{"cut right after the header", [](Bytes b) { b.resize(headerLengthOf(b) + 2); return b; },
                   "the file is truncated"},
        DamageCase{"bytes in the stream overwritten",
                   [](Bytes b) {
                       for (std::size_t i = b.size() / 2; i < b.size() / 2 + 16; ++i)
                           b[i] ^= 0x5A;
                       return b;
                   },
                   "compressed data is corrupt"},
        DamageCase{"flagged but the data sets stored plain",
                   [](Bytes) {
                       Bytes b = bytesOf(buildITunesDB(makeSampleDevice().database.value()));
                       putLE(b, zq::CompressedHeader::flag, 1, 2);
                       return b;
                   },
                   "compressed data is corrupt"},
        DamageCase{"a header length past the end", [](Bytes b) { putLE(b, 4, static_cast<std::uint32_t>(b.size())); return b; },
                   "header length"},
        DamageCase{"too short for a header", [](Bytes b) { b.resize(8); return b; }, "too short for a database header"},
        // The stream is whole; the header says the file was longer.
        DamageCase{"a total length past the end",
                   [](Bytes b) { putLE(b, 8, static_cast<std::uint32_t>(b.size() + 100)); return b; },
                   "shorter than its header says"},
        DamageCase{"a total length of 4 GB", [](Bytes b) { putLE(b, 8, 0xFFFFFFFF); return b; },
                   "says it is 4294967295 bytes long"}),
    [](const auto& testCase) { return "case" + std::to_string(testCase.index); });

// ---- memory --------------------------------------------------------------------------------------

/// A database header (flag set) and then a zlib stream of `zeros` zero bytes: a few kilobytes
/// that inflate to as much as a test wants.
Bytes zlibBomb(std::size_t zeros)
{
    Bytes stored = bytesOf(compressITunesDB(buildITunesDB(DatabaseSpec{.dataSets = {}})));
    stored.resize(headerLengthOf(stored));
    z_stream z{};
    EXPECT_EQ(deflateInit(&z, 9), Z_OK);
    const Bytes piece(1 << 16, 0);
    Bytes out(1 << 16);
    for (std::size_t left = zeros;;) {
        const std::size_t now = std::min(left, piece.size());
        left -= now;
        z.next_in = const_cast<Bytef*>(piece.data());
        z.avail_in = static_cast<uInt>(now);
        const int flush = left == 0 ? Z_FINISH : Z_NO_FLUSH;
        int result;
        do {
            z.next_out = out.data();
            z.avail_out = static_cast<uInt>(out.size());
            result = deflate(&z, flush);
            stored.insert(stored.end(), out.data(), out.data() + (out.size() - z.avail_out));
        } while (z.avail_out == 0);
        if (result == Z_STREAM_END)
            break;
    }
    deflateEnd(&z);
    putLE(stored, 8, static_cast<std::uint32_t>(stored.size()));
    return stored;
}

/// 256 MB of zeros in about 250 KB, made once.
const Bytes& bomb()
{
    static const Bytes made = zlibBomb(std::size_t{256} << 20);
    return made;
}

/// The address space a process may add while `action` runs, far below what any of these files
/// claim or would inflate to: an allocation of that size fails (std::bad_alloc) instead of
/// passing unseen. Not under the address sanitizer, which reserves its shadow memory up front.
constexpr rlim_t kHeadroom = rlim_t{96} << 20;

void limitAddressSpace()
{
#if !defined(__SANITIZE_ADDRESS__)
    std::ifstream statm("/proc/self/statm");
    rlim_t pages = 0;
    statm >> pages;
    const rlimit limit{pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + kHeadroom, RLIM_INFINITY};
    ::setrlimit(RLIMIT_AS, &limit);
#endif
}

struct BoundCase {
    const char* what;
    std::function<Bytes()> file;
    zq::InflateBounds bounds;
    const char* cause;
};
void PrintTo(const BoundCase& c, std::ostream* out) { *out << c.what; }

class CompressedDatabaseMemory : public testing::TestWithParam<BoundCase> {};

// Each file is refused in a child process whose address space may grow by less than a tenth of
// what the file would need if its claim or its stream were believed: the refusal has to come
// from the bounds, before the memory is asked for.
TEST_P(CompressedDatabaseMemory, StaysSmallWhateverTheFileClaims)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Bytes stored = GetParam().file();
    EXPECT_EXIT(
        {
            limitAddressSpace();
            try {
                (void)zq::inflateCompressedDatabase(dataOf(stored), kName, GetParam().bounds);
                std::fputs("inflated\n", stderr);
                std::_Exit(1);
            } catch (const zq::Exception& e) {
                std::fprintf(stderr, "%s\n", e.reason().c_str());
                std::_Exit(0);
            } catch (const std::bad_alloc&) {
                std::fputs("out of memory\n", stderr);
                std::_Exit(2);
            }
        },
        testing::ExitedWithCode(0), GetParam().cause);
}

INSTANTIATE_TEST_SUITE_P(
    Files, CompressedDatabaseMemory,
    testing::Values(
        // About a kilobyte that says it is 4 GB long.
        BoundCase{"a 1 KB file claiming 4 GB",
                  [] {
                      Bytes b = bytesOf(buildITunesCDB(noTracks()));
                      EXPECT_LT(b.size(), 1024u);
                      putLE(b, 8, 0xFFFFFFFF);
                      return b;
                  },
                  {}, "says it is 4294967295 bytes long"},
        // 256 MB of zeros in about 250 KB: refused at 64 times its size.
        BoundCase{"a zlib bomb", [] { return bomb(); }, {},
                  "compressed bytes inflate to more than [0-9]+ bytes"},
        // The same with a ratio that would allow it: the absolute cap still holds.
        BoundCase{"a zlib bomb past the cap", [] { return bomb(); },
                  {.ratio = 100000, .floor = 0, .cap = std::uint64_t{32} << 20},
                  "inflate to more than 33554432 bytes"}),
    [](const auto& testCase) { return "case" + std::to_string(testCase.index); });

} // namespace
