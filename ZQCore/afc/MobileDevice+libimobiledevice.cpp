// The mobile-device services on Linux: usbmuxd reports devices and carries their streams,
// libimobiledevice speaks lockdown and the file conduit.

#include "ZQCore/afc/MobileDevice.h"

#include "ZQCore/foundation/Application.h"

#include <glib.h>
#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <plist/plist.h>
#include <usbmuxd.h>

#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace zq {

namespace {

using DeviceHandle = std::shared_ptr<idevice_private>;

constexpr const char* kLockdownLabel = "zqcore";

DeviceHandle openDevice(const std::string& udid, int& error)
{
    idevice_t device = nullptr;
    error = idevice_new_with_options(&device, udid.c_str(), IDEVICE_LOOKUP_USBMUX);
    if (error != IDEVICE_E_SUCCESS)
        return nullptr;
    return DeviceHandle(device, [](idevice_t d) { idevice_free(d); });
}

using LockdownClient = std::shared_ptr<lockdownd_client_private>;

LockdownClient adoptLockdownClient(lockdownd_client_t client)
{
    return LockdownClient(client, [](lockdownd_client_t c) { lockdownd_client_free(c); });
}

/// The key-value lists of the conduit (key, value, key, value, ..., NULL).
std::vector<std::pair<std::string, std::string>> pairsOf(char** list)
{
    std::vector<std::pair<std::string, std::string>> pairs;
    for (std::size_t i = 0; list && list[i] && list[i + 1]; i += 2)
        pairs.emplace_back(list[i], list[i + 1]);
    return pairs;
}

std::atomic<bool> gCancelled{false};
thread_local std::shared_ptr<const CancellationToken> tScopeToken;
std::atomic<long long> gTimeoutMilliseconds{-1};  // -1: not settled yet
/// Set once usbmuxd has let a request run past the timeout: the process then asks it nothing
/// more (each of libusbmuxd's own requests would wait 5 s whatever the timeout says).
std::atomic<bool> gDaemonSilent{false};

/// Runs one request to usbmuxd or to a device's lockdown service on a thread of its own and
/// waits for its answer up to requestTimeout(), or until cancelDeviceRequests(). The client
/// libraries give no way to bound these requests (their sockets are their own, and libusbmuxd
/// waits a fixed 5 s per request, lockdown longer); a request that runs over is left to finish
/// on its thread, which owns everything it touches through what `call` captured by value.
/// No value when the request did not answer in time (or was cancelled).
template <typename Call>
auto answerWithinTimeout(Call call) -> std::optional<decltype(call())>
{
    using Result = decltype(call());
    struct Outcome {
        std::mutex mutex;
        std::condition_variable answered;
        std::optional<Result> result;
    };
    auto outcome = std::make_shared<Outcome>();
    std::thread([outcome, call = std::move(call)]() mutable {
        Result result = call();
        std::lock_guard lock(outcome->mutex);
        outcome->result = std::move(result);
        outcome->answered.notify_one();
    }).detach();
    const auto deadline = std::chrono::steady_clock::now() + requestTimeout();
    std::unique_lock lock(outcome->mutex);
    while (!outcome->result && !deviceRequestsCancelled()) {
        // Looked at every 100 ms so that a cancel is heard while waiting.
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline)
            break;
        outcome->answered.wait_for(lock, std::min<std::chrono::steady_clock::duration>(deadline - now,
                                                                                     std::chrono::milliseconds(100)));
    }
    return std::move(outcome->result);
}

/// A request to usbmuxd itself, bounded; no value when the daemon did not answer in time (it is
/// then marked silent) or has not answered before.
template <typename Call>
auto askDaemon(Call call) -> std::optional<decltype(call())>
{
    if (gDaemonSilent)
        return std::nullopt;
    auto answer = answerWithinTimeout(std::move(call));
    if (!answer && !deviceRequestsCancelled())
        gDaemonSilent = true;
    return answer;
}

