// zqpod with a simulated iPhone: the device is listed, its library printed and a track copied
// off it exactly as for a disk-mode iPod, named by serial number, UDID or name instead of a
// mount path; an untrusted device is explained.

#include "tests/afc/MobileDeviceImage.h"
#include "tests/afc/SharedSimulator.h"
#include "tests/tools/ToolProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace zq::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::string trackBytes() { return std::string(70000, 'a') + std::string(70000, 'b'); }

/// A library of one track, laid out for a disk-mode volume (`mobile` false) or a mobile device.
VolumeSpec oneTrackLibrary(bool mobile)
{
    const std::string control = mobile ? "iTunes_Control" : "iPod_Control";
    DatabaseSpec database;
    TrackSpec track;
    track.trackID = 41;
    track.title = "Copied Song";
    track.location = ":" + control + ":Music:F00:COPY.mp3";
    track.fileSize = 140000;
    database.tracks = {track};
    PlaylistSpec master;
    master.name = "Desk Phone";
    master.master = 1;
    master.items = {41};
    database.playlists = {master};
    VolumeSpec setup;
    setup.database = database;
    setup.files[control + "/Music/F00/COPY.mp3"] = Data(std::string_view(trackBytes()));
    return setup;
}

class ZqpodMobile : public ::testing::Test {
protected:
    void SetUp() override
    {
        setup.udid = "00008101-" + std::to_string(::getpid()) + "ZQPOD";
        setup.serialNumber = "ZQP" + std::to_string(::getpid());
        setup.deviceName = "Desk Phone";
        setup.root = root.path();
    }
    void TearDown() override
    {
        if (attached)
            sharedSimulator().detach(setup.udid);
    }
    void attach()
    {
        sharedSimulator().attach(setup);
        attached = true;
    }

    TempDir root;
    SimulatedDeviceSpec setup;
    bool attached = false;
};

TEST_F(ZqpodMobile, DevicesListsTheSimulatedIPhone)
{
    writeMobileDevice(root.path(), oneTrackLibrary(true));
    attach();
    const auto run = zqpod({"devices"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("Desk Phone"));
    EXPECT_THAT(run.out, HasSubstr(setup.serialNumber));
}

TEST_F(ZqpodMobile, WatchSeesThePhoneArriveAndLeave)
{
    writeMobileDevice(root.path(), oneTrackLibrary(true));
    RunningTool watch("watch");
    EXPECT_EQ(watch.nextLine(), "Watching for devices; press Ctrl-C to stop.");
    attach();
    const std::string line = " Desk Phone (serial " + setup.serialNumber + ", type 0) at /";
    EXPECT_EQ(watch.nextLine(), "arrived:" + line);
    sharedSimulator().detach(setup.udid);
    attached = false;
    EXPECT_EQ(watch.nextLine(), "departed:" + line);
    const int status = watch.interrupt();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(ZqpodMobile, LibraryReadsTheSimulatedIPhoneAsItReadsADiskModeIPod)
{
    TempDir disk;
    writeVolume(disk.path(), oneTrackLibrary(false));
    writeMobileDevice(root.path(), oneTrackLibrary(true));
    attach();

    const auto fromDisk = zqpod({"library", disk.path()});
    const auto bySerial = zqpod({"library", setup.serialNumber});
    const auto byName = zqpod({"library", "Desk Phone"});
    const auto byUDID = zqpod({"library", setup.udid});

    ASSERT_EQ(bySerial.status, 0) << bySerial.err;
    EXPECT_EQ(byName.out, bySerial.out);
    EXPECT_EQ(byUDID.out, bySerial.out);
    for (const auto* expected : {"Desk Phone", "Tracks:        1", "Master playlist name: Desk Phone"}) {
        EXPECT_THAT(fromDisk.out, HasSubstr(expected));
        EXPECT_THAT(bySerial.out, HasSubstr(expected));
    }
    EXPECT_THAT(bySerial.out, HasSubstr(setup.serialNumber));
    EXPECT_THAT(bySerial.out, HasSubstr("Model type:    16"));  // an iPhone, by the device's model attribute
}

TEST_F(ZqpodMobile, GetAndCopyTakeTracksOffTheSimulatedIPhone)
{
    writeMobileDevice(root.path(), oneTrackLibrary(true));
    attach();
    TempDir out;

    const auto run = zqpod({"get", setup.serialNumber, "41", out.file("song.mp3")});

    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("copied 140000 bytes"));
    EXPECT_TRUE(contentsOf(out.file("song.mp3")) == trackBytes());
    EXPECT_EQ(zqpod({"get", setup.serialNumber, "99", out.file("none")}).status, 1);

    // The full copy, checked against the size the device's file service reports; run again,
    // the file already there is skipped.
    const auto copy = zqpod({"copy", setup.udid, out.file("music")});
    ASSERT_EQ(copy.status, 0) << copy.err;
    const auto copied = filesBelow(out.file("music"));
    ASSERT_EQ(copied.size(), 1u);
    EXPECT_TRUE(contentsOf(out.file("music/" + *copied.begin())) == trackBytes());
    const auto again = zqpod({"copy", setup.udid, out.file("music")});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_THAT(again.out, HasSubstr("skipped 1"));
}

} // namespace
} // namespace zq::test
