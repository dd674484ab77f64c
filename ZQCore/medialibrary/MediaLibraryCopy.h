#pragma once

// A local copy of a device's MediaLibrary.sqlitedb, made so that SQLite can open it.
//
// The phone keeps its library in WAL mode: the newest committed changes may still be frames of
// MediaLibrary.sqlitedb-wal, not yet moved into the main file. The database, its -wal and its
// -shm are copied together (when the device has them) into a new folder of the temporary
// directory, and the copy is opened read-only but not immutable, so that SQLite reads the
// committed WAL frames on top of the main file (an immutable open would skip the WAL). Nothing
// on the device is opened by SQLite, so nothing there is locked or written. The folder goes
// with the object, on every path.

#include <functional>
#include <optional>
#include <string>

#include "ZQCore/foundation/Data.h"

struct sqlite3;

namespace zq {

class MediaLibraryCopy {
public:
    /// Reads a whole file of the device (no value when it cannot be read).
    using ReadFile = std::function<std::optional<Data>(const std::string& path)>;
    /// Whether a regular file is at a path of the device.
    using FileExists = std::function<bool(const std::string& path)>;

    /// Copies `databasePath` and its -wal and -shm companions. Throws
    /// "<application identifier>.SQLiteFailed" when the database or a companion that exists
    /// cannot be read or written (the folder is removed first).
    MediaLibraryCopy(const std::string& databasePath, const ReadFile& read, const FileExists& exists);
    ~MediaLibraryCopy();
    MediaLibraryCopy(const MediaLibraryCopy&) = delete;
    MediaLibraryCopy& operator=(const MediaLibraryCopy&) = delete;

    const std::string& localPath() const { return localPath_; }

private:
    void removeFolder() noexcept;

    std::string folder_;
    std::string localPath_;
};

/// A read-only connection to a local copy, closed on destruction.
class MediaLibraryConnection {
public:
    /// Throws "<application identifier>.SQLiteFailed" when the file cannot be opened.
    explicit MediaLibraryConnection(const std::string& path);
    ~MediaLibraryConnection();
    MediaLibraryConnection(const MediaLibraryConnection&) = delete;
    MediaLibraryConnection& operator=(const MediaLibraryConnection&) = delete;

    sqlite3* handle() const { return db_; }

private:
    sqlite3* db_ = nullptr;
};

} // namespace zq