/// Cuts requests short that take too long (or are cancelled) by shutting down their socket, the
/// one thing that wakes a client blocked in a receive. One thread for the process, started on
/// first use; it looks every 100 ms while requests are under way and sleeps once a look has
/// found none. Only a request that finds it asleep wakes it: a file read as a stream of
/// requests costs a lock per request, not a thread switch.
class Watchdog {
public:
    struct Watch {
        int fd = -1;
        std::chrono::steady_clock::time_point deadline;
        int fired = 0;  // kAFCDeviceNotAnswering or kAFCRequestCancelled once it has cut the socket
        std::shared_ptr<const CancellationToken> token;  // of the thread that made the request
    };

    static Watchdog& shared()
    {
        static Watchdog* watchdog = [] {
            auto* created = new Watchdog;  // lives as long as the process, like its thread
            std::thread([created] { created->run(); }).detach();
            return created;
        }();
        return *watchdog;
    }

    void arm(Watch& watch)
    {
        std::lock_guard lock(mutex_);
        armed_.insert(&watch);
        if (asleep_)
            wake_.notify_one();
    }
    void disarm(Watch& watch)
    {
        std::lock_guard lock(mutex_);
        armed_.erase(&watch);
    }

private:
    void run()
    {
        std::unique_lock lock(mutex_);
        for (;;) {
            if (armed_.empty()) {
                asleep_ = true;
                wake_.wait(lock, [this] { return !armed_.empty(); });
                asleep_ = false;
            }
            // Requests that begin during this wait are looked at when it ends, within their
            // deadline's 100 ms.
            wake_.wait_for(lock, std::chrono::milliseconds(100));
            const auto now = std::chrono::steady_clock::now();
            for (auto it = armed_.begin(); it != armed_.end();) {
                Watch& watch = **it;
                const bool cancelled = gCancelled || (watch.token && watch.token->isCancelled());
                watch.fired = cancelled ? kAFCRequestCancelled : now >= watch.deadline ? kAFCDeviceNotAnswering : 0;
                if (!watch.fired) {
                    ++it;
                    continue;
                }
                ::shutdown(watch.fd, SHUT_RDWR);
                it = armed_.erase(it);
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::set<Watch*> armed_;
    bool asleep_ = false;  // waiting for a request, rather than looking every 100 ms
};

/// The sockets open in this process now.
std::set<int> openSockets()
{
    std::set<int> sockets;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        struct stat info {};
        const int fd = std::atoi(entry.path().filename().c_str());
        if (::fstat(fd, &info) == 0 && S_ISSOCK(info.st_mode))
            sockets.insert(fd);
    }
    return sockets;
}

/// Whether an error of the client library means the connection itself failed (the device or
/// its link went), rather than the device refusing one request.
bool isTransportError(int error)
{
    return error == AFC_E_MUX_ERROR || error == AFC_E_NOT_ENOUGH_DATA || error == AFC_E_SERVICE_NOT_CONNECTED ||
           error == AFC_E_OP_HEADER_INVALID || error == AFC_E_NO_MEM;
}

class Conduit final : public AFCConnection {
public:
    /// `socket` is the connection's descriptor as far as it could be told (-1 when not: then
    /// requests wait as long as the client library does).
    Conduit(DeviceHandle device, afc_client_t client, int socket)
        : device_(std::move(device)), client_(client), socket_(socket) {}
    ~Conduit() override { afc_client_free(client_); }

    int removePath(const std::string& path) override
    {
        return guarded([&] { return afc_remove_path(client_, path.c_str()); });
    }
    int renamePath(const std::string& from, const std::string& to) override
    {
        return guarded([&] { return afc_rename_path(client_, from.c_str(), to.c_str()); });
    }
    int directoryCreate(const std::string& path) override
    {
        return guarded([&] { return afc_make_directory(client_, path.c_str()); });
    }

    int directoryOpen(const std::string& path, AFCDirectory& directory) override
    {
        char** list = nullptr;
        const int error = guarded([&] { return afc_read_directory(client_, path.c_str(), &list); });
        if (error == AFC_E_SUCCESS)
            for (std::size_t i = 0; list && list[i]; ++i)
                directory.names.emplace_back(list[i]);
        if (list)
            afc_dictionary_free(list);
        return error;
    }

    int fileInfoOpen(const std::string& path, AFCKeyValue& information) override
    {
        char** list = nullptr;
        const int error = guarded([&] { return afc_get_file_info(client_, path.c_str(), &list); });
        if (error == AFC_E_SUCCESS)
            information.pairs = pairsOf(list);
        if (list)
            afc_dictionary_free(list);
        // The client answers success with no list for a path that is not there.
        return error == AFC_E_SUCCESS && !list ? AFC_E_OBJECT_NOT_FOUND : error;
    }

    int deviceInfoOpen(AFCKeyValue& information) override
    {
        char** list = nullptr;
        const int error = guarded([&] { return afc_get_device_info(client_, &list); });
        if (error == AFC_E_SUCCESS)
            information.pairs = pairsOf(list);
        if (list)
            afc_dictionary_free(list);
        return error;
    }

    int fileRefOpen(const std::string& path, std::uint64_t mode, std::uint64_t& file) override
    {
        return guarded([&] { return afc_file_open(client_, path.c_str(), static_cast<afc_file_mode_t>(mode), &file); });
    }
    int fileRefSeek(std::uint64_t file, std::int64_t offset, int whence) override
    {
        return guarded([&] { return afc_file_seek(client_, file, offset, whence); });
    }
    int fileRefRead(std::uint64_t file, std::uint8_t* buffer, std::uint32_t& count) override
    {
        std::uint32_t got = 0;
        const int error = guarded([&] { return afc_file_read(client_, file, reinterpret_cast<char*>(buffer), count, &got); });
        count = error == AFC_E_SUCCESS ? got : 0;
        return error;
    }
    int fileRefWrite(std::uint64_t file, const std::uint8_t* bytes, std::uint32_t count) override
    {
        std::uint32_t written = 0;
        const int error = guarded(
            [&] { return afc_file_write(client_, file, reinterpret_cast<const char*>(bytes), count, &written); });
        if (error != AFC_E_SUCCESS)
            return error;
        return written == count ? AFC_E_SUCCESS : AFC_E_WRITE_ERROR;
    }
    int fileRefSetFileSize(std::uint64_t file, std::uint64_t size) override
    {
        return guarded([&] { return afc_file_truncate(client_, file, size); });
    }
    int fileRefClose(std::uint64_t file) override
    {
        return guarded([&] { return afc_file_close(client_, file); });
    }

private:
    /// One request under the watchdog. The first failure of the connection itself is kept and
    /// answered from then on without asking the device again.
    template <typename Call>
    int guarded(Call call)
    {
        if (broken_)
            return broken_;
        if (deviceRequestsCancelled())
            return kAFCRequestCancelled;
        Watchdog::Watch watch;
        if (socket_ >= 0) {
            watch.fd = socket_;
            watch.token = tScopeToken;
            watch.deadline = std::chrono::steady_clock::now() + requestTimeout();
            Watchdog::shared().arm(watch);
        }
        const int error = call();
        if (socket_ >= 0)
            Watchdog::shared().disarm(watch);
        if (watch.fired)
            broken_ = watch.fired;
        else if (error != AFC_E_SUCCESS && isTransportError(error))
            broken_ = kAFCDeviceDeparted;
        return broken_ ? broken_ : error;
    }

    DeviceHandle device_;  // the conduit's stream runs over this device handle
    afc_client_t client_;
    int socket_;
    int broken_ = 0;
};

class Service final : public AMService {
public:
    Service(DeviceHandle device, lockdownd_service_descriptor_t descriptor)
        : device_(std::move(device)),
          descriptor_(descriptor, [](lockdownd_service_descriptor_t d) { lockdownd_service_descriptor_free(d); }) {}

    int afcConnectionOpen(std::shared_ptr<AFCConnection>& connection) override
    {
        // Connecting asks usbmuxd to open a stream to the device's port.
        struct Opened {
            afc_client_t client = nullptr;
            afc_error_t error = AFC_E_UNKNOWN_ERROR;
            int socket = -1;
        };
        auto opened = askDaemon([device = device_, descriptor = descriptor_] {
            // The client library keeps the connection's socket to itself; it is the one that
            // the connect opened, found by looking at the process's sockets before and after.
            Opened result;
            const std::set<int> before = openSockets();
            result.error = afc_client_new(device.get(), descriptor.get(), &result.client);
            if (result.error == AFC_E_SUCCESS) {
                std::set<int> added;
                for (const int fd : openSockets())
                    if (!before.count(fd))
                        added.insert(fd);
                result.socket = added.size() == 1 ? *added.begin() : -1;
            }
            return result;
        });
        if (!opened)
            return deviceRequestsCancelled() ? kAFCRequestCancelled : kAFCDaemonNotAnswering;
        if (opened->error == AFC_E_SUCCESS)
            connection = std::make_shared<Conduit>(device_, opened->client, opened->socket);
        return opened->error;
    }

private:
    DeviceHandle device_;
    std::shared_ptr<lockdownd_service_descriptor> descriptor_;
};

/// A lockdown value as text: strings as they are, numbers in decimal; no value for other kinds.
std::optional<std::string> valueText(plist_t node)
{
    std::optional<std::string> value;
    if (node && plist_get_node_type(node) == PLIST_STRING) {
        char* text = nullptr;
        plist_get_string_val(node, &text);
        if (text)
            value = text;
        std::free(text);
    } else if (node && plist_get_node_type(node) == PLIST_UINT) {
        std::uint64_t number = 0;
        plist_get_uint_val(node, &number);
        value = std::to_string(number);
    }
    return value;
}

/// A device that usbmuxd lists, known by its UDID.
///
/// Every request to its lockdown service is bounded by the request timeout; a device whose
/// lockdown service has once let a request run over counts as not answering from then on, and
/// its session is left to the thread that still waits on it.
class Device final : public AMDevice {
public:
    Device(std::string udid, std::uint32_t handle, std::uint32_t productID)
        : udid_(std::move(udid)), handle_(handle), productID_(productID) {}

    std::uint32_t deviceID() const override { return handle_; }
    std::uint32_t productID() const override { return productID_; }

    std::optional<std::string> copyValue(const std::optional<std::string>& domain, const std::string& key) override
    {
        // A device's values do not change while it is attached; answers are kept so that a
        // device can still be named after it has gone.
        const std::string cacheKey = domain.value_or("") + '\n' + key;
        if (auto known = values_.find(cacheKey); known != values_.end())
            return known->second;
        if (silent_ || gDaemonSilent)
            return std::nullopt;

        auto answer = answerWithinTimeout([udid = udid_, client = client_, domain, key] {
            LockdownClient session = client;
            if (!session) {
                // Without a session of its own, the device is asked through a short-lived one.
                int error = 0;
                DeviceHandle device = openDevice(udid, error);
                lockdownd_client_t opened = nullptr;
                if (!device || lockdownd_client_new(device.get(), &opened, kLockdownLabel) != LOCKDOWN_E_SUCCESS)
                    return std::optional<std::string>();
                session = adoptLockdownClient(opened);
            }
            plist_t node = nullptr;
            if (lockdownd_get_value(session.get(), domain ? domain->c_str() : nullptr, key.c_str(), &node) !=
                LOCKDOWN_E_SUCCESS)
                return std::optional<std::string>();
            auto value = valueText(node);
            if (node)
                plist_free(node);
            return value;
        });
        if (!answer) {
            silent_ = !deviceRequestsCancelled();
            return std::nullopt;
        }
        if (*answer)
            values_[cacheKey] = **answer;
        return *answer;
    }

    int connect() override
    {
        if (silent_)
            return kAFCDeviceNotAnswering;
        // First usbmuxd is asked for the device, then the device for a lockdown session: each
        // within the timeout, so that the one that stays silent is the one named.
        struct Opened {
            DeviceHandle device;
            int error = 0;
        };
        auto opened = askDaemon([udid = udid_] {
            Opened result;
            result.device = openDevice(udid, result.error);
            return result;
        });
        if (!opened)
            return deviceRequestsCancelled() ? kAFCRequestCancelled : kAFCDaemonNotAnswering;
        if (!opened->device)
            return opened->error;
        device_ = opened->device;
        struct Session {
            LockdownClient client;
            int error = 0;
        };
        auto session = answerWithinTimeout([device = device_] {
            Session result;
            lockdownd_client_t client = nullptr;
            result.error = lockdownd_client_new(device.get(), &client, kLockdownLabel);
            if (result.error == LOCKDOWN_E_SUCCESS)
                result.client = adoptLockdownClient(client);
            return result;
        });
        if (!session)
            return notAnswering();
        client_ = session->client;
        return session->error;
    }

    bool isPaired() override
    {
        // Paired means the host holds a pairing record for the device (usbmuxd keeps them);
        // its HostID opens the session.
        hostID_.reset();
        auto record = askDaemon([udid = udid_] {
            char* data = nullptr;
            std::uint32_t size = 0;
            std::string bytes;
            if (usbmuxd_read_pair_record(udid.c_str(), &data, &size) == 0 && data)
                bytes.assign(data, size);
            std::free(data);
            return bytes;
        });
        if (!record || record->empty())
            return false;
        plist_t parsed = nullptr;
        if (record->size() >= 8 && record->compare(0, 8, "bplist00") == 0)
            plist_from_bin(record->data(), static_cast<std::uint32_t>(record->size()), &parsed);
        else
            plist_from_xml(record->data(), static_cast<std::uint32_t>(record->size()), &parsed);
        if (parsed) {
            if (plist_t node = plist_dict_get_item(parsed, "HostID"); node && plist_get_node_type(node) == PLIST_STRING)
                hostID_ = valueText(node);
            plist_free(parsed);
        }
        return hostID_.has_value();
    }

    int validatePairing() override
    {
        if (!client_)
            return LOCKDOWN_E_INVALID_ARG;
        // Devices from iOS 7 on validate the pairing when the session starts and no longer
        // answer the separate request.
        const auto version = copyValue(std::nullopt, "ProductVersion");
        if (silent_)
            return notAnswering();
        if (version && std::atoi(version->c_str()) >= 7)
            return LOCKDOWN_E_SUCCESS;
        return lockdownRequest([](lockdownd_client_t client) { return lockdownd_validate_pair(client, nullptr); });
    }

    int startSession() override
    {
        if (!client_ || !hostID_)
            return LOCKDOWN_E_INVALID_ARG;
        return lockdownRequest([hostID = *hostID_](lockdownd_client_t client) {
            char* session = nullptr;
            int ssl = 0;
            const lockdownd_error_t error = lockdownd_start_session(client, hostID.c_str(), &session, &ssl);
            std::free(session);
            return error;
        });
    }

    int startService(const std::string& name, std::shared_ptr<AMService>& service) override
    {
        if (!client_)
            return LOCKDOWN_E_INVALID_ARG;
        struct Started {
            lockdownd_error_t error = LOCKDOWN_E_UNKNOWN_ERROR;
            lockdownd_service_descriptor_t descriptor = nullptr;
        };
        if (silent_)
            return notAnswering();
        auto started = answerWithinTimeout([client = client_, name] {
            Started result;
            result.error = lockdownd_start_service(client.get(), name.c_str(), &result.descriptor);
            return result;
        });
        if (!started) {
            // A descriptor that arrives after this is left to the thread: it is never used.
            silent_ = !deviceRequestsCancelled();
            return notAnswering();
        }
        if (started->error == LOCKDOWN_E_SUCCESS && started->descriptor)
            service = std::make_shared<Service>(device_, started->descriptor);
        else if (started->descriptor)
            lockdownd_service_descriptor_free(started->descriptor);
        return started->error;
    }

private:
    /// The code for a request that did not come back: cancelled, or the device not answering.
    int notAnswering()
    {
        if (deviceRequestsCancelled())
            return kAFCRequestCancelled;
        silent_ = true;
        return kAFCDeviceNotAnswering;
    }

    /// One request on the device's lockdown session, bounded.
    template <typename Request>
    int lockdownRequest(Request request)
    {
        if (silent_)
            return notAnswering();
        auto error = answerWithinTimeout([client = client_, request] { return static_cast<int>(request(client.get())); });
        if (!error)
            return notAnswering();
        return *error;
    }

    std::string udid_;
    std::uint32_t handle_;
    std::uint32_t productID_;
    std::map<std::string, std::string> values_;
    DeviceHandle device_;
    LockdownClient client_;
    std::optional<std::string> hostID_;
    bool silent_ = false;  // its lockdown service let a request run past the timeout
};

/// One event of usbmuxd, carried from its thread to the main context.
struct PendingEvent {
    struct Subscription* subscription;
    std::string udid;
    int event;
    std::uint32_t handle;
    std::uint32_t productID;
};

/// The subscription lives as long as the process: usbmuxd's event thread may call into it up
/// to the very end.
struct Subscription {
    GMainContext* context = nullptr;
    MobileDevicePlatform::Callback callback;
    std::map<std::string, std::shared_ptr<Device>> devices;  // touched on the main context only
};

gboolean deliver(gpointer data)
{
    auto& pending = *static_cast<PendingEvent*>(data);
    auto& subscription = *pending.subscription;
    AMDeviceNotification notification;
    notification.message = pending.event;
    if (pending.event == IDEVICE_DEVICE_ADD) {
        auto device = std::make_shared<Device>(pending.udid, pending.handle, pending.productID);
        subscription.devices[pending.udid] = device;
        notification.device = device;
    } else {
        const auto found = subscription.devices.find(pending.udid);
        if (found == subscription.devices.end())
            return G_SOURCE_REMOVE;
        notification.device = found->second;
        if (pending.event == IDEVICE_DEVICE_REMOVE)
            subscription.devices.erase(found);
    }
    subscription.callback(notification);
    return G_SOURCE_REMOVE;
}

void eventArrived(const idevice_event_t* event, void* context)
{
    // usbmuxd's event thread: only what needs no framework state is done here.
    if (!event || !event->udid || event->conn_type == CONNECTION_NETWORK)
        return;
    auto* pending = new PendingEvent{static_cast<Subscription*>(context), event->udid, event->event, 0, 0};
    if (event->event == IDEVICE_DEVICE_ADD) {
        usbmuxd_device_info_t info{};
        if (usbmuxd_get_device_by_udid(event->udid, &info) == 1) {
            pending->handle = info.handle;
            pending->productID = info.product_id;
        }
    }
    // Always queued, never run here: g_main_context_invoke would run the call on this thread
    // when nobody happens to own the context at that moment.
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, deliver, pending, [](gpointer data) { delete static_cast<PendingEvent*>(data); });
    g_source_attach(source, pending->subscription->context);
    g_source_unref(source);
}

class LibimobiledevicePlatform final : public MobileDevicePlatform {
public:
    LibimobiledevicePlatform()
    {
        // A write to a device stream that has just gone would otherwise end the process.
        std::signal(SIGPIPE, SIG_IGN);
    }

