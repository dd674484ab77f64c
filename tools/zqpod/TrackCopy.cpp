#include "TrackCopy.h"

#include "ArtworkExport.h"
#include "CopyProgress.h"
#include "FileNames.h"

#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/ConfinedOpen.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Image.h"
#include "ZQCore/model/Playlist.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <csignal>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <unordered_map>
#include <vector>

namespace zqpod {

namespace {

namespace fs = std::filesystem;
using TrackPtr = std::shared_ptr<zq::iPodTrack>;

volatile std::sig_atomic_t gInterrupt = 0;

enum class Action { Copy, Replace, Skip, Fail };

struct PlannedTrack {
    TrackPtr track;
    std::string wanted;  ///< the template's name, unique within this copy
    std::string target;  ///< where it goes (wanted, or numbered beside a different file)
    Action action = Action::Fail;
    std::uint64_t size = 0;  ///< what the device reports for the file
    std::string reason;      ///< why it fails
    bool notOnDevice = false;  ///< the library keeps this track in the cloud only: not a failure
    bool done = false;       ///< the file is in the destination at `target` after the run
};

bool containsIgnoringCase(const std::optional<std::string>& haystack, const std::string& needle)
{
    if (!haystack)
        return needle.empty();
    auto it = std::search(haystack->begin(), haystack->end(), needle.begin(), needle.end(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    });
    return it != haystack->end();
}

bool equalIgnoringCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

std::shared_ptr<zq::Playlist> findPlaylist(const zq::ZQCoreiPod& library, const std::string& name)
{
    for (const auto& playlist : library.allPlaylists())
        if (playlist->name() == name)
            return playlist;
    for (const auto& playlist : library.allPlaylists())
        if (auto own = playlist->name(); own && equalIgnoringCase(*own, name))
            return playlist;
    std::string names;
    for (const auto& playlist : library.allPlaylists())
        names += "\n  " + playlist->name().value_or("(no name)");
    throw CopyRefused("No playlist is called '" + name + "'. The device's playlists:" + names);
}

std::vector<TrackPtr> selectTracks(const zq::ZQCoreiPod& library, const CopyOptions& options)
{
    std::vector<TrackPtr> source =
        options.playlist ? findPlaylist(library, *options.playlist)->tracks() : library.allTracks();
    std::vector<TrackPtr> selected;
    std::set<const zq::iPodTrack*> seen;  // a track that stands twice in a playlist is copied once
    for (const auto& track : source) {
        if (!track || !seen.insert(track.get()).second)
            continue;
        if (options.artist && !containsIgnoringCase(track->artist(), *options.artist) &&
            !containsIgnoringCase(track->albumArtist(), *options.artist))
            continue;
        if (options.album && !containsIgnoringCase(track->album(), *options.album))
            continue;
        if (options.genre && !containsIgnoringCase(track->genre(), *options.genre))
            continue;
        selected.push_back(track);
    }
    return selected;
}

/// The device file's path below the volume, for messages.
std::string devicePath(const zq::ZQCoreiPod& library, const zq::iPodTrack& track)
{
    const std::string path = track.filePath().value_or("");
    const std::string base = library.path() + "/";
    return path.starts_with(base) ? path.substr(base.size()) : path;
}

std::optional<std::uint64_t> sizeOfRegularFile(const fs::path& path, bool& exists)
{
    struct stat info {};
    exists = ::lstat(path.c_str(), &info) == 0;
    if (!exists || !S_ISREG(info.st_mode))
        return std::nullopt;
    return static_cast<std::uint64_t>(info.st_size);
}

/// Settles every track's name and what to do with it, looking at the destination as it is.
std::vector<PlannedTrack> plan(const zq::ZQCoreiPod& library, const std::vector<TrackPtr>& tracks,
                               const NameTemplate& names, const CopyOptions& options)
{
    std::vector<PlannedTrack> planned;
    std::set<std::string> claimed;
    for (const auto& track : tracks) {
        PlannedTrack item;
        item.track = track;
        item.wanted = names.pathFor(*track);
        for (int n = 2; claimed.count(nameKey(item.wanted)); ++n)
            item.wanted = numberedPath(names.pathFor(*track), n);
        claimed.insert(nameKey(item.wanted));
        planned.push_back(std::move(item));
    }

    const fs::path root(options.destination);
    std::set<std::string> taken;  // targets chosen so far
    for (PlannedTrack& item : planned) {
        const zq::iPodTrack& track = *item.track;
        if (!track.filePath() && item.track->additionalData().contains(zq::iPodTrack::kCloudOnlyKey)) {
            item.notOnDevice = true;
            item.reason = "not on the device (only in the cloud)";
            continue;
        }
        if (!track.filePath()) {
            item.reason = "the library gives no file for this track";
            continue;
        }
        auto size = track.sizeOfTrackFile();
        if (!size && library.readsFilesThroughDevice())
            size = track.fileSize();  // a session that does not say: the size the library recorded
        if (!size) {
            item.reason = library.refusesPath(*track.filePath())
                              ? std::string(zq::kRefusedOutsideDevice) + " (" + devicePath(library, track) + ")"
                              : "file missing on the device (" + devicePath(library, track) + ")";
            continue;
        }
        item.size = *size;
        for (int n = 1; n < 1000 && item.reason.empty(); ++n) {
            const std::string candidate = n == 1 ? item.wanted : numberedPath(item.wanted, n);
            const std::string key = nameKey(candidate);
            if (taken.count(key) || (n > 1 && claimed.count(key)))
                continue;
            bool exists = false;
            const auto existing = sizeOfRegularFile(root / candidate, exists);
            if (!exists)
                item.action = Action::Copy;
            else if (existing && n == 1 && options.overwrite)
                item.action = Action::Replace;
            else if (existing && *existing == item.size && !options.overwrite)
                item.action = Action::Skip;
            else
                continue;
            item.target = candidate;
            taken.insert(key);
            break;
        }
        if (item.target.empty() && item.reason.empty())
            item.reason = "no free name beside " + item.wanted;
    }
    return planned;
}

mode_t creationMode()
{
    static const mode_t mode = [] {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return static_cast<mode_t>(0666 & ~mask);
    }();
    return mode;
}

/// A new file in `folder` that nobody sees until it is put in place: an unnamed file where the
/// file system has them (nothing is left behind even if the process is killed), else a hidden
/// temporary name. The destructor removes whatever was not put in place.
class PendingFile {
public:
    explicit PendingFile(const fs::path& folder, const std::string& name) : folder_(folder)
    {
        fd_ = ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, creationMode());
        if (fd_ >= 0)
            return;
        std::string pattern = (folder / ("." + name + ".zqpod-XXXXXX")).string();
        fd_ = ::mkostemp(pattern.data(), O_CLOEXEC);
        if (fd_ < 0) {
            error_ = errno;
            return;
        }
        ::fchmod(fd_, creationMode());
        tempPath_ = pattern;
    }
    ~PendingFile()
    {
        if (fd_ >= 0)
            ::close(fd_);
        if (!tempPath_.empty())
            ::unlink(tempPath_.c_str());
    }
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    int fd() const { return fd_; }
    int error() const { return error_; }

