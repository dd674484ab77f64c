// What a device is, by name: the model table against public facts, the order in which a device's
// information files are believed, and the reading of SysInfoExtended files that are not valid
// property lists.

#include "ZQCore/device/DeviceModel.h"
#include "ZQCore/device/SysInfoFiles.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Resources.h"
#include "tests/support/SampleDevice.h"

#include <gtest/gtest.h>

#include <ostream>
#include <set>

namespace zq {
namespace {

using test::TempDir;
using test::VolumeSpec;

// ---- the table, against public facts ---------------------------------------------------------

struct KnownModel {
    const char* given;        // what the device's files hold
    const char* number;       // Apple's model number, "" when the source names none
    const char* displayName;  // "" when nothing may be named
};
void PrintTo(const KnownModel& c, std::ostream* out) { *out << c.given; }

// Apple's model numbers with the model each stands for (Apple's "Identify your iPod model"
// pages; capacities and colours as sold). The first column is written as devices write it.
class ModelNumbers : public testing::TestWithParam<KnownModel> {};

TEST_P(ModelNumbers, NameTheModelAppleSoldUnderThem)
{
    const DeviceModel model = DeviceModel::withModelNumber(GetParam().given);
    EXPECT_EQ(model.modelNumber().value_or(""), GetParam().number);
    EXPECT_EQ(model.displayName(), GetParam().displayName);
}

INSTANTIATE_TEST_SUITE_P(
    Facts, ModelNumbers,
    testing::Values(KnownModel{"xB029", "MB029", "iPod classic (6th generation), 80 GB, silver"},
                    KnownModel{"MB147", "MB147", "iPod classic (6th generation), 80 GB, black"},
                    KnownModel{"xB565", "MB565", "iPod classic (6th generation, late 2008), 120 GB, black"},
                    KnownModel{"MC293", "MC293", "iPod classic (6th generation, late 2009), 160 GB, silver"},
                    KnownModel{"MA450", "MA450", "iPod (5th generation, late 2006), 80 GB, black"},
                    KnownModel{"MA002", "MA002", "iPod (5th generation), 30 GB, white"},
                    KnownModel{"M8541", "M8541", "iPod (1st generation), 5 GB, white"},
                    KnownModel{"M8737", "M8737", "iPod (2nd generation), 10 GB, white"},
                    KnownModel{"M9245", "M9245", "iPod (3rd generation), 40 GB, white"},
                    KnownModel{"M9282", "M9282", "iPod (4th generation), 20 GB, white"},
                    KnownModel{"M9829", "M9829", "iPod photo, 30 GB, white"},
                    KnownModel{"M9160", "M9160", "iPod mini (1st generation), 4 GB, silver"},
                    KnownModel{"M9807", "M9807", "iPod mini (2nd generation), 6 GB, green"},
                    KnownModel{"xA350", "MA350", "iPod nano (1st generation), 1 GB, white"},
                    KnownModel{"MA497", "MA497", "iPod nano (2nd generation), 8 GB, black"},
                    KnownModel{"xB261", "MB261", "iPod nano (3rd generation), 8 GB, black"},
                    KnownModel{"MB754", "MB754", "iPod nano (4th generation), 8 GB, black"},
                    KnownModel{"MC060", "MC060", "iPod nano (5th generation), 16 GB, silver"},
                    KnownModel{"MC688", "MC688", "iPod nano (6th generation), 8 GB, black"},
                    KnownModel{"M9724", "M9724", "iPod shuffle (1st generation), 512 MB, white"},
                    KnownModel{"MA546", "MA546", "iPod shuffle (2nd generation), 1 GB, silver"},
                    KnownModel{"MC303", "MC303", "iPod shuffle (3rd generation), 4 GB, stainless steel"},
                    KnownModel{"MC584", "MC584", "iPod shuffle (4th generation), 2 GB, silver"},
                    KnownModel{"xA623", "MA623", "iPod touch (1st generation), 8 GB"},
                    KnownModel{"MC086", "MC086", "iPod touch (2nd generation), 8 GB"},
                    KnownModel{"MC547", "MC547", "iPod touch (4th generation), 64 GB"},
                    KnownModel{"MB500", "MB500", "iPhone 3G, 16 GB, white"},
                    KnownModel{"MC134", "MC134", "iPhone 3GS, 32 GB, white"},
                    // The number after the prefix, whatever the prefix and case; a region code
                    // after it is no part of it.
                    KnownModel{"PB029", "MB029", "iPod classic (6th generation), 80 GB, silver"},
                    KnownModel{"xb029", "MB029", "iPod classic (6th generation), 80 GB, silver"},
                    KnownModel{"B029", "MB029", "iPod classic (6th generation), 80 GB, silver"},
                    KnownModel{"MB029LL/A", "MB029", "iPod classic (6th generation), 80 GB, silver"},
                    // A number no table knows keeps its number and gets no name.
                    KnownModel{"xZ999", "MZ999", ""},
                    // Text that is no model number gives nothing at all.
                    KnownModel{"", "", ""}, KnownModel{"x", "", ""}, KnownModel{"xB0", "", ""},
                    KnownModel{"xB0291", "", ""}, KnownModel{"x-029", "", ""}));

// Serial numbers whose last three characters Apple assigned to one model (the public
// serial-to-model tables), the sample iPod of 2005 among them.
class SerialNumbers : public testing::TestWithParam<KnownModel> {};

TEST_P(SerialNumbers, NameTheModelTheirSuffixStandsFor)
{
    const DeviceModel model = DeviceModel::withSerialNumber(GetParam().given);
    EXPECT_EQ(model.modelNumber().value_or(""), GetParam().number);
    EXPECT_EQ(model.displayName(), GetParam().displayName);
}

INSTANTIATE_TEST_SUITE_P(
    Facts, SerialNumbers,
    testing::Values(KnownModel{"8K9281QJY5N", "MB029", "iPod classic (6th generation), 80 GB, silver"},
                    KnownModel{"U231029LMMB", "M8737", "iPod (2nd generation), 10 GB, white"},
                    KnownModel{"JQ5290V9R", "MA450", "iPod (5th generation, late 2006), 80 GB, black"},
                    KnownModel{"8K0049ZU ", "MC297", "iPod classic (6th generation, late 2009), 160 GB, black"},
                    KnownModel{"YM7320YXX", "MB261", "iPod nano (3rd generation), 8 GB, black"},
                    KnownModel{"4H8015B9", "MB907", "iPod nano (4th generation), 16 GB, pink"},
                    KnownModel{"9C0DW9", "MC699", "iPod nano (6th generation), 16 GB, red"},
                    KnownModel{"CC4FDP", "MC751", "iPod shuffle (4th generation), 2 GB, blue"},
                    KnownModel{"5K7W4N", "MA623", "iPod touch (1st generation), 8 GB"},
                    KnownModel{"88933NS", "MC134", "iPhone 3GS, 32 GB, white"},
                    // Suffixes the sources give to two different models name neither.
                    KnownModel{"4H6YX7", "", ""}, KnownModel{"4H6WEE", "", ""},
                    KnownModel{"ZQUNKNOWN", "", ""}, KnownModel{"Y5", "", ""}, KnownModel{"", "", ""}));

struct FamilyCase {
    std::optional<std::int64_t> updaterFamilyID, familyID;
    const char* displayName;
};
void PrintTo(const FamilyCase& c, std::ostream* out)
{
    *out << "updater " << c.updaterFamilyID.value_or(-1) << " family " << c.familyID.value_or(-1);
}

// The family numbers of SysInfoExtended (the iPod firmware catalogue: each firmware's
// UpdaterFamilyID and the FamilyID of its manifest) give the family and generation, never a
// capacity or colour.
class FamilyNumbers : public testing::TestWithParam<FamilyCase> {};

TEST_P(FamilyNumbers, NameTheFamilyOnly)
{
    const DeviceModel model = DeviceModel::withFamilyIDs(GetParam().updaterFamilyID, GetParam().familyID);
    EXPECT_EQ(model.displayName(), GetParam().displayName);
    EXPECT_FALSE(model.modelNumber() || model.capacity() || model.colour());
}

INSTANTIATE_TEST_SUITE_P(
    Facts, FamilyNumbers,
    testing::Values(FamilyCase{24, std::nullopt, "iPod classic (6th generation)"},
                    FamilyCase{std::nullopt, 11, "iPod classic"},
                    FamilyCase{33, 11, "iPod classic (6th generation, late 2008)"},  // the stable number first
                    FamilyCase{25, 6, "iPod (5th generation, late 2006)"},
                    FamilyCase{std::nullopt, 6, "iPod (5th generation)"},
                    FamilyCase{26, std::nullopt, "iPod nano (3rd generation)"},
                    FamilyCase{std::nullopt, 12, "iPod nano (3rd generation)"},
                    FamilyCase{31, 15, "iPod nano (4th generation)"},
                    FamilyCase{std::nullopt, 18, "iPod nano (7th generation)"},
                    FamilyCase{17, 17, "iPod nano (1st generation)"},
                    FamilyCase{std::nullopt, 17, ""},  // early nano or 6th-generation nano: not said
                    FamilyCase{134, 133, "iPod shuffle (4th generation)"},
                    FamilyCase{std::nullopt, 130, "iPod shuffle (2nd generation)"},
                    FamilyCase{999, 11, "iPod classic"},  // an unknown stable number leaves FamilyID to say
                    FamilyCase{999, 999, ""}, FamilyCase{std::nullopt, std::nullopt, ""}));

// The table's own consistency: every suffix names a model the table has, every model a family.
TEST(ModelTable, EverySuffixNamesAModelWithAFamily)
{
    const auto data = Resources::dataForResource("iPodModels", "plist");
    ASSERT_TRUE(data);
    const auto table = Value::fromPropertyList(*data);
    ASSERT_TRUE(table && table->find("Models") && table->find("SerialSuffixes"));
    std::size_t models = 0;
    for (const auto& [number, entry] : *table->find("Models")->dictionary()) {
        ++models;
        EXPECT_TRUE(entry.find("Family") && entry.find("Capacity")) << number;
        EXPECT_TRUE(number.size() == 5 && number[0] == 'M') << number;
    }
    EXPECT_GE(models, 150u);
    for (const auto& [suffix, number] : *table->find("SerialSuffixes")->dictionary()) {
        EXPECT_EQ(suffix.size(), 3u) << suffix;
        ASSERT_TRUE(number.string()) << suffix;
        EXPECT_TRUE(DeviceModel::withModelNumber(*number.string()).isKnown()) << suffix << " -> " << *number.string();
    }
}

// ---- which of a device's files is believed -------------------------------------------------

/// A SysInfoExtended with the given entries (string or integer values, as written).
std::string extendedXML(const std::string& entries)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n" + entries + "</dict>\n</plist>\n";
}

std::string serialEntry(const std::string& serial) { return "<key>SerialNumber</key><string>" + serial + "</string>\n"; }

/// Library objects are kept per serial number for the life of the process: every device here
/// has a serial of its own, with a suffix no table knows unless the case says otherwise.
std::string freshSerial()
{
    static int counter = 0;
    return "ZQMD" + std::to_string(++counter) + "QQ";
}

struct FilesCase {
    const char* what;
    std::optional<std::string> sysInfo;
    std::optional<std::string> sysInfoExtended;  // "<serial>" stands for a fresh serial
    const char* number;
    const char* displayName;
};
void PrintTo(const FilesCase& c, std::ostream* out) { *out << c.what; }

class DeviceModelFiles : public testing::TestWithParam<FilesCase> {};

TEST_P(DeviceModelFiles, TheReferenceAndTheLibraryAgreeOnTheModel)
{
    const FilesCase& c = GetParam();
    const std::string serial = freshSerial();
    auto fill = [&](std::string text) {
        for (const std::string mark : {"<serial>", "&lt;serial&gt;"})  // as written, and as the writer escapes it
            if (auto at = text.find(mark); at != std::string::npos)
                text.replace(at, mark.size(), serial);
        return text;
    };
    VolumeSpec volume;
    if (c.sysInfo)
        volume.sysInfo = fill(*c.sysInfo);
    if (c.sysInfoExtended)
        volume.sysInfoExtended = fill(*c.sysInfoExtended);
    TempDir dir;
    test::writeVolume(dir.path(), volume);
    const auto reference = ZQCoreiPodRef::initWithPath(dir.path());
    const auto library = ZQCoreiPod::initWithiPodReference(reference);
    for (const DeviceModel& model : {reference->model(), library->model()}) {
        EXPECT_EQ(model.modelNumber().value_or(""), c.number);
        EXPECT_EQ(model.displayName(), c.displayName);
    }
}

const std::string kClassic = "iPod classic (6th generation), 80 GB, silver";
const std::string kNano = "iPod nano (3rd generation), 8 GB, black";

INSTANTIATE_TEST_SUITE_P(
    Files, DeviceModelFiles,
    testing::Values(
        FilesCase{"SysInfo only, as the sample writer makes it", test::sysInfoText("<serial>"), std::nullopt, "MB029", kClassic.c_str()},
        FilesCase{"SysInfo only, its serial when it has no model number", "pszSerialNumber: 7K712YXX\n", std::nullopt, "MB261", kNano.c_str()},
        FilesCase{"SysInfoExtended only, its model number", std::nullopt,
                  extendedXML(serialEntry("<serial>") + "<key>ModelNumStr</key><string>xB261</string>"), "MB261", kNano.c_str()},
        FilesCase{"SysInfoExtended only, its serial", std::nullopt, extendedXML(serialEntry("7K713YXX")), "MB261", kNano.c_str()},
        FilesCase{"SysInfoExtended only, its family numbers", std::nullopt,
                  extendedXML(serialEntry("<serial>") + "<key>FamilyID</key><integer>11</integer>"), "", "iPod classic"},
        FilesCase{"the sample writer's SysInfoExtended beside its SysInfo", test::sysInfoText("<serial>"),
                  test::sysInfoExtendedXML("<serial>"), "MB029", kClassic.c_str()},
        // The two files disagree: SysInfoExtended's model number wins, as its identity does.
        FilesCase{"both model numbers: SysInfoExtended's", test::sysInfoText("<serial>"),
                  test::sysInfoExtendedXML("<serial>", {{"ModelNumStr", "xB261"}}), "MB261", kNano.c_str()},
        // A model number beats any serial and any family number.
        FilesCase{"SysInfo's model number over SysInfoExtended's serial", test::sysInfoText("<serial>"),
                  extendedXML(serialEntry("7K714YXX") + "<key>FamilyID</key><integer>12</integer>"), "MB029", kClassic.c_str()},
        // A number no table knows: its number, the family from the family numbers, never a name
        // taken from the serial.
        FilesCase{"unknown model number with a family", std::nullopt,
                  extendedXML(serialEntry("7K715Y5N") + "<key>ModelNumStr</key><string>xZ999</string>"
                              "<key>FamilyID</key><integer>11</integer>"),
                  "MZ999", "iPod classic"},
        FilesCase{"unknown model number alone", "ModelNumStr: xZ999\npszSerialNumber: <serial>\n", std::nullopt, "MZ999", ""},
        FilesCase{"nothing known", "pszSerialNumber: <serial>\n", std::nullopt, "", ""},
        FilesCase{"no files", std::nullopt, std::nullopt, "", ""},
        // Not a valid property list: a key inside an array, and a key without a value. The
        // serial number and family number around them are still read.
        FilesCase{"SysInfoExtended with keys out of place", std::nullopt,
                  extendedXML("<key>AudioCodecs</key><array><key>AAC</key><dict><key>Bitrate</key><integer>320</integer></dict></array>\n"
                              "<key>Orphan</key>\n" + serialEntry("7K716YXX") + "<key>FamilyID</key><integer>12</integer>"),
                  "MB261", kNano.c_str()}));

TEST(DeviceModelFiles, BrokenSysInfoExtendedStillGivesItsSerialNumberAndFamily)
{
    TempDir dir;
    const std::string serial = freshSerial();
    // Two keys in a row make libplist refuse the file; the entries around them are whole.
    test::writeVolume(dir.path(), VolumeSpec{.sysInfoExtended = extendedXML(
                                                 "<key>Codecs</key><array><key>AAC</key><string>x</string></array>\n"
                                                 "<key>Orphan</key>\n" + serialEntry(serial) +
                                                 "<key>FamilyID</key><integer>11</integer>\n")});
    const auto reference = ZQCoreiPodRef::initWithPath(dir.path());
    EXPECT_EQ(reference->serialNumber(), serial);
    const auto library = ZQCoreiPod::initWithiPodReference(reference);
    const Value* family = library->properties().find("FamilyID");
    ASSERT_TRUE(family);
    EXPECT_EQ(family->integerValue(), 11);
    EXPECT_EQ(library->model().displayName(), "iPod classic");
    EXPECT_FALSE(library->properties().find("Codecs"));
    EXPECT_FALSE(library->properties().find("Orphan"));
}

// ---- the tolerant reading of SysInfoExtended -------------------------------------------------

struct EntriesCase {
    const char* what;
    std::string xml;
    std::optional<std::set<std::string>> keys;  // the top-level entries kept; no value: nothing read
};
void PrintTo(const EntriesCase& c, std::ostream* out) { *out << c.what; }

class PropertyListEntries : public testing::TestWithParam<EntriesCase> {};

TEST_P(PropertyListEntries, KeepTheWholeEntriesOfTheTopLevelDictionary)
{
    const auto entries = readPropertyListEntries(Data(std::string_view(GetParam().xml)));
    ASSERT_EQ(entries.has_value(), GetParam().keys.has_value());
    if (!entries)
        return;
    std::set<std::string> keys;
    for (const auto& [key, value] : *entries->dictionary())
        keys.insert(key);
    EXPECT_EQ(keys, *GetParam().keys);
}

std::string nested(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "<array>";
    for (int i = 0; i < depth; ++i)
        text += "</array>";
    return text;
}

const std::string kGood = "<key>A</key><integer>1</integer><key>Z</key><string>z</string>";

INSTANTIATE_TEST_SUITE_P(
    Broken, PropertyListEntries,
    testing::Values(
        EntriesCase{"valid", extendedXML(kGood + "<key>D</key><dict><key>E</key><array><true/><real>1.5</real></array></dict>"),
                    std::set<std::string>{"A", "Z", "D"}},
        EntriesCase{"key inside an array", extendedXML("<key>B</key><array><key>k</key><string>v</string></array>" + kGood),
                    std::set<std::string>{"A", "Z"}},
        EntriesCase{"key inside a nested array", extendedXML("<key>B</key><dict><key>C</key><array><key>k</key></array></dict>" + kGood),
                    std::set<std::string>{"A", "Z"}},
        EntriesCase{"key without a value", extendedXML("<key>B</key>" + kGood), std::set<std::string>{"A", "Z"}},
        EntriesCase{"value without a key", extendedXML("<string>lost</string>" + kGood), std::set<std::string>{"A", "Z"}},
        EntriesCase{"integer that is no number", extendedXML("<key>B</key><integer>eleven</integer>" + kGood),
                    std::set<std::string>{"A", "Z"}},
        EntriesCase{"unknown element", extendedXML("<key>B</key><widget/>" + kGood), std::set<std::string>{"A", "Z"}},
        EntriesCase{"cut off inside an entry", extendedXML(kGood + "<key>B</key><string>cut").substr(0, 150),
                    std::set<std::string>{"A", "Z"}},
        EntriesCase{"nesting beyond any device's", extendedXML("<key>B</key>" + nested(100000) + kGood), std::set<std::string>{"A", "Z"}},
        EntriesCase{"nesting a device may write", extendedXML("<key>B</key>" + nested(20) + kGood), std::set<std::string>{"A", "B", "Z"}},
        EntriesCase{"no dictionary", "<plist><array><string>x</string></array></plist>", std::nullopt},
        EntriesCase{"not XML", std::string("\x00\x01 binary", 9), std::nullopt},
        EntriesCase{"empty", "", std::nullopt}));

TEST(SysInfoText, ValuesByKeyTheLastLineWinning)
{
    const std::string text = "ModelNumStr: xA623\r\nBoardHwName: iPod Q98\nNote: ModelNumStr: no\n ModelNumStr :\txB029 \n";
    EXPECT_EQ(sysInfoValue(text, "ModelNumStr"), "xB029");
    EXPECT_EQ(sysInfoValue(text, "BoardHwName"), "iPod Q98");
    EXPECT_EQ(sysInfoValue(text, "Note"), "ModelNumStr: no");
    EXPECT_EQ(sysInfoValue(text, "pszSerialNumber"), std::nullopt);
    EXPECT_EQ(sysInfoValue("ModelNumStr: xA623\r\n", "ModelNumStr"), "xA623");
}

} // namespace
} // namespace zq
