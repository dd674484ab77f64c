#pragma once

#include "ZQCore/foundation/Export.h"

#include <functional>
#include <string>

namespace zq {

/// Writes one plain-text line to the system log (syslog, facility user, priority notice).
ZQ_EXPORT void log(const std::string& line);

/// Replaces where log lines go (tests capture them); an empty handler restores syslog.
/// Returns the handler that was in place.
using LogHandler = std::function<void(const std::string&)>;
ZQ_EXPORT LogHandler setLogHandler(LogHandler handler);

} // namespace zq
