// The simulated device, driven by the real libimobiledevice client: if these pass, the framework's
// mobile-device layer meets in tests what it meets behind the system's usbmuxd.

#include "tests/support/SampleDevice.h"
#include "tests/support/SimulatedDevice.h"

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <usbmuxd.h>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zq::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint32_t kChunk = 262144;

std::vector<char> patternBytes(std::size_t size, unsigned seed = 7)
{
    std::vector<char> bytes(size);
    for (auto& byte : bytes)
        byte = char((seed = seed * 1103515245u + 12345u) >> 16);
    return bytes;
}

void writeFile(const std::string& path, const std::vector<char>& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

std::vector<char> readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The strings of a list the client made, which is freed and reset (the client fills only empty ones).
std::vector<std::string> takeList(char**& list)
{
    std::vector<std::string> result;
    for (char** item = list; item && *item; ++item)
        result.emplace_back(*item);
    if (list)
        afc_dictionary_free(list);
    list = nullptr;
    return result;
}

std::string infoValue(afc_client_t afc, const std::string& path, const std::string& key)
{
    char** info = nullptr;
    afc_get_file_info(afc, path.c_str(), &info);
    auto pairs = takeList(info);
    for (std::size_t i = 0; i + 1 < pairs.size(); i += 2)
        if (pairs[i] == key)
            return pairs[i + 1];
    return {};
}

/// A device connection with a lockdown client (no handshake); with `afc`, opened the way the
/// framework opens one: handshake, the AFC service, an AFC client on its port.
struct OpenDevice {
    idevice_t device = nullptr;
    lockdownd_client_t lockdown = nullptr;
    afc_client_t afc = nullptr;
    lockdownd_error_t lockdownError = LOCKDOWN_E_SUCCESS;
    afc_error_t afcError = AFC_E_SUCCESS;
    std::uint16_t port = 0;

    explicit OpenDevice(const std::string& udid, bool withAFC = true)
    {
        if (idevice_new(&device, udid.c_str()) != IDEVICE_E_SUCCESS)
            return;
        lockdownError = withAFC ? lockdownd_client_new_with_handshake(device, &lockdown, "zqcore-tests")
                                : lockdownd_client_new(device, &lockdown, "zqcore-tests");
        if (lockdownError != LOCKDOWN_E_SUCCESS || !withAFC)
            return;
        lockdownd_service_descriptor_t service = nullptr;
        if ((lockdownError = lockdownd_start_service(lockdown, "com.apple.afc", &service)) != LOCKDOWN_E_SUCCESS)
            return;
        port = service->port;
        afcError = afc_client_new(device, service, &afc);
        lockdownd_service_descriptor_free(service);
    }
    ~OpenDevice()
    {
        if (afc)
            afc_client_free(afc);
        if (lockdown)
            lockdownd_client_free(lockdown);
        if (device)
            idevice_free(device);
    }
    OpenDevice(const OpenDevice&) = delete;
    OpenDevice& operator=(const OpenDevice&) = delete;
};

/// Arrival and departure events as the client library reports them (on its own thread).
class EventLog {
public:
    EventLog() { idevice_event_subscribe(&EventLog::callback, this); }
    ~EventLog() { idevice_event_unsubscribe(); }

    /// The next event, "add UDID" or "remove UDID"; "" on time-out.
    std::string next(std::chrono::milliseconds timeout = std::chrono::seconds(5))
    {
        std::unique_lock lock(mutex_);
        if (!arrived_.wait_for(lock, timeout, [this] { return !events_.empty(); }))
            return {};
        std::string event = events_.front();
        events_.pop_front();
        return event;
    }

private:
    static void callback(const idevice_event_t* event, void* context)
    {
        auto* self = static_cast<EventLog*>(context);
        std::lock_guard lock(self->mutex_);
        std::string kind = event->event == IDEVICE_DEVICE_ADD ? "add " : event->event == IDEVICE_DEVICE_REMOVE ? "remove " : "paired ";
        self->events_.push_back(kind + (event->udid ? event->udid : ""));
        self->arrived_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::string> events_;
};

class SimulatorTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { std::signal(SIGPIPE, SIG_IGN); }
    void SetUp() override
    {
        simulator_ = std::make_unique<SimulatedUsbmuxd>(listen());
        simulator_->exportAddress();
        spec_.udid = "00008030-000A1B2C3D4E5F60";
        spec_.root = root_.path();
        simulator_->attach(spec_);
    }
    void TearDown() override { simulator_.reset(); }
    virtual SimulatedUsbmuxd::Listen listen() const { return SimulatedUsbmuxd::Listen::Unix; }

    TempDir root_;
    SimulatedDeviceSpec spec_;
    std::unique_ptr<SimulatedUsbmuxd> simulator_;
};

// ---- usbmuxd, lockdown, pairing ----------------------------------------------------------------

TEST_F(SimulatorTest, EventsAndDeviceListFollowAttachAndDetach)
{
    auto list = [] {
        char** udids = nullptr;
        int count = 0;
        idevice_get_device_list(&udids, &count);
        std::vector<std::string> result(udids, udids + count);
        idevice_device_list_free(udids);
        std::sort(result.begin(), result.end());
        return result;
    };
    EventLog events;
    EXPECT_EQ(events.next(), "add " + spec_.udid);  // already attached when the client listens
    SimulatedDeviceSpec second = spec_;
    second.udid = "00008030-0000000000000002";
    simulator_->attach(second);
    EXPECT_EQ(events.next(), "add " + second.udid);
    EXPECT_EQ(list(), (std::vector<std::string>{second.udid, spec_.udid}));
    simulator_->detach(spec_.udid);
    EXPECT_EQ(events.next(), "remove " + spec_.udid);
    EXPECT_EQ(events.next(std::chrono::milliseconds(200)), "");
    EXPECT_EQ(list(), std::vector<std::string>{second.udid});
    EXPECT_THROW(simulator_->detach(spec_.udid), std::runtime_error);
}

TEST_F(SimulatorTest, LockdownAnswersTheDevicesValues)
{
    struct Case {
        const char* domain;
        const char* key;
        std::string expected;  // "" = any non-empty value
    };
    const Case cases[] = {{nullptr, "DeviceName", "Simulated iPhone"}, {nullptr, "ProductType", "iPhone12,1"},
                          {nullptr, "SerialNumber", "F2LZK0ABCDEF"}, {nullptr, "UniqueDeviceID", spec_.udid},
                          {nullptr, "DeviceClass", "iPhone"}, {nullptr, "ProductVersion", ""},
                          {nullptr, "ModelNumber", ""}, {"com.apple.disk_usage", "TotalDiskCapacity", ""}};
    OpenDevice open(spec_.udid, false);
    ASSERT_EQ(open.lockdownError, LOCKDOWN_E_SUCCESS);
    for (const Case& c : cases) {
        plist_t value = nullptr;
        ASSERT_EQ(lockdownd_get_value(open.lockdown, c.domain, c.key, &value), LOCKDOWN_E_SUCCESS) << c.key;
        std::string text;
        std::uint64_t n = 0;
        if (plist_get_node_type(value) == PLIST_STRING) {
            char* s = nullptr;
            plist_get_string_val(value, &s);
            text = s;
            free(s);
        } else if (plist_get_node_type(value) == PLIST_UINT) {
            plist_get_uint_val(value, &n);
            text = std::to_string(n);
        }
        plist_free(value);
        if (c.expected.empty())
            EXPECT_FALSE(text.empty() || text == "0") << c.key;
        else
            EXPECT_EQ(text, c.expected) << c.key;
    }
    plist_t value = nullptr;
    EXPECT_NE(lockdownd_get_value(open.lockdown, nullptr, "NoSuchKey", &value), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(value, nullptr);
}

// The steps one by one, as a layer that reports each failure separately takes them.
TEST_F(SimulatorTest, PairedDeviceStartsASessionAndAFCStepByStep)
{
    OpenDevice open(spec_.udid, false);
    ASSERT_EQ(open.lockdownError, LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(lockdownd_validate_pair(open.lockdown, nullptr), LOCKDOWN_E_SUCCESS);
    char* record = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(usbmuxd_read_pair_record(spec_.udid.c_str(), &record, &size), 0);
    std::string text(record, size);
    free(record);
    auto begin = text.find("<key>HostID</key>");
    ASSERT_NE(begin, std::string::npos);
    begin = text.find("<string>", begin) + 8;
    char* session = nullptr;
    int ssl = 1;
    EXPECT_EQ(lockdownd_start_session(open.lockdown, text.substr(begin, text.find("</string>", begin) - begin).c_str(),
                                      &session, &ssl),
              LOCKDOWN_E_SUCCESS);
    EXPECT_NE(session, nullptr);
    EXPECT_EQ(ssl, 0);
    free(session);
    lockdownd_service_descriptor_t service = nullptr;
    ASSERT_EQ(lockdownd_start_service(open.lockdown, "com.apple.afc", &service), LOCKDOWN_E_SUCCESS);
    EXPECT_NE(service->port, 0);
    ASSERT_EQ(afc_client_new(open.device, service, &open.afc), AFC_E_SUCCESS);
    lockdownd_service_descriptor_free(service);
    service = nullptr;  // the client fills a descriptor it is given instead of making one
    EXPECT_NE(lockdownd_start_service(open.lockdown, "com.apple.mobile.notification_proxy", &service), LOCKDOWN_E_SUCCESS);
    lockdownd_service_descriptor_free(service);

    char** info = nullptr;
    ASSERT_EQ(afc_get_device_info(open.afc, &info), AFC_E_SUCCESS);
    auto pairs = takeList(info);
    ASSERT_EQ(pairs.size(), 8u);
    EXPECT_EQ(pairs[0] + pairs[2] + pairs[4] + pairs[6], "ModelFSTotalBytesFSFreeBytesFSBlockSize");
    EXPECT_EQ(pairs[1], "iPhone12,1");
    EXPECT_GT(std::stoull(pairs[3]), 0u);
}

// Pairing anew builds certificates around the device's key and saves the record with usbmuxd.
TEST_F(SimulatorTest, PairingAgainSavesANewRecord)
{
    {
        OpenDevice open(spec_.udid, false);
        ASSERT_EQ(lockdownd_pair(open.lockdown, nullptr), LOCKDOWN_E_SUCCESS);
    }
    char* record = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(usbmuxd_read_pair_record(spec_.udid.c_str(), &record, &size), 0);
    EXPECT_NE(std::string(record, size).find("HostCertificate"), std::string::npos);
    free(record);
    EXPECT_NE(OpenDevice(spec_.udid).afc, nullptr);
}

TEST_F(SimulatorTest, UnpairedDeviceRefusesPairingAndSessions)
{
    SimulatedDeviceSpec stranger = spec_;
    stranger.udid = "00008030-00000000000000FF";
    stranger.paired = false;
    simulator_->attach(stranger);
    char* record = nullptr;
    std::uint32_t size = 0;
    EXPECT_NE(usbmuxd_read_pair_record(stranger.udid.c_str(), &record, &size), 0);
    free(record);

    OpenDevice handshake(stranger.udid);
    EXPECT_EQ(handshake.lockdownError, LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING);
    EXPECT_EQ(handshake.afc, nullptr);
    // Even with a host identity in hand, the device will not start a session.
    OpenDevice open(stranger.udid, false);
    ASSERT_EQ(open.lockdownError, LOCKDOWN_E_SUCCESS);
    EXPECT_NE(lockdownd_validate_pair(open.lockdown, nullptr), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(lockdownd_start_session(open.lockdown, "5D3E5C8A-0000-4000-8000-000000000001", nullptr, nullptr),
              LOCKDOWN_E_INVALID_HOST_ID);
    lockdownd_service_descriptor_t service = nullptr;
    EXPECT_NE(lockdownd_start_service(open.lockdown, "com.apple.afc", &service), LOCKDOWN_E_SUCCESS);
}

// ---- AFC reads in the framework's 256 KiB steps -------------------------------------------------

struct ReadCase {
    const char* name;
    std::size_t fileSize;
    std::uint32_t location;
    std::uint32_t length;  // for whole-file reads: ignored
    bool whole;
    std::vector<std::uint32_t> expectedRequests;  // bytes asked, in order
};
void PrintTo(const ReadCase& c, std::ostream* os) { *os << c.name; }

class AFCReadTest : public SimulatorTest, public ::testing::WithParamInterface<ReadCase> {};

// As the framework reads: seek, read the wanted count, then ask for the smaller of what remains
// and what the last read gave, until a read gives nothing.
TEST_P(AFCReadTest, ReadsInChunks)
{
    const ReadCase& c = GetParam();
    auto content = patternBytes(c.fileSize);
    writeFile(root_.file("Music/track.m4a"), content);
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    std::uint64_t handle = 0;
    ASSERT_EQ(afc_file_open(open.afc, "/Music/track.m4a", AFC_FOPEN_RW, &handle), AFC_E_SUCCESS);
    std::vector<char> got;
    std::vector<std::uint32_t> requests;
    std::uint64_t offset = c.whole ? 0 : c.location;
    std::uint32_t remaining = c.whole ? UINT32_MAX : c.length;
    for (std::uint32_t ask = std::min(remaining, kChunk);;) {
        requests.push_back(ask);
        ASSERT_EQ(afc_file_seek(open.afc, handle, std::int64_t(offset), SEEK_SET), AFC_E_SUCCESS);
        std::vector<char> buffer(ask);
        std::uint32_t read = 0;
        ASSERT_EQ(afc_file_read(open.afc, handle, buffer.data(), ask, &read), AFC_E_SUCCESS);
        if (read == 0)
            break;
        got.insert(got.end(), buffer.begin(), buffer.begin() + read);
        offset += read;
        remaining -= c.whole ? 0 : read;
        ask = std::min(remaining, read);
    }
    EXPECT_EQ(afc_file_close(open.afc, handle), AFC_E_SUCCESS);
    EXPECT_EQ(requests, c.expectedRequests);
    std::size_t begin = c.whole ? 0 : std::min<std::size_t>(c.location, content.size());
    std::size_t end = c.whole ? content.size() : std::min<std::size_t>(std::size_t(c.location) + c.length, content.size());
    EXPECT_TRUE(got == std::vector<char>(content.begin() + std::ptrdiff_t(begin), content.begin() + std::ptrdiff_t(end)));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, AFCReadTest,
    ::testing::Values(ReadCase{"WholeExactlyOneChunk", 262144, 0, 0, true, {262144, 262144}},
                      ReadCase{"Whole300000", 300000, 0, 0, true, {262144, 262144, 37856}},
                      ReadCase{"WholeEmptyFile", 0, 0, 0, true, {262144}},
                      ReadCase{"RangeInsideSecondChunk", 600000, 300000, 1000, false, {1000, 0}},
                      ReadCase{"RangeAcrossChunks", 600000, 100000, 400000, false, {262144, 137856, 0}},
                      ReadCase{"RangeOfLengthZero", 1000, 10, 0, false, {0}},
                      ReadCase{"RangePastTheEnd", 1000, 5000, 100, false, {100}},
                      ReadCase{"RangeRunningPastTheEnd", 1000, 900, 500, false, {500, 100}}),
    [](const auto& test) { return std::string(test.param.name); });

// ---- AFC changes --------------------------------------------------------------------------------

TEST_F(SimulatorTest, CreatesListsRenamesAndRemoves)
{
    std::filesystem::create_directories(root_.file("iTunes_Control/iTunes"));
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    afc_client_t afc = open.afc;
    char** listing = nullptr;
    std::uint64_t handle = 0;
    EXPECT_EQ(afc_file_open(afc, "/iTunes_Control", AFC_FOPEN_RDONLY, &handle), AFC_E_OBJECT_IS_DIR);
    EXPECT_EQ(afc_read_directory(afc, "/missing", &listing), AFC_E_OBJECT_NOT_FOUND);
    ASSERT_EQ(afc_read_directory(afc, "/", &listing), AFC_E_SUCCESS);
    EXPECT_EQ(takeList(listing), (std::vector<std::string>{".", "..", "iTunes_Control"}));
    ASSERT_EQ(afc_make_directory(afc, "/Books"), AFC_E_SUCCESS);
    EXPECT_EQ(afc_make_directory(afc, "/Books"), AFC_E_SUCCESS);  // already there is fine
    EXPECT_EQ(infoValue(afc, "/Books", "st_ifmt"), "S_IFDIR");

    // Written in 256 KiB pieces, the way the framework creates files.
    auto content = patternBytes(600000, 3);
    ASSERT_EQ(afc_file_open(afc, "/Books/b.bin", AFC_FOPEN_WRONLY, &handle), AFC_E_SUCCESS);
    for (std::size_t offset = 0; offset < content.size(); offset += kChunk) {
        std::uint32_t piece = std::uint32_t(std::min<std::size_t>(kChunk, content.size() - offset)), written = 0;
        ASSERT_EQ(afc_file_seek(afc, handle, std::int64_t(offset), SEEK_SET), AFC_E_SUCCESS);
        ASSERT_EQ(afc_file_write(afc, handle, content.data() + offset, piece, &written), AFC_E_SUCCESS);
        EXPECT_EQ(written, piece);
    }
    ASSERT_EQ(afc_file_close(afc, handle), AFC_E_SUCCESS);
    EXPECT_TRUE(readFile(root_.file("Books/b.bin")) == content);
    EXPECT_EQ(infoValue(afc, "/Books/b.bin", "st_ifmt"), "S_IFREG");
    EXPECT_EQ(infoValue(afc, "/Books/b.bin", "st_size"), "600000");

    writeFile(root_.file("Books/a.txt"), {'a'});
    ASSERT_EQ(afc_read_directory(afc, "/Books", &listing), AFC_E_SUCCESS);
    EXPECT_EQ(takeList(listing), (std::vector<std::string>{".", "..", "a.txt", "b.bin"}));

    ASSERT_EQ(afc_rename_path(afc, "/Books/b.bin", "/Books/c.bin"), AFC_E_SUCCESS);
    EXPECT_FALSE(std::filesystem::exists(root_.file("Books/b.bin")));
    EXPECT_TRUE(readFile(root_.file("Books/c.bin")) == content);
    EXPECT_EQ(afc_remove_path(afc, "/Books"), AFC_E_DIR_NOT_EMPTY);
    EXPECT_EQ(afc_remove_path(afc, "/Books/c.bin"), AFC_E_SUCCESS);
    EXPECT_EQ(afc_remove_path(afc, "/Books/c.bin"), AFC_E_OBJECT_NOT_FOUND);
    EXPECT_EQ(afc_remove_path(afc, "/Books/a.txt"), AFC_E_SUCCESS);
    EXPECT_EQ(afc_remove_path(afc, "/Books"), AFC_E_SUCCESS);
    EXPECT_FALSE(std::filesystem::exists(root_.file("Books")));
}

// Nothing outside the device's folder can be reached: ".." stops at the top and symbolic links
// resolve inside the folder.
TEST_F(SimulatorTest, PathsStayInsideTheDeviceFolder)
{
    std::string secret = root_.path() + "-secret.txt";
    writeFile(secret, {'s'});
    std::filesystem::create_directory_symlink("/", root_.file("up"));
    std::filesystem::create_symlink(secret, root_.file("secret-link"));
    std::filesystem::create_directory_symlink("../../../../..", root_.file("dots"));
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    for (const char* path : {"/../secret.txt", "../../tmp/x", "/up/etc/hostname", "/dots/etc/hostname", "/nothing/here"}) {
        std::uint64_t handle = 0;
        EXPECT_NE(afc_file_open(open.afc, path, AFC_FOPEN_RDONLY, &handle), AFC_E_SUCCESS) << path;
        EXPECT_EQ(handle, 0u) << path;
        EXPECT_NE(afc_remove_path(open.afc, path), AFC_E_SUCCESS) << path;
    }
    EXPECT_TRUE(std::filesystem::exists(secret));
    std::filesystem::remove(secret);
}

// ---- departures and restarts --------------------------------------------------------------------

TEST_F(SimulatorTest, DetachEndsOpenConnectionsAndTheDeviceComesBack)
{
    writeFile(root_.file("f.bin"), patternBytes(1000));
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    simulator_->detach(spec_.udid);
    std::uint64_t handle = 0;
    EXPECT_NE(afc_file_open(open.afc, "/f.bin", AFC_FOPEN_RDONLY, &handle), AFC_E_SUCCESS);
    idevice_t device = nullptr;
    EXPECT_NE(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);
    simulator_->attach(spec_);
    OpenDevice again(spec_.udid);
    ASSERT_NE(again.afc, nullptr);
    EXPECT_EQ(afc_file_open(again.afc, "/f.bin", AFC_FOPEN_RDONLY, &handle), AFC_E_SUCCESS);
}

class TcpSimulatorTest : public SimulatorTest {
protected:
    SimulatedUsbmuxd::Listen listen() const override { return SimulatedUsbmuxd::Listen::Tcp; }
};

TEST_F(TcpSimulatorTest, ClientSurvivesAUsbmuxdRestart)
{
    EXPECT_EQ(simulator_->socketAddress().rfind("127.0.0.1:", 0), 0u);
    EventLog events;
    EXPECT_EQ(events.next(), "add " + spec_.udid);
    simulator_->restart();
    // The client reports the lost daemon's devices as gone, reconnects and lists them again.
    EXPECT_EQ(events.next(), "remove " + spec_.udid);
    EXPECT_EQ(events.next(std::chrono::seconds(10)), "add " + spec_.udid);
    EXPECT_NE(OpenDevice(spec_.udid).afc, nullptr);
}

// ---- malformed input: the simulator stays up and answers or drops ---------------------------------

enum class Channel { Mux, Lockdown, AFC };

struct RawCase {
    const char* name;
    Channel channel;
    Bytes bytes;
    std::string outcome;  // "dropped", "answered" (mux header, lockdown Error) or "status N" (AFC)
};
void PrintTo(const RawCase& c, std::ostream* os) { *os << c.name; }

Bytes littleEndian(std::initializer_list<std::uint64_t> values, int width = 8)
{
    Bytes bytes;
    for (auto v : values)
        for (int i = 0; i < width; ++i)
            bytes.push_back(std::uint8_t(v >> (8 * i)));
    return bytes;
}

Bytes afcPacket(std::uint64_t operation, Bytes arguments, std::optional<std::uint64_t> entire = std::nullopt,
                std::optional<std::uint64_t> thisLength = std::nullopt, std::string magic = "CFA6LPAA")
{
    Bytes packet(magic.begin(), magic.end());
    for (auto byte : littleEndian({entire.value_or(40 + arguments.size()), thisLength.value_or(40 + arguments.size()), 1, operation}))
        packet.push_back(byte);
    packet.insert(packet.end(), arguments.begin(), arguments.end());
    return packet;
}

Bytes muxMessage(std::uint32_t length, std::uint32_t version, std::uint32_t type, const std::string& body)
{
    Bytes message = littleEndian({length, version, type, 7u}, 4);
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

Bytes muxPlist(const std::string& entries)
{
    std::string body = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" + entries + "</dict></plist>";
    return muxMessage(std::uint32_t(16 + body.size()), 1, 8, body);
}

Bytes lockdownFrame(const std::string& body, std::optional<std::uint32_t> length = std::nullopt)
{
    std::uint32_t n = length.value_or(std::uint32_t(body.size()));
    Bytes frame = {std::uint8_t(n >> 24), std::uint8_t(n >> 16), std::uint8_t(n >> 8), std::uint8_t(n)};
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

class RawInputTest : public SimulatorTest, public ::testing::WithParamInterface<RawCase> {
protected:
    /// Sends the bytes on a fresh connection; what came back, "dropped" when it was closed at once.
    std::string exchange(Channel channel, const Bytes& bytes)
    {
        std::vector<char> reply(4096);
        long received = 0;
        bool timedOut = false;
        if (channel == Channel::Mux) {
            std::string path = simulator_->socketAddress().substr(5);
            int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            path.copy(address.sun_path, sizeof address.sun_path - 1);
            EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
            EXPECT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), ssize_t(bytes.size()));
            timeval timeout{2, 0};
            ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
            received = ::recv(fd, reply.data(), 16, MSG_WAITALL);
            timedOut = received < 0;
            ::close(fd);
        } else {
            std::uint16_t port = 62078;
            if (channel == Channel::AFC) {
                OpenDevice open(spec_.udid);  // the service port stays open for further connections
                port = open.port;
            }
            idevice_t device = nullptr;
            idevice_connection_t connection = nullptr;
            EXPECT_EQ(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);
            EXPECT_EQ(idevice_connect(device, port, &connection), IDEVICE_E_SUCCESS);
            std::uint32_t sent = 0, got = 0;
            EXPECT_EQ(idevice_connection_send(connection, reinterpret_cast<const char*>(bytes.data()),
                                              std::uint32_t(bytes.size()), &sent),
                      IDEVICE_E_SUCCESS);
            timedOut = idevice_connection_receive_timeout(connection, reply.data(), channel == Channel::AFC ? 48 : 4096,
                                                          &got, 2000) == IDEVICE_E_TIMEOUT && got == 0;
            received = got;
            idevice_disconnect(connection);
            idevice_free(device);
        }
        EXPECT_FALSE(timedOut) << "neither answered nor closed";
        if (received <= 0)
            return "dropped";
        std::string text(reply.data(), std::size_t(received));
        if (channel == Channel::AFC) {
            EXPECT_EQ(text.substr(0, 8), "CFA6LPAA");
            EXPECT_EQ(received, 48);
            EXPECT_EQ(text[32], 1);  // a status answer
            return received < 48 ? text : "status " + std::to_string(std::uint8_t(text[40]));
        }
        if (channel == Channel::Mux)
            return received == 16 ? "answered" : text;
        return text.find("<key>Error</key>") != std::string::npos ? "answered" : text;
    }
};

TEST_P(RawInputTest, AnswersOrDropsWithoutFalling)
{
    EXPECT_EQ(exchange(GetParam().channel, GetParam().bytes), GetParam().outcome);
    simulator_->detach(spec_.udid);  // the control side still answers
    simulator_->attach(spec_);
    EXPECT_NE(OpenDevice(spec_.udid).afc, nullptr);
}

const std::string kUnknownRequest = "<plist version=\"1.0\"><dict><key>Request</key><string>Frobnicate</string></dict></plist>";

INSTANTIATE_TEST_SUITE_P(
    Inputs, RawInputTest,
    ::testing::Values(
        RawCase{"AFCWrongMagic", Channel::AFC, afcPacket(0x0B, {}, std::nullopt, std::nullopt, "CFA6LPAB"), "dropped"},
        RawCase{"AFCHeaderPartShorterThanHeader", Channel::AFC, afcPacket(0x0B, {}, 40, 16), "dropped"},
        RawCase{"AFCEntireShorterThanHeaderPart", Channel::AFC, afcPacket(0x0B, {}, 48, 56), "dropped"},
        RawCase{"AFCHugeLength", Channel::AFC, afcPacket(0x0B, {}, std::uint64_t(1) << 40, 40), "dropped"},
        RawCase{"AFCPathWithoutTerminator", Channel::AFC, afcPacket(0x0D, {1, 0, 0, 0, 0, 0, 0, 0, '/', 'a'}), "status 7"},
        RawCase{"AFCReadOfUnknownHandle", Channel::AFC, afcPacket(0x0F, littleEndian({42, 100})), "status 7"},
        RawCase{"AFCReadWithoutCount", Channel::AFC, afcPacket(0x0F, {1, 0, 0, 0}), "status 7"},
        RawCase{"AFCOpenWithUnknownMode", Channel::AFC, afcPacket(0x0D, {9, 0, 0, 0, 0, 0, 0, 0, '/', 0}), "status 7"},
        RawCase{"AFCUnknownOperation", Channel::AFC, afcPacket(0x99, {}), "status 6"},
        RawCase{"MuxLengthBelowHeader", Channel::Mux, muxMessage(8, 1, 8, ""), "dropped"},
        RawCase{"MuxLengthOfFourGigabytes", Channel::Mux, muxMessage(0xFFFFFFFFu, 1, 8, ""), "dropped"},
        RawCase{"MuxBinaryProtocol", Channel::Mux, muxMessage(16, 0, 3, ""), "dropped"},
        RawCase{"MuxNotAPlist", Channel::Mux, muxMessage(16 + 5, 1, 8, "hello"), "answered"},
        RawCase{"MuxUnknownMessageType", Channel::Mux, muxPlist("<key>MessageType</key><string>Frobnicate</string>"), "answered"},
        RawCase{"MuxConnectToAnUnknownDevice", Channel::Mux,
                muxPlist("<key>MessageType</key><string>Connect</string><key>DeviceID</key><integer>999</integer>"
                         "<key>PortNumber</key><integer>32498</integer>"),
                "answered"},
        RawCase{"LockdownEmptyFrame", Channel::Lockdown, lockdownFrame("", 0), "dropped"},
        RawCase{"LockdownFrameOfFourGigabytes", Channel::Lockdown, lockdownFrame("<?xml", 0xFFFFFFFFu), "dropped"},
        RawCase{"LockdownNotAPlist", Channel::Lockdown, lockdownFrame("hello"), "answered"},
        RawCase{"LockdownUnknownRequest", Channel::Lockdown, lockdownFrame(kUnknownRequest), "answered"}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace zq::test
