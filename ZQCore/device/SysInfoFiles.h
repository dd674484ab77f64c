#pragma once

// The device-information files of a disk-mode iPod's iPod_Control/Device folder, as the
// reference and the library object read them. Not installed.

#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace zq {

/// The value of a "Key: value" line of SysInfo text: the rest of the last line whose text before
/// its first colon is `key`, blanks, tabs and a carriage return trimmed. No value when no line
/// has the key.
std::optional<std::string> sysInfoValue(std::string_view text, std::string_view key);

/// The identity properties of a SysInfoExtended file. A valid property list is taken whole.
/// Devices also write files that are not valid property lists (a key with no value, entries
/// cut off); from those the entries of the top-level dictionary that are whole and well-formed
/// are kept and the rest is skipped, so that a serial number or family number is not lost to a
/// fault elsewhere in the file. No value when nothing can be read.
std::optional<Value> readSysInfoExtended(const Data& bytes);

/// The tolerant half of readSysInfoExtended on its own: what the top-level dictionary of a
/// (possibly broken) XML property list holds whole. An empty dictionary when nothing is whole;
/// no value when the text has no top-level dictionary at all.
std::optional<Value> readPropertyListEntries(const Data& bytes);

} // namespace zq
