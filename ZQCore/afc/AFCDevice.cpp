#include "ZQCore/afc/AFCDevice.h"

#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/foundation/Exception.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

namespace zq {

namespace {

[[noreturn]] void raise(const std::string& reason) { throw Exception("AFCDevice", reason); }

std::string failed(const char* operation, int error)
{
    return std::string(operation) + " failed with error " + std::to_string(error);
}

/// The size a regular file's attributes give, when it is one; no value for anything else.
/// The buffers of whole and ranged reads are reserved from it, bounded, so a device that
/// misstates a size costs no more than this.
std::optional<std::uint64_t> regularFileSize(AFCInterface& afc, const std::string& path)
{
    const auto attributes = afc.getAttributesAtPath(path);
    if (!attributes)
        return std::nullopt;
    const auto type = attributes->find("st_ifmt");
    if (type == attributes->end() || type->second != "S_IFREG")
        return std::nullopt;
    const auto size = attributes->find("st_size");
    std::uint64_t bytes = 0;
    if (size != attributes->end())
        bytes = std::strtoull(size->second.c_str(), nullptr, 10);
    constexpr std::uint64_t kLargestReservation = 1ULL << 28;
    return std::min(bytes, kLargestReservation);
}

std::string joinPath(const std::string& folder, const std::string& name)
{
    if (!folder.empty() && folder.back() == '/')
        return folder + name;
    return folder + "/" + name;
}

} // namespace

// ---- the session ----------------------------------------------------------------------------

std::shared_ptr<AFCDevice> AFCDevice::initWithRef(const std::shared_ptr<AFCDeviceRef>& reference)
{
    std::shared_ptr<AFCDevice> session(new AFCDevice());
    if (!session->initializeDevice(reference))
        return nullptr;
    auto connection = session->openDevice(reference, "com.apple.afc");
    if (!connection)
        return nullptr;
    session->deviceInterface_ = AFCInterface::initWithAFCConnection(std::move(connection));
    std::weak_ptr<AFCDevice> weak = session;
    session->observer_ = NotificationCenter::defaultCenter().addObserver(
        "AFC_DeviceWasDisconnected", [weak](const std::string&, const std::any& object) {
            const auto* deviceID = std::any_cast<std::uint32_t>(&object);
            if (auto self = weak.lock(); self && deviceID)
                self->disconnected(*deviceID);
        });
    return session;
}

AFCDevice::~AFCDevice()
{
    if (observer_)
        NotificationCenter::defaultCenter().removeObserver(*observer_);
}

bool AFCDevice::initializeDevice(const std::shared_ptr<AFCDeviceRef>& reference)
{
    if (!reference || !reference->device())
        return false;
    AMDevice& device = *reference->device();
    if (const int error = device.connect(); error != 0)
        raise(failed("AMDeviceConnect", error));
    if (!device.isPaired())
        raise("Device pairing failed");
    if (const int error = device.validatePairing(); error != 0)
        raise(failed("AMDeviceValidatePairing", error));
    if (const int error = device.startSession(); error != 0)
        raise(failed("AMDeviceStartSession", error));
    device_ = reference;
    return true;
}

std::shared_ptr<AFCConnection> AFCDevice::openDevice(const std::shared_ptr<AFCDeviceRef>& reference, const std::string& service)
{
    if (!reference || !reference->device())
        return nullptr;
    std::shared_ptr<AMService> handle;
    if (const int error = reference->device()->startService(service, handle); error != 0)
        raise(failed("AMDeviceStartService", error));
    if (!handle)
        raise("AMDeviceStartService didn't initialise a connection");
    std::shared_ptr<AFCConnection> connection;
    if (const int error = handle->afcConnectionOpen(connection); error != 0)
        raise(failed("AFCConnectionOpen", error));
    return connection;
}

void AFCDevice::setDeviceRef(const std::shared_ptr<AFCDeviceRef>& reference)
{
    if (!initializeDevice(reference))
        return;
    if (auto connection = openDevice(reference, "com.apple.afc"))
        deviceInterface_ = AFCInterface::initWithAFCConnection(std::move(connection));
}

void AFCDevice::disconnected(std::uint32_t deviceID)
{
    if (!device_ || device_->deviceID() != deviceID)
        return;
    if (auto delegate = delegate_.lock())
        delegate->deviceWasDisconnected(shared_from_this());
}

// ---- files ----------------------------------------------------------------------------------

std::optional<Data> AFCDevice::contentsOfFileAtPath(const std::string& path)
{
    // The regular-file test, which also tells the size to reserve.
    const auto size = regularFileSize(*deviceInterface_, path);
    if (!size)
        return std::nullopt;
    std::vector<std::uint8_t> contents;
    const std::uint64_t file = deviceInterface_->openFileAtPath(path, AFCInterface::kModeRead);
    if (file == 0)
        return Data();
    contents.reserve(static_cast<std::size_t>(*size));
    // Each request asks for what the last one got: after a short read the requests stay at
    // that size.
    std::uint32_t count = kChunkSize;
    std::uint64_t offset = 0;
    // Sizes on these devices are 32-bit: a device that never ends a file stops there.
    constexpr std::uint64_t kLargestFile = 0xFFFFFFFFULL;
    auto chunk = deviceInterface_->readFromFile(file, count, offset);
    while (count != 0) {
        contents.insert(contents.end(), chunk->bytes(), chunk->bytes() + chunk->size());
        offset += count;
        if (offset >= kLargestFile)
            break;
        chunk = deviceInterface_->readFromFile(file, count, offset);
    }
    deviceInterface_->closeFile(file);
    return Data(std::move(contents));
}

std::optional<Data> AFCDevice::chunkOfFileAtPath(const std::string& path, Range range)
{
    const auto size = regularFileSize(*deviceInterface_, path);
    if (!size)
        return std::nullopt;
    std::vector<std::uint8_t> contents;
    const std::uint64_t file = deviceInterface_->openFileAtPath(path, AFCInterface::kModeRead);
    if (file == 0)
        return Data();
    if (*size > range.location)
        contents.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(range.length, *size - range.location)));
    std::uint32_t remaining = range.length;
    std::uint64_t offset = range.location;
    std::uint32_t count = std::min(remaining, kChunkSize);
    auto chunk = deviceInterface_->readFromFile(file, count, offset);
    while (count != 0) {
        remaining -= count;  // never more than asked for: the interface refuses a longer answer
        contents.insert(contents.end(), chunk->bytes(), chunk->bytes() + chunk->size());
        offset += count;
        count = std::min(remaining, count);
        chunk = deviceInterface_->readFromFile(file, count, offset);
    }
    deviceInterface_->closeFile(file);
    return Data(std::move(contents));
}

