#pragma once

#include <cstdint>

namespace zq {

/// The read allowance of one walk over a database file of `length` bytes (see
/// XRDataReader::setReadLimit): four times the file, plus room for the fixed-size header
/// reads of a tiny file. Real databases read each byte at most about twice; what a hostile file
/// can make a walk allocate stays within a small multiple of its size.
constexpr std::uint64_t walkReadLimit(std::uint64_t length) { return 4 * length + (1u << 20); }

/// Whether the track-list walk reads plain records in one look (see readPlainTrackRecord).
/// Always on; tests turn it off to hold it against the general walk.
inline bool walkReadsPlainRecordsInPlace = true;

} // namespace zq
