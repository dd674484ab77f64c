// The AFC library object over a scripted device: its name and model type from the device's
// values and attributes, and a database copy that fails half-way (nothing loaded from SQLite,
// the temporary folder still removed, iTunesDB read instead).

#include "tests/afc/FakeMobileDevice.h"
#include "tests/afc/MobileDeviceImage.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/foundation/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace zq::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;

/// Serves the files under `root` through the scripted conduit, as the device's "/".
void serveFolder(const std::string& root, FakeConduit& conduit)
{
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = "/" + fs::relative(entry.path(), root).string();
        if (entry.is_directory()) {
            conduit.folders.insert(path);
        } else {
            std::ifstream in(entry.path(), std::ios::binary);
            conduit.files[path] = std::string(std::istreambuf_iterator<char>(in), {});
        }
    }
}

std::string uniqueSerial()
{
    static int counter = 0;
    return "LIB" + std::to_string(::getpid()) + "X" + std::to_string(++counter);
}

VolumeSpec binaryLibrary()
{
    DatabaseSpec database;
    TrackSpec track;
    track.trackID = 7;
    track.title = "Only Track";
    database.tracks = {track};
    PlaylistSpec master;
    master.name = "Master Name";
    master.master = 1;
    master.items = {7};
    database.playlists = {master};
    VolumeSpec spec;
    spec.database = database;
    return spec;
}

std::shared_ptr<AFCiPod> openLibrary(const std::shared_ptr<FakeDevice>& device)
{
    auto session = AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(device));
    return std::dynamic_pointer_cast<AFCiPod>(AFCiPod::initWithiPodReference(AFCiPodRef::initWithDevice(session)));
}

struct IdentityCase {
    const char* name;
    std::optional<std::string> deviceName;
    std::optional<std::string> model;
    std::string expectedName;
    std::int32_t expectedType;
};
void PrintTo(const IdentityCase& c, std::ostream* out) { *out << c.name; }

class AFCLibraryIdentity : public ::testing::TestWithParam<IdentityCase> {};

TEST_P(AFCLibraryIdentity, ComesFromTheDeviceValuesAndAttributes)
{
    const auto& c = GetParam();
    TempDir root;
    writeMobileDevice(root.path(), binaryLibrary());
    std::map<std::string, std::string> values{{"SerialNumber", uniqueSerial()}};
    if (c.deviceName)
        values["DeviceName"] = *c.deviceName;
    auto device = std::make_shared<FakeDevice>(500, values);
    serveFolder(root.path(), *device->conduit);
    device->conduit->deviceInfo.erase("Model");
    if (c.model)
        device->conduit->deviceInfo["Model"] = *c.model;

    auto session = AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(device));
    auto reference = AFCiPodRef::initWithDevice(session);
    auto library = std::dynamic_pointer_cast<AFCiPod>(AFCiPod::initWithiPodReference(reference));

    ASSERT_NE(library, nullptr);
    EXPECT_EQ(reference->name(), c.expectedName);
    EXPECT_EQ(library->name(), c.expectedName);
    EXPECT_EQ(library->type(), c.expectedType);
    EXPECT_EQ(library->allTracks().size(), 1u);
    EXPECT_EQ(library->deviceInfo().count("Model"), c.model ? 1u : 0u);
    EXPECT_EQ(session->delegate(), library);
}

INSTANTIATE_TEST_SUITE_P(
    Devices, AFCLibraryIdentity,
    ::testing::Values(IdentityCase{"IPodTouch", "Kitchen iPod", "iPod9,1", "Kitchen iPod", 15},
                      IdentityCase{"IPhone", "Anna's iPhone", "iPhone12,1", "Anna's iPhone", 16},
                      IdentityCase{"NoModel", "Tablet", std::nullopt, "Tablet", 0},
                      IdentityCase{"NoDeviceName", std::nullopt, "iPhone12,1", "iPod", 16}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(AFCLibrary, ACopyThatFailsLoadsNothingFromSQLiteAndStillRemovesTheFolder)
{
    TempDir root;
    auto both = binaryLibrary();
    both.format = LibraryFormat::Both;
    writeMobileDevice(root.path(), both);
    auto device = std::make_shared<FakeDevice>(501, std::map<std::string, std::string>{{"SerialNumber", uniqueSerial()}});
    serveFolder(root.path(), *device->conduit);
    // Extras.itdb answers the existence test and is gone when it is read.
    device->conduit->infoQueriesLeft["/iTunes_Control/iTunes/iTunes Library.itlp/Extras.itdb"] = 1;
    std::set<std::string> before;
    for (const auto& entry : fs::directory_iterator(std::getenv("TMPDIR")))
        before.insert(entry.path().filename().string());
    std::vector<std::string> lines;
    auto previous = setLogHandler([&](const std::string& line) { lines.push_back(line); });

    auto library = openLibrary(device);
    setLogHandler(previous);

    ASSERT_NE(library, nullptr);
    std::set<std::string> after;
    for (const auto& entry : fs::directory_iterator(std::getenv("TMPDIR")))
        after.insert(entry.path().filename().string());
    EXPECT_EQ(after, before);
    EXPECT_THAT(lines, Contains("AFCiPod initWithiPodReference: Didn't load from SQLite"));
    ASSERT_EQ(library->allTracks().size(), 1u);
    EXPECT_EQ(library->allTracks()[0]->title(), "Only Track");
    // The copies go on after the failed one: the three others and then iTunesDB were opened.
    EXPECT_EQ(device->conduit->requestsOf("open").size(), 3u + 1u);
}

TEST(AFCLibrary, TheSameDeviceGivesTheSameLibraryObject)
{
    const std::string serial = uniqueSerial();
    auto first = std::make_shared<FakeDevice>(502, std::map<std::string, std::string>{{"SerialNumber", serial}});
    auto second = std::make_shared<FakeDevice>(503, std::map<std::string, std::string>{{"SerialNumber", serial}});
    auto library = openLibrary(first);
    ASSERT_NE(library, nullptr);
    EXPECT_TRUE(library->allTracks().empty());
    EXPECT_EQ(openLibrary(second), library);
}

} // namespace
} // namespace zq::test
