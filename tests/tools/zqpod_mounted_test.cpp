// zqpod on real FAT volumes mounted as removable media in a private mount namespace (see
// MountSandbox; needs root, else skipped): which device a command works on.

#include "tests/support/MountSandbox.h"
#include "tests/support/SampleDevice.h"
#include "tests/tools/ToolProcess.h"

#include <gtest/gtest.h>

#include <sys/mount.h>

#include <cerrno>
#include <cstring>

#include <filesystem>
#include <fstream>
#include <map>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::filesBelow;
using test::Outcome;
using test::zqpod;

/// The mount path `zqpod library` reports for the device it opened.
std::string mountedAt(const Outcome& run)
{
    for (const auto& line : test::lines(run.out))
        if (line.starts_with("  Mounted at:"))
            return line.substr(line.find('/'));
    return "";
}

// `zqpod devices` names each device's model from its files without loading its library: the
// sample writer's SysInfo says "ModelNumStr: xB029", an 80 GB silver iPod classic; a device
// whose files name no model says "-".
TEST(DeviceList, ShowsEachDevicesModel)
{
    ZQ_MAKE_SANDBOX(sandbox);
    test::VolumeSpec bare = test::deviceVolume("Bare iPod", "ZQDV2");
    bare.sysInfo = "pszSerialNumber: ZQDV2\n";
    const auto classic = sandbox.makeImage("classic", test::deviceVolume("Classic iPod", "ZQDV1Y5N"));
    const auto unknown = sandbox.makeImage("bare", bare);
    ASSERT_TRUE(sandbox.mount(classic, "/media/zq/CLASSIC"));
    ASSERT_TRUE(sandbox.mount(unknown, "/media/zq/BARE"));
    const Outcome run = zqpod({"devices"});
    ASSERT_EQ(run.status, 0) << run.err;
    std::map<std::string, std::string> lineOf;
    for (const auto& line : test::lines(run.out))
        lineOf[line.substr(0, line.find("  "))] = line;
    ASSERT_TRUE(lineOf.contains("NAME") && lineOf.contains("Classic iPod") && lineOf.contains("Bare iPod")) << run.out;
    // Columns line up under their headings.
    const std::size_t model = lineOf["NAME"].find("MODEL"), path = lineOf["NAME"].find("PATH");
    ASSERT_NE(model, std::string::npos) << run.out;
    EXPECT_EQ(lineOf["Classic iPod"].substr(model, path - model),
              "iPod classic (6th generation), 80 GB, silver (MB029)  ");
    EXPECT_EQ(lineOf["Classic iPod"].substr(path), "/media/zq/CLASSIC");
    EXPECT_EQ(lineOf["Bare iPod"].substr(model, 3), "-  ");
    EXPECT_EQ(lineOf["Bare iPod"].substr(path), "/media/zq/BARE");
}

// The device reached through a bind mount has another path but is the same folder: a copy into
// it is refused as one into the device's own path is, and nothing is written there.
TEST(CopyDestination, TheDeviceUnderAnotherPathIsRefused)
{
    ZQ_MAKE_SANDBOX(sandbox);
    test::TempDir volume, elsewhere;
    test::writeVolume(volume.path(), test::deviceVolume("Bound iPod", "ZQBIND1"));
    ASSERT_EQ(::mount(volume.path().c_str(), elsewhere.path().c_str(), nullptr, MS_BIND, nullptr), 0)
        << std::strerror(errno);
    const Outcome run = zqpod({"copy", volume.path(), elsewhere.file("backup")});
    ::umount(elsewhere.path().c_str());
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("lies on the device itself"), std::string::npos) << run.err;
    EXPECT_FALSE(fs::exists(volume.file("backup")));
}