    /// Gives the file its name: replacing a file there when `replace`, otherwise failing with
    /// EEXIST when one has appeared. Returns 0 or an errno.
    int putInPlace(const fs::path& target, bool replace)
    {
        if (tempPath_.empty()) {
            // An unnamed file gets a name by a link through /proc; to replace, it gets a
            // temporary one first and is renamed over the old file.
            const std::string self = "/proc/self/fd/" + std::to_string(fd_);
            if (!replace)
                return ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
            std::string temp = (folder_ / ("." + target.filename().string() + ".zqpod-" + std::to_string(::getpid()))).string();
            ::unlink(temp.c_str());
            if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, temp.c_str(), AT_SYMLINK_FOLLOW) != 0)
                return errno;
            tempPath_ = temp;
        }
        const int closed = ::close(fd_);
        fd_ = -1;
        if (closed != 0)
            return errno;
        if (replace) {
            if (::rename(tempPath_.c_str(), target.c_str()) != 0)
                return errno;
            tempPath_.clear();
            return 0;
        }
        if (::renameat2(AT_FDCWD, tempPath_.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
            tempPath_.clear();
            return 0;
        }
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
        // A file system without no-replace renames: a hard link refuses to replace too (the
        // temporary name goes with this object).
        if (::link(tempPath_.c_str(), target.c_str()) == 0)
            return 0;
        if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS)
            return errno;
        // No hard links either (FAT): a test just before the rename is the best it allows.
        struct stat info {};
        if (::lstat(target.c_str(), &info) == 0)
            return EEXIST;
        if (::rename(tempPath_.c_str(), target.c_str()) != 0)
            return errno;
        tempPath_.clear();
        return 0;
    }