bool AFCDevice::createFileAtPath(const std::string& path, const Data& data)
{
    const std::string folder = std::filesystem::path(path).parent_path().string();
    if (!deviceInterface_->isDirectoryAtPath(folder.empty() ? "/" : folder))
        return false;
    const std::uint64_t file = deviceInterface_->openFileAtPath(path, AFCInterface::kModeWrite);
    if (file == 0)
        return false;
    // Single writes are not checked: the close answers for the file.
    std::size_t remaining = data.size();
    std::size_t chunk = std::min<std::size_t>(remaining, kChunkSize);
    std::size_t offset = 0;
    while (remaining > 0) {
        deviceInterface_->writeToFile(file, data.bytes() + offset, static_cast<std::uint32_t>(chunk), offset);
        remaining -= chunk;
        offset += chunk;
        chunk = std::min(chunk, remaining);
    }
    return deviceInterface_->closeFile(file);
}

bool AFCDevice::deleteFileAtPath(const std::string& path)
{
    if (!deviceInterface_->isFileAtPath(path))
        return false;
    return deviceInterface_->removePath(path);
}

std::vector<std::string> AFCDevice::listOfFilesAtPath(const std::string& path)
{
    std::vector<std::string> files;
    for (const auto& name : deviceInterface_->listFilesInPath(path))
        if (name != "" && name != "." && name != ".." && deviceInterface_->isFileAtPath(joinPath(path, name)))
            files.push_back(name);
    return files;
}

std::vector<std::string> AFCDevice::listOfFoldersAtPath(const std::string& path)
{
    std::vector<std::string> folders;
    for (const auto& name : deviceInterface_->listFilesInPath(path))
        if (name != "" && name != "." && name != ".." && deviceInterface_->isDirectoryAtPath(joinPath(path, name)))
            folders.push_back(name);
    return folders;
}

bool AFCDevice::fileExistsAtPath(const std::string& path) { return deviceInterface_->isFileAtPath(path); }

} // namespace zq
