#include "tools/zq-device-sim/Simulator.h"

#include "tools/zq-device-sim/Wire.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace zq::sim {

namespace {

// usbmuxd's own constants: plist messages (type 8) of protocol version 1, and the result
// numbers its clients know.
constexpr std::uint32_t kProtocolVersion = 1;
constexpr std::uint32_t kMessagePlist = 8;
constexpr std::uint64_t kResultOK = 0;
constexpr std::uint64_t kResultBadCommand = 1;
constexpr std::uint64_t kResultBadDevice = 2;
constexpr std::uint64_t kResultConnectionRefused = 3;
constexpr std::uint32_t kLargestMessage = 1u << 20;
constexpr std::uint16_t kLockdownPort = 62078;

std::string randomUUID()
{
    std::random_device device;
    std::mt19937_64 generator(device());
    std::uniform_int_distribution<int> digit(0, 15);
    std::string uuid;
    for (int i = 0; i < 32; ++i) {
        if (i == 8 || i == 12 || i == 16 || i == 20)
            uuid += '-';
        uuid += "0123456789ABCDEF"[digit(generator)];
    }
    return uuid;
}

} // namespace

struct Simulator::Connection {
    std::uint64_t id = 0;
    int fd = -1;
    std::mutex writeMutex;  // listeners are written to by the control thread too
    bool listening = false;
    std::string udid;  // the device this connection was handed over to, once connected
};

Simulator::Simulator(const std::string& address)
    : systemBUID_(randomUUID()), hostID_(randomUUID())
{
    if (address.rfind("UNIX:", 0) == 0) {
        unixPath_ = address.substr(5);
        sockaddr_un sun{};
        sun.sun_family = AF_UNIX;
        if (unixPath_.empty() || unixPath_.size() >= sizeof(sun.sun_path))
            throw std::runtime_error("bad socket path " + unixPath_);
        std::copy(unixPath_.begin(), unixPath_.end(), sun.sun_path);
        ::unlink(unixPath_.c_str());
        listenFD_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (listenFD_ < 0 || ::bind(listenFD_, reinterpret_cast<sockaddr*>(&sun), sizeof sun) != 0)
            throw std::runtime_error("cannot bind " + unixPath_);
        address_ = address;
    } else {
        auto colon = address.rfind(':');
        if (colon == std::string::npos)
            throw std::runtime_error("address must be UNIX:/path or host:port");
        std::string host = address.substr(0, colon);
        std::string port = address.substr(colon + 1);
        addrinfo hints{};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
        addrinfo* found = nullptr;
        if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0 || !found)
            throw std::runtime_error("bad address " + address);
        listenFD_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int yes = 1;
        ::setsockopt(listenFD_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        bool bound = listenFD_ >= 0 && ::bind(listenFD_, found->ai_addr, found->ai_addrlen) == 0;
        ::freeaddrinfo(found);
        if (!bound)
            throw std::runtime_error("cannot bind " + address);
        sockaddr_in actual{};
        socklen_t length = sizeof actual;
        ::getsockname(listenFD_, reinterpret_cast<sockaddr*>(&actual), &length);
        address_ = host + ":" + std::to_string(ntohs(actual.sin_port));
    }
    if (::listen(listenFD_, 64) != 0)
        throw std::runtime_error("cannot listen on " + address);
}

Simulator::~Simulator()
{
    stop();
    if (!unixPath_.empty())
        ::unlink(unixPath_.c_str());
}

void Simulator::start()
{
    acceptRunning_ = true;
    std::thread([this] { acceptLoop(); }).detach();
}

