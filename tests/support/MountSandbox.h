#pragma once

// Real mounts for tests, without touching the machine's own mount table.
//
// ZQ_MAKE_SANDBOX re-runs the current test in a child under `unshare --mount --pid`: mounts made
// there are private and go with the child, helper daemons (fusefat) die with it, and its verdict
// (passed, failed with its output, skipped with its reason) becomes the test's. Inside, tmpfs
// lies over /media and over a scratch folder; device images are FAT file systems (mkfs.vfat)
// on self-clearing loop devices, mounted by the kernel's vfat driver or else by fusefat.

#include "tests/support/SampleDevice.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

extern char** environ;

namespace zq::test {

inline constexpr const char* kMountSandboxVariable = "ZQ_TEST_IN_MOUNT_SANDBOX";

inline bool insideMountSandbox()
{
    const char* value = std::getenv(kMountSandboxVariable);
    return value && std::strcmp(value, "1") == 0;
}

/// A device volume named `name` (its master playlist) with one track ("Song of NAME") and a
/// SysInfo giving `serial`.
inline VolumeSpec deviceVolume(const std::string& name, const std::string& serial)
{
    VolumeSpec setup;
    setup.database = DatabaseSpec{.tracks = {{.trackID = 7, .title = "Song of " + name, .location = ":iPod_Control:Music:F01:S.mp3",
                                             .album = "Album", .artist = "Artist"}},
                                 .playlists = {{.name = name, .master = 1, .items = {7}}}};
    setup.sysInfo = sysInfoText(serial);
    setup.files["iPod_Control/Music/F01/S.mp3"] = Data(std::string_view("audio"));
    return setup;
}

/// The full path of a program found in PATH or the system folders (mkfs.vfat lives in sbin).
inline std::optional<std::string> findProgram(const std::string& name)
{
    std::string folders = std::getenv("PATH") ? std::getenv("PATH") : "";
    folders += ":/usr/local/sbin:/usr/sbin:/sbin:/usr/bin:/bin";
    std::stringstream list(folders);
    std::string folder;
    while (std::getline(list, folder, ':'))
        if (!folder.empty() && ::access((folder + "/" + name).c_str(), X_OK) == 0)
            return folder + "/" + name;
    return std::nullopt;
}

struct ProcessOutcome {
    int status = -1;     ///< as waitpid gives it
    std::string output;  ///< standard output and standard error together
    bool exitedWith(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

/// Runs a program (no shell) with extra environment entries (nullopt removes one) and waits.
/// Output goes to a memory file, not a pipe, so a daemon keeping the descriptor cannot hold us.
inline ProcessOutcome runProcess(const std::vector<std::string>& argv,
                                 const std::vector<std::pair<std::string, std::optional<std::string>>>& environment = {})
{
    ProcessOutcome outcome;
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        bool replaced = false;
        for (const auto& change : environment)
            replaced = replaced || change.first == name;
        if (!replaced)
            entries.push_back(text);
    }
    for (const auto& [name, value] : environment)
        if (value)
            entries.push_back(name + "=" + *value);
    // Everything the child needs is prepared before fork: the caller may have threads.
    std::vector<char*> args, envp;
    for (const auto& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    for (const auto& entry : entries)
        envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);

    const int output = ::memfd_create("zq-test-output", MFD_CLOEXEC);
    if (output < 0)
        return outcome;
    const pid_t child = ::fork();
    if (child == 0) {
        const int input = ::open("/dev/null", O_RDONLY);
        ::dup2(input, 0);
        ::dup2(output, 1);
        ::dup2(output, 2);
        ::execve(args[0], args.data(), envp.data());
        ::_exit(127);
    }
    if (child > 0)
        while (::waitpid(child, &outcome.status, 0) < 0 && errno == EINTR) {
        }
    ::lseek(output, 0, SEEK_SET);
    char buffer[4096];
    ssize_t count;
    while ((count = ::read(output, buffer, sizeof buffer)) > 0)
        outcome.output.append(buffer, static_cast<std::size_t>(count));
    ::close(output);
    return outcome;
}

/// Re-runs the current test inside the sandbox and takes over its verdict (see above).
inline void rerunInMountSandbox()
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "real mounts need root (mount(2) and loop devices); run the suite as root to include them";
    const auto unshare = findProgram("unshare");
    if (!unshare)
        GTEST_SKIP() << "unshare (util-linux) is not installed, so no private mount namespace can be made";
    char self[4096] = {};
    if (::readlink("/proc/self/exe", self, sizeof self - 1) <= 0)
        GTEST_SKIP() << "cannot find the test program itself (/proc/self/exe)";

    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string(test->test_suite_name()) + "." + test->name();
    // A shell is the namespace's first process, so that the test is an ordinary one and all it
    // left running ends with the shell; its own /proc gives the leak checker its own thread ids.
    const ProcessOutcome outcome = runProcess(
        {*unshare, "--mount", "--propagation", "private", "--pid", "--fork", "--kill-child", "--mount-proc", "/bin/sh", "-c",
         "\"$0\" \"$@\"; exit $?", self, "--gtest_filter=" + filter, "--gtest_color=no"},
        {{kMountSandboxVariable, "1"}, {"GTEST_OUTPUT", std::nullopt}, {"GTEST_FILTER", std::nullopt},
         {"GTEST_TOTAL_SHARDS", std::nullopt}, {"GTEST_SHARD_INDEX", std::nullopt}});

