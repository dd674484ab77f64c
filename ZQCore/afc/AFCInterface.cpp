#include "ZQCore/afc/AFCInterface.h"

#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"

#include <memory>

namespace zq {

ErrorKind kindOfAFCError(int error) noexcept
{
    switch (error) {
    case kAFCDeviceDeparted: return ErrorKind::DeviceGone;
    case kAFCDeviceNotAnswering: return ErrorKind::NotAnswering;
    case kAFCRequestCancelled: return ErrorKind::Cancelled;
    case kAFCObjectNotFound: return ErrorKind::NotFound;
    case kAFCPermissionDenied: return ErrorKind::Refused;
    default: return ErrorKind::Other;
    }
}

std::shared_ptr<AFCInterface> AFCInterface::initWithAFCConnection(std::shared_ptr<AFCConnection> connection)
{
    std::shared_ptr<AFCInterface> interface(new AFCInterface());
    interface->afc_handle_ = std::move(connection);
    return interface;
}

bool AFCInterface::removePath(const std::string& path) { return afc_handle_->removePath(path) == 0; }

bool AFCInterface::renamePath(const std::string& from, const std::string& to)
{
    return afc_handle_->renamePath(from, to) == 0;
}

bool AFCInterface::createDirectory(const std::string& path) { return afc_handle_->directoryCreate(path) == 0; }

std::vector<std::string> AFCInterface::listFilesInPath(const std::string& path)
{
    AFCDirectory directory;
    if (track(afc_handle_->directoryOpen(path, directory)) != 0)
        throw Exception(kindOfAFCError(lastError_), "", "");
    std::vector<std::string> names;
    while (auto name = directory.read())
        names.push_back(std::move(*name));
    return names;
}

bool AFCInterface::isDirectoryAtPath(const std::string& path)
{
    const auto attributes = getAttributesAtPath(path);
    if (!attributes)
        return false;
    const auto type = attributes->find("st_ifmt");
    return type != attributes->end() && type->second == "S_IFDIR";
}

bool AFCInterface::isFileAtPath(const std::string& path)
{
    const auto attributes = getAttributesAtPath(path);
    if (!attributes)
        return false;
    const auto type = attributes->find("st_ifmt");
    return type != attributes->end() && type->second == "S_IFREG";
}

std::optional<AFCInterface::Attributes> AFCInterface::getAttributesAtPath(const std::string& path)
{
    AFCKeyValue information;
    if (track(afc_handle_->fileInfoOpen(path, information)) != 0)
        return std::nullopt;
    return createDictionaryForAFCDictionary(information);
}

std::optional<AFCInterface::Attributes> AFCInterface::getDeviceAttributes()
{
    AFCKeyValue information;
    if (track(afc_handle_->deviceInfoOpen(information)) != 0)
        return std::nullopt;
    return createDictionaryForAFCDictionary(information);
}

AFCInterface::Attributes AFCInterface::createDictionaryForAFCDictionary(AFCKeyValue& information)
{
    Attributes attributes;
    while (auto pair = information.read())
        attributes[pair->first] = pair->second;
    return attributes;
}

std::uint64_t AFCInterface::openFileAtPath(const std::string& path, std::uint64_t mode)
{
    std::uint64_t file = 0;
    const int error = track(afc_handle_->fileRefOpen(path, mode, file));
    if (error != 0) {
        log("AFCFileRefOpen(" + std::to_string(static_cast<std::int32_t>(mode)) + "): " + std::to_string(error));
        return 0;
    }
    // Reading and writing modes open at the first byte; the appending ones (5, 6) are left
    // to a seek.
    if (mode >= 1 && mode <= 4)
        positions_[file] = 0;
    else
        positions_.erase(file);
    return file;
}

bool AFCInterface::closeFile(std::uint64_t file)
{
    positions_.erase(file);
    return track(afc_handle_->fileRefClose(file)) == 0;
}

bool AFCInterface::positionAt(std::uint64_t file, std::uint64_t offset)
{
    if (const auto known = positions_.find(file); known != positions_.end() && known->second == offset)
        return true;
    positions_.erase(file);
    if (track(afc_handle_->fileRefSeek(file, static_cast<std::int64_t>(offset), 0)) != 0)
        return false;
    positions_[file] = offset;
    return true;
}

bool AFCInterface::readFromFile(std::uint64_t file, std::uint8_t* buffer, std::uint32_t& size, std::uint64_t offset)
{
    if (!positionAt(file, offset)) {
        size = 0;
        return false;
    }
    std::uint32_t count = size;
    if (track(afc_handle_->fileRefRead(file, buffer, count)) != 0 || count > size) {
        positions_.erase(file);
        size = 0;
        return false;
    }
    positions_[file] = offset + count;
    size = count;
    return true;
}

std::optional<Data> AFCInterface::readFromFile(std::uint64_t file, std::uint32_t& size, std::uint64_t offset)
{
    // Sized by the request, which the callers bound to one chunk.
    std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[size == 0 ? 1 : size]);
    if (!readFromFile(file, buffer.get(), size, offset))
        return std::nullopt;
    return Data(buffer.get(), size);
}

bool AFCInterface::writeToFile(std::uint64_t file, const std::uint8_t* data, std::uint32_t size, std::uint64_t offset)
{
    if (size == 0)
        return true;
    positions_.erase(file);
    if (afc_handle_->fileRefSeek(file, static_cast<std::int64_t>(offset), 0) != 0)
        return false;
    if (afc_handle_->fileRefWrite(file, data, size) != 0)
        return false;
    positions_[file] = offset + size;
    return true;
}

bool AFCInterface::setSizeOfFile(const std::string& path, std::uint64_t size)
{
    std::uint64_t file = 0;
    if (afc_handle_->fileRefOpen(path, kModeWrite, file) != 0)
        return false;
    const bool resized = afc_handle_->fileRefSetFileSize(file, size) == 0;
    afc_handle_->fileRefClose(file);
    return resized;
}

} // namespace zq
