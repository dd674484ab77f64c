#include "ZQCore/files/VolumeFiles.h"

#include "ZQCore/foundation/File.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <vector>

namespace zq {

namespace fs = std::filesystem;

namespace {

/// `path` relative to `root`, as written (its ".." kept for the kernel to judge); no value when
/// it does not lie below `root` by its text.
bool relativeBelow(const std::string& root, const std::string& path, fs::path& relative)
{
    const fs::path base = fs::path(root).lexically_normal(), target = fs::path(path).lexically_normal();
    if (base.empty() || target.empty())
        return false;
    relative = target.lexically_relative(base);
    if (relative.empty() || relative.is_absolute())
        return false;
    if (relative == ".")
        return true;
    return *relative.begin() != "..";
}

/// Closes a descriptor when the scope ends.
struct Descriptor {
    int fd;
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

/// The walk for kernels without openat2: each folder opened below the last one with O_NOFOLLOW,
/// so no symbolic link is followed at all.
int openComponentwise(int rootFd, const fs::path& relative, int flags)
{
    std::vector<std::string> parts;
    for (const auto& part : relative)
        if (part != "." && !part.empty())
            parts.push_back(part.string());
    if (parts.empty())
        return ::openat(rootFd, ".", flags | O_CLOEXEC);
    int at = rootFd;
    Descriptor current{-1};
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
        if (parts[i] == "..") {
            errno = EXDEV;
            return -1;
        }
        const int next = ::openat(at, parts[i].c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0)
            return -1;
        if (current.fd >= 0)
            ::close(current.fd);
        current.fd = next;
        at = next;
    }
    if (parts.back() == "..") {
        errno = EXDEV;
        return -1;
    }
    return ::openat(at, parts.back().c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
}

} // namespace

int openInsideFolder(const std::string& root, const std::string& path, int flags)
{
    fs::path relative;
    if (!relativeBelow(root, path, relative)) {
        errno = EXDEV;
        return -1;
    }
    // Never waits on the open: a device's "file" may be a FIFO or a device node, which every
    // reader then refuses as no regular file. (Reads of regular files ignore the flag.)
    if ((flags & O_PATH) == 0)
        flags |= O_NONBLOCK;
    Descriptor rootFd{::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    if (rootFd.fd < 0)
        return -1;
    // The relative path as written (lexically_relative has already taken out what "." and ".."
    // cancel); the kernel refuses anything of it that leaves the root, an absolute link included.
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    const int fd = static_cast<int>(::syscall(SYS_openat2, rootFd.fd, relative.c_str(), &how, sizeof how));
    if (fd >= 0 || (errno != ENOSYS && errno != EPERM))
        return fd;
    // No openat2 here (an old kernel, or a sandbox that filters the call).
    return openComponentwise(rootFd.fd, relative, flags);
}

int VolumeFiles::openFile(const std::string& path, int flags) const
{
    if (root_.empty())
        return ::open(path.c_str(), flags | ((flags & O_PATH) ? 0 : O_NONBLOCK) | O_CLOEXEC);
    return openInsideFolder(root_, path, flags);
}

bool VolumeFiles::refusesPath(const std::string& path) const
{
    if (root_.empty())
        return false;
    const int fd = openFile(path, O_PATH);
    const int error = errno;
    if (fd >= 0)
        ::close(fd);
    return fd < 0 && error == EXDEV;
}

std::optional<Data> VolumeFiles::contentsOfFile(const std::string& path) const
{
    return Data::contentsOfDescriptor(openFile(path, O_RDONLY));
}

std::optional<Data> VolumeFiles::chunkOfFile(const std::string& path, Range range) const
{
    auto file = File::adopt(openFile(path, O_RDONLY));
    if (!file)
        return std::nullopt;
    return file->readRange(range.location, range.length);
}

std::optional<std::uint64_t> VolumeFiles::sizeOfFile(const std::string& path) const
{
    const int fd = openFile(path, O_PATH);
    if (fd < 0)
        return std::nullopt;
    struct stat info {};
    const bool regular = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    ::close(fd);
    if (!regular)
        return std::nullopt;
    return static_cast<std::uint64_t>(info.st_size);
}

bool VolumeFiles::fileExists(const std::string& path) const
{
    // Whether something is there, as a file manager answers it (a dangling link is not); what
    // is there is read only through openFile, which refuses what leads out of the volume.
    return zq::fileExists(path);
}

std::optional<std::string> VolumeFiles::localPath(const std::string& path) const
{
    // SQLite opens the files by their paths: each is checked first to be a file of the device,
    // not a link out of it.
    if (!zq::fileExists(path) || refusesPath(path))
        return std::nullopt;
    return path;
}

FileCopyResult VolumeFiles::copyFile(const std::string& path, int destination, const FileCopyProgress& progress) const
{
    const int source = openFile(path, O_RDONLY);
    if (source < 0)
        return {.error = errno};
    struct stat info {};
    const int statResult = ::fstat(source, &info);
    if (statResult != 0 || !S_ISREG(info.st_mode)) {
        const int error = statResult != 0 ? errno : S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
        ::close(source);
        return {.error = error};
    }
    // The whole file is read front to back once: tell the kernel, so it reads ahead further.
    ::posix_fadvise(source, 0, 0, POSIX_FADV_SEQUENTIAL);
    FileCopyResult result = copyFileContents(source, destination, progress);
    ::close(source);
    return result;
}

bool VolumeFiles::hasGone() const
{
    struct stat info {};
    return ::stat(root_.c_str(), &info) != 0;
}

Value::Dictionary VolumeFiles::fileSystemInfo() const
{
    // The free size comes first; a figure that cannot be read ends the list, so a volume whose
    // free size is unknown reports nothing at all.
    Value::Dictionary info;
    struct statvfs volume {};
    if (::statvfs(root_.c_str(), &volume) != 0)
        return info;
    info["FSFreeBytes"] = static_cast<std::int64_t>(static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize);
    info["FSTotalBytes"] = static_cast<std::int64_t>(static_cast<std::uint64_t>(volume.f_blocks) * volume.f_frsize);
    return info;
}

} // namespace zq
