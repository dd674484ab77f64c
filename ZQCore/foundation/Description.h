#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zq {

/// The printable form of an array of objects, one element per line as arrays have always
/// printed themselves: "(\n    first,\n    second\n)"; an empty array is "(\n)".
std::string arrayDescription(const std::vector<std::string>& elements);

/// How a string that may be absent prints inside a description ("(null)" when absent).
std::string describe(const std::optional<std::string>& text);

} // namespace zq
