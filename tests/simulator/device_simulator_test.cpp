// The simulated device, driven by the real libimobiledevice client: if these pass, the framework's
// mobile-device layer meets in tests what it meets behind the system's usbmuxd.

#include "tests/support/DeviceImage.h"
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
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace zq::test {
namespace {

constexpr std::uint32_t kChunk = 262144;

std::vector<char> patternBytes(std::size_t size, unsigned seed = 7)
{
    std::vector<char> bytes(size);
    std::uint32_t state = seed;
    for (auto& byte : bytes) {
        state = state * 1103515245u + 12345u;
        byte = char(state >> 16);
    }
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
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> takeList(char** list)
{
    std::vector<std::string> result;
    for (char** item = list; item && *item; ++item)
        result.emplace_back(*item);
    if (list)
        afc_dictionary_free(list);
    return result;
}

std::string infoValue(afc_client_t afc, const std::string& path, const std::string& key, afc_error_t* error = nullptr)
{
    char** info = nullptr;
    afc_error_t result = afc_get_file_info(afc, path.c_str(), &info);
    if (error)
        *error = result;
    auto pairs = takeList(info);
    for (std::size_t i = 0; i + 1 < pairs.size(); i += 2)
        if (pairs[i] == key)
            return pairs[i + 1];
    return {};
}

/// A device opened the way the framework opens one: lockdown with handshake, the AFC service,
/// an AFC client on its port.
struct OpenDevice {
    idevice_t device = nullptr;
    lockdownd_client_t lockdown = nullptr;
    afc_client_t afc = nullptr;
    lockdownd_error_t lockdownError = LOCKDOWN_E_SUCCESS;
    afc_error_t afcError = AFC_E_SUCCESS;
    std::uint16_t port = 0;

    explicit OpenDevice(const std::string& udid)
    {
        if (idevice_new(&device, udid.c_str()) != IDEVICE_E_SUCCESS)
            return;
        lockdownError = lockdownd_client_new_with_handshake(device, &lockdown, "zqcore-tests");
        if (lockdownError != LOCKDOWN_E_SUCCESS)
            return;
        lockdownd_service_descriptor_t service = nullptr;
        lockdownError = lockdownd_start_service(lockdown, "com.apple.afc", &service);
        if (lockdownError != LOCKDOWN_E_SUCCESS)
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

    /// Waits for the next event; "add UDID" or "remove UDID", or "" on time-out.
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
        std::string kind = event->event == IDEVICE_DEVICE_ADD      ? "add "
                           : event->event == IDEVICE_DEVICE_REMOVE ? "remove "
                                                                   : "paired ";
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

// ---- usbmuxd: device list and events ---------------------------------------------------------

TEST_F(SimulatorTest, EventSubscriptionSeesPresentDevicesAttachAndDetach)
{
    EventLog events;
    EXPECT_EQ(events.next(), "add " + spec_.udid);  // already attached when the client listens

    SimulatedDeviceSpec second = spec_;
    second.udid = "00008030-0000000000000002";
    simulator_->attach(second);
    EXPECT_EQ(events.next(), "add " + second.udid);
    simulator_->detach(spec_.udid);
    EXPECT_EQ(events.next(), "remove " + spec_.udid);
    EXPECT_EQ(events.next(std::chrono::milliseconds(200)), "");
}

TEST_F(SimulatorTest, DeviceListFollowsAttachAndDetach)
{
    auto list = [] {
        char** udids = nullptr;
        int count = 0;
        idevice_get_device_list(&udids, &count);
        std::vector<std::string> result(udids, udids + count);
        idevice_device_list_free(udids);
        return result;
    };
    EXPECT_EQ(list(), std::vector<std::string>{spec_.udid});
    simulator_->detach(spec_.udid);
    EXPECT_TRUE(list().empty());
    EXPECT_THROW(simulator_->detach(spec_.udid), std::runtime_error);
}

// ---- lockdown -------------------------------------------------------------------------------

struct ValueCase {
    const char* domain;
    const char* key;
    std::string expected;  // "" = any non-empty value
};
void PrintTo(const ValueCase& c, std::ostream* os)
{
    *os << (c.domain ? c.domain : "(no domain)") << " " << c.key;
}

class LockdownValueTest : public SimulatorTest, public ::testing::WithParamInterface<ValueCase> {};

TEST_P(LockdownValueTest, AnswersDeviceValue)
{
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);
    lockdownd_client_t lockdown = nullptr;
    ASSERT_EQ(lockdownd_client_new(device, &lockdown, "zqcore-tests"), LOCKDOWN_E_SUCCESS);
    plist_t value = nullptr;
    ASSERT_EQ(lockdownd_get_value(lockdown, GetParam().domain, GetParam().key, &value), LOCKDOWN_E_SUCCESS);
    std::string text;
    if (plist_get_node_type(value) == PLIST_STRING) {
        char* s = nullptr;
        plist_get_string_val(value, &s);
        text = s;
        free(s);
    } else if (plist_get_node_type(value) == PLIST_UINT) {
        std::uint64_t n = 0;
        plist_get_uint_val(value, &n);
        text = std::to_string(n);
    }
    plist_free(value);
    if (GetParam().expected.empty())
        EXPECT_FALSE(text.empty() || text == "0");
    else
        EXPECT_EQ(text, GetParam().expected);
    lockdownd_client_free(lockdown);
    idevice_free(device);
}

INSTANTIATE_TEST_SUITE_P(Values, LockdownValueTest,
                         ::testing::Values(ValueCase{nullptr, "DeviceName", "Simulated iPhone"},
                                           ValueCase{nullptr, "ProductType", "iPhone12,1"},
                                           ValueCase{nullptr, "SerialNumber", "F2LZK0ABCDEF"},
                                           ValueCase{nullptr, "UniqueDeviceID", "00008030-000A1B2C3D4E5F60"},
                                           ValueCase{nullptr, "DeviceClass", "iPhone"},
                                           ValueCase{nullptr, "ProductVersion", ""},
                                           ValueCase{nullptr, "ModelNumber", ""},
                                           ValueCase{"com.apple.disk_usage", "TotalDiskCapacity", ""}));

TEST_F(SimulatorTest, MissingValueIsAnError)
{
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);
    lockdownd_client_t lockdown = nullptr;
    ASSERT_EQ(lockdownd_client_new(device, &lockdown, "zqcore-tests"), LOCKDOWN_E_SUCCESS);
    plist_t value = nullptr;
    EXPECT_NE(lockdownd_get_value(lockdown, nullptr, "NoSuchKey", &value), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(value, nullptr);
    lockdownd_client_free(lockdown);
    idevice_free(device);
}

TEST_F(SimulatorTest, HandshakeStartsAFCAndDeviceInfoDescribesTheDevice)
{
    OpenDevice open(spec_.udid);
    ASSERT_EQ(open.lockdownError, LOCKDOWN_E_SUCCESS);
    ASSERT_EQ(open.afcError, AFC_E_SUCCESS);
    EXPECT_NE(open.port, 0);
    char** info = nullptr;
    ASSERT_EQ(afc_get_device_info(open.afc, &info), AFC_E_SUCCESS);
    auto pairs = takeList(info);
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < pairs.size(); i += 2)
        keys.push_back(pairs[i]);
    EXPECT_EQ(keys, (std::vector<std::string>{"Model", "FSTotalBytes", "FSFreeBytes", "FSBlockSize"}));
    EXPECT_EQ(pairs[1], "iPhone12,1");
    EXPECT_GT(std::stoull(pairs[3]), 0u);
}

// The steps one by one, as a layer that reports each failure separately takes them.
TEST_F(SimulatorTest, PairedDeviceValidatesAndStartsASessionStepByStep)
{
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);
    lockdownd_client_t lockdown = nullptr;
    ASSERT_EQ(lockdownd_client_new(device, &lockdown, "zqcore-tests"), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(lockdownd_validate_pair(lockdown, nullptr), LOCKDOWN_E_SUCCESS);
    char* session = nullptr;
    int ssl = 1;
    char* record = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(usbmuxd_read_pair_record(spec_.udid.c_str(), &record, &size), 0);
    std::string text(record, size);
    free(record);
    auto begin = text.find("<key>HostID</key>");
    ASSERT_NE(begin, std::string::npos);
    begin = text.find("<string>", begin) + 8;
    std::string hostID = text.substr(begin, text.find("</string>", begin) - begin);
    EXPECT_EQ(lockdownd_start_session(lockdown, hostID.c_str(), &session, &ssl), LOCKDOWN_E_SUCCESS);
    EXPECT_NE(session, nullptr);
    EXPECT_EQ(ssl, 0);
    free(session);
    lockdownd_service_descriptor_t service = nullptr;
    ASSERT_EQ(lockdownd_start_service(lockdown, "com.apple.afc", &service), LOCKDOWN_E_SUCCESS);
    afc_client_t afc = nullptr;
    EXPECT_EQ(afc_client_new(device, service, &afc), AFC_E_SUCCESS);
    afc_client_free(afc);
    lockdownd_service_descriptor_free(service);
    service = nullptr;  // the client fills a descriptor it is given instead of making one
    EXPECT_NE(lockdownd_start_service(lockdown, "com.apple.mobile.notification_proxy", &service), LOCKDOWN_E_SUCCESS);
    lockdownd_service_descriptor_free(service);
    lockdownd_client_free(lockdown);
    idevice_free(device);
}

// Pairing anew builds certificates around the device's public key and saves the new record
// with usbmuxd, where the next connection finds it.
TEST_F(SimulatorTest, PairingAgainSavesANewRecord)
{
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);
    lockdownd_client_t lockdown = nullptr;
    ASSERT_EQ(lockdownd_client_new(device, &lockdown, "zqcore-tests"), LOCKDOWN_E_SUCCESS);
    ASSERT_EQ(lockdownd_pair(lockdown, nullptr), LOCKDOWN_E_SUCCESS);
    lockdownd_client_free(lockdown);
    idevice_free(device);

    char* record = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(usbmuxd_read_pair_record(spec_.udid.c_str(), &record, &size), 0);
    EXPECT_NE(std::string(record, size).find("HostCertificate"), std::string::npos);
    free(record);
    OpenDevice open(spec_.udid);
    EXPECT_NE(open.afc, nullptr);
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
    record = nullptr;
    EXPECT_EQ(usbmuxd_read_pair_record(spec_.udid.c_str(), &record, &size), 0);  // the paired one has one
    free(record);

    OpenDevice open(stranger.udid);
    EXPECT_EQ(open.lockdownError, LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING);
    EXPECT_EQ(open.afc, nullptr);

    // Even with a host identity in hand, the device will not start a session.
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, stranger.udid.c_str()), IDEVICE_E_SUCCESS);
    lockdownd_client_t lockdown = nullptr;
    ASSERT_EQ(lockdownd_client_new(device, &lockdown, "zqcore-tests"), LOCKDOWN_E_SUCCESS);
    EXPECT_NE(lockdownd_validate_pair(lockdown, nullptr), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(lockdownd_start_session(lockdown, "5D3E5C8A-0000-4000-8000-000000000001", nullptr, nullptr),
              LOCKDOWN_E_INVALID_HOST_ID);
    lockdownd_service_descriptor_t service = nullptr;
    EXPECT_NE(lockdownd_start_service(lockdown, "com.apple.afc", &service), LOCKDOWN_E_SUCCESS);
    lockdownd_client_free(lockdown);
    idevice_free(device);
}

// ---- AFC reads in the framework's 256 KiB steps -----------------------------------------------

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

// Reads as the framework does: seek, read the wanted count, and ask next for the smaller of what
// remains and what the last read gave, until a read gives nothing.
TEST_P(AFCReadTest, ReadsInChunks)
{
    const ReadCase& c = GetParam();
    auto content = patternBytes(c.fileSize);
    writeFile(root_.file("Music/track.m4a"), content);
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);

    std::uint64_t handle = 0;
    ASSERT_EQ(afc_file_open(open.afc, "/Music/track.m4a", AFC_FOPEN_RW, &handle), AFC_E_SUCCESS);
    EXPECT_NE(handle, 0u);
    std::vector<char> got;
    std::vector<std::uint32_t> requests;
    std::uint64_t offset = c.whole ? 0 : c.location;
    std::uint32_t remaining = c.whole ? UINT32_MAX : c.length;
    std::uint32_t ask = std::min(remaining, kChunk);
    for (;;) {
        requests.push_back(ask);
        ASSERT_EQ(afc_file_seek(open.afc, handle, std::int64_t(offset), SEEK_SET), AFC_E_SUCCESS);
        std::vector<char> buffer(ask);
        std::uint32_t read = 0;
        ASSERT_EQ(afc_file_read(open.afc, handle, buffer.data(), ask, &read), AFC_E_SUCCESS);
        if (read == 0)
            break;
        got.insert(got.end(), buffer.begin(), buffer.begin() + read);
        offset += read;
        if (!c.whole)
            remaining -= read;
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

TEST_F(SimulatorTest, TellFollowsSeekAndReads)
{
    writeFile(root_.file("f.bin"), patternBytes(5000));
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    std::uint64_t handle = 0;
    ASSERT_EQ(afc_file_open(open.afc, "/f.bin", AFC_FOPEN_RDONLY, &handle), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_seek(open.afc, handle, 1234, SEEK_SET), AFC_E_SUCCESS);
    char buffer[100];
    std::uint32_t read = 0;
    ASSERT_EQ(afc_file_read(open.afc, handle, buffer, sizeof buffer, &read), AFC_E_SUCCESS);
    std::uint64_t position = 0;
    ASSERT_EQ(afc_file_tell(open.afc, handle, &position), AFC_E_SUCCESS);
    EXPECT_EQ(position, 1334u);
    ASSERT_EQ(afc_file_seek(open.afc, handle, -10, SEEK_END), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_tell(open.afc, handle, &position), AFC_E_SUCCESS);
    EXPECT_EQ(position, 4990u);
    EXPECT_EQ(afc_file_close(open.afc, handle), AFC_E_SUCCESS);
    EXPECT_NE(afc_file_close(open.afc, handle), AFC_E_SUCCESS);  // a closed handle is gone
}

// ---- AFC changes ---------------------------------------------------------------------------

TEST_F(SimulatorTest, CreatesListsRenamesAndRemoves)
{
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    afc_client_t afc = open.afc;

    ASSERT_EQ(afc_make_directory(afc, "/Books"), AFC_E_SUCCESS);
    EXPECT_EQ(afc_make_directory(afc, "/Books"), AFC_E_SUCCESS);  // already there is fine
    EXPECT_EQ(infoValue(afc, "/Books", "st_ifmt"), "S_IFDIR");

    // Written in 256 KiB pieces, the way the framework creates files.
    auto content = patternBytes(600000, 3);
    std::uint64_t handle = 0;
    ASSERT_EQ(afc_file_open(afc, "/Books/b.bin", AFC_FOPEN_WRONLY, &handle), AFC_E_SUCCESS);
    for (std::size_t offset = 0; offset < content.size(); offset += kChunk) {
        std::uint32_t piece = std::uint32_t(std::min<std::size_t>(kChunk, content.size() - offset));
        ASSERT_EQ(afc_file_seek(afc, handle, std::int64_t(offset), SEEK_SET), AFC_E_SUCCESS);
        std::uint32_t written = 0;
        ASSERT_EQ(afc_file_write(afc, handle, content.data() + offset, piece, &written), AFC_E_SUCCESS);
        EXPECT_EQ(written, piece);
    }
    ASSERT_EQ(afc_file_close(afc, handle), AFC_E_SUCCESS);
    EXPECT_TRUE(readFile(root_.file("Books/b.bin")) == content);
    EXPECT_EQ(infoValue(afc, "/Books/b.bin", "st_ifmt"), "S_IFREG");
    EXPECT_EQ(infoValue(afc, "/Books/b.bin", "st_size"), "600000");

    writeFile(root_.file("Books/a.txt"), {'a'});
    char** listing = nullptr;
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

TEST_F(SimulatorTest, TruncatesAndLocks)
{
    writeFile(root_.file("t.bin"), patternBytes(1000));
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    ASSERT_EQ(afc_truncate(open.afc, "/t.bin", 10), AFC_E_SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(root_.file("t.bin")), 10u);

    std::uint64_t handle = 0, other = 0;
    ASSERT_EQ(afc_file_open(open.afc, "/t.bin", AFC_FOPEN_RW, &handle), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_truncate(open.afc, handle, 4096), AFC_E_SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(root_.file("t.bin")), 4096u);

    ASSERT_EQ(afc_file_open(open.afc, "/t.bin", AFC_FOPEN_RDONLY, &other), AFC_E_SUCCESS);
    EXPECT_EQ(afc_file_lock(open.afc, handle, AFC_LOCK_EX), AFC_E_SUCCESS);
    EXPECT_EQ(afc_file_lock(open.afc, other, AFC_LOCK_EX), AFC_E_OP_WOULD_BLOCK);
    EXPECT_EQ(afc_file_lock(open.afc, handle, AFC_LOCK_UN), AFC_E_SUCCESS);
    EXPECT_EQ(afc_file_lock(open.afc, other, AFC_LOCK_SH), AFC_E_SUCCESS);
    afc_file_close(open.afc, other);
    afc_file_close(open.afc, handle);
}

struct MissingCase {
    const char* name;
    const char* path;
};
void PrintTo(const MissingCase& c, std::ostream* os) { *os << c.path; }

class AFCConfinementTest : public SimulatorTest, public ::testing::WithParamInterface<MissingCase> {};

// Nothing outside the device's folder can be reached: ".." stops at the top and symbolic links
// resolve inside the folder.
TEST_P(AFCConfinementTest, PathStaysInsideTheDeviceFolder)
{
    // A secret beside the device's folder, and links that try to point at it.
    std::string secret = root_.path() + "-secret.txt";
    writeFile(secret, {'s'});
    std::filesystem::create_directory_symlink("/", root_.file("up"));
    std::filesystem::create_symlink(secret, root_.file("secret-link"));
    std::filesystem::create_directory_symlink("../../../../..", root_.file("dots"));

    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    std::uint64_t handle = 0;
    EXPECT_NE(afc_file_open(open.afc, GetParam().path, AFC_FOPEN_RDONLY, &handle), AFC_E_SUCCESS);
    EXPECT_EQ(handle, 0u);
    EXPECT_NE(afc_remove_path(open.afc, GetParam().path), AFC_E_SUCCESS);
    EXPECT_TRUE(std::filesystem::exists(secret));
    std::filesystem::remove(secret);
}

INSTANTIATE_TEST_SUITE_P(
    Escapes, AFCConfinementTest,
    ::testing::Values(MissingCase{"DotDot", "/../secret.txt"},
                      MissingCase{"DotDotName", "../../tmp/x"},
                      MissingCase{"AbsoluteLink", "/up/etc/hostname"},
                      MissingCase{"RelativeLink", "/dots/etc/hostname"},
                      MissingCase{"NoSuchFile", "/nothing/here"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(SimulatorTest, ReadsThroughADirectoryOrFailsCleanly)
{
    std::filesystem::create_directories(root_.file("iTunes_Control/iTunes"));
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    std::uint64_t handle = 0;
    EXPECT_EQ(afc_file_open(open.afc, "/iTunes_Control", AFC_FOPEN_RDONLY, &handle), AFC_E_OBJECT_IS_DIR);
    char** listing = nullptr;
    EXPECT_EQ(afc_read_directory(open.afc, "/missing", &listing), AFC_E_OBJECT_NOT_FOUND);
    ASSERT_EQ(afc_read_directory(open.afc, "/", &listing), AFC_E_SUCCESS);
    EXPECT_EQ(takeList(listing), (std::vector<std::string>{".", "..", "iTunes_Control"}));
}

// ---- departures ----------------------------------------------------------------------------

TEST_F(SimulatorTest, DetachEndsOpenConnections)
{
    writeFile(root_.file("f.bin"), patternBytes(1000));
    OpenDevice open(spec_.udid);
    ASSERT_NE(open.afc, nullptr);
    simulator_->detach(spec_.udid);
    std::uint64_t handle = 0;
    EXPECT_NE(afc_file_open(open.afc, "/f.bin", AFC_FOPEN_RDONLY, &handle), AFC_E_SUCCESS);
    idevice_t device = nullptr;
    EXPECT_NE(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);

    // The same device coming back is usable again.
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
    EXPECT_NE(simulator_->socketAddress().rfind("127.0.0.1:", 0), std::string::npos);
    EventLog events;
    EXPECT_EQ(events.next(), "add " + spec_.udid);
    simulator_->restart();
    // The client reports the lost daemon's devices as gone, reconnects and lists them again.
    EXPECT_EQ(events.next(), "remove " + spec_.udid);
    EXPECT_EQ(events.next(std::chrono::seconds(10)), "add " + spec_.udid);
    OpenDevice open(spec_.udid);
    EXPECT_NE(open.afc, nullptr);
}

// ---- malformed input: the simulator stays up and says no ------------------------------------

struct RawAFCCase {
    const char* name;
    std::vector<std::uint8_t> packet;
    std::optional<std::uint64_t> expectedStatus;  // none: the connection is dropped
};
void PrintTo(const RawAFCCase& c, std::ostream* os) { *os << c.name; }

std::vector<std::uint8_t> afcPacket(std::uint64_t operation, std::vector<std::uint8_t> arguments,
                                    std::optional<std::uint64_t> entire = std::nullopt,
                                    std::optional<std::uint64_t> thisLength = std::nullopt,
                                    const char* magic = "CFA6LPAA")
{
    std::vector<std::uint8_t> packet(40);
    std::copy(magic, magic + 8, packet.begin());
    auto put = [&](std::size_t at, std::uint64_t v) {
        for (int i = 0; i < 8; ++i)
            packet[at + std::size_t(i)] = std::uint8_t(v >> (8 * i));
    };
    put(8, entire.value_or(40 + arguments.size()));
    put(16, thisLength.value_or(40 + arguments.size()));
    put(24, 1);
    put(32, operation);
    packet.insert(packet.end(), arguments.begin(), arguments.end());
    return packet;
}

std::vector<std::uint8_t> words(std::initializer_list<std::uint64_t> values)
{
    std::vector<std::uint8_t> bytes;
    for (auto v : values)
        for (int i = 0; i < 8; ++i)
            bytes.push_back(std::uint8_t(v >> (8 * i)));
    return bytes;
}

class RawAFCTest : public SimulatorTest, public ::testing::WithParamInterface<RawAFCCase> {};

TEST_P(RawAFCTest, AnswersOrDropsWithoutFalling)
{
    std::uint16_t port = 0;
    {
        OpenDevice open(spec_.udid);
        ASSERT_NE(open.afc, nullptr);
        port = open.port;
    }
    // The service port stays open for further connections, so a raw one can be made to it.
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);
    idevice_connection_t connection = nullptr;
    ASSERT_EQ(idevice_connect(device, port, &connection), IDEVICE_E_SUCCESS);
    const auto& packet = GetParam().packet;
    std::uint32_t sent = 0;
    ASSERT_EQ(idevice_connection_send(connection, reinterpret_cast<const char*>(packet.data()),
                                      std::uint32_t(packet.size()), &sent),
              IDEVICE_E_SUCCESS);
    char reply[48] = {};
    std::uint32_t received = 0;
    idevice_error_t result = idevice_connection_receive_timeout(connection, reply, sizeof reply, &received, 2000);
    if (GetParam().expectedStatus) {
        ASSERT_EQ(received, 48u);
        EXPECT_EQ(std::string(reply, 8), "CFA6LPAA");
        EXPECT_EQ(reply[32], 1);  // a status answer
        std::uint64_t status = 0;
        for (int i = 0; i < 8; ++i)
            status |= std::uint64_t(std::uint8_t(reply[40 + i])) << (8 * i);
        EXPECT_EQ(status, *GetParam().expectedStatus);
    } else {
        EXPECT_EQ(received, 0u);
        EXPECT_NE(result, IDEVICE_E_TIMEOUT);  // closed at once, not left waiting for more
    }
    idevice_disconnect(connection);
    idevice_free(device);

    OpenDevice again(spec_.udid);
    EXPECT_NE(again.afc, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Packets, RawAFCTest,
    ::testing::Values(
        RawAFCCase{"WrongMagic", afcPacket(0x0B, {}, std::nullopt, std::nullopt, "CFA6LPAB"), std::nullopt},
        RawAFCCase{"HeaderPartShorterThanHeader", afcPacket(0x0B, {}, 40, 16), std::nullopt},
        RawAFCCase{"EntireShorterThanHeaderPart", afcPacket(0x0B, {}, 48, 56), std::nullopt},
        RawAFCCase{"HugeLength", afcPacket(0x0B, {}, std::uint64_t(1) << 40, 40), std::nullopt},
        RawAFCCase{"PathWithoutTerminator", afcPacket(0x0D, {1, 0, 0, 0, 0, 0, 0, 0, '/', 'a'}), 7},
        RawAFCCase{"ReadOfUnknownHandle", afcPacket(0x0F, words({42, 100})), 7},
        RawAFCCase{"ReadWithoutCount", afcPacket(0x0F, {1, 0, 0, 0}), 7},
        RawAFCCase{"OpenWithUnknownMode", afcPacket(0x0D, {9, 0, 0, 0, 0, 0, 0, 0, '/', 0}), 7},
        RawAFCCase{"UnknownOperation", afcPacket(0x99, {}), 6}),
    [](const auto& test) { return std::string(test.param.name); });

struct RawMuxCase {
    const char* name;
    std::vector<std::uint8_t> message;
    bool answered;  // else: dropped
};
void PrintTo(const RawMuxCase& c, std::ostream* os) { *os << c.name; }

std::vector<std::uint8_t> muxMessage(std::uint32_t length, std::uint32_t version, std::uint32_t type,
                                     const std::string& body)
{
    std::vector<std::uint8_t> message;
    for (std::uint32_t v : {length, version, type, 7u})
        for (int i = 0; i < 4; ++i)
            message.push_back(std::uint8_t(v >> (8 * i)));
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

class RawMuxTest : public SimulatorTest, public ::testing::WithParamInterface<RawMuxCase> {};

TEST_P(RawMuxTest, AnswersOrDropsWithoutFalling)
{
    std::string path = simulator_->socketAddress().substr(5);
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const auto& message = GetParam().message;
    ASSERT_EQ(::send(fd, message.data(), message.size(), MSG_NOSIGNAL), ssize_t(message.size()));
    timeval timeout{2, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    char reply[16];
    ssize_t got = ::recv(fd, reply, sizeof reply, MSG_WAITALL);
    EXPECT_EQ(got, GetParam().answered ? 16 : 0);  // a time-out would give -1
    ::close(fd);

    simulator_->detach(spec_.udid);  // the control side still answers
    simulator_->attach(spec_);
    OpenDevice open(spec_.udid);
    EXPECT_NE(open.afc, nullptr);
}

std::vector<std::uint8_t> plistMessage(const std::string& entries)
{
    std::string body = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" + entries +
                       "</dict></plist>";
    return muxMessage(std::uint32_t(16 + body.size()), 1, 8, body);
}

INSTANTIATE_TEST_SUITE_P(
    Messages, RawMuxTest,
    ::testing::Values(
        RawMuxCase{"LengthBelowHeader", muxMessage(8, 1, 8, ""), false},
        RawMuxCase{"LengthOfFourGigabytes", muxMessage(0xFFFFFFFFu, 1, 8, ""), false},
        RawMuxCase{"BinaryProtocol", muxMessage(16, 0, 3, ""), false},
        RawMuxCase{"NotAPlist", muxMessage(16 + 5, 1, 8, "hello"), true},
        RawMuxCase{"UnknownMessageType",
                   plistMessage("<key>MessageType</key><string>Frobnicate</string>"),
                   true},
        RawMuxCase{"ConnectToAnUnknownDevice",
                   plistMessage("<key>MessageType</key><string>Connect</string><key>DeviceID</key>"
                                "<integer>999</integer><key>PortNumber</key><integer>32498</integer>"),
                   true}),
    [](const auto& test) { return std::string(test.param.name); });

struct RawLockdownCase {
    const char* name;
    std::string body;
    std::optional<std::uint32_t> length;  // the frame's length prefix; default: the body's
    bool answered;                         // with an "Error"; else dropped
};
void PrintTo(const RawLockdownCase& c, std::ostream* os) { *os << c.name; }

class RawLockdownTest : public SimulatorTest, public ::testing::WithParamInterface<RawLockdownCase> {};

TEST_P(RawLockdownTest, AnswersWithAnErrorOrDrops)
{
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, spec_.udid.c_str()), IDEVICE_E_SUCCESS);
    idevice_connection_t connection = nullptr;
    ASSERT_EQ(idevice_connect(device, 62078, &connection), IDEVICE_E_SUCCESS);
    std::uint32_t length = GetParam().length.value_or(std::uint32_t(GetParam().body.size()));
    std::string frame = {char(length >> 24), char(length >> 16), char(length >> 8), char(length)};
    frame += GetParam().body;
    std::uint32_t sent = 0;
    ASSERT_EQ(idevice_connection_send(connection, frame.data(), std::uint32_t(frame.size()), &sent), IDEVICE_E_SUCCESS);
    std::vector<char> reply(4096);
    std::uint32_t received = 0;
    idevice_error_t result =
        idevice_connection_receive_timeout(connection, reply.data(), std::uint32_t(reply.size()), &received, 2000);
    if (GetParam().answered) {
        EXPECT_NE(std::string(reply.data(), received).find("<key>Error</key>"), std::string::npos);
    } else {
        EXPECT_EQ(received, 0u);
        EXPECT_NE(result, IDEVICE_E_TIMEOUT);
    }
    idevice_disconnect(connection);
    idevice_free(device);

    OpenDevice open(spec_.udid);
    EXPECT_NE(open.afc, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Frames, RawLockdownTest,
    ::testing::Values(RawLockdownCase{"EmptyFrame", "", 0, false},
                      RawLockdownCase{"FrameOfFourGigabytes", "<?xml", 0xFFFFFFFFu, false},
                      RawLockdownCase{"NotAPlist", "hello", std::nullopt, true},
                      RawLockdownCase{"UnknownRequest",
                                      "<plist version=\"1.0\"><dict><key>Request</key>"
                                      "<string>Frobnicate</string></dict></plist>",
                                      std::nullopt, true}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace zq::test
