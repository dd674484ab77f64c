// The device's lockdown service (port 62078 behind usbmuxd): device values, pairing, a session
// without TLS and the start of the AFC service. Frames are a 4-byte big-endian length and an
// XML property list; every reply echoes "Request", and failures carry the "Error" texts a real
// device uses, so that the client maps them to its own error codes.

#include "tools/zq-device-sim/Simulator.h"
#include "tools/zq-device-sim/Wire.h"

#include <sys/statvfs.h>

#include <random>
#include <vector>

namespace zq::sim {

namespace {

constexpr std::uint32_t kLargestFrame = 1u << 20;

// A fixed RSA public key: a client pairing a device it has no record for asks for the device's
// key and builds certificates around it before it sends the Pair request.
constexpr const char* kDevicePublicKey =
    "-----BEGIN RSA PUBLIC KEY-----\n"
    "MIGJAoGBANJ7MZ1opryQk+2y182E4TKbFcVeBX0caxCt7U7d+XSgrx3hV8xJI8a7\n"
    "9VsGfcPGkoJqU1fg/pGdi5aHrlhPJ/m9VqQxDwiJmozHu+DPeuNbZReLoy0yMyPR\n"
    "1Xd6jkvTt1dkeFFk7ACxtMpaWXkYd+XhrfXF/Ud3c7BeXf9kyFKRAgMBAAE=\n"
    "-----END RSA PUBLIC KEY-----\n";

bool sendFrame(int fd, plist_t message)
{
    std::string xml = toXML(message);
    std::vector<std::uint8_t> frame(4 + xml.size());
    std::uint32_t length = std::uint32_t(xml.size());
    frame[0] = std::uint8_t(length >> 24);
    frame[1] = std::uint8_t(length >> 16);
    frame[2] = std::uint8_t(length >> 8);
    frame[3] = std::uint8_t(length);
    std::copy(xml.begin(), xml.end(), frame.begin() + 4);
    return writeAll(fd, frame.data(), frame.size());
}

Plist receiveFrame(int fd, bool& ok)
{
    std::uint8_t prefix[4];
    ok = readExact(fd, prefix, sizeof prefix);
    if (!ok)
        return nullptr;
    std::uint32_t length = std::uint32_t(prefix[0]) << 24 | std::uint32_t(prefix[1]) << 16 |
                           std::uint32_t(prefix[2]) << 8 | prefix[3];
    if (length == 0 || length > kLargestFrame) {
        ok = false;
        return nullptr;
    }
    std::vector<std::uint8_t> body(length);
    ok = readExact(fd, body.data(), body.size());
    if (!ok)
        return nullptr;
    return parsePlist(body.data(), body.size());
}

std::string newSessionID()
{
    std::random_device device;
    std::uniform_int_distribution<int> digit(0, 15);
    std::string id;
    for (int i = 0; i < 32; ++i) {
        if (i == 8 || i == 12 || i == 16 || i == 20)
            id += '-';
        id += "0123456789ABCDEF"[digit(device)];
    }
    return id;
}

/// The values of one domain ("" for none) as a new dictionary; null for an unknown domain.
plist_t newDomainValues(const Device& device, const std::string& domain)
{
    plist_t values = plist_new_dict();
    if (domain.empty()) {
        setString(values, "ActivationState", "Activated");
        setString(values, "BasebandVersion", "");
        setString(values, "BluetoothAddress", "f0:98:9d:00:00:01");
        setString(values, "BuildVersion", "20H307");
        setString(values, "CPUArchitecture", "arm64");
        setString(values, "DeviceClass", device.deviceClass);
        setString(values, "DeviceColor", "1");
        setString(values, "DeviceName", device.name);
        setData(values, "DevicePublicKey", kDevicePublicKey);
        setString(values, "HardwareModel", "N104AP");
        setBool(values, "HostAttached", true);
        setString(values, "ModelNumber", device.modelNumber);
        setBool(values, "PasswordProtected", false);
        setString(values, "ProductName", "iPhone OS");
        setString(values, "ProductType", device.productType);
        setString(values, "ProductVersion", device.productVersion);
        setString(values, "RegionInfo", "LL/A");
        setString(values, "SerialNumber", device.serialNumber);
        setString(values, "TimeZone", "Europe/Berlin");
        setBool(values, "TrustedHostAttached", device.paired);
        setUInt(values, "UniqueChipID", 0x1A2B3C4D5E6Full + device.deviceID);
        setString(values, "UniqueDeviceID", device.udid);
        setString(values, "WiFiAddress", "f0:98:9d:00:00:02");
    } else if (domain == "com.apple.disk_usage" || domain == "com.apple.disk_usage.factory") {
        struct statvfs fs {};
        std::uint64_t total = 0, available = 0;
        if (::statvfs(device.root.c_str(), &fs) == 0) {
            total = std::uint64_t(fs.f_blocks) * fs.f_frsize;
            available = std::uint64_t(fs.f_bavail) * fs.f_frsize;
        }
        setUInt(values, "TotalDiskCapacity", total);
        setUInt(values, "TotalDataCapacity", total);
        setUInt(values, "TotalDataAvailable", available);
        setUInt(values, "AmountDataAvailable", available);
        setUInt(values, "AmountDataReserved", 0);
    } else if (domain == "com.apple.mobile.battery") {
        setUInt(values, "BatteryCurrentCapacity", 100);
        setBool(values, "BatteryIsCharging", false);
        setBool(values, "ExternalConnected", true);
        setBool(values, "FullyCharged", true);
    } else {
        plist_free(values);
        return nullptr;
    }
    return values;
}

} // namespace

void serveLockdown(int fd, Device& device)
{
    bool inSession = false;
    for (;;) {
        bool ok = false;
        Plist request = receiveFrame(fd, ok);
        if (!ok)
            return;
        if (device.lockdownSilent)
            continue;
        Plist reply(plist_new_dict());
        auto name = stringItem(request.get(), "Request");
        if (!name) {
            setString(reply.get(), "Error", "InvalidRequest");
            if (!sendFrame(fd, reply.get()))
                return;
            continue;
        }
        setString(reply.get(), "Request", *name);
        auto fail = [&](const char* error) { setString(reply.get(), "Error", error); };
        auto succeed = [&] { setString(reply.get(), "Result", "Success"); };
        bool closeAfterReply = false;

        if (*name == "QueryType") {
            setString(reply.get(), "Type", "com.apple.mobile.lockdown");
        } else if (*name == "GetValue") {
            auto domain = stringItem(request.get(), "Domain");
            auto key = stringItem(request.get(), "Key");
            if (domain)
                setString(reply.get(), "Domain", *domain);
            if (key)
                setString(reply.get(), "Key", *key);
            Plist values(newDomainValues(device, domain.value_or("")));
            plist_t value = nullptr;
            if (values && !key)
                value = plist_copy(values.get());
            else if (values && key)
                if (plist_t item = plist_dict_get_item(values.get(), key->c_str()))
                    value = plist_copy(item);
            if (value) {
                plist_dict_set_item(reply.get(), "Value", value);
                succeed();
            } else {
                fail("MissingValue");
            }
        } else if (*name == "ValidatePair") {
            device.paired ? succeed() : fail("InvalidHostID");
        } else if (*name == "Pair") {
            // An untrusted device shows its "Trust this computer?" question and refuses until the
            // person answers; the simulated person never does.
            device.paired ? succeed() : fail("PairingDialogResponsePending");
        } else if (*name == "Unpair") {
            succeed();
        } else if (*name == "StartSession") {
            if (!device.paired) {
                fail("InvalidHostID");
            } else if (!stringItem(request.get(), "HostID")) {
                fail("InvalidHostID");
            } else {
                inSession = true;
                setString(reply.get(), "SessionID", newSessionID());
                setBool(reply.get(), "EnableSessionSSL", false);
                succeed();
            }
        } else if (*name == "StopSession") {
            inSession = false;
            succeed();
        } else if (*name == "StartService") {
            auto service = stringItem(request.get(), "Service");
            if (service)
                setString(reply.get(), "Service", *service);
            if (!inSession) {
                fail("SessionInactive");
            } else if (service != "com.apple.afc") {
                fail("InvalidService");
            } else {
                std::uint16_t port = 0;
                {
                    std::lock_guard lock(device.servicesMutex);
                    port = device.nextServicePort;
                    device.nextServicePort = port >= 65000 ? 49152 : std::uint16_t(port + 1);
                    device.servicePorts.insert(port);
                }
                setUInt(reply.get(), "Port", port);
                setBool(reply.get(), "EnableServiceSSL", false);
                succeed();
            }
        } else if (*name == "Goodbye") {
            succeed();
            closeAfterReply = true;
        } else {
            fail("InvalidRequest");
        }
        if (!sendFrame(fd, reply.get()) || closeAfterReply)
            return;
    }
}

} // namespace zq::sim
