// Byte buffers: slicing and reading whole files (including files whose size the
// file system does not know in advance).

#include "tests/support/SampleDevice.h"

#include "ZQCore/foundation/Data.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

using zq::Data;

TEST(FoundationData, SubdataIsClampedToTheBytesThatExist)
{
    const Data digits(std::string_view("0123456789"));
    EXPECT_EQ(digits.subdata(2, 3).stringView(), "234");
    EXPECT_EQ(digits.subdata(8, 100).stringView(), "89");
    EXPECT_TRUE(digits.subdata(10, 1).empty());
    EXPECT_TRUE(digits.subdata(1000, 1).empty());
    EXPECT_EQ(digits.subdata(0, SIZE_MAX), digits);
    EXPECT_EQ(zq::Data(), zq::Data(std::string_view("")));
}

TEST(FoundationData, ContentsOfFile)
{
    zq::test::TempDir dir;
    {
        std::ofstream(dir.file("text"), std::ios::binary) << std::string("line\0two", 8);
        std::ofstream(dir.file("empty"), std::ios::binary);
    }
    auto text = Data::contentsOfFile(dir.file("text"));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->stringView(), std::string_view("line\0two", 8));

    auto empty = Data::contentsOfFile(dir.file("empty"));
    ASSERT_TRUE(empty); // an empty file is empty data, not no data
    EXPECT_TRUE(empty->empty());

    EXPECT_FALSE(Data::contentsOfFile(dir.file("missing")));
    EXPECT_FALSE(Data::contentsOfFile(dir.path())); // a folder

    // Kernel files report size 0 and must still be read whole.
    auto status = Data::contentsOfFile("/proc/self/status");
    ASSERT_TRUE(status);
    EXPECT_NE(status->stringView().find("Name:"), std::string_view::npos);
    EXPECT_NE(status->stringView().find("VmRSS"), std::string_view::npos);
    auto maps = Data::contentsOfFile("/proc/self/smaps"); // grows the buffer more than once
    ASSERT_TRUE(maps);
    EXPECT_GT(maps->size(), 8192u);
    EXPECT_EQ(maps->stringView().back(), '\n');
}

} // namespace
