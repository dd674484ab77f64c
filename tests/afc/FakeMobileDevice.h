#pragma once
// A scripted mobile device behind the framework's platform interface: an in-memory file system
// served through the conduit calls, every request recorded, and any step of the session made to
// fail with a chosen error number. The real client is exercised against the simulator; this one
// lets a test see the exact requests and reach failures a device rarely shows.

#include "ZQCore/afc/MobileDevice.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace zq::test {

struct FakeRequest {
    std::string op;           ///< "read", "write", "open", "close"...
    std::string path;         ///< for path operations
    std::uint64_t offset = 0; ///< position of a read or write
    std::uint32_t count = 0;  ///< bytes asked for (read) or given (write)
    friend bool operator==(const FakeRequest&, const FakeRequest&) = default;
    friend void PrintTo(const FakeRequest& request, std::ostream* out)
    {
        *out << request.op << "(" << request.path << " @" << request.offset << " #" << request.count << ")";
    }
};

class FakeConduit final : public AFCConnection {
public:
    std::map<std::string, std::string> files;          ///< path -> contents
    std::set<std::string> folders{"/"};
    std::map<std::string, std::string> deviceInfo{{"Model", "iPhone12,1"}, {"FSTotalBytes", "64000000000"}};
    std::set<std::string> unopenable;                   ///< files whose open fails (error 10)
    std::map<std::string, int> infoQueriesLeft;         ///< path -> information answers before it vanishes
    std::vector<FakeRequest> requests;                  ///< reads, writes, opens and closes in order

    std::vector<FakeRequest> requestsOf(const std::string& op) const
    {
        std::vector<FakeRequest> found;
        std::copy_if(requests.begin(), requests.end(), std::back_inserter(found),
                     [&](const FakeRequest& r) { return r.op == op; });
        return found;
    }

    int removePath(const std::string& path) override
    {
        if (files.erase(path))
            return 0;
        return folders.erase(path) ? 0 : 8;
    }
    int renamePath(const std::string& from, const std::string& to) override
    {
        auto found = files.find(from);
        if (found == files.end())
            return 8;
        files[to] = found->second;
        files.erase(from);
        return 0;
    }
    int directoryCreate(const std::string& path) override
    {
        folders.insert(path);
        return 0;
    }
    int directoryOpen(const std::string& path, AFCDirectory& directory) override
    {
        if (!folders.count(path))
            return 8;
        directory.names = {".", ".."};
        const std::string prefix = path == "/" ? "/" : path + "/";
        auto child = [&](const std::string& full) {
            if (full.rfind(prefix, 0) == 0 && full.size() > prefix.size() &&
                full.find('/', prefix.size()) == std::string::npos)
                directory.names.push_back(full.substr(prefix.size()));
        };
        for (const auto& folder : folders)
            child(folder);
        for (const auto& [file, contents] : files)
            child(file);
        return 0;
    }
    int fileInfoOpen(const std::string& path, AFCKeyValue& information) override
    {
        if (auto left = infoQueriesLeft.find(path); left != infoQueriesLeft.end() && left->second-- <= 0)
            return 8;
        if (auto file = files.find(path); file != files.end()) {
            information.pairs = {{"st_size", std::to_string(file->second.size())}, {"st_ifmt", "S_IFREG"}};
            return 0;
        }
        if (folders.count(path)) {
            information.pairs = {{"st_ifmt", "S_IFDIR"}};
            return 0;
        }
        return 8;
    }
    int deviceInfoOpen(AFCKeyValue& information) override
    {
        information.pairs.assign(deviceInfo.begin(), deviceInfo.end());
        return 0;
    }
    int fileRefOpen(const std::string& path, std::uint64_t mode, std::uint64_t& file) override
    {
        requests.push_back({"open", path, mode, 0});
        if (unopenable.count(path))
            return 10;
        if (mode == 3)
            files[path].clear();
        else if (!files.count(path))
            return 8;
        file = ++lastHandle_;
        open_[file] = {path, 0};
        return 0;
    }
    int fileRefSeek(std::uint64_t file, std::int64_t offset, int) override
    {
        auto found = open_.find(file);
        if (found == open_.end() || offset < 0)
            return 7;
        found->second.position = static_cast<std::uint64_t>(offset);
        return 0;
    }
    int fileRefRead(std::uint64_t file, std::uint8_t* buffer, std::uint32_t& count) override
    {
        auto found = open_.find(file);
        if (found == open_.end())
            return 7;
        requests.push_back({"read", found->second.path, found->second.position, count});
        const std::string& contents = files[found->second.path];
        const std::uint64_t position = std::min<std::uint64_t>(found->second.position, contents.size());
        const auto got = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, contents.size() - position));
        std::memcpy(buffer, contents.data() + position, got);
        found->second.position += got;
        count = got;
        return 0;
    }
    int fileRefWrite(std::uint64_t file, const std::uint8_t* bytes, std::uint32_t count) override
    {
        auto found = open_.find(file);
        if (found == open_.end())
            return 7;
        requests.push_back({"write", found->second.path, found->second.position, count});
        std::string& contents = files[found->second.path];
        if (contents.size() < found->second.position + count)
            contents.resize(found->second.position + count);
        std::memcpy(contents.data() + found->second.position, bytes, count);
        found->second.position += count;
        return 0;
    }
    int fileRefSetFileSize(std::uint64_t file, std::uint64_t size) override
    {
        auto found = open_.find(file);
        if (found == open_.end())
            return 7;
        files[found->second.path].resize(size);
        return 0;
    }
    int fileRefClose(std::uint64_t file) override
    {
        requests.push_back({"close", open_.count(file) ? open_[file].path : "", 0, 0});
        return open_.erase(file) ? 0 : 7;
    }

