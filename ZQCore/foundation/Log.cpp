#include "ZQCore/foundation/Log.h"

#include <syslog.h>

namespace zq {

namespace {
LogHandler& handlerSlot()
{
    static LogHandler handler;
    return handler;
}
} // namespace

void log(const std::string& line)
{
    if (const auto& handler = handlerSlot()) {
        handler(line);
        return;
    }
    ::syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
}

LogHandler setLogHandler(LogHandler handler)
{
    LogHandler previous = std::move(handlerSlot());
    handlerSlot() = std::move(handler);
    return previous;
}

} // namespace zq
