#include "ZQCore/medialibrary/MediaLibraryCopy.h"

#include "ZQCore/foundation/Application.h"
#include "ZQCore/foundation/Exception.h"

#include <glib.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>

namespace zq {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(ErrorKind kind, const std::string& reason)
{
    throw Exception(kind, applicationIdentifier() + ".SQLiteFailed", reason);
}

bool writeFile(const fs::path& path, const Data& data)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        return false;
    out.write(reinterpret_cast<const char*>(data.bytes()), static_cast<std::streamsize>(data.size()));
    out.close();
    return static_cast<bool>(out);
}

} // namespace

MediaLibraryCopy::MediaLibraryCopy(const std::string& databasePath, const ReadFile& read, const FileExists& exists)
{
    gchar* folder = g_dir_make_tmp("zq-medialibrary-XXXXXX", nullptr);
    if (!folder)
        fail(ErrorKind::DestinationFailed, "Could not make a temporary folder for the copy of the media library database.");
    folder_ = folder;
    g_free(folder);
    localPath_ = (fs::path(folder_) / "MediaLibrary.sqlitedb").string();

    try {
        // The main file first, then its companions: a companion that is there but cannot be read
        // would leave committed changes out, so it fails the copy like the main file does.
        for (const char* suffix : {"", "-wal", "-shm"}) {
            const std::string remote = databasePath + suffix;
            if (*suffix && !exists(remote))
                continue;
            const auto contents = read(remote);
            if (!contents)
                fail(ErrorKind::NotFound, "Could not read " + remote + " from the device.");
            if (!writeFile(localPath_ + suffix, *contents))
                fail(ErrorKind::DestinationFailed, "Could not write the copy of " + remote + " to " + folder_ + ".");
        }
    } catch (...) {
        removeFolder();
        throw;
    }
}

MediaLibraryCopy::~MediaLibraryCopy() { removeFolder(); }

void MediaLibraryCopy::removeFolder() noexcept
{
    if (folder_.empty())
        return;
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    folder_.clear();
}

MediaLibraryConnection::MediaLibraryConnection(const std::string& path)
{
    // Read-only, and deliberately not immutable: the WAL beside the copy must be read. The copy
    // lies in a folder of its own, where SQLite may keep its shared-memory index.
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        const std::string message = db_ ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        db_ = nullptr;
        fail(ErrorKind::Other, "Could not open the media library database: " + message + ".");
    }
}

MediaLibraryConnection::~MediaLibraryConnection() { sqlite3_close_v2(db_); }

} // namespace zq