private:
    fs::path folder_;
    int fd_ = -1;
    int error_ = 0;
    std::string tempPath_;
};

std::string errorText(int error) { return std::strerror(error); }

/// A failure to create a name: a file system that cannot hold some of its characters (FAT
/// mounted without utf8 refuses what its character set lacks) says so only by the error.
std::string nameFailure(const std::string& what, const fs::path& path, int error)
{
    std::string text = what + " " + path.string() + ": " + errorText(error);
    const std::string name = path.string();
    const bool nonASCII = std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
    if (nonASCII && (error == EPERM || error == EINVAL || error == EILSEQ))
        text += " (the destination's file system may not hold some characters of this name: mount it with "
                "utf8, or choose a --template)";
    return text;
}

bool writeAll(int fd, const zq::Data& bytes)
{
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t put = ::write(fd, bytes.bytes() + written, bytes.size() - written);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return false;
        written += static_cast<std::size_t>(put);
    }
    return true;
}

/// The folders that creating `folder` below `root` makes, removed again (when still empty)
/// unless kept: a failed copy leaves no empty album folder behind.
class NewFolders {
public:
    NewFolders(const fs::path& root, const fs::path& folder)
    {
        std::error_code error;
        for (fs::path at = folder; at != root && at.has_relative_path() && !fs::exists(at, error); at = at.parent_path())
            made_.push_back(at);
    }
    ~NewFolders()
    {
        std::error_code ignored;
        if (!kept_)
            for (const fs::path& folder : made_)
                fs::remove(folder, ignored);  // only an empty folder goes
    }
    void keep() { kept_ = true; }

private:
    std::vector<fs::path> made_;  // deepest first
    bool kept_ = false;
};

/// Whether the device can no longer be read at all (it left, stopped answering, its volume went
/// away), so that no further track is tried.
bool deviceHasGone(const zq::ZQCoreiPod& library, int error)
{
    if (error == ENODEV)
        return true;
    if (library.readsFilesThroughDevice())
        return false;  // a session says so by its exceptions
    struct stat info {};
    return error == ENODEV || error == ENOTCONN || ::stat((fs::path(library.path()) / "iPod_Control").c_str(), &info) != 0;
}

/// Copies one track; "" on success, else why not. `gone` is set when the device cannot be read
/// any more.
std::string copyOne(const zq::ZQCoreiPod& library, const PlannedTrack& item, const fs::path& root, CopyProgress& progress,
                    bool& gone, bool& full)
{
    const fs::path target = root / item.target;
    std::error_code error;
    NewFolders folders(root, target.parent_path());
    fs::create_directories(target.parent_path(), error);
    if (error)
        return nameFailure("cannot create the folder", target.parent_path(), error.value());
    PendingFile file(target.parent_path(), target.filename().string());
    if (file.fd() < 0)
        return nameFailure("cannot write", target, file.error());
    zq::FileCopyResult result;
    const auto goneMessage = [&](int why) {
        gone = true;
        return "cannot copy " + devicePath(library, *item.track) + ": " + errorText(why) + "; the device's volume " +
               library.path() + " is gone (unmounted or disconnected). Connect it again and run the same command to finish.";
    };
    try {
        result = item.track->copyTrackFileTo(file.fd(), [&](std::uint64_t bytes) {
            progress.advance(bytes);
            return !interruptRequested();
        });
    } catch (const zq::Exception& failure) {
        if (interruptRequested())
            return "interrupted";
        gone = zq::AFCiPod::isDeviceGone(failure);
        return failure.reason();
    }
    if (!result.completed) {
        if (result.error == 0)
            return "interrupted";
        // A full or read-only destination is the destination's failure, named as such.
        if (result.destinationFailed) {
            full = result.error == ENOSPC || result.error == EDQUOT;
            return "cannot write " + target.string() + ": " + errorText(result.error) +
                   (full ? " (the destination is full)" : "");
        }
        if (deviceHasGone(library, result.error))
            return goneMessage(result.error);
        if (result.error == ENOENT)
            return "file missing on the device (" + devicePath(library, *item.track) + ")";
        // The file was swapped for a link out of the device since it was planned.
        if (result.error == EXDEV)
            return std::string(zq::kRefusedOutsideDevice) + " (" + devicePath(library, *item.track) + ")";
        return "cannot copy " + devicePath(library, *item.track) + ": " + errorText(result.error);
    }
    if (result.bytesCopied != item.size && deviceHasGone(library, 0))
        return goneMessage(EIO);
    if (result.bytesCopied != item.size)
        return "the device reports " + std::to_string(item.size) + " bytes for " + devicePath(library, *item.track) +
               " but " + std::to_string(result.bytesCopied) + " were copied";
    if (const int placed = file.putInPlace(target, item.action == Action::Replace); placed != 0)
        return placed == EEXIST ? "a file appeared at that name during the copy; it was left alone"
                                : nameFailure("cannot name the copy", target, placed);
    folders.keep();
    return "";
}