private:
    struct OpenFile {
        std::string path;
        std::uint64_t position = 0;
    };
    std::map<std::uint64_t, OpenFile> open_;
    std::uint64_t lastHandle_ = 0;
};

/// The session steps of a scripted device, each answering the error number set for it.
struct FakeSessionScript {
    int connectError = 0;
    bool paired = true;
    int validateError = 0;
    int sessionError = 0;
    int serviceError = 0;
    bool serviceHandle = true;  ///< false: the service "starts" without a handle
    int conduitError = 0;
};

class FakeDevice final : public AMDevice {
public:
    FakeDevice(std::uint32_t id, std::map<std::string, std::string> values)
        : conduit(std::make_shared<FakeConduit>()), id_(id), values_(std::move(values)) {}

    FakeSessionScript script;
    std::shared_ptr<FakeConduit> conduit;
    std::vector<std::string> steps;  ///< session steps taken, in order

    std::uint32_t deviceID() const override { return id_; }
    std::uint32_t productID() const override { return 0x12a8; }
    std::optional<std::string> copyValue(const std::optional<std::string>&, const std::string& key) override
    {
        auto found = values_.find(key);
        return found == values_.end() ? std::nullopt : std::optional<std::string>(found->second);
    }
    int connect() override { return step("connect", script.connectError); }
    bool isPaired() override
    {
        steps.push_back("isPaired");
        return script.paired;
    }
    int validatePairing() override { return step("validatePairing", script.validateError); }
    int startSession() override { return step("startSession", script.sessionError); }
    int startService(const std::string& name, std::shared_ptr<AMService>& service) override
    {
        if (step("startService " + name, script.serviceError) == 0 && script.serviceHandle)
            service = std::make_shared<Service>(*this);
        return script.serviceError;
    }

private:
    struct Service final : AMService {
        explicit Service(FakeDevice& owner) : device(owner) {}
        FakeDevice& device;
        int afcConnectionOpen(std::shared_ptr<AFCConnection>& connection) override
        {
            if (device.step("afcConnectionOpen", device.script.conduitError) == 0)
                connection = device.conduit;
            return device.script.conduitError;
        }
    };
    int step(const std::string& name, int error)
    {
        steps.push_back(name);
        return error;
    }

    std::uint32_t id_;
    std::map<std::string, std::string> values_;
};

} // namespace zq::test
