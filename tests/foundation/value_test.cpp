// Property-list values: what the device-information files and the framework's own lists parse
// into, and how numbers read back.

#include "ZQCore/foundation/Value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace {

using zq::Value;

std::optional<Value> parse(std::string_view text) { return Value::fromPropertyList(zq::Data(text)); }

TEST(FoundationValue, XMLPropertyListOfEveryType)
{
    auto list = parse(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
  <key>Name</key><string>Käthe's iPod</string>
  <key>Negative</key><integer>-5</integer>
  <key>Huge</key><integer>18446744073709551615</integer>
  <key>Ratio</key><real>1.5</real>
  <key>Yes</key><true/>
  <key>No</key><false/>
  <key>When</key><date>2001-01-01T00:00:10Z</date>
  <key>Bytes</key><data>AAEC</data>
  <key>List</key><array><integer>1</integer><dict><key>Inner</key><string>x</string></dict></array>
</dict></plist>)");
    ASSERT_TRUE(list);
    ASSERT_EQ(list->type(), Value::Type::Dictionary);
    EXPECT_EQ(*list->find("Name")->string(), "Käthe's iPod");
    EXPECT_EQ(list->find("Negative")->integerValue(), -5);
    EXPECT_EQ(list->find("Huge")->unsignedValue(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(list->find("Ratio")->doubleValue(), 1.5);
    EXPECT_EQ(*list->find("Yes"), Value(true));
    EXPECT_EQ(*list->find("No"), Value(false));
    EXPECT_EQ(*list->find("When")->date(), zq::Date(10));
    EXPECT_EQ(*list->find("Bytes")->data(), zq::Data(std::vector<std::uint8_t>{0, 1, 2}));
    EXPECT_EQ(*list->find("List"), Value(Value::Array{Value(1), Value(Value::Dictionary{{"Inner", Value("x")}})}));
    EXPECT_EQ(list->find("Missing"), nullptr);
}

TEST(FoundationValue, KeyElementsInsideArraysReadAsStrings)
{
    // Device-written SysInfoExtended files put <key> elements among array items; the list
    // must still parse, and the items keep their order.
    auto list = parse(R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>SerialNumber</key><string>8K1234XYZ9C</string>
  <key>AudioCodecs</key><array><key>MP3</key><key>AAC</key><string>WAV</string></array>
  <key>FamilyID</key><integer>11</integer>
</dict></plist>)");
    ASSERT_TRUE(list);
    EXPECT_EQ(*list->find("AudioCodecs"), Value(Value::Array{Value("MP3"), Value("AAC"), Value("WAV")}));
    EXPECT_EQ(list->find("FamilyID")->integerValue(), 11);
}

TEST(FoundationValue, BytesThatAreNoPropertyListGiveNoValue)
{
    for (std::string_view text : {std::string_view(""), std::string_view("hello"), std::string_view("bplist00"),
                                  std::string_view("<?xml version=\"1.0\"?><plist><dict><key>a</key>")})
        EXPECT_FALSE(parse(text)) << text;
}

TEST(FoundationValue, NumbersReadBackAsANumberObjectAnswersThem)
{
    EXPECT_EQ(Value(true).integerValue(), 1);
    EXPECT_EQ(Value(2.9).integerValue(), 2);
    EXPECT_EQ(Value(-2.9).integerValue(), -2);
    EXPECT_EQ(Value(1e300).integerValue(), 0); // out of range: no undefined conversion
    EXPECT_TRUE(Value(0.25).boolValue());
    EXPECT_FALSE(Value("1").boolValue());
    EXPECT_EQ(Value("1").integerValue(), 0);
    EXPECT_EQ(Value(std::numeric_limits<std::uint64_t>::max()).unsignedValue(),
              std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(Value(std::uint8_t{200}).integerValue(), 200);
    EXPECT_TRUE(Value(nullptr).isNull());
    EXPECT_EQ(Value(Value::Array{}).find("x"), nullptr);
    EXPECT_EQ(Value(7).doubleValue(), 7.0);
}

} // namespace
