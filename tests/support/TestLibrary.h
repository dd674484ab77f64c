#pragma once

// Small helpers the library tests share: loading a written volume, naming tracks by ID,
// expecting the framework's exceptions by name, capturing the log and pinning the time zone.

#include "tests/support/SampleDevice.h"

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/files/VolumeFiles.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/iPodTrack.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace zq::test {

/// Writes `volume` under `root` and opens it as a device. Without SysInfo there is no serial
/// number, so every load makes a new library object.
inline std::shared_ptr<zq::ZQCoreiPod> loadVolume(const std::string& root, const VolumeSpec& volume)
{
    writeVolume(root, volume);
    return zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(root));
}

inline std::shared_ptr<zq::ZQCoreiPod> loadDatabase(const std::string& root, const DatabaseSpec& db)
{
    return loadVolume(root, VolumeSpec{.database = db});
}

/// The files of a folder reached the way a device session reaches a phone's (as over AFC): no
/// descriptors, no sizes, files in pieces.
struct SessionFiles : zq::VolumeFiles {
    using VolumeFiles::VolumeFiles;
    std::optional<std::uint64_t> sizeOfFile(const std::string&) const override { return std::nullopt; }
    zq::FileCopyResult copyFile(const std::string& path, int destination,
                                const zq::FileCopyProgress& progress = {}) const override
    {
        return DeviceFiles::copyFile(path, destination, progress);
    }
    bool readsThroughSession() const override { return true; }
};

/// A library object with no device behind it, driven directly by a test: its files are those of
/// the folder `base` (none: paths as they are), or reached as through a session.
struct DetachedLibrary : zq::ZQCoreiPod {
    explicit DetachedLibrary(std::string base = {}, bool throughSession = false)
    {
        if (throughSession)
            setFiles(std::make_shared<SessionFiles>(base));
        else if (!base.empty())
            setFiles(std::make_shared<zq::VolumeFiles>(base));
        iPodBasePath_ = std::move(base);
    }
};

using Ids = std::vector<std::uint32_t>;

inline Ids idsOf(const zq::Playlist::Tracks& tracks)
{
    Ids ids;
    for (const auto& track : tracks)
        ids.push_back(track->trackID());
    return ids;
}

/// Every field of a track in one line: numbers, then texts ("-" for none), then the file path.
inline std::string trackFields(const zq::iPodTrack& t)
{
    std::ostringstream out;
    out << t.trackID() << ' ' << t.dbid() << ' ' << t.compilation() << ' ' << t.rating() << ' ' << t.fileSize()
        << ' ' << t.trackLength() << ' ' << t.startTime() << ' ' << t.endTime() << ' ' << t.trackNumber() << '/'
        << t.trackTotal() << ' ' << t.discNumber() << '/' << t.discTotal() << ' ' << t.year() << ' ' << t.bitrate()
        << ' ' << t.sampleRate() << ' ' << t.volume() << ' ' << t.soundcheckValue() << ' ' << t.playCount() << ' '
        << t.BPM() << ' ' << t.mediaType() << ' ' << t.albumID() << ' ' << t.artworkLink();
    for (const auto& text : {t.title(), t.album(), t.artist(), t.albumArtist(), t.genre(), t.fileType(),
                             t.EQSetting(), t.comment(), t.podcastCategory(), t.composer(), t.grouping(),
                             t.trackDescription()})
        out << '|' << text.value_or("-");
    out << '|' << t.filePath().value_or("-");
    return out.str();
}

/// Everything a walk decides, in one comparable text: every track's fields and date added,
/// every playlist's description and members.
inline std::string librarySummary(const zq::ZQCoreiPod& library)
{
    std::ostringstream out;
    for (const auto& track : library.allTracks())
        out << trackFields(*track) << (track->dateAdded() ? track->dateAdded()->iso8601() : "-") << '\n';
    for (const auto& playlist : library.allPlaylists())
        out << playlist->description() << testing::PrintToString(idsOf(playlist->tracks())) << '\n';
    return out.str();
}

/// Runs `action` and expects the framework exception `name` (and `reason`, when given).
inline void expectThrown(const std::function<void()>& action, const std::string& name = "XRDataReaderInvalidRead",
                         const std::optional<std::string>& reason = std::nullopt)
{
    try {
        action();
        ADD_FAILURE() << "no " << name << " was thrown";
    } catch (const zq::Exception& e) {
        EXPECT_EQ(e.name(), name);
        EXPECT_EQ(e.reason(), reason.value_or(e.reason()));
    }
}

/// Collects log lines while alive.
class LogCapture {
public:
    LogCapture() : previous_(zq::setLogHandler([this](const std::string& line) { lines.push_back(line); })) {}
    ~LogCapture() { zq::setLogHandler(previous_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    std::vector<std::string> lines;

private:
    zq::LogHandler previous_;
};

/// Pins TZ while alive; puts the caller's zone back afterwards.
class ZoneScope {
public:
    explicit ZoneScope(const char* zone)
    {
        if (const char* old = std::getenv("TZ"))
            old_ = old;
        use(zone);
    }
    ~ZoneScope()
    {
        old_ ? ::setenv("TZ", old_->c_str(), 1) : ::unsetenv("TZ");
        ::tzset();
    }
    ZoneScope(const ZoneScope&) = delete;
    ZoneScope& operator=(const ZoneScope&) = delete;
    static void use(const char* zone)
    {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }

private:
    std::optional<std::string> old_;
};

} // namespace zq::test
