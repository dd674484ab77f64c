// Which device a zqpod command works on, with real device volumes mounted as removable media
// (inside a private mount namespace; see MountSandbox): by mount path, serial number or name,
// or the one connected; and a message listing the candidates when that is not enough.

#include "tests/discovery/MountSandbox.h"
#include "tests/support/DeviceImage.h"
#include "tests/tools/ToolProcess.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace zq {
namespace {

using test::MountSandbox;
using test::Outcome;
using test::zqpod;

test::VolumeSpec deviceVolume(const std::string& name, const std::string& serial)
{
    test::VolumeSpec spec;
    spec.database = test::DatabaseSpec{.tracks = {{.trackID = 7, .title = "Song of " + name, .location = ":iPod_Control:Music:F01:S.mp3",
                                                   .album = "Album", .artist = "Artist"}},
                                       .playlists = {{.name = name, .master = 1, .items = {7}}}};
    spec.sysInfo = test::sysInfoText(serial);
    spec.files["iPod_Control/Music/F01/S.mp3"] = Data(std::string_view("audio"));
    return spec;
}

/// The mount path `zqpod library` reports for the device it opened.
std::string mountedAt(const Outcome& run)
{
    for (const auto& line : test::lines(run.out))
        if (line.starts_with("  Mounted at:"))
            return line.substr(line.find('/'));
    return "";
}

TEST(DeviceSelection, ByPathSerialOrNameOrTheOneConnected)
{
    ZQ_RUN_IN_MOUNT_SANDBOX();
    MountSandbox sandbox;
    if (auto why = sandbox.unavailable())
        GTEST_SKIP() << *why;
    const auto anna = sandbox.makeImage("anna", deviceVolume("Anna's iPod", "ZQSA1YMV"));
    const auto ben = sandbox.makeImage("ben", deviceVolume("Ben's iPod", "ZQSB2YMV"));
    const auto twin = sandbox.makeImage("twin", deviceVolume("Anna's iPod", "ZQSC3YMV"));

    const Outcome none = zqpod({"library"});
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.err.find("No device is connected."), std::string::npos) << none.err;

    // One device: commands need not name it.
    ASSERT_TRUE(sandbox.mount(anna, "/media/zq/ANNA"));
    EXPECT_EQ(mountedAt(zqpod({"library"})), "/media/zq/ANNA");
    const std::string music = sandbox.scratch("music");
    const Outcome copied = zqpod({"copy", music});
    EXPECT_EQ(copied.status, 0) << copied.out << copied.err;
    EXPECT_TRUE(std::filesystem::exists(music + "/Artist/Album/Song of Anna's iPod.mp3")) << copied.out;

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

    EXPECT_EQ(mountedAt(zqpod({"library", "/media/zq/BEN"})), "/media/zq/BEN");
    EXPECT_EQ(mountedAt(zqpod({"library", "zqsb2ymv"})), "/media/zq/BEN");  // serials ignore case
    EXPECT_EQ(mountedAt(zqpod({"library", "Ben's iPod"})), "/media/zq/BEN");
    EXPECT_EQ(mountedAt(zqpod({"library", "ben's ipod"})), "/media/zq/BEN");
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
    EXPECT_NE(nobody.err.find("No connected device has the serial number or name 'Nobody'. Connected now:\n"),
              std::string::npos)
        << nobody.err;
}

} // namespace
} // namespace zq
