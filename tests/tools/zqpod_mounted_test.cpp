// zqpod on real FAT volumes mounted as removable media in a private mount namespace (see
// MountSandbox; needs root, else skipped): which device a command works on, and copying from a
// device volume onto a memory stick (no unnamed files, no hard links, names that ignore case).

#include "tests/discovery/MountSandbox.h"
#include "tests/support/SampleDevice.h"
#include "tests/tools/ToolProcess.h"

#include <gtest/gtest.h>

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

TEST(CopyOntoFAT, FromADeviceVolumeToAStick)
{
    ZQ_MAKE_SANDBOX(sandbox);
    const std::string device = sandbox.scratch("ipod"), stick = sandbox.scratch("stick"), music = stick + "/music";
    ASSERT_TRUE(sandbox.mount(sandbox.makeImage("ipod", test::makeSampleDevice()), device, "utf8"));
    ASSERT_TRUE(sandbox.mount(sandbox.makeImage("stick", std::nullopt), stick, "utf8"));
    fs::create_directories(device + "/iPod_Control/Device");
    std::map<std::string, std::string> before;
    for (const auto& file : filesBelow(device))
        before[file] = test::contentsOf(device + "/" + file);

    // FAT drivers differ in the names they take: the kernel's, mounted with utf8, takes any;
    // fusefat only ASCII. A name the file system refuses fails that track with a hint.
    const Outcome run = zqpod({"copy", device, music, "--playlists", "--art"});
    std::size_t refused = 0;
    for (const auto& line : test::lines(run.out))
        if (line.starts_with("failed") && ++refused) {
            EXPECT_NE(line.find("may not hold some characters of this name: mount it with utf8"), std::string::npos) << line;
        }
    EXPECT_LE(refused, 2u) << run.out;  // "Słońce" and "DJ Kōji" are the only names beyond ASCII
    EXPECT_EQ(run.status, refused ? 1 : 0) << run.out << run.err;
    std::size_t tracks = 0;
    for (const auto& file : filesBelow(music)) {
        EXPECT_NE(fs::path(file).filename().string().front(), '.') << "a temporary file was left: " << file;
        tracks += file.ends_with(".wav") ? 1 : 0;
    }
    EXPECT_EQ(tracks, 13u - refused);
    EXPECT_TRUE(test::contentsOf(music + "/The Hollow Pines/Northern Lights/01 Harbour Song.wav") ==
                test::contentsOf(device + "/iPod_Control/Music/F03/HBSG.wav"));

    // A file of another size under a name that differs only in case is the same file on FAT:
    // it is kept, and the copy is named beside it.
    fs::remove(music + "/The Hollow Pines/Northern Lights/02 Northern Lights.wav");
    std::ofstream(music + "/the hollow pines/northern lights/02 NORTHERN LIGHTS.wav") << "mine";
    const Outcome again = zqpod({"copy", device, music});
    EXPECT_EQ(again.status, refused ? 1 : 0) << again.out;
    EXPECT_TRUE(again.out.ends_with("Copied 1 file (28 KB) to " + music + ", skipped " + std::to_string(12 - refused) +
                                    ", failed " + std::to_string(refused) + ".\n"))
        << again.out;
    EXPECT_EQ(test::contentsOf(music + "/The Hollow Pines/Northern Lights/02 Northern Lights.wav"), "mine");
    EXPECT_TRUE(test::contentsOf(music + "/The Hollow Pines/Northern Lights/02 Northern Lights (2).wav") ==
                test::contentsOf(device + "/iPod_Control/Music/F17/NRTL.wav"));
    for (const auto& [file, bytes] : before)
        EXPECT_TRUE(test::contentsOf(device + "/" + file) == bytes) << "the device was changed: " << file;
    EXPECT_EQ(filesBelow(device).size(), before.size());
}

} // namespace
} // namespace zq
