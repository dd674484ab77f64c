#include "ZQCore/foundation/Application.h"

namespace zq {

namespace {
std::string& identifierSlot()
{
    static std::string identifier = "org.zqcore.ZQCore";
    return identifier;
}
} // namespace

const std::string& applicationIdentifier() { return identifierSlot(); }

void setApplicationIdentifier(std::string identifier) { identifierSlot() = std::move(identifier); }

} // namespace zq
