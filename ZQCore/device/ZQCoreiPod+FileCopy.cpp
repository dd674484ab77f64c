// Whole-file access for copying music off a device: the size the device reports, and a copy
// that streams into a descriptor instead of building the file in memory.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zq {

namespace {

// The piece a device session is asked for at a time when its files are reached through it.
constexpr std::uint32_t kSessionPiece = 1u << 20;

} // namespace

std::optional<std::uint64_t> ZQCoreiPod::sizeOfFileAtPath(const std::string& path) const
{
    if (readsFilesThroughDevice())
        return std::nullopt;
    const int fd = openFileAtPath(path, O_PATH);
    if (fd < 0)
        return std::nullopt;
    struct stat info {};
    const bool regular = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    ::close(fd);
    if (!regular)
        return std::nullopt;
    return static_cast<std::uint64_t>(info.st_size);
}

FileCopyResult ZQCoreiPod::copyFileAtPath(const std::string& path, int destination, const FileCopyProgress& progress) const
{
    if (readsFilesThroughDevice()) {
        // A device reached through a session has no descriptor to hand the kernel: the file
        // comes in pieces through chunkOfFileAtPath, which each subclass serves its own way.
        FileCopyResult result;
        for (;;) {
            if (result.bytesCopied > UINT32_MAX - kSessionPiece) {
                result.error = EFBIG;  // ranges are 32-bit
                return result;
            }
            auto piece = chunkOfFileAtPath(path, {static_cast<std::uint32_t>(result.bytesCopied), kSessionPiece});
            if (!piece) {
                result.error = result.bytesCopied ? EIO : ENOENT;
                return result;
            }
            if (const int error = writeAll(destination, piece->bytes(), piece->size())) {
                result.error = error;
                result.destinationFailed = true;
                return result;
            }
            result.bytesCopied += piece->size();
            if (piece->size() < kSessionPiece) {
                result.completed = true;
                return result;
            }
            if (progress && !progress(result.bytesCopied))
                return result;
        }
    }

    const int source = openFileAtPath(path, O_RDONLY);
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

} // namespace zq
