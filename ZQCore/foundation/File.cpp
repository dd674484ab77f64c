#include "ZQCore/foundation/File.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
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

} // namespace zq
