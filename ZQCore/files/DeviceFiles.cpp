#include "ZQCore/files/DeviceFiles.h"

#include <cerrno>
#include <cstdint>

namespace zq {

namespace {

// The piece asked for at a time when a file can only be had in ranges.
constexpr std::uint32_t kSessionPiece = 1u << 20;

} // namespace

DeviceFiles::~DeviceFiles() = default;

FileCopyResult DeviceFiles::copyFile(const std::string& path, int destination, const FileCopyProgress& progress) const
{
    // No descriptor to hand the kernel: the file comes in pieces, each written as it arrives.
    FileCopyResult result;
    for (;;) {
        if (result.bytesCopied > UINT32_MAX - kSessionPiece) {
            result.error = EFBIG;  // ranges are 32-bit
            return result;
        }
        auto piece = chunkOfFile(path, {static_cast<std::uint32_t>(result.bytesCopied), kSessionPiece});
        if (!piece) {
            result.error = result.bytesCopied ? EIO : ENOENT;
            return result;
        }
        if (const int error = writeAll(destination, piece->bytes(), piece->size())) {
            result.error = error;
            result.destinationFailed = true;
            return result;
        }
        result.bytesCopied += piece->size();
        if (piece->size() < kSessionPiece) {
            result.completed = true;
            return result;
        }
        if (progress && !progress(result.bytesCopied))
            return result;
    }
}

} // namespace zq
