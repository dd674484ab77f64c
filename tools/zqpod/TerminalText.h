#pragma once

// Text from a device made harmless on a terminal. Names, titles and paths come from the device
// and may hold anything: an escape sequence in a crafted title would move the cursor, change
// colours or retitle the window of whoever lists the library.

#include <string>
#include <string_view>

namespace zqpod {

/// `text` with every control character shown instead of obeyed: C0 controls (but line feed and
/// tab), DEL and the C1 controls U+0080-U+009F become "\xNN" or "\u00NN", and so does every byte
/// that is not part of well-formed UTF-8. Everything else is kept as it is.
std::string terminalSafe(std::string_view text);

} // namespace zqpod
