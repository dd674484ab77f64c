// Byte buffers: slices are clamped to the bytes that exist.

#include "ZQCore/foundation/Data.h"

#include <gtest/gtest.h>

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

} // namespace