    int notificationSubscribe(Callback callback) override
    {
        // libimobiledevice keeps one subscription per process; it is never cancelled.
        static Subscription* subscription = nullptr;
        if (!subscription)
            subscription = new Subscription;
        subscription->context = g_main_context_ref_thread_default();
        subscription->callback = std::move(callback);
        // libusbmuxd fills a static with the program's name when it writes its first message;
        // one request from this thread first keeps the event thread from racing us for it. It
        // also finds a daemon that takes connections but answers nothing: then there is nothing
        // to subscribe to.
        attachedDeviceCount();
        if (gDaemonSilent)
            return kAFCDaemonNotAnswering;
        return idevice_event_subscribe(eventArrived, subscription);
    }

    std::size_t attachedDeviceCount() override
    {
        auto count = askDaemon([] {
            usbmuxd_device_info_t* list = nullptr;
            const int listed = usbmuxd_get_device_list(&list);
            std::size_t usb = 0;
            for (int i = 0; i < listed; ++i)
                if (list[i].conn_type != CONNECTION_TYPE_NETWORK)
                    ++usb;
            if (list)
                usbmuxd_device_list_free(&list);
            return usb;
        });
        return count.value_or(0);
    }

    std::optional<std::string> notAnswering() const override
    {
        if (!gDaemonSilent)
            return std::nullopt;
        return "usbmuxd, the service that reaches phones and iPod touches over USB, did not answer within " +
               requestTimeoutText();
    }
};

std::chrono::milliseconds timeoutFromEnvironment()
{
    if (const char* text = std::getenv("ZQ_DEVICE_TIMEOUT")) {
        char* end = nullptr;
        const double seconds = std::strtod(text, &end);
        if (end != text && *end == '\0' && seconds > 0 && seconds < 1e6)
            return std::chrono::milliseconds(static_cast<long long>(seconds * 1000 + 0.5));
    }
    return std::chrono::seconds(10);
}

std::shared_ptr<MobileDevicePlatform>& sharedSlot()
{
    static std::shared_ptr<MobileDevicePlatform> platform;
    return platform;
}

} // namespace

