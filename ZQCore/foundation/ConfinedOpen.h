#pragma once

// Opening a file that a device names, without letting the name lead outside the device.
//
// Paths on a device's volume come from the device itself (a database's locations, artwork file
// names, base folders) and are untrusted: ":..:..:etc:passwd" or a symbolic link to /etc/shadow
// must not make the framework read the computer's own files, and people run it as root.

#include "ZQCore/foundation/Export.h"

#include <string>

namespace zq {

/// Opens `path` with `flags` (O_RDONLY, O_PATH, ... ; O_CLOEXEC is added) when it lies inside
/// the folder `root` and no component of it, symbolic links included, leads out of that folder.
/// Links that stay inside are followed. The check and the open are one step, so a link swapped
/// in between cannot lead out either. Answers the descriptor, or -1 with errno set: EXDEV when
/// the path (by its text or through a link) leads outside `root`, otherwise the open's own error.
/// Opens other than O_PATH never wait (O_NONBLOCK is added): a FIFO on a device is refused by
/// its reader as no regular file instead of hanging the open.
///
/// Uses openat2() with RESOLVE_BENEATH; on a kernel without it, walks the path a component at a
/// time with O_NOFOLLOW and then refuses every symbolic link (ELOOP).
ZQ_EXPORT int openInsideFolder(const std::string& root, const std::string& path, int flags);

/// The error a person reads when a device's path is refused.
inline constexpr const char* kRefusedOutsideDevice = "refused: the device names a file outside itself";

} // namespace zq