enum class SmallFileOutcome { Written, Unchanged, Failed };

/// Writes a small generated file (a playlist, a cover) by the same rules as a track: an equal
/// file is left, a different one kept and the new file numbered beside it unless `overwrite`
/// or `supersedes` says the file there is an earlier, shorter edition of this one.
SmallFileOutcome writeSmallFile(const fs::path& root, const std::string& wanted, const zq::Data& bytes,
                                const CopyOptions& options, std::string& target, std::set<std::string>& taken,
                                const std::function<bool(const zq::Data&)>& supersedes = {})
{
    for (int n = 1; n < 1000; ++n) {
        const std::string candidate = n == 1 ? wanted : numberedPath(wanted, n);
        if (taken.count(nameKey(candidate)))
            continue;
        bool exists = false;
        const auto size = sizeOfRegularFile(root / candidate, exists);
        bool replace = false;
        if (exists) {
            if (!size)
                continue;
            const bool small = *size == bytes.size() || (supersedes && *size < bytes.size());
            auto current = small ? zq::Data::contentsOfFile((root / candidate).string()) : std::nullopt;
            if (current && *current == bytes && !options.overwrite) {
                target = candidate;
                taken.insert(nameKey(candidate));
                return SmallFileOutcome::Unchanged;
            }
            if (!(options.overwrite && n == 1) && !(current && supersedes && supersedes(*current)))
                continue;
            replace = true;
        }
        target = candidate;
        taken.insert(nameKey(candidate));
        if (options.dryRun)
            return SmallFileOutcome::Written;
        const fs::path path = root / candidate;
        std::error_code error;
        fs::create_directories(path.parent_path(), error);
        PendingFile file(path.parent_path(), path.filename().string());
        if (error || file.fd() < 0 || !writeAll(file.fd(), bytes) || file.putInPlace(path, replace) != 0)
            return SmallFileOutcome::Failed;
        return SmallFileOutcome::Written;
    }
    return SmallFileOutcome::Failed;
}

std::string m3u8For(const zq::Playlist& playlist, const std::unordered_map<const zq::iPodTrack*, std::string>& placed,
                    std::size_t& entries)
{
    std::string text = "#EXTM3U\n";
    entries = 0;
    for (const auto& track : playlist.tracks()) {
        auto where = track ? placed.find(track.get()) : placed.end();
        if (where == placed.end())
            continue;
        const long seconds = static_cast<long>((track->trackLength() + 500) / 1000);
        std::string label = track->artist().value_or("");
        label += (label.empty() ? "" : " - ") + track->title().value_or("");
        for (char& c : label)
            if (c == '\n' || c == '\r')
                c = ' ';
        text += "#EXTINF:" + std::to_string(track->trackLength() ? seconds : -1) + "," + label + "\n" + where->second + "\n";
        ++entries;
    }
    return text;
}

