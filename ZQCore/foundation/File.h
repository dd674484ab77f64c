#pragma once

#include "ZQCore/foundation/Data.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zq {

/// Whether anything (file, folder, device node) exists at the path, as a file manager's
/// existence test answers it: a dangling symbolic link does not exist.
bool fileExists(const std::string& path);

/// A file opened for reading; closed when the object goes.
class File {
public:
    /// No value when the file cannot be opened.
    static std::optional<File> openForReading(const std::string& path);

    File(File&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    File& operator=(File&& other) noexcept;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File();

    /// Up to `length` bytes from `offset`, fewer at the end of the file. The buffer is sized by
    /// what the file holds, never by what the caller asks. No value on a read error.
    std::optional<Data> readRange(std::uint64_t offset, std::uint32_t length) const;

private:
    explicit File(int fd) : fd_(fd) {}
    int fd_;
};

} // namespace zq