std::shared_ptr<MobileDevicePlatform> MobileDevicePlatform::shared()
{
    if (!sharedSlot())
        sharedSlot() = std::make_shared<LibimobiledevicePlatform>();
    return sharedSlot();
}

void MobileDevicePlatform::setShared(std::shared_ptr<MobileDevicePlatform> platform)
{
    sharedSlot() = std::move(platform);
}

std::chrono::milliseconds requestTimeout()
{
    long long milliseconds = gTimeoutMilliseconds;
    if (milliseconds < 0) {
        milliseconds = timeoutFromEnvironment().count();
        gTimeoutMilliseconds = milliseconds;
    }
    return std::chrono::milliseconds(milliseconds);
}

std::string requestTimeoutText()
{
    const auto time = requestTimeout().count();
    std::string text = std::to_string(time / 1000);
    if (const auto tenths = time % 1000 / 100)
        text += "." + std::to_string(tenths);
    return text + " s";
}

void setRequestTimeout(std::chrono::milliseconds timeout) { gTimeoutMilliseconds = std::max<long long>(1, timeout.count()); }

void cancelDeviceRequests() noexcept { gCancelled = true; }

CancellationScope::CancellationScope(std::shared_ptr<const CancellationToken> token)
    : previous_(std::exchange(tScopeToken, std::move(token))) {}

CancellationScope::~CancellationScope() { tScopeToken = std::move(previous_); }

bool deviceRequestsCancelled() noexcept { return gCancelled || (tScopeToken && tScopeToken->isCancelled()); }

std::shared_ptr<const CancellationToken> currentCancellationToken() { return tScopeToken; }

} // namespace zq
