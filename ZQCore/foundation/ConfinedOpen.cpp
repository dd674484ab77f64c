#include "ZQCore/foundation/ConfinedOpen.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
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

} // namespace zq