/// Whether `earlier` is a playlist this copy wrote on a run that did not get every track: its
/// entries, in order, are some of the entries of `text`. A resumed copy then replaces it rather
/// than writing a second playlist beside it.
bool isEarlierEdition(const zq::Data& earlier, const std::string& text)
{
    const std::string old(reinterpret_cast<const char*>(earlier.bytes()), earlier.size());
    const std::string header = "#EXTM3U\n";
    if (!old.starts_with(header) || !text.starts_with(header))
        return false;
    // Each entry is two lines (#EXTINF and the path); they must appear in `text` in order.
    std::size_t at = header.size(), from = header.size();
    while (at < old.size()) {
        const std::size_t first = old.find('\n', at);
        const std::size_t second = first == std::string::npos ? first : old.find('\n', first + 1);
        if (second == std::string::npos)
            return false;
        const std::string entry = old.substr(at, second + 1 - at);
        std::size_t found = from;
        while ((found = text.find(entry, found)) != std::string::npos && text[found - 1] != '\n')
            ++found;
        if (found == std::string::npos)
            return false;
        from = found + entry.size();
        at = second + 1;
    }
    return true;
}

std::string plural(std::size_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

void checkDestination(const zq::ZQCoreiPod& library, const fs::path& destination)
{
    // A device reached through a session has no folder on this computer ("/" stands for its
    // own file system), so no local destination can lie on it.
    if (library.readsFilesThroughDevice())
        return;
    std::error_code error;
    const fs::path device = fs::weakly_canonical(library.path(), error);
    const fs::path target = fs::weakly_canonical(fs::absolute(destination), error);
    if (error)
        throw CopyRefused("Cannot use " + destination.string() + " as the destination: " + error.message());
    auto [deviceEnd, targetEnd] = std::mismatch(device.begin(), device.end(), target.begin(), target.end());
    // By name, and by identity: the same folder reached another way (a bind mount, a second
    // mount of the same volume) has another path but the same device and inode.
    struct stat root {};
    bool sameFolder = false;
    if (::stat(library.path().c_str(), &root) == 0)
        for (fs::path at = target; !sameFolder; at = at.parent_path()) {
            struct stat here {};
            if (::stat(at.c_str(), &here) == 0 && here.st_dev == root.st_dev && here.st_ino == root.st_ino)
                sameFolder = true;
            if (at == at.parent_path())
                break;
        }
    if (deviceEnd == device.end() || sameFolder)
        throw CopyRefused("The destination " + destination.string() +
                          " lies on the device itself; zqpod never writes to a device. Choose a folder on the computer.");
}

/// Whether `name` is one of this program's own temporary names: ".NAME.zqpod-XXXXXX" (a copy
/// in progress) or ".NAME.zqpod-PID" (a replacement being put in place).
bool isOwnTemporaryName(const std::string& name)
{
    const std::size_t at = name.rfind(".zqpod-");
    if (name.size() < 2 || name[0] != '.' || at == std::string::npos || at < 2)
        return false;
    const std::string suffix = name.substr(at + 7);
    return !suffix.empty() && suffix.size() <= 10 &&
           std::all_of(suffix.begin(), suffix.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)); });
}

/// Removes what an earlier run killed part-way left in `root`: its temporary files, where the
/// destination has no unnamed ones (FAT, network shares). Only called while this run holds the
/// destination's lock, so no other copy is writing them.
std::size_t removeStaleTemporaries(const fs::path& root)
{
    std::size_t removed = 0;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        std::error_code ignored;
        if (it->is_regular_file(ignored) && !it->is_symlink(ignored) && isOwnTemporaryName(it->path().filename().string()))
            removed += fs::remove(it->path(), ignored) ? 1 : 0;
    }
    return removed;
}

/// The destination held by this run alone: a second copy into the same folder waits for the
/// first to finish (saying so), then plans against what it left, so two runs end as one would.
class DestinationLock {
public:
    DestinationLock(const fs::path& root, std::ostream& out)
    {
        fd_ = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd_ < 0)
            return;  // a folder that cannot be opened fails at its first write instead
        if (::flock(fd_, LOCK_EX | LOCK_NB) == 0)
            return;
        out << "Another zqpod copy is writing into " << root.string() << "; waiting for it to finish..." << std::endl;
        while (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK && errno != EINTR)
                return;  // a file system without locks: nothing to wait for
            if (interruptRequested())
                return;
            ::usleep(100000);
        }
    }
    ~DestinationLock()
    {
        if (fd_ >= 0)
            ::close(fd_);  // lets the lock go
    }
    DestinationLock(const DestinationLock&) = delete;
    DestinationLock& operator=(const DestinationLock&) = delete;

