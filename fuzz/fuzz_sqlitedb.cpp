// libFuzzer target: the SQLite library load on damaged database files. SQLite itself refuses
// a corrupt file page by page; what this drives is our side: rows whose columns hold NULLs,
// wrong types, huge numbers, odd text or rule blobs of any shape, folder links that point
// anywhere, and failures in the middle of a load. Any exception other than the framework's
// own, any crash, sanitizer report, leak or runaway allocation is a finding.
//
// The first byte of the input picks which of the four databases is replaced by the rest of
// the input; the other three are the demo's sample library as the builder writes it.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"
#include "tests/support/SampleDevice.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 4> kFiles = {"Library.itdb", "Extras.itdb", "Locations.itdb", "Dynamic.itdb"};

struct DetachedLibrary : zq::ZQCoreiPod {
    DetachedLibrary() = default;
};

// The sample's four databases, read once; each input is loaded from a fresh copy of them.
struct Fixture {
    Fixture()
    {
        zq::test::DatabaseSpec database = *zq::test::makeSampleDevice().database;
        zq::test::writeSQLiteLibrary(pristine.path(), database);
        const fs::path folder = fs::path(pristine.path()) / "iPod_Control" / "iTunes" / "iTunes Library.itlp";
        for (std::size_t i = 0; i < kFiles.size(); ++i) {
            std::ifstream in(folder / kFiles[i], std::ios::binary);
            originals[i].assign(std::istreambuf_iterator<char>(in), {});
        }
    }
    zq::test::TempDir pristine;
    zq::test::TempDir work;
    std::array<std::string, 4> originals;
};

const Fixture& fixture()
{
    static const Fixture shared;
    return shared;
}

void write(const fs::path& path, const void* bytes, std::size_t size)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    if (!out)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size == 0)
        return 0;
    const Fixture& f = fixture();
    const std::size_t replaced = bytes[0] % kFiles.size();
    std::array<std::string, 4> paths;
    for (std::size_t i = 0; i < kFiles.size(); ++i) {
        paths[i] = f.work.file(kFiles[i]);
        if (i == replaced)
            write(paths[i], bytes + 1, size - 1);
        else
            write(paths[i], f.originals[i].data(), f.originals[i].size());
    }

    auto library = std::make_shared<DetachedLibrary>();
    try {
        (void)library->loadFromLocalSQLiteDatabase(paths[0], paths[1], paths[2], paths[3]);
    } catch (const zq::Exception&) {
    }
    for (const auto& playlist : library->allPlaylists()) {
        (void)playlist->description();
        (void)playlist->tracks().size();
    }
    for (const auto& track : library->allTracks())
        (void)track->description();
    return 0;
}
