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

std::optional<std::string> ZQCoreiPod::loadBinaryLibraryInFolder(const std::string& folder)
{
    const std::string compressedPath = folder + "/iTunesCDB", plainPath = folder + "/iTunesDB";

    // A device that leaves while the file is read ends the load from here, uncaught below.
    const std::optional<Data> compressed = contentsOfFileAtPath(compressedPath);
    if (compressed && !compressed->empty()) {
        std::optional<Exception> damage;
        try {
            const Data image = inflateCompressedDatabase(*compressed, compressedPath);
            try {
                parseiTunesDBWithData(image);
            } catch (const Exception& error) {
                // The walk's own reasons ("Length requested is greater than the remaining
                // data.") do not say which file; a person needs to know it is this one.
                damage.emplace(error.name(), "The compressed library database " + compressedPath +
                                                 " is damaged: " + error.reason());
            }
        } catch (const Exception& error) {
            damage = error;
        }
        if (!damage)
            return compressedPath;

        // What a failed walk left is not the library.
        tracks_.clear();
        playlists_.clear();
        auto plain = readerForFileAtPath(plainPath);
        if (!plain || plain->length() == 0)
            throw *damage;
        log(damage->reason() + " - reading iTunesDB instead.");
        parseiTunesDBWithReader(*plain);
        return plainPath;
    }

    if (auto plain = readerForFileAtPath(plainPath)) {
        parseiTunesDBWithReader(*plain);
        return plainPath;
    }
    return std::nullopt;
}

} // namespace zq