private:
    int fd_ = -1;
};

/// What a run reports as it goes: routine lines and the summary on `out`, failures and warnings
/// on `err`, so that a person who keeps the log of a large copy still sees what went wrong,
/// and a script reads the outcome from one stream and the trouble from the other.
struct CopyReport {
    std::ostream& out;
    std::ostream& err;

    /// The stream for a failure or warning, once what came before it on `out` is out: the two
    /// streams often end in one log.
    std::ostream& trouble() const
    {
        out.flush();
        return err;
    }
};

/// The files a run is about: the planned tracks, and what the playlists and covers written
/// after them may use.
struct CopyRun {
    const zq::ZQCoreiPod& library;
    const CopyOptions& options;
    const fs::path root;
    std::vector<PlannedTrack> planned;
    CopySummary summary;
    std::size_t notCopied = 0;  ///< left for another run by an interruption or a stop
    std::size_t playlistsWritten = 0;
    std::size_t coversWritten = 0;
};

/// A real run holds the destination before it looks at it: what another run into the same
/// folder writes meanwhile is planned against, not written a second time beside it. False when
/// interrupted while waiting for the other run.
bool holdDestination(const fs::path& root, std::ostream& out, std::optional<DestinationLock>& lock)
{
    std::error_code error;
    fs::create_directories(root, error);
    if (error)
        throw CopyRefused("Cannot create the destination " + root.string() + ": " + error.message());
    lock.emplace(root, out);
    if (interruptRequested())
        return false;
    removeStaleTemporaries(root);
    return true;
}

/// --dry-run: says what a real run would do with every planned track, the tracks it could not
/// copy included (the whole plan is the answer, so it all goes to standard output).
void showPlan(CopyRun& run, std::ostream& out)
{
    for (auto& item : run.planned) {
        const std::string from = devicePath(run.library, *item.track);
        switch (item.action) {
        case Action::Copy:
        case Action::Replace:
            out << (item.action == Action::Copy ? "would copy     " : "would replace  ") << item.target << "  <- "
                << from << " (" << formatBytes(item.size) << ")"
                << (item.target != item.wanted ? "  [" + item.wanted + " exists and differs]" : "") << '\n';
            ++run.summary.copied;
            run.summary.bytesCopied += item.size;
            item.done = true;
            break;
        case Action::Skip:
            out << "would skip     " << item.target << "  (already there, same size)\n";
            ++run.summary.skipped;
            item.done = true;
            break;
        case Action::Fail:
            if (item.notOnDevice) {
                out << "not on device  " << item.wanted << " (only in the cloud)\n";
                ++run.summary.notOnDevice;
                break;
            }
            out << "cannot copy    " << item.wanted << ": " << item.reason << '\n';
            ++run.summary.failed;
            break;
        }
    }
}

/// Copies every planned track that is to be copied, one line (or a step of the bar) each.
/// Stops at an interruption, and at the first failure that every further track would meet
/// too (the device gone, the destination full).
void copyPlannedFiles(CopyRun& run, const CopyReport& report)
{
    CopySummary& summary = run.summary;
    std::size_t toCopy = 0;
    std::uint64_t bytesToCopy = 0;
    for (const auto& item : run.planned)
        if (item.action == Action::Copy || item.action == Action::Replace) {
            ++toCopy;
            bytesToCopy += item.size;
        }

    std::size_t copyFailures = 0;  // of the files that were to be copied
    CopyProgress progress(report.out, report.err, run.options.live, run.options.columns);
    progress.begin(toCopy, bytesToCopy);
    for (auto& item : run.planned) {
        if (item.notOnDevice) {
            progress.note("not on the device: " + item.wanted + " (only in the cloud)", CopyProgress::Notice);
            ++summary.notOnDevice;
            continue;
        }
        if (item.action == Action::Fail) {
            progress.note("failed   " + item.wanted + ": " + item.reason, CopyProgress::Failure);
            ++summary.failed;
            continue;
        }
        if (item.action == Action::Skip) {
            progress.note("skipped  " + item.target + " (already there, same size)", CopyProgress::Routine);
            ++summary.skipped;
            item.done = true;
            continue;
        }
        if (interruptRequested()) {
            summary.interrupted = true;
            break;
        }
        if (item.target != item.wanted)
            progress.note("kept     " + item.wanted + " (a different file); this copy is " + item.target,
                          CopyProgress::Notice);
        progress.startFile(item.target);
        bool gone = false, full = false;
        const std::string why = copyOne(run.library, item, run.root, progress, gone, full);
        progress.finishFile(item.size);
        if (why == "interrupted") {
            summary.interrupted = true;
            break;
        }
        if (!why.empty()) {
            progress.note("failed   " + item.target + ": " + why, CopyProgress::Failure);
            ++summary.failed;
            ++copyFailures;
            if (gone || full) {
                // Every further track would fail the same way, each after its own wait.
                summary.deviceGone = gone;
                summary.destinationFull = full;
                break;
            }
            continue;
        }
        progress.note((item.action == Action::Replace ? "replaced " : "copied   ") + item.target, CopyProgress::Routine);
        ++summary.copied;
        summary.bytesCopied += item.size;
        item.done = true;
    }
    progress.end();
    run.notCopied = toCopy - summary.copied - copyFailures;
}

