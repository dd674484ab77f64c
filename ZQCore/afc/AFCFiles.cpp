#include "ZQCore/afc/AFCFiles.h"

#include <cerrno>
#include <charconv>

namespace zq {

// A library whose device is known to have left answers at once, as a disk-mode library whose
// volume has gone does; a device that fails during a read throws (see AFCDevice).
std::optional<Data> AFCFiles::contentsOfFile(const std::string& path) const
{
    if (stopped_)
        return std::nullopt;
    return device_->contentsOfFileAtPath(path);
}

std::optional<Data> AFCFiles::chunkOfFile(const std::string& path, Range range) const
{
    if (stopped_ || !device_->fileExistsAtPath(path))
        return std::nullopt;
    return device_->chunkOfFileAtPath(path, range);
}

std::optional<std::uint64_t> AFCFiles::sizeOfFile(const std::string& path) const
{
    if (!device_ || !device_->liveInterface())
        return std::nullopt;
    const auto attributes = device_->liveInterface()->getAttributesAtPath(path);
    if (!attributes) {
        device_->raiseIfGone(path);
        return std::nullopt;
    }
    const auto type = attributes->find("st_ifmt");
    const auto size = attributes->find("st_size");
    if (type == attributes->end() || type->second != "S_IFREG" || size == attributes->end())
        return std::nullopt;
    // The service answers in decimal text; anything else is no size rather than a wrong one.
    std::uint64_t value = 0;
    const auto* end = size->second.data() + size->second.size();
    const auto [stop, error] = std::from_chars(size->second.data(), end, value);
    if (error != std::errc() || stop != end || size->second.empty())
        return std::nullopt;
    return value;
}

bool AFCFiles::fileExists(const std::string& path) const
{
    return device_->fileExistsAtPath(path) || device_->liveInterface()->isDirectoryAtPath(path);
}

FileCopyResult AFCFiles::copyFile(const std::string& path, int destination, const FileCopyProgress& progress) const
{
    if (stopped_)
        return {.error = ENODEV};
    return device_->copyFileAtPath(path, destination, progress);
}

int AFCFiles::openFile(const std::string&, int) const
{
    errno = ENOTSUP;
    return -1;
}

Value::Dictionary AFCFiles::fileSystemInfo() const
{
    Value::Dictionary info;
    if (auto attributes = device_->liveInterface()->getDeviceAttributes())
        for (const auto& [key, value] : *attributes)
            info[key] = value;
    return info;
}

} // namespace zq
