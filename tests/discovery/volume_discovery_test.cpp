// Finding devices as volumes mount and unmount: which mounts count as removable media, and the
// connected-device list and its notices (through the GLib main loop) against real FAT volumes in
// a private mount namespace.

#include "ZQCore/device/VolumeMonitor.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "tests/support/MountSandbox.h"
#include "tests/support/ScriptedSCSIDevice.h"
#include "tests/support/SampleDevice.h"
#include "tests/tools/ToolProcess.h"

#include <gio/gunixmounts.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>

namespace zq {
namespace {

namespace fs = std::filesystem;
using Phase = Observable::Phase;
using test::deviceVolume;
using test::serialOf;
using test::VolumeSpec;

// ---- the rule ------------------------------------------------------------------------------------

struct RuleCase {
    const char* mountPath;
    const char* devicePath;
    const char* fsType;
    bool blockDevice;
    bool asRoot;
    bool removable;
};

void PrintTo(const RuleCase& c, std::ostream* out) { *out << c.mountPath << " (" << c.fsType << ")"; }

class DiscoveryVolumeRule : public testing::TestWithParam<RuleCase> {};

TEST_P(DiscoveryVolumeRule, DecidesLikeTheDesktop)
{
    const RuleCase& c = GetParam();
    const MountedVolume volume{c.mountPath, c.devicePath, c.fsType, c.blockDevice};
    EXPECT_EQ(VolumeMonitor::isRemovableVolume(volume, "alice", c.asRoot), c.removable);
}

INSTANTIATE_TEST_SUITE_P(
    Discovery, DiscoveryVolumeRule,
    testing::Values(
        // where desktops mount media
        RuleCase{"/media/alice/IPOD", "/dev/sdb1", "vfat", true, false, true},
        RuleCase{"/media/alice/Bob's iPod", "/dev/sdc1", "fuseblk", true, false, true},
        RuleCase{"/run/media/alice/IPOD", "/dev/sdb1", "vfat", true, false, true},
        RuleCase{"/run/media/bob/IPOD", "/dev/sdb1", "vfat", true, false, false},
        RuleCase{"/run/media/bob/IPOD", "/dev/sdb1", "vfat", true, true, true},
        // the folders themselves, and places a file manager does not list as media
        RuleCase{"/media", "tmpfs", "tmpfs", false, false, false},
        RuleCase{"/media/", "/dev/sdb1", "vfat", true, false, false},
        RuleCase{"/mnt/ipod", "/dev/sdb1", "vfat", true, false, false},
        RuleCase{"/", "/dev/vda", "ext4", true, false, false},
        RuleCase{"/mediastore/IPOD", "/dev/sdb1", "vfat", true, false, false},
        RuleCase{"/media/alice/.snapshots/IPOD", "/dev/sdb1", "vfat", true, false, false},
        // not media, though mounted there
        RuleCase{"/media/alice/scratch", "tmpfs", "tmpfs", false, false, false},
        RuleCase{"/media/alice/share", "server:/export", "nfs4", false, false, false},
        RuleCase{"/media/alice/gdrive", "rclone", "fuse.rclone", false, false, false}),
    [](const testing::TestParamInfo<RuleCase>& param) { return "case" + std::to_string(param.index); });

// ---- helpers for the sandboxed tests -------------------------------------------------------------

/// Runs the default main context until `done` holds; the time limit only ends a test whose
/// event never comes (events arrive through the context alone).
bool runMainLoopUntil(const std::function<bool()>& done)
{
    bool expired = false;
    const guint guard = g_timeout_add_seconds(
        10, [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &expired);
    while (!done() && !expired)
        g_main_context_iteration(nullptr, TRUE);
    if (!expired)
        g_source_remove(guard);
    return done();
}

/// The notices of "connectediPods", each with the list's length when it came.
struct NoticeLog {
    explicit NoticeLog(ZQCore& core) : core_(core)
    {
        token_ = core.addObserver("connectediPods", [this](const std::string&, Phase phase) {
            notices.emplace_back(phase, core_.connectediPods().size());
        });
    }
    ~NoticeLog() { core_.removeObserver(token_); }
    std::vector<std::pair<Phase, std::size_t>> take() { return std::exchange(notices, {}); }

    std::vector<std::pair<Phase, std::size_t>> notices;

private:
    ZQCore& core_;
    Observable::Token token_ = 0;
};

using Notices = std::vector<std::pair<Phase, std::size_t>>;

/// Counts the mount-table changes delivered on the default context. Made after ZQCore, its
/// handler runs after ZQCore's own, so when the count moves ZQCore has seen the change.
struct MountEvents {
    MountEvents()
    {
        monitor = g_unix_mount_monitor_get();
        handler = g_signal_connect(monitor, "mounts-changed", G_CALLBACK(+[](GUnixMountMonitor*, gpointer counter) {
                                       ++*static_cast<int*>(counter);
                                   }),
                                   &count);
    }
    ~MountEvents()
    {
        g_signal_handler_disconnect(monitor, handler);
        g_object_unref(monitor);
    }
    /// Waits for the next change after the ones seen so far.
    bool next()
    {
        const int seen = count;
        return runMainLoopUntil([&] { return count > seen; });
    }

    GUnixMountMonitor* monitor = nullptr;
    gulong handler = 0;
    int count = 0;
};


// ---- discovery on real mounts --------------------------------------------------------------------

TEST(DiscoveryMounts, DeviceArrivesDepartsAndReturnsToItsLibrary)
{
    ZQ_MAKE_SANDBOX(sandbox);
    const auto anna = sandbox.makeImage("anna", deviceVolume("Anna's iPod", "ZQMB1YMV"));
    const auto& core = ZQCore::sharedInstance();
    ASSERT_TRUE(core->connectediPods().empty());
    NoticeLog log(*core);

    ASSERT_TRUE(sandbox.mount(anna, "/media/zq/ANNA"));
    ASSERT_TRUE(runMainLoopUntil([&] { return core->connectediPods().size() == 1; }));
    // Both notices come after the change.
    EXPECT_EQ(log.take(), (Notices{{Phase::WillChange, 1}, {Phase::DidChange, 1}}));
    const auto first = core->connectediPods()[0];
    EXPECT_EQ(first->path(), "/media/zq/ANNA");

    auto library = ZQCoreiPod::initWithiPodReference(first);
    EXPECT_TRUE(library->isConnected());
    EXPECT_EQ(library->name(), "Anna's iPod");
    // A loop device has no Apple device above it: nothing is asked or written.
    EXPECT_EQ(serialOf(*library), "ZQMB1YMV");
    EXPECT_FALSE(fs::exists("/media/zq/ANNA/iPod_Control/Device/SysInfoExtended"));

    // The mount-point folder stays behind: an empty folder is no device.
    sandbox.unmount("/media/zq/ANNA");
    ASSERT_TRUE(runMainLoopUntil([&] { return core->connectediPods().empty(); }));
    EXPECT_EQ(log.take(), (Notices{{Phase::WillChange, 0}, {Phase::DidChange, 0}}));
    EXPECT_FALSE(library->isConnected());
    EXPECT_EQ(library->allTracks().size(), 1u);  // kept while the device is away

    ASSERT_TRUE(sandbox.mount(anna, "/media/zq/ANNA"));
    ASSERT_TRUE(runMainLoopUntil([&] { return core->connectediPods().size() == 1; }));
    EXPECT_EQ(log.take(), (Notices{{Phase::WillChange, 1}, {Phase::DidChange, 1}}));
    const auto second = core->connectediPods()[0];
    EXPECT_NE(second, first) << "a returning device gets a new reference";
    EXPECT_TRUE(library->isConnected());
    EXPECT_EQ(ZQCoreiPod::initWithiPodReference(second), library);
    EXPECT_EQ(core->iPodInstances().size(), 1u);
}

} // namespace
} // namespace zq
