// libFuzzer target: the MediaLibrary.sqlitedb load (iOS 5 and later) on damaged databases. SQLite
// refuses a corrupt file page by page; what this drives is our side: a schema of any shape (the
// statements are built from what PRAGMA table_info says), NULLs and wrong types in every column,
// huge numbers, paths that try to leave the phone's folder, folder links in circles, artwork rows
// naming anything, and failures in the middle of a load. Any exception other than the framework's
// own, any crash, sanitizer report, leak or runaway allocation is a finding.
//
// The first byte of the input picks the starting point: the bytes as the whole database, or the
// sample phone's database of either layout with the rest of the input written over it at an
// offset taken from the next two bytes (so most inputs stay a database whose contents are odd).

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/Exception.h"
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

struct DetachedLibrary : zq::ZQCoreiPod {
    DetachedLibrary() = default;
};

std::string readAll(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The sample phone's database in both layouts, with its WAL checkpointed in (so one file holds
// all of it), read once.
struct Fixture {
    Fixture()
    {
        for (auto generation : {zq::test::MediaLibraryGeneration::Modern, zq::test::MediaLibraryGeneration::IOS6}) {
            zq::test::TempDir phone;
            auto setup = zq::test::makeSamplePhone(generation);
            setup.pendingPlaylists = 0;
            setup.pendingTracks = 0;
            setup.files.clear();
            zq::test::writePhone(phone.path(), setup);
            originals.push_back(readAll(phone.file("iTunes_Control/iTunes/MediaLibrary.sqlitedb")));
        }
    }
    zq::test::TempDir work;
    std::vector<std::string> originals;
};

const Fixture& fixture()
{
    static const Fixture shared;
    return shared;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size < 3)
        return 0;
    const Fixture& f = fixture();
    std::string database;
    const std::size_t start = bytes[0] % 3;
    if (start == 0) {
        database.assign(reinterpret_cast<const char*>(bytes + 1), size - 1);
    } else {
        database = f.originals[start - 1];
        const std::size_t offset = (std::size_t(bytes[1]) << 8 | bytes[2]) * 16 % database.size();
        const std::size_t length = std::min(size - 3, database.size() - offset);
        database.replace(offset, length, reinterpret_cast<const char*>(bytes + 3), length);
    }
    const std::string path = f.work.file("MediaLibrary.sqlitedb");
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(database.data(), static_cast<std::streamsize>(database.size()));
        if (!out)
            std::abort();
    }

    auto library = std::make_shared<DetachedLibrary>();
    try {
        library->loadFromLocalMediaLibraryDatabase(path, f.work.path());
    } catch (const zq::Exception&) {
    }
    for (const auto& playlist : library->allPlaylists()) {
        (void)playlist->description();
        (void)playlist->tracks().size();
    }
    for (const auto& track : library->allTracks()) {
        (void)track->description();
        if (track->hasAlbumArt())
            (void)track->albumArt()->image();
    }
    return 0;
}
