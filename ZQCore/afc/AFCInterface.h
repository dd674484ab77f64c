#pragma once

#include "ZQCore/afc/MobileDevice.h"
#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace zq {

/// The kind of failure a conduit error number stands for: a device that left, did not answer or
/// was cancelled, a file it did not find or would not serve; Other for the rest.
ZQ_EXPORT ErrorKind kindOfAFCError(int error) noexcept;

/// One call per file-conduit operation, with strings, numbers and data. Failures answer
/// false, no value or 0; only listFilesInPath throws, and opening a file logs.
class ZQ_EXPORT AFCInterface {
public:
    using Attributes = std::map<std::string, std::string>;

    /// Open modes of the conduit.
    static constexpr std::uint64_t kModeRead = 2;
    static constexpr std::uint64_t kModeWrite = 3;

    /// The connection is shared with the session that opened it; it is never closed here.
    static std::shared_ptr<AFCInterface> initWithAFCConnection(std::shared_ptr<AFCConnection> connection);

    bool removePath(const std::string& path);
    bool renamePath(const std::string& from, const std::string& to);
    bool createDirectory(const std::string& path);
    /// The entry names in the device's order, "." and ".." included. A folder that cannot be
    /// opened throws an exception whose name and reason are both empty; its kind says why
    /// (kindOfAFCError).
    std::vector<std::string> listFilesInPath(const std::string& path);
    bool isDirectoryAtPath(const std::string& path);
    bool isFileAtPath(const std::string& path);
    std::optional<Attributes> getAttributesAtPath(const std::string& path);
    std::optional<Attributes> getDeviceAttributes();
    /// A file reference, or 0 (after a log line "AFCFileRefOpen(<mode>): <error>").
    std::uint64_t openFileAtPath(const std::string& path, std::uint64_t mode);
    bool closeFile(std::uint64_t file);
    /// Up to `size` bytes at `offset`; `size` becomes the number read, 0 on failure (no value then).
    std::optional<Data> readFromFile(std::uint64_t file, std::uint32_t& size, std::uint64_t offset);
    /// The same into `buffer` (room for `size` bytes): false on failure. A read that starts where
    /// the last read or write of the handle ended asks the device for no seek first.
    bool readFromFile(std::uint64_t file, std::uint8_t* buffer, std::uint32_t& size, std::uint64_t offset);
    bool writeToFile(std::uint64_t file, const std::uint8_t* data, std::uint32_t size, std::uint64_t offset);
    bool setSizeOfFile(const std::string& path, std::uint64_t size);
    static Attributes createDictionaryForAFCDictionary(AFCKeyValue& information);

    /// The error number of the last failed call of the conduit (0 after a success), so that a
    /// caller can tell a missing file from a device that has gone (kAFCDeviceDeparted, ...).
    /// The session above turns it into an ErrorKind when it throws; it goes no further.
    int lastError() const { return lastError_; }

private:
    AFCInterface() = default;
    int track(int error) { return lastError_ = error; }
    /// Brings the handle to `offset`: a seek, unless it is known to be there already.
    bool positionAt(std::uint64_t file, std::uint64_t offset);

    std::shared_ptr<AFCConnection> afc_handle_;
    int lastError_ = 0;
    /// Where each open handle stands, as far as it is known: set by an open at the start, a seek,
    /// a read or a write that succeeded; forgotten after any failure, when the device may have
    /// moved by part of a request.
    std::unordered_map<std::uint64_t, std::uint64_t> positions_;
};

} // namespace zq
