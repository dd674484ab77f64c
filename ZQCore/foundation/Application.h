#pragma once

#include "ZQCore/foundation/Export.h"

#include <string>

namespace zq {

/// The reverse-DNS identifier of the application that hosts the framework. Named exceptions
/// such as "<identifier>.FileReadError" carry it as their prefix. Settable once at start-up;
/// the default names the framework itself.
ZQ_EXPORT const std::string& applicationIdentifier();
ZQ_EXPORT void setApplicationIdentifier(std::string identifier);

} // namespace zq
