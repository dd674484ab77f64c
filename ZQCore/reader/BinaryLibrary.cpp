// Which binary library database a device is read from: the compressed iTunesCDB that the later
// iPod nanos and the phones of the iOS 3 and 4 era keep, or the plain iTunesDB, and the checks
// that tell a library database from anything else. The files come through the device's files,
// so the choice is the same on a volume and over a session.

#include "ZQCore/reader/iTunesDBLoader.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/reader/CompressedDatabase.h"
#include "ZQCore/reader/RecordLayouts.h"
#include "ZQCore/reader/XRDataReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zq {

iTunesDBLoader::Source iTunesDBLoader::loadBinaryLibraryInFolder(const DeviceFiles& files, const std::string& folder,
                                                                  const std::string& shownFolder)
{
    const std::string compressedPath = folder + "/iTunesCDB", plainPath = folder + "/iTunesDB";
    const std::string shownCompressed = shownFolder + "/iTunesCDB", shownPlain = shownFolder + "/iTunesDB";

    // A device that leaves while the file is read ends the load from here, uncaught below.
    const std::optional<Data> compressed = files.contentsOfFile(compressedPath);
    if (!compressed || compressed->empty()) {
        if (loadBinaryDatabase(files, plainPath, shownPlain))
            return Source::iTunesDB;
        // An empty iTunesCDB with nothing beside it is a library that cannot be read.
        if (compressed)
            throw Exception(ErrorKind::Damaged, "ZQCoreiPodLibraryUnreadableException",
                            "The library database " + shownCompressed + " is empty (0 bytes).");
        return Source::None;
    }

    std::optional<Exception> damage;
    try {
        const Data image = inflateCompressedDatabase(*compressed, shownCompressed);
        try {
            parseiTunesDBWithData(image);
        } catch (const Exception& error) {
            // The walk's own reasons ("Length requested is greater than the remaining data.") do
            // not say which file; a person needs to know it is this one.
            damage = error.withReason("The compressed library database " + shownCompressed +
                                      " is damaged: " + error.reason());
        }
    } catch (const Exception& error) {
        damage = error;
    }
    if (!damage)
        return Source::iTunesCDB;

    // What a failed walk left is not the library. Only a plain database that is itself a library
    // stands in for it; otherwise the damage is the answer.
    tracks_.clear();
    playlists_.clear();
    bool plainRead = false;
    try {
        plainRead = loadBinaryDatabase(files, plainPath, shownPlain);
    } catch (const Exception&) {
        tracks_.clear();
        playlists_.clear();
    }
    if (!plainRead)
        throw *damage;
    log(damage->reason() + " - reading iTunesDB instead.");
    return Source::iTunesDB;
}

bool iTunesDBLoader::loadBinaryDatabase(const DeviceFiles& files, const std::string& path, const std::string& shownAs)
{
    auto unreadable = [&](ErrorKind kind, const std::string& why) {
        return Exception(kind, "ZQCoreiPodLibraryUnreadableException", "The library database " + shownAs + " " + why);
    };
    // A file that is there but cannot be read is an error, never a library without tracks;
    // one that is a link out of the device is never read at all. One open serves the checks
    // and the walk; files reached through a session are read whole instead.
    std::shared_ptr<XRDataReader> reader;
    const int fd = files.openFile(path, O_RDONLY);
    if (fd >= 0) {
        struct stat info {};
        if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
            ::close(fd);
            throw unreadable(ErrorKind::Damaged, "is not a file.");
        }
        reader = XRDataReader::dataReaderWithDescriptor(fd, path, true);
    } else if (errno == ENOTSUP) {
        if (!files.sizeOfFile(path))
            return false;
        reader = XRDataReader::dataReaderWithDeviceFile(files, path, true);
    } else {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR)
            return false;
        throw unreadable(kindOfErrno(error), error == EXDEV
                                                 ? std::string("is ") + kRefusedOutsideDevice + "."
                                                 : std::string("cannot be read: ") + std::strerror(error) + ".");
    }
    if (!reader)
        throw unreadable(ErrorKind::Other, "cannot be read.");
    if (reader->length() == 0)
        throw unreadable(ErrorKind::Damaged, "is empty (0 bytes).");
    // Every library database begins with its "mhbd" record; anything else (a file copied over
    // it, random bytes) would otherwise walk as an empty library.
    const auto magic = reader->peekRawBytes(4);
    if (magic.size() != 4 || std::memcmp(magic.data(), "mhbd", 4) != 0)
        throw unreadable(ErrorKind::Damaged, "is not a library database: it does not begin with \"mhbd\".");
    // Nor is one whose first data set is not where its header says.
    // (Headers are a few hundred bytes long; 64 KiB is far beyond any a device writes.)
    if (const auto header = reader->peekRawBytes(24); header.size() == 24) {
        const std::uint32_t headerLength = layout::le32(header, layout::ChunkStart::headerLength);
        const auto dataSets = static_cast<std::int32_t>(layout::le32(header, layout::MHBDHeader::dataSetCount));
        constexpr std::uint32_t kLongestHeader = 1u << 16;
        // A file cut short inside its header is damaged, which the walk reports.
        bool misplaced = headerLength < 24 || headerLength > kLongestHeader;
        if (!misplaced) {
            const auto start = reader->peekRawBytes(headerLength + 4);
            misplaced = start.size() == headerLength + 4 && std::memcmp(start.data() + headerLength, "mhsd", 4) != 0;
        }
        // Devices write a handful of data sets; a count past a thousand (or below 0) is no count.
        constexpr std::int32_t kMostDataSets = 1000;
        if (dataSets < 0 || dataSets > kMostDataSets || (dataSets > 0 && misplaced))
            throw unreadable(ErrorKind::Damaged, "is not a library database: its header does not describe its data sets.");
    }
    try {
        parseiTunesDBWithReader(*reader);
    } catch (const Exception& error) {
        throw error.withReason("The library database " + shownAs + " is damaged: " + error.reason());
    }
    return true;
}


} // namespace zq
