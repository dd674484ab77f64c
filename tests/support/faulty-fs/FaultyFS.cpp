// zq-faulty-fs: a read-only FUSE mirror of a folder in which one file fails part-way, for the
// tests of copies off a disk-mode volume that goes bad.
//
//   zq-faulty-fs SOURCE MOUNTPOINT FILE OFFSET eio|vanish
//
// FILE (relative to SOURCE) reads normally up to byte OFFSET; a read reaching it fails with EIO
// ("eio"), or the file system ends there, as a volume that is pulled out ("vanish": every later
// access fails with ENOTCONN). Runs in the foreground until unmounted.

#define FUSE_USE_VERSION 31
#include <fuse3/fuse.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string source, faultyPath;
off_t faultOffset = 0;
bool vanish = false;

std::string real(const char* path) { return source + path; }

int getattr(const char* path, struct stat* info, fuse_file_info*)
{
    return ::lstat(real(path).c_str(), info) == 0 ? 0 : -errno;
}

int readdir(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags)
{
    DIR* folder = ::opendir(real(path).c_str());
    if (!folder)
        return -errno;
    while (dirent* entry = ::readdir(folder))
        fill(buffer, entry->d_name, nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    ::closedir(folder);
    return 0;
}

int open(const char* path, fuse_file_info* file)
{
    if ((file->flags & O_ACCMODE) != O_RDONLY)
        return -EROFS;
    const int fd = ::open(real(path).c_str(), O_RDONLY);
    if (fd < 0)
        return -errno;
    file->fh = static_cast<std::uint64_t>(fd);
    file->direct_io = 1;  // every read comes here, none is served from the page cache
    return 0;
}

int read(const char* path, char* buffer, size_t size, off_t offset, fuse_file_info* file)
{
    // The whole request that reaches the byte fails, as a bad sector fails its block: a short
    // answer would read as the end of the file to the kernel, which takes it as the new size.
    if (path == faultyPath && offset + static_cast<off_t>(size) > faultOffset) {
        if (vanish)
            fuse_exit(fuse_get_context()->fuse);
        return -EIO;
    }
    const ssize_t got = ::pread(static_cast<int>(file->fh), buffer, size, offset);
    return got < 0 ? -errno : static_cast<int>(got);
}

int release(const char*, fuse_file_info* file)
{
    ::close(static_cast<int>(file->fh));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 6 || (std::strcmp(argv[5], "eio") != 0 && std::strcmp(argv[5], "vanish") != 0)) {
        std::fprintf(stderr, "usage: zq-faulty-fs SOURCE MOUNTPOINT FILE OFFSET eio|vanish\n");
        return 2;
    }
    source = argv[1];
    faultyPath = std::string("/") + argv[3];
    faultOffset = std::atoll(argv[4]);
    vanish = std::strcmp(argv[5], "vanish") == 0;
    fuse_operations operations{};
    operations.getattr = getattr;
    operations.readdir = readdir;
    operations.open = open;
    operations.read = read;
    operations.release = release;
    char* fuseArgs[] = {argv[0], argv[2], const_cast<char*>("-f"), const_cast<char*>("-s"),
                        const_cast<char*>("-oro,default_permissions")};
    return fuse_main(5, fuseArgs, &operations, nullptr);
}
