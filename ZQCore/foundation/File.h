#pragma once

#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Export.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zq {

/// Whether anything (file, folder, device node) exists at the path, as a file manager's
/// existence test answers it: a dangling symbolic link does not exist.
ZQ_EXPORT bool fileExists(const std::string& path);

/// A file opened for reading; closed when the object goes.
class ZQ_EXPORT File {
public:
    /// No value when the file cannot be opened.
    static std::optional<File> openForReading(const std::string& path);
    /// A file already open for reading, which the object now owns; no value for a negative
    /// descriptor.
    static std::optional<File> adopt(int fd);

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

/// Told how many bytes of a file copy have reached the destination so far; answering false
/// stops the copy there.
using FileCopyProgress = std::function<bool(std::uint64_t bytesCopied)>;

/// How a copy of a file's bytes ended.
struct FileCopyResult {
    std::uint64_t bytesCopied = 0;
    bool completed = false;  ///< the source was copied to its end
    int error = 0;           ///< errno of the failure; 0 when completed or stopped by the progress call
    /// The failure was the destination's (full, over quota, read-only, a write that failed), not
    /// the device's: a message names the destination, never the device.
    bool destinationFailed = false;

    /// What kind of failure ended a copy that did not complete: DestinationFailed for the
    /// destination's, Cancelled for one the progress call stopped, else the kind of its errno
    /// (Refused for a file outside the device, DeviceGone, ...). No value for a completed copy.
    std::optional<ErrorKind> kind() const
    {
        if (completed)
            return std::nullopt;
        if (destinationFailed)
            return ErrorKind::DestinationFailed;
        return error == 0 ? ErrorKind::Cancelled : kindOfErrno(error);
    }
};

/// Whether `error` of a copy that moves bytes inside the kernel can only be the destination's.
ZQ_EXPORT bool isDestinationError(int error);

/// Copies everything from the current offset of `source` to the end into `destination` (both
/// open file descriptors, left open), inside the kernel where it can (copy_file_range, which
/// shares blocks on file systems that can; else sendfile), else through a buffer. `progress`,
/// when given, is called after every piece of a few megabytes.
ZQ_EXPORT FileCopyResult copyFileContents(int source, int destination, const FileCopyProgress& progress = {});

/// Writes all `length` bytes to the descriptor, going on after short writes and interruptions.
/// 0 when all were written, else the errno of the failure (EIO for a write that wrote nothing).
ZQ_EXPORT int writeAll(int destination, const std::uint8_t* bytes, std::size_t length);

} // namespace zq
