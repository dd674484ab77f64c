#pragma once

// A SCSI device that answers the information inquiry from a script and records what it was
// asked; a library object whose volume is served by one (nub and transport replaced, the load
// sequence real); and what the tests of the load step compare.

#include "ZQCore/device/DeviceInformationInquiry.h"
#include "ZQCore/device/ZQCoreiPod.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace zq::test {

/// What a scripted device answers and what it was asked.
struct SCSIScript {
    /// Answer buffers by page code, as the device fills them (byte 1 page code, byte 3 length).
    std::map<std::uint8_t, std::vector<std::uint8_t>> pages;
    /// Pages whose command ends with CHECK CONDITION instead of an answer.
    std::set<std::uint8_t> failingPages;
    /// Errors the device interface or its tasks answer (0: success).
    std::int32_t exclusiveAccessError = 0, releaseError = 0, cdbError = 0, scatterGatherError = 0, timeoutError = 0,
                 executeError = 0;
    bool refuseTasks = false;

    struct Command {
        std::vector<std::uint8_t> cdb;
        std::uint64_t transferCount = 0;
        std::size_t bufferSize = 0;
        SCSIDataTransferDirection direction = SCSIDataTransferDirection::NoDataTransfer;
        std::uint32_t timeout = 0;
        bool bufferWasZeroed = false;  ///< every byte 0 when the command ran
    };
    std::vector<Command> commands;
    int obtainCalls = 0, releaseCalls = 0;
    bool exclusiveWhileAsking = true;  ///< every command came while exclusive access was held
    bool holding = false;

    std::vector<std::uint8_t> askedPages() const
    {
        std::vector<std::uint8_t> asked;
        for (const auto& command : commands)
            asked.push_back(command.cdb.size() > 2 ? command.cdb[2] : 0);
        return asked;
    }

    /// An answer buffer: peripheral byte 0, the page code, `byte2`, the payload length
    /// (`lengthByte` when given, else the payload's size) and the payload.
    static std::vector<std::uint8_t> answer(std::uint8_t page, const std::vector<std::uint8_t>& payload,
                                            std::uint8_t byte2 = 0, int lengthByte = -1)
    {
        std::vector<std::uint8_t> bytes = {0x00, page, byte2,
                                           static_cast<std::uint8_t>(lengthByte >= 0 ? lengthByte : payload.size())};
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        return bytes;
    }
    static std::vector<std::uint8_t> text(const std::string& characters)
    {
        return std::vector<std::uint8_t>(characters.begin(), characters.end());
    }
    /// A device that hands out `xml` in pages of `pageSize` characters, listed in page 0xC0
    /// as 0xC2, 0xC3, ...
    static SCSIScript servingText(const std::string& xml, std::size_t pageSize = 200)
    {
        SCSIScript script;
        std::vector<std::uint8_t> list;
        std::uint8_t code = 0xC2;
        for (std::size_t at = 0; at < xml.size(); at += pageSize, ++code) {
            list.push_back(code);
            script.pages[code] = answer(code, text(xml.substr(at, pageSize)));
        }
        script.pages[0xC0] = answer(0xC0, list);
        return script;
    }
};

class ScriptedSCSITask final : public SCSITask {
public:
    explicit ScriptedSCSITask(SCSIScript& script) : script_(script) {}