/// The names of the destination this run has settled, which a playlist or cover must not take.
std::set<std::string> namesTaken(const CopyRun& run)
{
    std::set<std::string> taken;
    for (const auto& item : run.planned)
        if (!item.target.empty())
            taken.insert(nameKey(item.target));
    return taken;
}

const char* writtenVerb(const CopyOptions& options) { return options.dryRun ? "would write    " : "wrote    "; }
const char* keptVerb(const CopyOptions& options) { return options.dryRun ? "would keep     " : "kept     "; }

/// --playlists: an M3U8 file per playlist but the master, listing the tracks that are in the
/// destination after this run.
void writePlaylists(CopyRun& run, std::set<std::string>& taken, const CopyReport& report)
{
    std::unordered_map<const zq::iPodTrack*, std::string> placed;
    for (const auto& item : run.planned)
        if (item.done)
            placed.emplace(item.track.get(), item.target);
    for (const auto& playlist : run.library.allPlaylists()) {
        if (playlist->isMaster())
            continue;
        std::size_t entries = 0;
        const std::string text = m3u8For(*playlist, placed, entries);
        if (entries == 0)
            continue;
        std::string target;
        const std::string wanted = safeName(playlist->name().value_or("Playlist") + ".m3u8", true);
        switch (writeSmallFile(run.root, wanted, zq::Data(text), run.options, target, taken,
                               [&](const zq::Data& earlier) { return isEarlierEdition(earlier, text); })) {
        case SmallFileOutcome::Written:
            report.out << writtenVerb(run.options) << target << " (" << plural(entries, "track", "tracks") << ")\n";
            ++run.playlistsWritten;
            break;
        case SmallFileOutcome::Unchanged:
            report.out << keptVerb(run.options) << target << " (unchanged)\n";
            break;
        case SmallFileOutcome::Failed:
            report.trouble() << "failed   " << wanted << ": cannot write the playlist\n";
            ++run.summary.failed;
            break;
        }
    }
}

/// --art: cover.png in each folder that received tracks, from the first track there whose
/// artwork can be read.
void writeCovers(CopyRun& run, std::set<std::string>& taken, const CopyReport& report)
{
    if (const auto& why = run.library.artworkLoadError()) {
        report.trouble() << "failed   covers: the device's artwork database could not be read: " << *why << '\n';
        ++run.summary.failed;
        return;
    }
    std::map<std::string, const zq::iPodTrack*> firstWithArt;
    std::vector<std::string> folders;
    for (const auto& item : run.planned) {
        if (!item.done || !item.track->hasAlbumArt())
            continue;
        const std::string folder = fs::path(item.target).parent_path().string();
        if (firstWithArt.emplace(folder, item.track.get()).second)
            folders.push_back(folder);
    }
    for (const std::string& folder : folders) {
        auto image = bestImage(*firstWithArt[folder]->albumArt());
        auto png = image ? image->pngData() : std::nullopt;
        const std::string wanted = (folder.empty() ? "" : folder + "/") + "cover.png";
        if (!png) {
            // A dry run's every line is its plan; a real run warns beside its failures.
            (run.options.dryRun ? report.out : report.trouble())
                << "no cover  " << wanted << ": the device's artwork cannot be read\n";
            continue;
        }
        std::string target;
        switch (writeSmallFile(run.root, wanted, *png, run.options, target, taken)) {
        case SmallFileOutcome::Written:
            report.out << writtenVerb(run.options) << target << " (" << image->width() << " x " << image->height()
                       << ")\n";
            ++run.coversWritten;
            break;
        case SmallFileOutcome::Unchanged:
            report.out << keptVerb(run.options) << target << " (unchanged)\n";
            break;
        case SmallFileOutcome::Failed:
            report.trouble() << "failed   " << wanted << ": cannot write the cover\n";
            ++run.summary.failed;
            break;
        }
    }
}

