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

// A device file nested far deeper than any real list (a hostile SysInfoExtended) converts without
// exhausting the stack: below the depth limit the nesting is kept, beyond it the value is cut.
TEST(FoundationValue, NestingDeeperThanAnyRealListIsCut)
{
    constexpr int kNesting = 700;
    std::string text = "<plist version=\"1.0\">";
    for (int i = 0; i < kNesting; ++i)
        text += "<array>";
    text += "<true/>";
    for (int i = 0; i < kNesting; ++i)
        text += "</array>";
    auto list = parse(text + "</plist>");
    ASSERT_TRUE(list);
    int depth = 0;
    for (const Value* level = &*list; level->array() && !level->array()->empty(); level = &level->array()->front())
        ++depth;
    EXPECT_GE(depth, 500);
    EXPECT_LT(depth, kNesting) << "the nesting was not cut";
}

} // namespace
