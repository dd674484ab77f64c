#include "ZQCore/afc/AFCDevice.h"

#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"

#include <cerrno>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

namespace zq {

namespace {

/// A session that could not be opened. Refused is kept for the steps at which a device turns
/// away a computer it does not trust (no pairing record, a pairing it does not accept, no
/// session for it), so that a caller can tell the person to pair it.
[[noreturn]] void raise(ErrorKind kind, const std::string& reason) { throw Exception(kind, "AFCDevice", reason); }

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

/// A session step that did not come back in time (or was cancelled) is said as such, naming
/// the part that stayed silent; other failures keep the step's name and number.
void AFCDevice::raiseSessionFailure(const std::shared_ptr<AFCDeviceRef>& reference, const char* operation, int error,
                                    ErrorKind kind)
{
    switch (error) {
    case kAFCDaemonNotAnswering: {
        const auto platform = MobileDevicePlatform::shared();
        throw Exception(ErrorKind::NotAnswering, "AFCDeviceNotAnswering",
                        platform->notAnswering().value_or("usbmuxd did not answer") + " while opening " + describe(reference) +
                            ". Restart it (for example: systemctl restart usbmuxd), then run the command again.");
    }
    case kAFCDeviceNotAnswering: {
        throw Exception(ErrorKind::NotAnswering, "AFCDeviceNotAnswering",
                        "The lockdown service of " + describe(reference) + " did not answer within " +
                            requestTimeoutText() +
                            ". Unlock it, or disconnect and connect it again, then run the command again.");
    }
    case kAFCRequestCancelled:
        throw Exception(ErrorKind::Cancelled, "AFCDeviceCancelled", "Opening " + describe(reference) + " was stopped.");
    default:
        raise(kind, failed(operation, error));
    }
}

bool AFCDevice::initializeDevice(const std::shared_ptr<AFCDeviceRef>& reference)
{
    if (!reference || !reference->device())
        return false;
    AMDevice& device = *reference->device();
    if (const int error = device.connect(); error != 0)
        raiseSessionFailure(reference, "AMDeviceConnect", error);
    if (!device.isPaired()) {
        // The pairing record is usbmuxd's to give: a daemon that stopped answering is not an
        // untrusted computer.
        if (MobileDevicePlatform::shared()->notAnswering())
            raiseSessionFailure(reference, "AMDeviceConnect", kAFCDaemonNotAnswering);
        raise(ErrorKind::Refused, "Device pairing failed");
    }
    if (const int error = device.validatePairing(); error != 0)
        raiseSessionFailure(reference, "AMDeviceValidatePairing", error, ErrorKind::Refused);
    if (const int error = device.startSession(); error != 0)
        raiseSessionFailure(reference, "AMDeviceStartSession", error, ErrorKind::Refused);
    device_ = reference;
    return true;
}

std::shared_ptr<AFCConnection> AFCDevice::openDevice(const std::shared_ptr<AFCDeviceRef>& reference, const std::string& service)
{
    if (!reference || !reference->device())
        return nullptr;
    std::shared_ptr<AMService> handle;
    if (const int error = reference->device()->startService(service, handle); error != 0)
        raiseSessionFailure(reference, "AMDeviceStartService", error);
    if (!handle)
        raise(ErrorKind::Other, "AMDeviceStartService didn't initialise a connection");
    std::shared_ptr<AFCConnection> connection;
    if (const int error = handle->afcConnectionOpen(connection); error != 0)
        raiseSessionFailure(reference, "AFCConnectionOpen", error);
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

void AFCDevice::reopenIfCancelled()
{
    // A piece of work that was cancelled in the middle of a request leaves the conduit cut (its
    // socket was shut down to end the wait); the next piece of work gets a new one from the
    // session, which stays open.
    if (!deviceInterface_ || deviceInterface_->lastError() != kAFCRequestCancelled || deviceRequestsCancelled())
        return;
    if (auto connection = openDevice(device_, "com.apple.afc"))
        deviceInterface_ = AFCInterface::initWithAFCConnection(std::move(connection));
}

std::string AFCDevice::describe() const { return describe(device_); }

std::string AFCDevice::describe(const std::shared_ptr<AFCDeviceRef>& reference)
{
    std::optional<std::string> name;
    if (reference && reference->device())
        name = reference->device()->copyValue(std::nullopt, "DeviceName");
    const std::optional<std::string> serial = reference ? reference->serialNumber() : std::nullopt;
    return "the device \"" + name.value_or("iPod") + "\" (serial " + serial.value_or("unknown") + ")";
}

void AFCDevice::raiseFailure(const std::string& path, std::uint64_t offset) const
{
    const int error = deviceInterface_->lastError();
    // Library paths join "/" and an absolute path: one slash is shown.
    std::string where;
    for (const char c : path)
        if (c != '/' || where.empty() || where.back() != '/')
            where += c;
    where += offset ? " at byte " + std::to_string(offset) : "";
    switch (error) {
    case kAFCDeviceDeparted:
        throw Exception(ErrorKind::DeviceGone, "AFCDeviceDeparted", "Lost " + describe() + " while reading " + where +
                                                 ": it was disconnected. Connect it again and run the command again.");
    case kAFCDeviceNotAnswering: {
        std::string who = describe();
        who[0] = 'T';  // it opens the sentence
        throw Exception(ErrorKind::NotAnswering, "AFCDeviceNotAnswering",
                        who + " did not answer within " + requestTimeoutText() +
                            " while reading " + where +
                            ". Unlock it, or disconnect and connect it again, then run the command again "
                            "(ZQ_DEVICE_TIMEOUT sets how many seconds to wait).");
    }
    case kAFCRequestCancelled:
        throw Exception(ErrorKind::Cancelled, "AFCDeviceCancelled", "Reading " + where + " from " + describe() + " was stopped.");
    default:
        throw Exception(kindOfAFCError(error), "AFCDeviceReadError", "Could not read " + where + " from " + describe() + " (AFC error " +
                                                  std::to_string(error) +
                                                  "). Try again; if it fails again, the file is damaged on the device.");
    }
}

bool AFCDevice::hasGone() const { return endsDeviceAccess(kindOfAFCError(deviceInterface_->lastError())); }

std::optional<std::uint64_t> AFCDevice::regularFile(const std::string& path)
{
    const auto size = regularFileSize(*deviceInterface_, path);
    if (!size && hasGone())
        raiseFailure(path, 0);
    return size;
}

std::uint64_t AFCDevice::openForReading(const std::string& path)
{
    const std::uint64_t file = deviceInterface_->openFileAtPath(path, AFCInterface::kModeRead);
    if (file == 0)
        raiseFailure(path, 0);
    return file;
}

/// Where readFile puts what it reads: each piece goes straight into the room the sink gives,
/// so that no piece is copied on its way.
class AFCDevice::PieceSink {
public:
    virtual ~PieceSink() = default;
    /// Room for the next piece, `count` bytes at most; it holds them until take().
    virtual std::uint8_t* room(std::uint32_t count) = 0;
    /// The room now holds a piece of `count` bytes: 0, or an errno that ends the read.
    virtual int take(std::uint32_t count) = 0;
};

namespace {

/// A whole file or a range of one, gathered in one buffer reserved for the size the device
/// gave. A piece goes straight into it when the whole request fits; a request that would run
/// past the reservation (a file's last piece, the request that finds the end, every one of a
/// file shorter than a request, or any after the device understated the size) is read into a
/// spare piece and appended from there, so that a size given right never moves the buffer.
class GrowingBuffer final : public AFCDevice::PieceSink {
public:
    explicit GrowingBuffer(std::size_t expected) { bytes_.reserve(expected); }
    std::uint8_t* room(std::uint32_t count) override
    {
        spare_ = count == 0 || used_ + count > bytes_.capacity();
        if (!spare_) {
            bytes_.resize(used_ + count);
            return bytes_.data() + used_;
        }
        // Requests never grow, so the first spare piece is large enough for the later ones.
        if (count > pieceSize_ || !piece_) {
            pieceSize_ = std::max<std::uint32_t>(count, 1);
            piece_ = std::make_unique_for_overwrite<std::uint8_t[]>(pieceSize_);
        }
        return piece_.get();
    }
    int take(std::uint32_t count) override
    {
        if (spare_)
            bytes_.insert(bytes_.end(), piece_.get(), piece_.get() + count);
        else
            bytes_.resize(used_ + count);  // a short read leaves the rest of its room unused
        used_ += count;
        return 0;
    }
    Data data()
    {
        bytes_.resize(used_);  // the room of a request that found the end holds nothing
        return Data(std::move(bytes_));
    }

private:
    std::vector<std::uint8_t> bytes_;  // used_ long, and the room of the request under way
    std::size_t used_ = 0;
    std::unique_ptr<std::uint8_t[]> piece_;
    std::uint32_t pieceSize_ = 0;
    bool spare_ = false;  // the room given last is piece_
};

/// A copy into a descriptor: one buffer for every piece, so memory stays at one piece whatever
/// the file's size. (Writing on a thread of its own while the next piece is read was tried: on
/// two busy cores the device, the reader and the writer only took turns, and it came out slower.)
class DescriptorWrites final : public AFCDevice::PieceSink {
public:
    explicit DescriptorWrites(int destination) : destination_(destination) {}
    std::uint8_t* room(std::uint32_t count) override
    {
        // Requests never grow, so the first one sizes the buffer. It is not cleared: a small
        // file touches only the pages its bytes land in.
        if (!buffer_)
            buffer_ = std::make_unique_for_overwrite<std::uint8_t[]>(std::max<std::uint32_t>(count, 1));
        return buffer_.get();
    }
    int take(std::uint32_t count) override { return writeAll(destination_, buffer_.get(), count); }

private:
    int destination_;
    std::unique_ptr<std::uint8_t[]> buffer_;
};

} // namespace

std::optional<Data> AFCDevice::contentsOfFileAtPath(const std::string& path)
{
    reopenIfCancelled();
    // The regular-file test, which also tells the size to reserve.
    const auto size = regularFile(path);
    if (!size)
        return std::nullopt;
    GrowingBuffer contents(static_cast<std::size_t>(*size));
    readFile(path, 0, UINT64_MAX, kChunkSize, contents);
    return contents.data();
}

std::optional<Data> AFCDevice::chunkOfFileAtPath(const std::string& path, Range range)
{
    reopenIfCancelled();
    const auto size = regularFile(path);
    if (!size)
        return std::nullopt;
    GrowingBuffer contents(*size > range.location ? static_cast<std::size_t>(std::min<std::uint64_t>(
                                                        range.length, *size - range.location))
                                                  : 0);
    readFile(path, range.location, range.length, kChunkSize, contents);
    return contents.data();
}

FileCopyResult AFCDevice::copyFileAtPath(const std::string& path, int destination, const FileCopyProgress& progress)
{
    reopenIfCancelled();
    if (!regularFile(path))
        return {.error = ENOENT};
    DescriptorWrites writes(destination);
    return readFile(path, 0, UINT64_MAX, kCopyPieceSize, writes, progress);
}

FileCopyResult AFCDevice::readFile(const std::string& path, std::uint64_t location, std::uint64_t length,
                                   std::uint32_t pieceSize, PieceSink& sink, const FileCopyProgress& progress)
{
    const std::uint64_t file = openForReading(path);
    // The file is closed on every way out, the thrown ones included.
    struct Closer {
        AFCInterface& afc;
        std::uint64_t file;
        ~Closer() { afc.closeFile(file); }
    } closer{*deviceInterface_, file};

    FileCopyResult result;
    std::uint64_t remaining = length;
    std::uint64_t offset = location;
    // Each request asks for what the last one got: after a short read the requests stay at
    // that size. A failed read is an error, never the end of the file.
    std::uint32_t count = static_cast<std::uint32_t>(std::min<std::uint64_t>(remaining, pieceSize));
    // Sizes on these devices are 32-bit: a device that never ends a file stops there.
    constexpr std::uint64_t kLargestFile = 0xFFFFFFFFULL;
    for (;;) {
        if (!deviceInterface_->readFromFile(file, sink.room(count), count, offset))
            raiseFailure(path, offset);
        if (count == 0)
            break;
        if (const int error = sink.take(count)) {
            // The sink is the caller's destination: its failure is never the device's.
            result.error = error;
            result.destinationFailed = true;
            return result;
        }
        remaining -= count;  // never more than asked for: the interface refuses a longer answer
        offset += count;
        result.bytesCopied += count;
        if (progress && !progress(result.bytesCopied))
            return result;
        if (offset >= kLargestFile)
            break;
        count = static_cast<std::uint32_t>(std::min<std::uint64_t>(remaining, count));
    }
    result.completed = true;
    return result;
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
    reopenIfCancelled();
    if (!deviceInterface_->isFileAtPath(path))
        return false;
    return deviceInterface_->removePath(path);
}

std::vector<std::string> AFCDevice::listOfFilesAtPath(const std::string& path)
{
    reopenIfCancelled();
    std::vector<std::string> files;
    for (const auto& name : deviceInterface_->listFilesInPath(path))
        if (name != "" && name != "." && name != ".." && deviceInterface_->isFileAtPath(joinPath(path, name)))
            files.push_back(name);
    return files;
}

std::vector<std::string> AFCDevice::listOfFoldersAtPath(const std::string& path)
{
    reopenIfCancelled();
    std::vector<std::string> folders;
    for (const auto& name : deviceInterface_->listFilesInPath(path))
        if (name != "" && name != "." && name != ".." && deviceInterface_->isDirectoryAtPath(joinPath(path, name)))
            folders.push_back(name);
    return folders;
}

bool AFCDevice::fileExistsAtPath(const std::string& path)
{
    reopenIfCancelled();
    if (deviceInterface_->isFileAtPath(path))
        return true;
    if (hasGone())
        raiseFailure(path, 0);
    return false;
}

} // namespace zq
