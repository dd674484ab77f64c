// The file half of a session over a scripted conduit: which requests whole and ranged reads and
// writes make (262144-byte chunks, the follow-up request after a short read), and what each
// operation answers for files, folders and missing paths.

#include "tests/afc/FakeMobileDevice.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

namespace zq::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint32_t kChunk = 262144;

std::string patterned(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    return bytes;
}

FakeRequest read(const std::string& path, std::uint64_t offset, std::uint32_t count)
{
    return {"read", path, offset, count};
}

class AFCFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        device = std::make_shared<FakeDevice>(21, std::map<std::string, std::string>{{"SerialNumber", "FILES1"}});
        device->conduit->folders.insert("/Music");
        session = AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(device));
        ASSERT_NE(session, nullptr);
    }
    FakeConduit& conduit() { return *device->conduit; }

    std::shared_ptr<FakeDevice> device;
    std::shared_ptr<AFCDevice> session;
};

// ---- whole-file reads ------------------------------------------------------------------------

struct WholeReadCase {
    const char* name;
    std::size_t size;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> requests;  // offset, count asked
};
void PrintTo(const WholeReadCase& c, std::ostream* out) { *out << c.name; }

class AFCWholeRead : public AFCFiles, public ::testing::WithParamInterface<WholeReadCase> {};