void Simulator::acceptLoop()
{
    for (;;) {
        int fd = ::accept4(listenFD_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            break;
        }
        int yes = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);  // harmless on UNIX sockets
        auto connection = std::make_shared<Connection>();
        connection->fd = fd;
        {
            std::lock_guard lock(mutex_);
            if (stopping_) {
                ::close(fd);
                break;
            }
            connection->id = nextConnectionID_++;
            connections_[connection->id] = connection;
            ++runningThreads_;
        }
        std::thread([this, connection] { serve(connection); }).detach();
    }
    std::lock_guard lock(acceptMutex_);
    acceptRunning_ = false;
    acceptDone_.notify_all();
}

void Simulator::serve(std::shared_ptr<Connection> connection)
{
    serveUsbmux(*connection);
    std::lock_guard lock(mutex_);
    connections_.erase(connection->id);
    ::close(connection->fd);
    if (--runningThreads_ == 0)
        threadsDone_.notify_all();
}

namespace {

bool sendMessage(int fd, std::uint32_t tag, plist_t message)
{
    std::string xml = toXML(message);
    std::vector<std::uint8_t> packet(16 + xml.size());
    storeLE32(packet.data(), std::uint32_t(packet.size()));
    storeLE32(packet.data() + 4, kProtocolVersion);
    storeLE32(packet.data() + 8, kMessagePlist);
    storeLE32(packet.data() + 12, tag);
    std::copy(xml.begin(), xml.end(), packet.begin() + 16);
    return writeAll(fd, packet.data(), packet.size());
}

bool sendResult(int fd, std::uint32_t tag, std::uint64_t number)
{
    Plist reply(plist_new_dict());
    setString(reply.get(), "MessageType", "Result");
    setUInt(reply.get(), "Number", number);
    return sendMessage(fd, tag, reply.get());
}

plist_t newProperties(const Device& device)
{
    plist_t properties = plist_new_dict();
    setUInt(properties, "ConnectionSpeed", 480000000);
    setString(properties, "ConnectionType", "USB");
    setUInt(properties, "DeviceID", device.deviceID);
    setUInt(properties, "LocationID", 0x14100000u + device.deviceID);
    setUInt(properties, "ProductID", 0x12a8);
    setString(properties, "SerialNumber", device.udid);
    setString(properties, "USBSerialNumber", device.udid);
    return properties;
}

plist_t newAttachedMessage(const Device& device)
{
    plist_t message = plist_new_dict();
    setString(message, "MessageType", "Attached");
    setUInt(message, "DeviceID", device.deviceID);
    plist_dict_set_item(message, "Properties", newProperties(device));
    return message;
}

} // namespace

