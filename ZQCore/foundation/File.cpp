#include "ZQCore/foundation/File.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace zq {

bool fileExists(const std::string& path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

std::optional<File> File::openForReading(const std::string& path)
{
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    return File(fd);
}

std::optional<File> File::adopt(int fd)
{
    if (fd < 0)
        return std::nullopt;
    return File(fd);
}

File& File::operator=(File&& other) noexcept
{
    if (this != &other) {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

File::~File()
{
    if (fd_ >= 0)
        ::close(fd_);
}

std::optional<Data> File::readRange(std::uint64_t offset, std::uint32_t length) const
{
    struct stat info {};
    if (::fstat(fd_, &info) != 0)
        return std::nullopt;
    const std::uint64_t size = static_cast<std::uint64_t>(info.st_size);
    const std::uint64_t available = size > offset ? size - offset : 0;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(std::min<std::uint64_t>(length, available)));
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        ssize_t got = ::pread(fd_, bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(offset + filled));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    bytes.resize(filled);
    return Data(std::move(bytes));
}

namespace {

// Pieces big enough that the kernel streams at full speed, small enough that a progress bar
// moves and a stop request is heard within a fraction of a second.
constexpr std::size_t kCopyPiece = 8u << 20;

enum class CopyMethod { Range, SendFile, Buffer };

bool methodUnavailable(int error)
{
    // copy_file_range refuses file-system pairs it cannot serve (EXDEV across file-system
    // types, EINVAL or EOPNOTSUPP for special files), sendfile a source without page cache.
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EBADF;
}

} // namespace

FileCopyResult copyFileContents(int source, int destination, const FileCopyProgress& progress)
{
    FileCopyResult result;
    CopyMethod method = CopyMethod::Range;
    std::vector<std::uint8_t> buffer;
    for (;;) {
        ssize_t moved = 0;
        if (method == CopyMethod::Range)
            moved = ::copy_file_range(source, nullptr, destination, nullptr, kCopyPiece, 0);
        else if (method == CopyMethod::SendFile)
            moved = ::sendfile(destination, source, nullptr, kCopyPiece);
        else {
            if (buffer.empty())
                buffer.resize(1u << 20);
            moved = ::read(source, buffer.data(), buffer.size());
            if (moved > 0) {
                if (const int error = writeAll(destination, buffer.data(), static_cast<std::size_t>(moved))) {
                    result.error = error;
                    result.destinationFailed = true;
                    return result;
                }
            }
        }
        if (moved < 0) {
            const int error = errno;
            if (error == EINTR)
                continue;
            // A method may only be given up before it has moved anything: after that the
            // offsets are its own and a failure is a real one.
            if (result.bytesCopied == 0 && method != CopyMethod::Buffer && methodUnavailable(error)) {
                method = method == CopyMethod::Range ? CopyMethod::SendFile : CopyMethod::Buffer;
                continue;
            }
            result.error = error;
            result.destinationFailed = isDestinationError(error);
            return result;
        }
        if (moved == 0) {
            result.completed = true;
            return result;
        }
        result.bytesCopied += static_cast<std::uint64_t>(moved);
        if (progress && !progress(result.bytesCopied))
            return result;
    }
}

bool isDestinationError(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG || error == EROFS;
}

int writeAll(int destination, const std::uint8_t* bytes, std::size_t length)
{
    std::size_t written = 0;
    while (written < length) {
        const ssize_t put = ::write(destination, bytes + written, length - written);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return put < 0 ? errno : EIO;
        written += static_cast<std::size_t>(put);
    }
    return 0;
}

} // namespace zq
