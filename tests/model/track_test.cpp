// Reading a track's media file whole or by range, ranges checked against the recorded size.

#include "ZQCore/foundation/Application.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

namespace zq {
namespace {

using namespace test;

/// A library with one track whose file holds 100 bytes (0, 1, 2, ...) while the database
/// records a size of 80.
class ModelTrackFile : public testing::Test {
protected:
    void SetUp() override
    {
        TrackSpec setup{.trackID = 7, .fileSize = 80, .location = ":iPod_Control:Music:F00:SVN.mp3"};
        library_ = loadVolume(root_, {.database = DatabaseSpec{.tracks = {setup}},
                                      .files = {{"iPod_Control/Music/F00/SVN.mp3", Data(run(0, 100))}}});
        ASSERT_EQ(library_->allTracks().size(), 1u);
        track_ = library_->allTracks()[0];
    }
    /// The bytes from..from+count-1 of the file.
    static std::vector<std::uint8_t> run(std::uint8_t from, std::size_t count)
    {
        std::vector<std::uint8_t> bytes(count);
        for (std::size_t i = 0; i < count; ++i)
            bytes[i] = static_cast<std::uint8_t>(from + i);
        return bytes;
    }
    static std::vector<std::uint8_t> bytesOf(const std::optional<Data>& data)
    {
        return data ? std::vector<std::uint8_t>(data->bytes(), data->bytes() + data->size())
                    : std::vector<std::uint8_t>{0xEE};
    }

    TempDir dir_;
    std::string root_ = dir_.file("volume");
    std::shared_ptr<ZQCoreiPod> library_;
    std::shared_ptr<iPodTrack> track_;
};

TEST_F(ModelTrackFile, WholeFileIsWhatIsOnDiskRangesAreCheckedAgainstTheRecordedSizeIn32Bits)
{
    EXPECT_EQ(bytesOf(track_->contentsOfTrackFile()), run(0, 100));
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({0, 80})), run(0, 80));
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({79, 1})), run(79, 1));
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({80, 0})), run(0, 0)); // empty, at the very end
    // Refused past the recorded size even though the file holds the bytes.
    for (Range range : {Range{80, 1}, Range{81, 0}, Range{70, 11}, Range{0, 81}, Range{0xFFFFFFFF, 0},
                        Range{0xFFFFFFF0, 0x20}})
        expectThrown([&] { track_->chunkOfTrackFileWithRange(range); }, applicationIdentifier() + ".FileReadError",
                     "Range beyond file bounds");
    // 10 + 0xFFFFFFFF wraps to 9, within the size: the read yields what the file holds from 10.
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({10, 0xFFFFFFFF})), run(10, 90));
}

} // namespace
} // namespace zq