    const std::string& text = outcome.output;
    if (text.find("[==========] Running") == std::string::npos && text.rfind("unshare:", 0) == 0)
        GTEST_SKIP() << "no private namespaces here: " << text;
    if (text.find("[  SKIPPED ] 1 test") != std::string::npos) {
        std::string reason = text;
        if (auto at = text.find("Skipped\n"); at != std::string::npos)
            reason = text.substr(at + 8, text.find("\n[  SKIPPED ]", at) - at - 8);
        GTEST_SKIP() << reason;
    }
    if (outcome.exitedWith(0) && text.find("[  PASSED  ] 1 test.") != std::string::npos)
        return;
    ADD_FAILURE() << "the test failed in its mount sandbox (wait status " << outcome.status << "):\n" << text;
}


/// The mounts of one sandboxed test; made by ZQ_MAKE_SANDBOX, which skips when they cannot be.
class MountSandbox {
public:
    MountSandbox()
    {
        if (!insideMountSandbox()) {
            reason_ = "MountSandbox is made outside the sandbox";
            return;
        }
        mkfs_ = findProgram("mkfs.vfat");
        if (!mkfs_) {
            reason_ = "mkfs.vfat (dosfstools) is not installed";
            return;
        }
        kernelFAT_ = kernelHasFileSystem("vfat");
        if (!kernelFAT_) {
            fusefat_ = findProgram("fusefat");
            if (!fusefat_ || !kernelHasFileSystem("fuseblk")) {
                reason_ = "the kernel has no vfat driver, and fusefat or the kernel's FUSE block-device support is missing";
                return;
            }
        }
        if (::access("/dev/loop-control", R_OK | W_OK) != 0) {
            reason_ = "no loop devices (/dev/loop-control)";
            return;
        }
        if (::mount("zq-media", "/media", "tmpfs", 0, "mode=0755") != 0) {
            reason_ = std::string("cannot mount a tmpfs over /media: ") + std::strerror(errno);
            return;
        }
        if (::mount("zq-scratch", scratch_.path().c_str(), "tmpfs", 0, "mode=0755") != 0) {
            reason_ = std::string("cannot mount a tmpfs for image files: ") + std::strerror(errno);
            return;
        }
        scratchMounted_ = true;
    }

    ~MountSandbox()
    {
        // The namespace takes every mount with it; only the scratch folder (in the machine's
        // /tmp) must be free again for TempDir to remove it.
        if (scratchMounted_)
            ::umount2(scratch_.path().c_str(), MNT_DETACH);
    }

    MountSandbox(const MountSandbox&) = delete;
    MountSandbox& operator=(const MountSandbox&) = delete;

    /// Why real mounts cannot be made here; no value when they can.
    const std::optional<std::string>& unavailable() const { return reason_; }

    /// A scratch path (not below /media, so never removable media).
    std::string scratch(const std::string& relative) const { return scratch_.file(relative); }

    /// A 4 MiB FAT image named `name` in the scratch folder; with `volume`, laid out by the
    /// image builder (iPod_Control and all), otherwise empty.
    std::string makeImage(const std::string& name, const std::optional<VolumeSpec>& volume)
    {
        const std::string image = scratch(name + ".img");
        {
            std::ofstream file(image, std::ios::binary | std::ios::trunc);
        }
        std::filesystem::resize_file(image, 4 << 20);
        const ProcessOutcome made = runProcess({*mkfs_, "-n", "ZQTEST", image});
        if (!made.exitedWith(0)) {
            ADD_FAILURE() << "mkfs.vfat failed: " << made.output;
            return image;
        }
        if (volume) {
            const std::string stage = scratch("stage-" + name);
            if (mount(image, stage)) {
                writeVolume(stage, *volume);
                unmount(stage);
            }
        }
        return image;
    }

