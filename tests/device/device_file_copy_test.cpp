// Streaming a device's files into the computer's: the size the device reports and the copy that
// never holds a file in memory, on a mounted volume and through a device session.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/model/iPodTrack.h"
#include "tests/support/SampleDevice.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <vector>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

/// A library object of a volume at `base`, with no database behind it, reading its files from
/// the volume or, as over AFC, in pieces.
std::shared_ptr<ZQCoreiPod> libraryAt(const std::string& base, bool throughSession)
{
    return std::make_shared<test::DetachedLibrary>(base, throughSession);
}

std::string pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 131 + i / 4093) & 0xFF);
    return bytes;
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readBack(int fd)
{
    std::string bytes;
    ::lseek(fd, 0, SEEK_SET);
    char buffer[65536];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;)
        bytes.append(buffer, static_cast<std::size_t>(got));
    return bytes;
}

/// An open, empty file to copy into; closed on destruction.
struct Sink {
    explicit Sink(const TempDir& dir) : fd(::open(dir.file("sink").c_str(), O_CREAT | O_RDWR | O_TRUNC, 0600)) {}
    ~Sink() { ::close(fd); }
    int fd;
};

struct CopyCase {
    const char* label;
    bool throughSession;
    std::size_t size;
};
void PrintTo(const CopyCase& c, std::ostream* out) { *out << c.label; }

class DeviceFileCopy : public testing::TestWithParam<CopyCase> {};

TEST_P(DeviceFileCopy, CopiesEveryByteAndReportsProgressUpToTheEnd)
{
    TempDir dir;
    const std::string bytes = pattern(GetParam().size);
    writeFile(dir.file("track.mp3"), bytes);
    std::shared_ptr<ZQCoreiPod> library = libraryAt(dir.path(), GetParam().throughSession);
    Sink sink(dir);
    std::vector<std::uint64_t> seen;
    const FileCopyResult result = library->copyFileAtPath(dir.file("track.mp3"), sink.fd, [&](std::uint64_t done) {
        seen.push_back(done);
        return true;
    });
    EXPECT_TRUE(result.completed);
    EXPECT_EQ(result.error, 0);
    EXPECT_EQ(result.bytesCopied, bytes.size());
    EXPECT_TRUE(readBack(sink.fd) == bytes);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_TRUE(seen.empty() || seen.back() <= bytes.size());
}

INSTANTIATE_TEST_SUITE_P(Device, DeviceFileCopy,
                         testing::Values(CopyCase{"EmptyFile", false, 0}, CopyCase{"VolumeSeveralPieces", false, 17u << 20},
                                         CopyCase{"SessionEmptyFile", true, 0},
                                         CopyCase{"SessionExactPieces", true, 2u << 20},
                                         CopyCase{"SessionSeveralPieces", true, (2u << 20) + 12345}));

TEST(DeviceFileCopy, StopsWhenProgressSaysSo)
{
    TempDir dir;
    writeFile(dir.file("track.mp3"), pattern(20u << 20));
    for (bool session : {false, true}) {
        std::shared_ptr<ZQCoreiPod> library = libraryAt(dir.path(), session);
        Sink sink(dir);
        int calls = 0;
        const FileCopyResult result =
            library->copyFileAtPath(dir.file("track.mp3"), sink.fd, [&](std::uint64_t) { return ++calls < 2; });
        EXPECT_FALSE(result.completed) << session;
        EXPECT_EQ(result.error, 0) << session;
        EXPECT_EQ(calls, 2);
        EXPECT_LT(result.bytesCopied, 20u << 20);
    }
}

} // namespace
} // namespace zq
