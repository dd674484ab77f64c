// Playlists from rows of the SQLite library's container table.

#include "ZQCore/model/Playlist.h"

#include "ZQCore/reader/iTunesDBLoader.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <sqlite3.h>

namespace zq {

namespace {

// Columns of the container query (SQLiteLibraryLoader.cpp holds its text).
enum ContainerColumn {
    Pid, DateCreated, Name, ParentPid, IsHidden, SmartIsFolder, SmartIsDynamic, SmartIsFiltered, SmartIsGenius,
    SmartEnabledOnly, SmartIsLimited, SmartLimitKind, SmartLimitOrder, SmartLimitValue, SmartReverseLimitOrder,
    SmartCriteria, DistinguishedKind
};

// distinguished_kind values that decide a row's class.
constexpr int kOrdinary = 0;
constexpr int kHidden = 11;
constexpr int kPurchased = 19;

bool isOne(sqlite3_stmt* row, int column) { return sqlite3_column_int(row, column) == 1; }

} // namespace

void Playlist::fillFromSQLiteRow(sqlite3_stmt* row)
{
    // Playlist dates are the 32-bit column taken signed (track dates take it unsigned): -1 is
    // one second before 2001-01-01 00:00:00 UTC.
    creationDate_ = Date(static_cast<double>(sqlite3_column_int(row, DateCreated)));
    playlistID_ = static_cast<std::uint64_t>(sqlite3_column_int64(row, Pid));
    parentID_ = static_cast<std::uint64_t>(sqlite3_column_int64(row, ParentPid));
}

std::shared_ptr<Playlist> Playlist::initWithSQLiteRow(sqlite3_stmt* row, const std::shared_ptr<TrackLibrary>& parent)
{
    const int kind = sqlite3_column_int(row, DistinguishedKind);
    const int hidden = sqlite3_column_int(row, IsHidden);
    // The order of these tests decides the class of rows that match several of them.
    if (sqlite3_column_type(row, DateCreated) == SQLITE_NULL || hidden != 0 || kind == kHidden) {
        // The library's own hidden container stands where the binary database has its master
        // playlist: it gets no object, but it names the device.
        if (kind == kOrdinary && hidden == 1 && parent)
            parent->setName(sqliteText(row, Name));
        return nullptr;
    }
    if (kind == kPurchased)
        return PurchasedPlaylist::initWithSQLiteRow(row, parent);
    if (isOne(row, SmartIsFolder))
        return PlaylistFolder::initWithSQLiteRow(row, parent);
    if (sqlite3_column_type(row, SmartIsDynamic) != SQLITE_NULL)
        return SmartPlaylist::initWithSQLiteRow(row, parent);

    auto playlist = initWithName(sqliteText(row, Name));
    playlist->fillFromSQLiteRow(row);
    return playlist;
}

std::shared_ptr<PurchasedPlaylist> PurchasedPlaylist::initWithSQLiteRow(sqlite3_stmt* row,
                                                                        const std::shared_ptr<TrackLibrary>& /*parent*/)
{
    auto playlist = initWithName(sqliteText(row, Name));
    playlist->fillFromSQLiteRow(row);
    return playlist;
}

std::shared_ptr<PlaylistFolder> PlaylistFolder::initWithSQLiteRow(sqlite3_stmt* row,
                                                                  const std::shared_ptr<TrackLibrary>& /*parent*/)
{
    auto folder = initWithName(sqliteText(row, Name));
    folder->fillFromSQLiteRow(row);
    return folder;
}

std::shared_ptr<SmartPlaylist> SmartPlaylist::initWithSQLiteRow(sqlite3_stmt* row,
                                                                const std::shared_ptr<TrackLibrary>& /*parent*/)
{
    std::shared_ptr<SmartPlaylist> playlist(new SmartPlaylist(sqliteText(row, Name)));
    SmartPlaylist& p = *playlist;
    p.fillFromSQLiteRow(row);
    // The codes are kept as the database has them.
    p.liveUpdating_ = isOne(row, SmartIsDynamic);
    p.enableRules_ = isOne(row, SmartIsFiltered);
    p.enableLimits_ = isOne(row, SmartIsLimited);
    p.limitType_ = sqlite3_column_int(row, SmartLimitKind);
    p.sortType_ = sqlite3_column_int(row, SmartLimitOrder);
    p.limitValue_ = sqlite3_column_int(row, SmartLimitValue);
    p.matchChecked_ = isOne(row, SmartEnabledOnly);
    p.reverseLimitSort_ = isOne(row, SmartReverseLimitOrder);

    const int length = sqlite3_column_bytes(row, SmartCriteria);
    if (length < 1)
        return playlist;
    const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(row, SmartCriteria));
    if (!bytes)
        return playlist;
    // The blob has the layout of the binary database's rule data and goes through the same
    // parser. One that the parser cannot read leaves the playlist without rules: a bad blob
    // costs its rules, never the library.
    Value::Dictionary rules;
    try {
        rules = iTunesDBLoader::parseSmartPlaylistRulesInData(Data(bytes, static_cast<std::size_t>(length)));
    } catch (const Exception&) {
        return playlist;
    }
    if (auto found = rules.find("operatorOr"); found != rules.end())
        p.operatorOr_ = found->second.boolValue();
    if (auto found = rules.find("rules"); found != rules.end() && found->second.array())
        for (const Value& rule : *found->second.array())
            if (rule.dictionary())
                p.rules_.push_back(SmartPlaylistRule::initWithOptions(*rule.dictionary()));
    return playlist;
}

} // namespace zq
