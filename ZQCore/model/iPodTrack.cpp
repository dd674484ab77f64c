#include "ZQCore/model/iPodTrack.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/Application.h"
#include "ZQCore/foundation/Description.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/model/TrackArena.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>


namespace zq {

std::shared_ptr<iPodTrack> iPodTrack::make(const std::shared_ptr<ZQCoreiPod>& parent)
{
    const auto& arena = TrackArena::current();
    auto track = arena ? std::allocate_shared<iPodTrack>(TrackArenaAllocator<iPodTrack>(arena), Key())
                       : std::make_shared<iPodTrack>(Key());
    track->parent_ = parent;
    return track;
}

void iPodTrack::assignStrings(const std::array<std::optional<std::string_view>, StringFieldCount>& strings)
{
    if (const auto& arena = TrackArena::current())
        strings_.assignBorrowed(strings, [&](std::size_t size) { return static_cast<char*>(arena->allocate(size, 4)); });
    else
        strings_.assign(strings);
}

std::shared_ptr<iPodTrack> iPodTrack::initWithParent(const std::shared_ptr<ZQCoreiPod>& parent) { return make(parent); }

Value::Dictionary& iPodTrack::additionalData()
{
    // Made on first use: almost no track ever has extra data, and a library holds many tracks.
    if (!additionalData_)
        additionalData_ = std::make_unique<Value::Dictionary>();
    return *additionalData_;
}

std::shared_ptr<AlbumArt> iPodTrack::albumArt() const
{
    return albumArt_ ? albumArt_ : AlbumArt::noAlbumArtInstance();
}

std::string iPodTrack::description() const
{
    return "Track ID: " + std::to_string(static_cast<std::int32_t>(trackID())) + " Title: " + describe(title());
}

std::optional<Data> iPodTrack::contentsOfTrackFile() const
{
    auto library = parent();
    if (!library)
        return std::nullopt;
    auto path = filePath();
    if (library->readsFilesThroughDevice())
        return path ? library->contentsOfFileAtPath(*path) : std::nullopt;

    struct stat info {};
    if (::stat(library->path().c_str(), &info) != 0) {
        library->setIsConnected(false);
        return std::nullopt;
    }
    // Through the library, which never reads outside the device's volume.
    return path ? library->contentsOfFileAtPath(*path) : std::nullopt;
}

std::optional<Data> iPodTrack::chunkOfTrackFileWithRange(Range range) const
{
    auto library = parent();
    if (!library)
        return std::nullopt;
    auto path = filePath();
    if (library->readsFilesThroughDevice())
        return path ? library->chunkOfFileAtPath(*path, range) : std::nullopt;

    if (!path)
        return std::nullopt;
    auto file = File::adopt(library->openFileAtPath(*path, O_RDONLY));
    if (!file)
        return std::nullopt;

    // Checked in 32-bit arithmetic against the recorded size, as the database's own readers
    // do: an end that wraps past 2^32 is judged by its wrapped value.
    const std::uint32_t end = range.location + range.length;
    if (range.location > fileSize_ || end > fileSize_)
        throw Exception(ErrorKind::Refused, applicationIdentifier() + ".FileReadError", "Range beyond file bounds");
    return file->readRange(range.location, range.length);
}

std::optional<std::uint64_t> iPodTrack::sizeOfTrackFile() const
{
    auto library = parent();
    auto path = filePath();
    if (!library || !path)
        return std::nullopt;
    return library->sizeOfFileAtPath(*path);
}

FileCopyResult iPodTrack::copyTrackFileTo(int destination, const FileCopyProgress& progress) const
{
    auto library = parent();
    auto path = filePath();
    if (!library || !path)
        return {.error = ENOENT};
    if (!library->readsFilesThroughDevice()) {
        struct stat info {};
        if (::stat(library->path().c_str(), &info) != 0) {
            library->setIsConnected(false);
            return {.error = ENODEV};
        }
    }
    return library->copyFileAtPath(*path, destination, progress);
}

} // namespace zq
