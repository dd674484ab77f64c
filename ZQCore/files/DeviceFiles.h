#pragma once

// The one way to a device's bytes. Everything that reads a device (the loaders, a track's file,
// an artwork thumbnail, a copy) asks a DeviceFiles; whether the files lie on a mounted volume
// or come over a phone's session is decided once, by which implementation the library holds.

#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Range.h"
#include "ZQCore/foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zq {

/// The error a person reads when a device's path is refused.
inline constexpr const char* kRefusedOutsideDevice = "refused: the device names a file outside itself";

/// The files of one device. Paths are the device's own: below the volume's mount path for a
/// mounted volume (VolumeFiles), from "/" of the phone's file service over a session (AFCFiles).
/// Every path may come from the device itself and is untrusted; an implementation never reads
/// anything outside the device.
class ZQ_EXPORT DeviceFiles {
public:
    virtual ~DeviceFiles();

    /// A whole file; no value when it cannot be read.
    virtual std::optional<Data> contentsOfFile(const std::string& path) const = 0;
    /// Up to `range.length` bytes from `range.location` (fewer at the end of the file); no value
    /// when there is no file at the path.
    virtual std::optional<Data> chunkOfFile(const std::string& path, Range range) const = 0;
    /// The size of a regular file as the device reports it; no value when there is none.
    virtual std::optional<std::uint64_t> sizeOfFile(const std::string& path) const = 0;
    /// Whether a file or folder is at the path.
    virtual bool fileExists(const std::string& path) const = 0;
    /// Streams a whole file into `destination` (an open, writable descriptor, left open).
    /// `progress` sees the bytes written so far and may stop the copy. This one copies piece by
    /// piece through chunkOfFile; implementations with a faster way override it.
    virtual FileCopyResult copyFile(const std::string& path, int destination,
                                    const FileCopyProgress& progress = {}) const;
    /// Opens a file with `flags` (O_RDONLY, O_PATH) as a descriptor the caller owns, or -1 with
    /// errno set: EXDEV for a path that leads outside the device, ENOTSUP where the files are not
    /// reached through descriptors at all.
    virtual int openFile(const std::string& path, int flags) const = 0;
    /// Whether the device names `path` outside itself: such a file is never read.
    virtual bool refusesPath(const std::string& path) const = 0;
    /// A path of this computer at which a program that opens files by name (SQLite) finds the
    /// device's file as it is, without a copy; no value where the files must be copied first.
    virtual std::optional<std::string> localPath(const std::string& path) const = 0;
    /// Whether the device has gone (its volume vanished, its session departed): nothing more
    /// can be read from it until it comes back.
    virtual bool hasGone() const = 0;
    /// True when the files come over a device session rather than from a mounted volume.
    virtual bool readsThroughSession() const = 0;
    /// { "FSTotalBytes", "FSFreeBytes", ... } of the device's file system, as far as it says.
    virtual Value::Dictionary fileSystemInfo() const = 0;
};

} // namespace zq
