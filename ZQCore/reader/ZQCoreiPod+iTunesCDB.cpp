// Which binary library database a device is read from: the compressed iTunesCDB that the later
// iPod nanos and the phones of the iOS 3 and 4 era keep, or the plain iTunesDB. Both the volume
// and the AFC load sequences call this; the files come through the library object's own file
// access, so the choice is the same on either path.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/reader/CompressedDatabase.h"
#include "ZQCore/reader/XRDataReader.h"

namespace zq {

bool ZQCoreiPod::loadBinaryLibraryInFolder(const std::string& folder, const std::string& shownFolder)
{
    const std::string compressedPath = folder + "/iTunesCDB", plainPath = folder + "/iTunesDB";
    const std::string shownCompressed = shownFolder + "/iTunesCDB", shownPlain = shownFolder + "/iTunesDB";

    // A device that leaves while the file is read ends the load from here, uncaught below.
    const std::optional<Data> compressed = contentsOfFileAtPath(compressedPath);
    if (!compressed || compressed->empty()) {
        if (loadBinaryDatabase(plainPath, shownPlain))
            return true;
        // An empty iTunesCDB with nothing beside it is a library that cannot be read.
        if (compressed)
            throw Exception(ErrorKind::Damaged, "ZQCoreiPodLibraryUnreadableException",
                            "The library database " + shownCompressed + " is empty (0 bytes).");
        return false;
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
    if (!damage) {
        librarySource_ = LibrarySource::iTunesCDB;
        return true;
    }

    // What a failed walk left is not the library. Only a plain database that is itself a library
    // stands in for it; otherwise the damage is the answer.
    tracks_.clear();
    playlists_.clear();
    bool plainRead = false;
    try {
        plainRead = loadBinaryDatabase(plainPath, shownPlain);
    } catch (const Exception&) {
        tracks_.clear();
        playlists_.clear();
    }
    if (!plainRead)
        throw *damage;
    log(damage->reason() + " - reading iTunesDB instead.");
    return true;
}

} // namespace zq