bool Simulator::serveUsbmux(Connection& connection)
{
    const int fd = connection.fd;
    for (;;) {
        std::uint8_t header[16];
        if (!readExact(fd, header, sizeof header))
            return false;
        std::uint32_t length = loadLE32(header);
        std::uint32_t version = loadLE32(header + 4);
        std::uint32_t type = loadLE32(header + 8);
        std::uint32_t tag = loadLE32(header + 12);
        if (length < 16 || length > kLargestMessage)
            return false;
        std::vector<std::uint8_t> payload(length - 16);
        if (!readExact(fd, payload.data(), payload.size()))
            return false;
        if (version != kProtocolVersion || type != kMessagePlist)
            return false;  // only the plist protocol is spoken, as by every current usbmuxd
        if (hung_)
            continue;  // read and never answered, as by a daemon that has stopped working
        Plist request = parsePlist(payload.data(), payload.size());
        auto messageType = stringItem(request.get(), "MessageType");
        if (!messageType) {
            sendResult(fd, tag, kResultBadCommand);
            continue;
        }
        if (*messageType == "ListDevices") {
            Plist reply(plist_new_dict());
            plist_t list = plist_new_array();
            {
                std::lock_guard lock(mutex_);
                for (const auto& [udid, device] : devices_)
                    plist_array_append_item(list, newAttachedMessage(*device));
            }
            plist_dict_set_item(reply.get(), "DeviceList", list);
            if (!sendMessage(fd, tag, reply.get()))
                return false;
        } else if (*messageType == "Listen") {
            // The result and the devices present now go out under the lock, so that an attach
            // or detach command cannot slip in between and be seen out of order.
            std::lock_guard lock(mutex_);
            std::lock_guard writeLock(connection.writeMutex);
            connection.listening = true;
            if (!sendResult(fd, tag, kResultOK))
                return false;
            for (const auto& [udid, device] : devices_) {
                Plist message(newAttachedMessage(*device));
                if (!sendMessage(fd, 0, message.get()))
                    return false;
            }
        } else if (*messageType == "Connect") {
            auto deviceID = uintItem(request.get(), "DeviceID");
            auto portField = uintItem(request.get(), "PortNumber");
            std::shared_ptr<Device> device = deviceID ? deviceWithID(std::uint32_t(*deviceID)) : nullptr;
            if (!device || !portField) {
                if (!sendResult(fd, tag, kResultBadDevice))
                    return false;
                continue;
            }
            // The client sends the port in network byte order inside the integer.
            std::uint16_t port = ntohs(std::uint16_t(*portField));
            bool isService = false;
            {
                std::lock_guard lock(device->servicesMutex);
                isService = device->servicePorts.count(port) > 0;
            }
            if (port != kLockdownPort && !isService) {
                if (!sendResult(fd, tag, kResultConnectionRefused))
                    return false;
                continue;
            }
            {
                std::lock_guard lock(mutex_);
                connection.udid = device->udid;
            }
            if (!sendResult(fd, tag, kResultOK))
                return false;
            if (port == kLockdownPort)
                serveLockdown(fd, *device);
            else
                serveAFC(fd, *device);
            return true;
        } else if (*messageType == "ReadBUID") {
            Plist reply(plist_new_dict());
            setString(reply.get(), "BUID", systemBUID_);
            if (!sendMessage(fd, tag, reply.get()))
                return false;
        } else if (*messageType == "ReadPairRecord") {
            std::string record = pairRecord(stringItem(request.get(), "PairRecordID").value_or(""));
            if (record.empty()) {
                if (!sendResult(fd, tag, kResultBadDevice))
                    return false;
                continue;
            }
            Plist reply(plist_new_dict());
            setData(reply.get(), "PairRecordData", record);
            if (!sendMessage(fd, tag, reply.get()))
                return false;
        } else if (*messageType == "SavePairRecord") {
            auto udid = stringItem(request.get(), "PairRecordID");
            plist_t data = plist_dict_get_item(request.get(), "PairRecordData");
            if (!udid || !data || plist_get_node_type(data) != PLIST_DATA) {
                if (!sendResult(fd, tag, kResultBadCommand))
                    return false;
                continue;
            }
            char* bytes = nullptr;
            std::uint64_t size = 0;
            plist_get_data_val(data, &bytes, &size);
            savePairRecord(*udid, std::string(bytes ? bytes : "", bytes ? size : 0));
            std::free(bytes);
            if (!sendResult(fd, tag, kResultOK))
                return false;
        } else if (*messageType == "DeletePairRecord") {
            deletePairRecord(stringItem(request.get(), "PairRecordID").value_or(""));
            if (!sendResult(fd, tag, kResultOK))
                return false;
        } else if (*messageType == "ListListeners") {
            Plist reply(plist_new_dict());
            plist_dict_set_item(reply.get(), "ListenerList", plist_new_array());
            if (!sendMessage(fd, tag, reply.get()))
                return false;
        } else {
            if (!sendResult(fd, tag, kResultBadCommand))
                return false;
        }
    }
}

std::shared_ptr<Device> Simulator::deviceWithID(std::uint32_t deviceID)
{
    std::lock_guard lock(mutex_);
    for (const auto& [udid, device] : devices_)
        if (device->deviceID == deviceID)
            return device;
    return nullptr;
}