/// The last line: what was copied, skipped and failed, and why the run stopped early if it
/// did. It goes to standard output in every case, failures too, so that a script finds the
/// counts in one place; the exit status says whether anything failed, and the lines before on
/// standard error say what.
void printSummary(const CopyRun& run, std::ostream& out)
{
    const CopySummary& summary = run.summary;
    const CopyOptions& options = run.options;
    std::string extras;
    if (summary.notOnDevice)
        extras += "; " + std::to_string(summary.notOnDevice) + " not on the device";
    if (options.playlists || options.art) {
        extras += options.dryRun ? "; would write " : "; wrote ";
        if (options.playlists)
            extras += plural(run.playlistsWritten, "playlist", "playlists");
        if (options.playlists && options.art)
            extras += " and ";
        if (options.art)
            extras += plural(run.coversWritten, "cover", "covers");
    }
    const std::string counts = plural(summary.copied, "file", "files") + " (" + formatBytes(summary.bytesCopied) + ")";
    const std::string tally = "skipped " + std::to_string(summary.skipped) + ", failed " + std::to_string(summary.failed);
    const std::string left = std::to_string(run.notCopied) + " not copied. No partial file was left; ";
    if (options.dryRun)
        out << "Dry run, nothing written: would copy " << counts << ", skip " << summary.skipped << ", fail "
            << summary.failed << extras << ".\n";
    else if (summary.deviceGone)
        out << "Stopped: the device cannot be read any more. Copied " << counts << ", " << tally << "; " << left
            << "connect the device again and run the same command to finish.\n";
    else if (summary.destinationFull)
        out << "Stopped: the destination " << run.root.string() << " is full. Copied " << counts << ", " << tally
            << "; " << left << "make room there and run the same command again to finish.\n";
    else if (summary.interrupted)
        out << "Interrupted: copied " << counts << ", " << tally << "; " << left
            << "run the same command again to finish.\n";
    else
        out << "Copied " << counts << " to " << run.root.string() << ", " << tally << extras << ".\n";
}

} // namespace

void requestInterrupt() noexcept { gInterrupt = 1; }
bool interruptRequested() noexcept { return gInterrupt != 0; }

CopySummary copyTracks(const zq::ZQCoreiPod& library, const CopyOptions& options, std::ostream& out, std::ostream& err)
{
    const NameTemplate names(options.nameTemplate.empty() ? kDefaultNameTemplate : options.nameTemplate);
    CopyRun run{library, options, fs::path(options.destination), {}, {}};
    const CopyReport report{out, err};
    checkDestination(library, run.root);
    const std::vector<TrackPtr> tracks = selectTracks(library, options);

    std::optional<DestinationLock> lock;
    if (!options.dryRun && !holdDestination(run.root, out, lock)) {
        run.summary.interrupted = true;
        return run.summary;
    }
    run.planned = plan(library, tracks, names, options);
    if (options.dryRun)
        showPlan(run, out);
    else
        copyPlannedFiles(run, report);

    // Playlists and covers describe what is in the destination, so they follow a whole run.
    const CopySummary& summary = run.summary;
    if (!summary.interrupted && !summary.deviceGone && !summary.destinationFull && (options.playlists || options.art)) {
        std::set<std::string> taken = namesTaken(run);
        if (options.playlists)
            writePlaylists(run, taken, report);
        if (options.art)
            writeCovers(run, taken, report);
    }
    printSummary(run, out);
    return run.summary;
}

} // namespace zqpod
