#include "ZQCore/foundation/Data.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zq {

namespace {

std::shared_ptr<std::uint8_t[]> allocate(std::size_t length)
{
    // Uninitialised on purpose: every byte is overwritten at once, and zero-filling a
    // library database of a few hundred megabytes would cost as much as reading it.
    return std::shared_ptr<std::uint8_t[]>(new std::uint8_t[length ? length : 1]);
}

struct FileDescriptor {
    int fd;
    ~FileDescriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

} // namespace

Data::Data(std::vector<std::uint8_t> bytes) : Data(bytes.data(), bytes.size()) {}

Data::Data(const void* bytes, std::size_t length) : bytes_(allocate(length)), length_(length)
{
    if (length)
        std::memcpy(bytes_.get(), bytes, length);
}

Data::Data(std::string_view bytes) : Data(bytes.data(), bytes.size()) {}

std::optional<Data> Data::contentsOfFile(const std::string& path)
{
    return contentsOfDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

std::optional<Data> Data::contentsOfDescriptor(int fd)
{
    FileDescriptor file{fd};
    if (file.fd < 0)
        return std::nullopt;
    struct stat info {};
    if (::fstat(file.fd, &info) != 0 || !S_ISREG(info.st_mode))
        return std::nullopt;

    std::size_t capacity = static_cast<std::size_t>(info.st_size);
    auto buffer = allocate(capacity);
    std::size_t filled = 0;
    for (;;) {
        if (filled == capacity) {
            // The file may have grown since fstat; look for more before settling.
            std::uint8_t probe;
            ssize_t extra = ::read(file.fd, &probe, 1);
            if (extra == 0)
                break;
            if (extra < 0) {
                if (errno == EINTR)
                    continue;
                return std::nullopt;
            }
            std::size_t grown = capacity ? capacity * 2 : 4096;
            auto bigger = allocate(grown);
            if (filled)
                std::memcpy(bigger.get(), buffer.get(), filled);
            bigger[filled++] = probe;
            buffer = std::move(bigger);
            capacity = grown;
            continue;
        }
        ssize_t got = ::read(file.fd, buffer.get() + filled, capacity - filled);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return std::nullopt;
        }
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    return Data(std::move(buffer), filled);
}

Data Data::subdata(std::size_t offset, std::size_t length) const
{
    if (offset >= length_)
        return Data();
    std::size_t available = length_ - offset;
    return Data(bytes() + offset, length < available ? length : available);
}

bool operator==(const Data& a, const Data& b) noexcept
{
    return a.length_ == b.length_ && (a.length_ == 0 || std::memcmp(a.bytes(), b.bytes(), a.length_) == 0);
}

} // namespace zq