std::string Simulator::pairRecord(const std::string& udid)
{
    std::lock_guard lock(mutex_);
    if (auto saved = savedPairRecords_.find(udid); saved != savedPairRecords_.end())
        return saved->second;
    if (deletedPairRecords_.count(udid))
        return {};
    auto device = devices_.find(udid);
    if (device == devices_.end() || !device->second->paired)
        return {};
    // Without TLS the client needs only the host's identity from the record.
    Plist record(plist_new_dict());
    setString(record.get(), "HostID", hostID_);
    setString(record.get(), "SystemBUID", systemBUID_);
    return toXML(record.get());
}

void Simulator::savePairRecord(const std::string& udid, const std::string& record)
{
    std::lock_guard lock(mutex_);
    savedPairRecords_[udid] = record;
    deletedPairRecords_.erase(udid);
}

void Simulator::deletePairRecord(const std::string& udid)
{
    std::lock_guard lock(mutex_);
    savedPairRecords_.erase(udid);
    deletedPairRecords_.insert(udid);
}

void Simulator::broadcast(const std::string& xml)
{
    // Called with mutex_ held. A listener that does not read for seconds is dropped rather
    // than allowed to stall the control commands.
    std::vector<std::uint8_t> packet(16 + xml.size());
    storeLE32(packet.data(), std::uint32_t(packet.size()));
    storeLE32(packet.data() + 4, kProtocolVersion);
    storeLE32(packet.data() + 8, kMessagePlist);
    storeLE32(packet.data() + 12, 0);
    std::copy(xml.begin(), xml.end(), packet.begin() + 16);
    for (auto& [id, connection] : connections_) {
        std::lock_guard writeLock(connection->writeMutex);
        if (!connection->listening)
            continue;
        timeval timeout{2, 0};
        ::setsockopt(connection->fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        if (!writeAll(connection->fd, packet.data(), packet.size()))
            ::shutdown(connection->fd, SHUT_RDWR);
    }
}

std::string Simulator::attach(std::shared_ptr<Device> device)
{
    std::lock_guard lock(mutex_);
    if (devices_.count(device->udid))
        return "device " + device->udid + " is already attached";
    device->deviceID = nextDeviceID_++;
    devices_[device->udid] = device;
    Plist message(newAttachedMessage(*device));
    broadcast(toXML(message.get()));
    return {};
}

std::string Simulator::detach(const std::string& udid)
{
    std::lock_guard lock(mutex_);
    auto found = devices_.find(udid);
    if (found == devices_.end())
        return "no device " + udid;
    std::uint32_t deviceID = found->second->deviceID;
    devices_.erase(found);
    // A device that leaves takes its connections with it, as the cable does.
    for (auto& [id, connection] : connections_)
        if (connection->udid == udid)
            ::shutdown(connection->fd, SHUT_RDWR);
    Plist message(plist_new_dict());
    setString(message.get(), "MessageType", "Detached");
    setUInt(message.get(), "DeviceID", deviceID);
    broadcast(toXML(message.get()));
    return {};
}

void Simulator::restart()
{
    std::lock_guard lock(mutex_);
    for (auto& [id, connection] : connections_)
        ::shutdown(connection->fd, SHUT_RDWR);
}

void Simulator::stop()
{
    {
        std::lock_guard lock(mutex_);
        if (stopping_)
            return;
        stopping_ = true;
        for (auto& [id, connection] : connections_)
            ::shutdown(connection->fd, SHUT_RDWR);
    }
    if (listenFD_ >= 0) {
        ::shutdown(listenFD_, SHUT_RDWR);
        std::unique_lock lock(acceptMutex_);
        acceptDone_.wait_for(lock, std::chrono::seconds(2), [this] { return !acceptRunning_; });
    }
    {
        std::unique_lock lock(mutex_);
        threadsDone_.wait_for(lock, std::chrono::seconds(2), [this] { return runningThreads_ == 0; });
    }
    if (listenFD_ >= 0)
        ::close(listenFD_);
    listenFD_ = -1;
}

} // namespace zq::sim
