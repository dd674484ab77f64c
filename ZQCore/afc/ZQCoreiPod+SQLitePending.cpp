// Placeholder until the SQLite loader lands: no database loads, so devices fall back to iTunesDB.
#include "ZQCore/device/ZQCoreiPod.h"

namespace zq {

bool ZQCoreiPod::loadFromLocalSQLiteDatabase(const std::string&, const std::string&, const std::string&, const std::string&)
{
    return false;
}

} // namespace zq
