#pragma once

// Byte layouts of the records of the artwork database (ArtworkDB). As in the library database,
// every record is read as a fixed-size block and its fields are taken from the block; the
// walk itself is in ArtworkDBLoader.cpp. Offsets count from the start of each record.

#include "ZQCore/reader/RecordLayouts.h"

#include <cstddef>
#include <cstdint>

namespace zq::layout {

/// The file header ("mhfd").
namespace MHFDHeader {
constexpr std::size_t size = 36;
constexpr std::size_t dataSetCount = 20; // signed
static_assert(dataSetCount + 4 <= size);
} // namespace MHFDHeader

/// A data set of the artwork database ("mhsd"); type 1 holds the image list.
namespace ArtworkDataSet {
constexpr std::size_t size = 16;
constexpr std::size_t type = 12;
constexpr std::uint32_t imageList = 1;
static_assert(type + 4 <= size);
} // namespace ArtworkDataSet

/// The image list ("mhli"): header length at 4, item count at 8.
namespace MHLIHeader {
constexpr std::size_t size = 12;
} // namespace MHLIHeader

/// One image item ("mhii").
namespace MHIIHeader {
constexpr std::size_t size = 52;
constexpr std::size_t childCount = 12; // signed
constexpr std::size_t imageID = 16;
constexpr std::size_t songID = 20;     // 64-bit, low half first
static_assert(songID + 8 <= size);
} // namespace MHIIHeader

/// The header of a child of an image item ("mhod"); type 2 holds one stored size.
namespace ArtworkChild {
constexpr std::size_t size = 16;
constexpr std::size_t type = 12; // 16-bit
constexpr std::uint16_t thumbnail = 2;
static_assert(type + 2 <= size);
} // namespace ArtworkChild

/// One stored size of an image ("mhni"): where its pixels lie and how large they are.
namespace MHNIHeader {
constexpr std::size_t size = 44;
constexpr std::size_t fileOffset = 20;
constexpr std::size_t dataLength = 24;
constexpr std::size_t verticalPadding = 28;   // signed 16-bit
constexpr std::size_t horizontalPadding = 30; // signed 16-bit
constexpr std::size_t imageHeight = 32;
constexpr std::size_t imageWidth = 34;
static_assert(imageWidth + 2 <= size);
} // namespace MHNIHeader

/// The file-name record under a stored size: a string record whose first 16 bytes give its
/// header length, then a 12-byte string header whose first word is the text's byte length.
namespace ArtworkFileName {
constexpr std::size_t recordSize = 16;
constexpr std::size_t stringHeaderSize = 12;
constexpr std::size_t length = 0; // within the string header
} // namespace ArtworkFileName

} // namespace zq::layout
