#pragma once

#include <iosfwd>
#include <memory>

namespace zq {
class ZQCoreiPod;
}

namespace zqpod {

/// The library for a person: device, counts, each playlist in the framework's own words.
void printLibraryText(std::ostream& out, const zq::ZQCoreiPod& library);

/// The library for programs (format described in the README; keep it stable, extend only).
void printLibraryJSON(std::ostream& out, const zq::ZQCoreiPod& library);

} // namespace zqpod