// A destination that fills up stops the copy with the destination named as full, never the
// device blamed; no partial file is left, and the rest is left for a rerun.
TEST(CopyDestination, AFullDestinationIsNamedAsSuch)
{
    ZQ_MAKE_SANDBOX(sandbox);
    test::TempDir device, small;
    test::writeVolume(device.path(), test::makeSampleDevice());
    ASSERT_EQ(::mount("tmpfs", small.path().c_str(), "tmpfs", 0, "size=96k"), 0) << std::strerror(errno);
    const Outcome run = zqpod({"copy", device.path(), small.file("music")});
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_NE(run.err.find("(the destination is full)"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("Stopped: the destination " + small.file("music") + " is full."), std::string::npos) << run.out;
    EXPECT_EQ((run.out + run.err).find("on the device"), std::string::npos) << run.out << run.err;
    for (const auto& name : filesBelow(small.path()))
        EXPECT_EQ(name.find(".zqpod-"), std::string::npos) << name;
    ::umount(small.path().c_str());
}

TEST(DeviceSelection, ByPathSerialOrNameOrTheOneConnected)
{
    ZQ_MAKE_SANDBOX(sandbox);
    const auto anna = sandbox.makeImage("anna", test::deviceVolume("Anna's iPod", "ZQSA1YMV"));
    const auto ben = sandbox.makeImage("ben", test::deviceVolume("Ben's iPod", "ZQSB2YMV"));
    const auto twin = sandbox.makeImage("twin", test::deviceVolume("Anna's iPod", "ZQSC3YMV"));
    const std::string music = sandbox.scratch("music");
    const Outcome none = zqpod({"copy", music});
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.err.find("No device is connected."), std::string::npos) << none.err;
    EXPECT_FALSE(fs::exists(music));

    // One device: commands need not name it.
    ASSERT_TRUE(sandbox.mount(anna, "/media/zq/ANNA"));
    EXPECT_EQ(mountedAt(zqpod({"library"})), "/media/zq/ANNA");
    const Outcome copied = zqpod({"copy", music});
    EXPECT_EQ(copied.status, 0) << copied.out << copied.err;
    EXPECT_TRUE(fs::exists(music + "/Artist/Album/Song of Anna's iPod.mp3")) << copied.out;

    // Several: the message lists them, and any of the three ways picks one.
    ASSERT_TRUE(sandbox.mount(ben, "/media/zq/BEN"));
    ASSERT_TRUE(sandbox.mount(twin, "/media/zq/TWIN"));
    const Outcome several = zqpod({"library"});
    EXPECT_EQ(several.status, 1);
    EXPECT_EQ(several.out, "");
    EXPECT_NE(several.err.find("3 devices are connected; say which one:\n"
                               "  Anna's iPod  (serial ZQSA1YMV)  at /media/zq/ANNA\n"
                               "  Ben's iPod  (serial ZQSB2YMV)  at /media/zq/BEN\n"
                               "  Anna's iPod  (serial ZQSC3YMV)  at /media/zq/TWIN\n"),
              std::string::npos)
        << several.err;
    for (const char* name : {"/media/zq/BEN", "zqsb2ymv" /* serials ignore case */, "Ben's iPod", "ben's ipod"})
        EXPECT_EQ(mountedAt(zqpod({"library", name})), "/media/zq/BEN") << name;
    EXPECT_EQ(mountedAt(zqpod({"library", "ZQSC3YMV"})), "/media/zq/TWIN");

    // A name two devices share is not enough.
    const Outcome shared = zqpod({"library", "Anna's iPod"});
    EXPECT_EQ(shared.status, 1);
    EXPECT_NE(shared.err.find("2 connected devices are called 'Anna's iPod'; name one by its serial number or mount path:\n"
                              "  Anna's iPod  (serial ZQSA1YMV)  at /media/zq/ANNA\n"
                              "  Anna's iPod  (serial ZQSC3YMV)  at /media/zq/TWIN\n"),
              std::string::npos)
        << shared.err;
    const Outcome nobody = zqpod({"copy", "Nobody", music});
    EXPECT_EQ(nobody.status, 1);
    EXPECT_NE(nobody.err.find("No connected device has the serial number or name 'Nobody'. Connected now:\n"), std::string::npos)
        << nobody.err;
}

} // namespace
} // namespace zq