    /// Mounts `image` at `mountPoint` (made when missing). `options` are the kernel vfat
    /// driver's ("utf8", as desktops mount media); fusefat takes none.
    bool mount(const std::string& image, const std::string& mountPoint, const char* options = nullptr)
    {
        std::filesystem::create_directories(mountPoint);
        const auto loop = attachLoopDevice(image);
        if (!loop)
            return false;
        bool mounted = false;
        if (kernelFAT_) {
            mounted = ::mount(loop->first.c_str(), mountPoint.c_str(), "vfat", 0, options) == 0;
            if (!mounted)
                ADD_FAILURE() << "mount " << image << " on " << mountPoint << ": " << std::strerror(errno);
        } else {
            // fusefat returns once the file system is mounted and serves it from a daemon.
            const ProcessOutcome served =
                runProcess({*fusefat_, "-o", "rw+,blkdev,fsname=" + loop->first, loop->first, mountPoint});
            mounted = served.exitedWith(0);
            if (!mounted)
                ADD_FAILURE() << "fusefat " << image << " on " << mountPoint << ": " << served.output;
        }
        // The mount holds the loop device now; it clears itself when the mount goes.
        ::close(loop->second);
        return mounted;
    }

    /// Unmounts `mountPoint`; the folder stays unless `removeFolder` (as udisks removes its own).
    void unmount(const std::string& mountPoint, bool removeFolder = false)
    {
        if (::umount2(mountPoint.c_str(), 0) != 0)
            ADD_FAILURE() << "umount " << mountPoint << ": " << std::strerror(errno);
        if (removeFolder) {
            std::error_code ignored;
            std::filesystem::remove(mountPoint, ignored);
        }
    }

private:
    static bool kernelHasFileSystem(const std::string& type)
    {
        std::ifstream list("/proc/filesystems");
        std::string line;
        while (std::getline(list, line))
            if (line.size() > type.size() && line.compare(line.size() - type.size(), type.size(), type) == 0 &&
                (line[line.size() - type.size() - 1] == '\t' || line[line.size() - type.size() - 1] == ' '))
                return true;
        return false;
    }

    /// A free loop device over `image` that clears itself on its last close: its node and a
    /// descriptor keeping it until the mount holds it.
    std::optional<std::pair<std::string, int>> attachLoopDevice(const std::string& image)
    {
        const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        const int backing = ::open(image.c_str(), O_RDWR | O_CLOEXEC);
        std::optional<std::pair<std::string, int>> result;
        // Another process may take the free device first; then ask again.
        for (int attempt = 0; attempt < 16 && control >= 0 && backing >= 0 && !result; ++attempt) {
            const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
            if (number < 0)
                break;
            const std::string node = "/dev/loop" + std::to_string(number);
            const int loop = ::open(node.c_str(), O_RDWR | O_CLOEXEC);
            if (loop < 0)
                continue;
            loop_config config {};
            config.fd = static_cast<__u32>(backing);
            config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
            std::strncpy(reinterpret_cast<char*>(config.info.lo_file_name), image.c_str(), LO_NAME_SIZE - 1);
            if (::ioctl(loop, LOOP_CONFIGURE, &config) == 0)
                result = std::make_pair(node, loop);
            else
                ::close(loop);
        }
        if (!result)
            ADD_FAILURE() << "no loop device for " << image << ": " << std::strerror(errno);
        if (backing >= 0)
            ::close(backing);
        if (control >= 0)
            ::close(control);
        return result;
    }

    TempDir scratch_;
    std::optional<std::string> reason_;
    std::optional<std::string> mkfs_;
    std::optional<std::string> fusefat_;
    bool kernelFAT_ = false;
    bool scratchMounted_ = false;
};

/// Runs the rest of the test in a sandbox named `sandbox`: the body runs only in the child.
#define ZQ_MAKE_SANDBOX(sandbox)                  \
    if (!::zq::test::insideMountSandbox()) {      \
        ::zq::test::rerunInMountSandbox();        \
        return;                                   \
    }                                             \
    ::zq::test::MountSandbox sandbox;             \
    if (auto why = sandbox.unavailable())         \
    GTEST_SKIP() << *why

} // namespace zq::test
