// What kind of failure a caller is given for what really goes wrong with a disk-mode device: a
// mount path that is not there, library databases that are damaged in the ways devices damage
// them, a device that names a file outside itself, a range past a track's recorded size, a copy
// that is stopped and one whose destination is full. The names and reasons stay those a person
// reads; the kind is what a program decides on.

#include "ZQCore/foundation/Application.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace zq {
namespace {

using namespace test;
namespace fs = std::filesystem;

struct Thrown {
    ErrorKind kind;
    std::string name;
};

/// The kind and name of the zq::Exception `action` throws; Other/"nothing thrown" when none is.
Thrown thrownBy(const std::function<void()>& action)
{
    try {
        action();
    } catch (const Exception& error) {
        return {error.kind(), error.name()};
    }
    return {ErrorKind::Other, "nothing thrown"};
}

DatabaseSpec oneTrack()
{
    return DatabaseSpec{.tracks = {TrackSpec{.trackID = 7, .fileSize = 80, .location = ":iPod_Control:Music:F00:SVN.mp3"}}};
}

void overwrite(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

Thrown openingFails(const std::string& root)
{
    return thrownBy([&] { ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(root)); });
}

TEST(ErrorKinds, AMountPathThatIsNotThereIsNotFound)
{
    TempDir dir;
    const Thrown reference = thrownBy([&] { ZQCoreiPodRef::initWithPath(dir.file("gone")); });
    EXPECT_EQ(reference.kind, ErrorKind::NotFound);
    EXPECT_EQ(reference.name, "ZQCoreiPodNotFoundException");

    // The volume goes between being found and being opened.
    writeVolume(dir.file("volume"), {.database = oneTrack()});
    auto found = ZQCoreiPodRef::initWithPath(dir.file("volume"));
    fs::remove_all(dir.file("volume"));
    const Thrown library = thrownBy([&] { ZQCoreiPod::initWithiPodReference(found); });
    EXPECT_EQ(library.kind, ErrorKind::NotFound);
    EXPECT_EQ(library.name, "ZQCoreiPodNotFoundException");
}

TEST(ErrorKinds, EveryDamagedLibraryDatabaseIsDamagedWhateverItsName)
{
    struct Case {
        const char* what;
        std::function<void(const std::string& root)> damage;
        std::string name;  ///< as it was before kinds, kept
    };
    const std::string itunesDB = "/iPod_Control/iTunes/iTunesDB";
    const std::vector<Case> cases = {
        {"an iTunesDB cut in half",
         [&](const std::string& root) { fs::resize_file(root + itunesDB, fs::file_size(root + itunesDB) / 2); },
         "XRDataReaderInvalidRead"},
        {"an empty iTunesDB", [&](const std::string& root) { overwrite(root + itunesDB, ""); },
         "ZQCoreiPodLibraryUnreadableException"},
        {"an iTunesDB of something else", [&](const std::string& root) { overwrite(root + itunesDB, std::string(400, 'x')); },
         "ZQCoreiPodLibraryUnreadableException"},
        {"a folder where the iTunesDB should be",
         [&](const std::string& root) {
             fs::remove(root + itunesDB);
             fs::create_directory(root + itunesDB);
         },
         "ZQCoreiPodLibraryUnreadableException"},
        {"an iTunesCDB that does not inflate",
         [&](const std::string& root) {
             fs::remove(root + itunesDB);
             overwrite(root + "/iPod_Control/iTunes/iTunesCDB", std::string(300, '\x42'));
         },
         applicationIdentifier() + ".DatabaseDamaged"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        writeVolume(dir.path(), {.database = oneTrack()});
        c.damage(dir.path());
        const Thrown thrown = openingFails(dir.path());
        EXPECT_EQ(thrown.kind, ErrorKind::Damaged);
        EXPECT_EQ(thrown.name, c.name);
    }
}

TEST(ErrorKinds, WhatTheFrameworkWillNotReadIsRefused)
{
    TempDir dir, host;
    overwrite(host.file("secret"), "host secret: never on a device\n");
    writeVolume(dir.path(), {.database = oneTrack(),
                             .files = {{"iPod_Control/Music/F00/SVN.mp3", Data(std::string_view(std::string(100, 'm')))}}});
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir.path()));
    const auto track = library->allTracks().at(0);

    // A range past the size the database recorded (80 of the file's 100 bytes).
    const Thrown range = thrownBy([&] { track->chunkOfTrackFileWithRange({60, 21}); });
    EXPECT_EQ(range.kind, ErrorKind::Refused);
    EXPECT_EQ(range.name, applicationIdentifier() + ".FileReadError");

    // A track file that is a link out of the device.
    fs::remove(dir.file("iPod_Control/Music/F00/SVN.mp3"));
    fs::create_symlink(host.file("secret"), dir.file("iPod_Control/Music/F00/SVN.mp3"));
    const int fd = ::open(host.file("copy").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const FileCopyResult copied = track->copyTrackFileTo(fd);
    ::close(fd);
    EXPECT_EQ(copied.kind(), ErrorKind::Refused);

    // A library database that is a link out of the device.
    const std::string database = dir.file("iPod_Control/iTunes/iTunesDB");
    fs::rename(database, host.file("iTunesDB"));
    fs::create_symlink(host.file("iTunesDB"), database);
    const Thrown opened = openingFails(dir.path());
    EXPECT_EQ(opened.kind, ErrorKind::Refused);
    EXPECT_EQ(opened.name, "ZQCoreiPodLibraryUnreadableException");
}

TEST(ErrorKinds, ACopyTellsWhetherItWasStoppedOrItsDestinationFailed)
{
    TempDir dir;
    writeVolume(dir.path(), {.database = oneTrack(),
                             .files = {{"iPod_Control/Music/F00/SVN.mp3", Data(std::string_view(std::string(80, 'm')))}}});
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir.path()));
    const auto track = library->allTracks().at(0);

    const int file = ::open(dir.file("copy").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    EXPECT_EQ(track->copyTrackFileTo(file).kind(), std::nullopt) << "a copy that completed failed in no way";
    ::lseek(file, 0, SEEK_SET);
    const FileCopyResult stopped = track->copyTrackFileTo(file, [](std::uint64_t) { return false; });
    ::close(file);
    EXPECT_FALSE(stopped.completed);
    EXPECT_EQ(stopped.kind(), ErrorKind::Cancelled);

    // /dev/full takes nothing, as a full disk does.
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    if (full < 0)
        GTEST_SKIP() << "no /dev/full here";
    const FileCopyResult refused = track->copyTrackFileTo(full);
    ::close(full);
    EXPECT_EQ(refused.error, ENOSPC);
    EXPECT_EQ(refused.kind(), ErrorKind::DestinationFailed);
}

} // namespace
} // namespace zq