    std::int32_t setCommandDescriptorBlock(std::span<const std::uint8_t> cdb) override
    {
        command_.cdb.assign(cdb.begin(), cdb.end());
        return script_.cdbError;
    }
    std::int32_t setScatterGatherEntries(std::span<std::uint8_t> buffer, std::uint64_t transferCount,
                                         SCSIDataTransferDirection direction) override
    {
        buffer_ = buffer;
        command_.bufferSize = buffer.size();
        command_.transferCount = transferCount;
        command_.direction = direction;
        return script_.scatterGatherError;
    }
    std::int32_t setTimeoutDuration(std::uint32_t milliseconds) override
    {
        command_.timeout = milliseconds;
        return script_.timeoutError;
    }
    std::int32_t executeTaskSync(SCSISenseData&, SCSITaskStatus& status, std::uint64_t& transferred) override
    {
        command_.bufferWasZeroed = std::all_of(buffer_.begin(), buffer_.end(), [](std::uint8_t b) { return b == 0; });
        script_.exclusiveWhileAsking = script_.exclusiveWhileAsking && script_.holding;
        script_.commands.push_back(command_);
        if (script_.executeError)
            return script_.executeError;
        const std::uint8_t page = command_.cdb.size() > 2 ? command_.cdb[2] : 0;
        const auto answer = script_.pages.find(page);
        if (script_.failingPages.count(page) || answer == script_.pages.end()) {
            status = 0x02;  // CHECK CONDITION
            return 0;
        }
        const std::size_t count = std::min<std::size_t>({answer->second.size(), buffer_.size(), command_.transferCount});
        std::copy_n(answer->second.begin(), count, buffer_.begin());
        transferred = count;
        status = kSCSITaskStatus_GOOD;
        return 0;
    }

private:
    SCSIScript& script_;
    SCSIScript::Command command_;
    std::span<std::uint8_t> buffer_;
};

class ScriptedSCSIDevice final : public SCSITaskDeviceInterface {
public:
    explicit ScriptedSCSIDevice(std::shared_ptr<SCSIScript> script) : script_(std::move(script)) {}

    std::int32_t obtainExclusiveAccess() override
    {
        ++script_->obtainCalls;
        script_->holding = script_->exclusiveAccessError == 0;
        return script_->exclusiveAccessError;
    }
    std::int32_t releaseExclusiveAccess() override
    {
        ++script_->releaseCalls;
        script_->holding = false;
        return script_->releaseError;
    }
    std::unique_ptr<SCSITask> createSCSITask() override
    {
        return script_->refuseTasks ? nullptr : std::make_unique<ScriptedSCSITask>(*script_);
    }

private:
    std::shared_ptr<SCSIScript> script_;
};

/// A library object whose device answers from `script`: the volume at any path is taken to
/// have an information nub, and the nub's transport is the scripted device. Everything else of
/// the load is the real sequence.
class ScriptediPod final : public ZQCoreiPod {
public:
    static std::shared_ptr<ScriptediPod> load(const std::shared_ptr<ZQCoreiPodRef>& reference,
                                              std::shared_ptr<SCSIScript> script)
    {
        std::shared_ptr<ScriptediPod> library(new ScriptediPod(std::move(script)));
        library->loadLibrary(reference);
        return library;
    }

    std::optional<DeviceInformationNub> informationNubForPath(const std::string&) const override
    {
        ++nubLookups;
        return DeviceInformationNub{"/sys/devices/scripted/usb1/1-1", "/dev/scripted"};
    }

    mutable int nubLookups = 0;

protected:
    std::unique_ptr<SCSITaskDeviceInterface> createDeviceInterface(const DeviceInformationNub&) const override
    {
        return std::make_unique<ScriptedSCSIDevice>(script_);
    }

private:
    explicit ScriptediPod(std::shared_ptr<SCSIScript> script) : script_(std::move(script)) {}
    std::shared_ptr<SCSIScript> script_;
};

inline std::optional<std::string> serialOf(const ZQCoreiPod& library)
{
    const Value* serial = library.properties().find("SerialNumber");
    return serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt;
}

/// Every file and folder below `root`: contents (or "<folder>") and modification time.
inline std::map<std::string, std::pair<std::string, std::filesystem::file_time_type>> snapshot(const std::string& root)
{
    std::map<std::string, std::pair<std::string, std::filesystem::file_time_type>> entries;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        std::ostringstream contents;
        if (!entry.is_directory())
            contents << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        entries[std::filesystem::relative(entry.path(), root).string()] = {
            entry.is_directory() ? "<folder>" : contents.str(), entry.is_directory() ? std::filesystem::file_time_type{} : entry.last_write_time()};
    }
    return entries;
}

} // namespace zq::test
