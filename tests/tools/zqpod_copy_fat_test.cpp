// zqpod copy between real FAT file systems, as from an iPod's own volume to a memory stick:
// no unnamed temporary files, no hard links, names that ignore case, and the same results.
// Runs in a private mount namespace (see MountSandbox), so it needs root; otherwise skipped.

#include "tests/discovery/MountSandbox.h"
#include "tests/support/DeviceImage.h"
#include "tests/tools/ToolProcess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::MountSandbox;
using test::Outcome;
using test::zqpod;

std::set<std::string> filesBelow(const std::string& root)
{
    std::set<std::string> files;
    for (const auto& item : fs::recursive_directory_iterator(root))
        if (item.is_regular_file())
            files.insert(fs::relative(item.path(), root).string());
    return files;
}

std::map<std::string, std::string> contentsBelow(const std::string& root)
{
    std::map<std::string, std::string> contents;
    for (const auto& file : filesBelow(root))
        contents[file] = test::contentsOf(root + "/" + file);
    return contents;
}

TEST(CopyOntoFAT, FromADeviceVolumeToAStick)
{
    ZQ_RUN_IN_MOUNT_SANDBOX();
    MountSandbox sandbox;
    if (auto why = sandbox.unavailable())
        GTEST_SKIP() << *why;
    const std::string device = sandbox.scratch("ipod");
    const std::string stick = sandbox.scratch("stick");
    ASSERT_TRUE(sandbox.mount(sandbox.makeImage("ipod", test::makeSampleDevice()), device, "utf8"));
    ASSERT_TRUE(sandbox.mount(sandbox.makeImage("stick", std::nullopt), stick, "utf8"));
    fs::create_directories(device + "/iPod_Control/Device");
    const auto before = contentsBelow(device);

    // FAT drivers differ in the names they take: the kernel's, mounted with utf8, takes any;
    // fusefat only ASCII. A name the file system refuses fails that track with a hint.
    const std::string music = stick + "/music";
    const Outcome run = zqpod({"copy", device, music, "--playlists", "--art"});
    std::size_t refused = 0;
    for (const auto& line : test::lines(run.out)) {
        if (!line.starts_with("failed"))
            continue;
        ++refused;
        EXPECT_NE(line.find("may not hold some characters of this name: mount it with utf8"), std::string::npos) << line;
    }
    EXPECT_LE(refused, 2u) << run.out;  // "Słońce" and "DJ Kōji" are the only names beyond ASCII
    EXPECT_EQ(run.status, refused ? 1 : 0) << run.out << run.err;
    const auto copied = filesBelow(music);
    std::size_t tracks = 0;
    for (const auto& file : copied) {
        EXPECT_NE(fs::path(file).filename().string().front(), '.') << "a temporary file was left: " << file;
        tracks += file.ends_with(".wav") ? 1 : 0;
    }
    EXPECT_EQ(tracks, 13u - refused);
    EXPECT_TRUE(test::contentsOf(music + "/The Hollow Pines/Northern Lights/01 Harbour Song.wav") ==
                test::contentsOf(device + "/iPod_Control/Music/F03/HBSG.wav"));

    // A file of another size under a name that differs only in case is the same file on FAT:
    // it is kept, and the copy is named beside it.
    fs::remove(music + "/The Hollow Pines/Northern Lights/02 Northern Lights.wav");
    {
        std::ofstream(music + "/the hollow pines/northern lights/02 NORTHERN LIGHTS.wav") << "mine";
    }
    const Outcome again = zqpod({"copy", device, music});
    EXPECT_EQ(again.status, refused ? 1 : 0) << again.out;
    EXPECT_TRUE(again.out.ends_with("Copied 1 file (28 KB) to " + music + ", skipped " + std::to_string(12 - refused) +
                                    ", failed " + std::to_string(refused) + ".\n"))
        << again.out;
    EXPECT_EQ(test::contentsOf(music + "/The Hollow Pines/Northern Lights/02 Northern Lights.wav"), "mine");
    EXPECT_TRUE(test::contentsOf(music + "/The Hollow Pines/Northern Lights/02 Northern Lights (2).wav") ==
                test::contentsOf(device + "/iPod_Control/Music/F17/NRTL.wav"));
    EXPECT_TRUE(contentsBelow(device) == before) << "the device was changed";
}

} // namespace
} // namespace zq