TEST_P(AFCWholeRead, AsksForOneChunkThenForWhatTheLastReadGot)
{
    const auto& c = GetParam();
    const std::string contents = patterned(c.size);
    conduit().files["/Music/a.m4a"] = contents;

    const auto data = session->contentsOfFileAtPath("/Music/a.m4a");

    ASSERT_TRUE(data.has_value());
    EXPECT_EQ(data->stringView(), contents);
    std::vector<FakeRequest> expected;
    for (const auto& [offset, count] : c.requests)
        expected.push_back(read("/Music/a.m4a", offset, count));
    EXPECT_THAT(conduit().requestsOf("read"), ElementsAreArray(expected));
    EXPECT_THAT(conduit().requestsOf("close"), ElementsAre(FakeRequest{"close", "/Music/a.m4a", 0, 0}));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, AFCWholeRead,
    ::testing::Values(WholeReadCase{"Empty", 0, {{0, kChunk}}},
                      WholeReadCase{"ExactlyOneChunk", kChunk, {{0, kChunk}, {kChunk, kChunk}}},
                      WholeReadCase{"ChunkAndAHalf", 300000, {{0, kChunk}, {kChunk, kChunk}, {300000, 37856}}},
                      WholeReadCase{"ShortFile", 1000, {{0, kChunk}, {1000, 1000}}}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

// ---- ranged reads ----------------------------------------------------------------------------

struct RangeCase {
    const char* name;
    std::size_t fileSize;
    Range range;
    std::size_t expectedBytes;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> requests;
};
void PrintTo(const RangeCase& c, std::ostream* out) { *out << c.name; }

class AFCRangedRead : public AFCFiles, public ::testing::WithParamInterface<RangeCase> {};

TEST_P(AFCRangedRead, ReadsWhatExistsOfTheRangeInChunks)
{
    const auto& c = GetParam();
    const std::string contents = patterned(c.fileSize);
    conduit().files["/Music/b.mp3"] = contents;

    const auto data = session->chunkOfFileAtPath("/Music/b.mp3", c.range);

    ASSERT_TRUE(data.has_value());
    const std::size_t start = std::min<std::size_t>(c.range.location, c.fileSize);
    EXPECT_EQ(data->stringView(), std::string_view(contents).substr(start, c.expectedBytes));
    std::vector<FakeRequest> expected;
    for (const auto& [offset, count] : c.requests)
        expected.push_back(read("/Music/b.mp3", offset, count));
    EXPECT_THAT(conduit().requestsOf("read"), ElementsAreArray(expected));
}

INSTANTIATE_TEST_SUITE_P(
    Ranges, AFCRangedRead,
    ::testing::Values(
        RangeCase{"LengthZero", 1000, {10, 0}, 0, {{10, 0}}},
        RangeCase{"InsideOneChunk", 1000, {100, 200}, 200, {{100, 200}, {300, 0}}},
        RangeCase{"ExactlyOneChunk", 600000, {0, kChunk}, kChunk, {{0, kChunk}, {kChunk, 0}}},
        RangeCase{"AcrossChunks", 600000, {5, 300000}, 300000, {{5, kChunk}, {kChunk + 5, 37856}, {300005, 0}}},
        RangeCase{"RunsPastTheEnd", 1000, {900, 500}, 100, {{900, 500}, {1000, 100}}},
        RangeCase{"StartsPastTheEnd", 1000, {5000, 10}, 0, {{5000, 10}}}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

// ---- what reads answer for things that are not readable files --------------------------------

TEST_F(AFCFiles, ReadsOfAFolderOrAMissingPathAnswerNoData)
{
    EXPECT_FALSE(session->contentsOfFileAtPath("/Music").has_value());
    EXPECT_FALSE(session->contentsOfFileAtPath("/Music/none.mp3").has_value());
    EXPECT_FALSE(session->chunkOfFileAtPath("/Music", {0, 10}).has_value());
    EXPECT_FALSE(session->chunkOfFileAtPath("/Music/none.mp3", {0, 10}).has_value());
    EXPECT_THAT(conduit().requestsOf("open"), IsEmpty());
}

TEST_F(AFCFiles, AFileThatCannotBeOpenedIsAReadErrorAndIsLogged)
{
    conduit().files["/Music/locked.mp3"] = "secret";
    conduit().unopenable.insert("/Music/locked.mp3");
    std::vector<std::string> lines;
    auto previous = setLogHandler([&](const std::string& line) { lines.push_back(line); });

    for (int read = 0; read < 2; ++read)
        try {
            read ? session->chunkOfFileAtPath("/Music/locked.mp3", {0, 3}) : session->contentsOfFileAtPath("/Music/locked.mp3");
            ADD_FAILURE() << "a file that cannot be opened read as data";
        } catch (const Exception& error) {
            EXPECT_EQ(error.name(), "AFCDeviceReadError");
            EXPECT_THAT(error.reason(), HasSubstr("Could not read /Music/locked.mp3 from the device"));
        }
    setLogHandler(previous);
    EXPECT_THAT(lines, ElementsAre("AFCFileRefOpen(2): 10", "AFCFileRefOpen(2): 10"));
}

// ---- writing, removing, listing --------------------------------------------------------------

TEST_F(AFCFiles, CreatingAFileWritesItInChunksAndClosesIt)
{
    const std::string contents = patterned(600000);
    EXPECT_TRUE(session->createFileAtPath("/Music/new.bin", Data(std::string_view(contents))));

    EXPECT_EQ(conduit().files["/Music/new.bin"], contents);
    EXPECT_THAT(conduit().requestsOf("write"),
                ElementsAre(FakeRequest{"write", "/Music/new.bin", 0, kChunk},
                            FakeRequest{"write", "/Music/new.bin", kChunk, kChunk},
                            FakeRequest{"write", "/Music/new.bin", 2 * kChunk, 600000 - 2 * kChunk}));
    EXPECT_EQ(conduit().requestsOf("close").size(), 1u);
}

TEST_F(AFCFiles, CreatingAnEmptyFileOpensAndClosesWithoutWriting)
{
    EXPECT_TRUE(session->createFileAtPath("/Music/empty", Data()));
    ASSERT_TRUE(conduit().files.count("/Music/empty"));
    EXPECT_TRUE(conduit().files["/Music/empty"].empty());
    EXPECT_THAT(conduit().requestsOf("write"), IsEmpty());
}



TEST_F(AFCFiles, ListingsSeparateFilesFromFoldersAndSkipDotEntries)
{
    conduit().folders.insert("/Music/F00");
    conduit().folders.insert("/Music/F01");
    conduit().files["/Music/a.mp3"] = "a";
    conduit().files["/Music/b.mp3"] = "b";

    EXPECT_THAT(session->listOfFilesAtPath("/Music"), ElementsAre("a.mp3", "b.mp3"));
    EXPECT_THAT(session->listOfFoldersAtPath("/Music"), ElementsAre("F00", "F01"));
    EXPECT_THAT(session->listOfFoldersAtPath("/"), ElementsAre("Music"));
    EXPECT_THAT(session->deviceInterface()->listFilesInPath("/Music"), ElementsAre(".", "..", "F00", "F01", "a.mp3", "b.mp3"));
}

TEST_F(AFCFiles, ListingAFolderThatCannotBeOpenedThrowsABareException)
{
    try {
        session->listOfFilesAtPath("/Missing");
        FAIL() << "no exception";
    } catch (const Exception& error) {
        EXPECT_EQ(error.name(), "");
        EXPECT_EQ(error.reason(), "");
    }
}


TEST_F(AFCFiles, AWriteOfNothingSucceedsWithoutTouchingTheFile)
{
    auto& afc = *session->deviceInterface();
    EXPECT_TRUE(afc.writeToFile(999, nullptr, 0, 0));
    EXPECT_THAT(conduit().requests, IsEmpty());
}

} // namespace
} // namespace zq::test
