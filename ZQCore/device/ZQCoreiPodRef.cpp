#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/device/SysInfoFiles.h"
#include "ZQCore/reader/CompressedDatabase.h"
#include "ZQCore/reader/XRDataReader.h"

#include "ZQCore/foundation/Description.h"
#include "ZQCore/foundation/ConfinedOpen.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Resources.h"

#include <fcntl.h>

#include <filesystem>

namespace zq {

namespace fs = std::filesystem;

namespace {

std::string trimBlanks(std::string_view text)
{
    auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    return std::string(text);
}

} // namespace

std::optional<std::string> ZQCoreiPodRef::nameFromCompressedLibrary(const std::string& root, const std::string& path)
{
    const auto contents = Data::contentsOfDescriptor(openInsideFolder(root, path, O_RDONLY));
    if (!contents || contents->empty())
        return std::nullopt;
    try {
        return walkNameFromiTunesDB(*XRDataReader::dataReaderWithData(inflateCompressedDatabase(*contents, path), true));
    } catch (const Exception&) {
        return std::nullopt;
    }
}

std::optional<std::string> serialNumberFromSysInfo(const std::string& text)
{
    static constexpr std::string_view kMarker = "pszSerialNumber:";
    std::optional<std::string> serial;
    std::string_view rest = text;
    while (true) {
        const std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        if (auto at = line.find(kMarker); at != std::string_view::npos)
            serial = trimBlanks(line.substr(at + kMarker.size()));
        if (end == std::string_view::npos)
            break;
        rest.remove_prefix(end + 1);
    }
    return serial;
}

std::shared_ptr<ZQCoreiPodRef> ZQCoreiPodRef::initWithPath(const std::string& path)
{
    if (!fileExists(path))
        throw Exception(ErrorKind::NotFound, "ZQCoreiPodNotFoundException", "Exception: Could not init ZQCoreiPodRef - path doesn't exist.");

    std::shared_ptr<ZQCoreiPodRef> reference(new ZQCoreiPodRef());
    reference->basePath_ = path;
    reference->revision_ = "unknown";

    const fs::path base(path);
    // Only the header and the playlist list are needed for the name; the track list, nearly all
    // of the file, is stepped over without being read. The walk hops from header to header, so
    // each hop reads a small window: with the usual large one, a library of 100,000 tracks
    // would copy megabytes to learn its name.
    constexpr std::size_t kHopWindow = std::size_t{16} << 10;
    // Every file is opened inside the device's folder: a link on the volume never leads out.
    // A device that keeps iTunesCDB is named by it, as its library is read from it; a damaged
    // one leaves the name to iTunesDB, as it leaves the library.
    reference->name_ = nameFromCompressedLibrary(path, base / "iPod_Control" / "iTunes" / "iTunesCDB");
    if (!reference->name_) {
        const fs::path databasePath = base / "iPod_Control" / "iTunes" / "iTunesDB";
        auto database = XRDataReader::dataReaderWithDescriptor(openInsideFolder(path, databasePath, O_RDONLY),
                                                               databasePath, true, kHopWindow);
        reference->name_ = database ? getNameFromiTunesDBWithReader(*database) : std::string("iPod");
    }

    // SysInfoExtended wins whenever it exists, even when nothing of it can be read.
    const fs::path device = base / "iPod_Control" / "Device";
    const std::optional<Data> sysInfo =
        fileExists(device / "SysInfo") ? Data::contentsOfDescriptor(openInsideFolder(path, device / "SysInfo", O_RDONLY))
                                       : std::nullopt;
    if (fileExists(device / "SysInfoExtended")) {
        if (auto contents = Data::contentsOfDescriptor(openInsideFolder(path, device / "SysInfoExtended", O_RDONLY)))
            if (auto list = readSysInfoExtended(*contents))
                reference->properties_ = std::move(*list);
    } else if (sysInfo) {
        if (auto serial = serialNumberFromSysInfo(std::string(sysInfo->stringView())))
            reference->properties_ = Value::Dictionary{{"SerialNumber", *serial}};
    }
    // The model draws on both files: SysInfo keeps the model number even where SysInfoExtended
    // gives the identity.
    reference->model_ = DeviceModel::fromDeviceInformation(reference->properties_, sysInfo ? sysInfo->stringView() : "");
    return reference;
}

std::shared_ptr<ZQCoreiPodRef> ZQCoreiPodRef::initWithiPodRef(iPodDeviceHandle* ref)
{
    std::shared_ptr<ZQCoreiPodRef> reference(new ZQCoreiPodRef());
    reference->ref_ = ref;
    if (ref) {
        reference->name_ = ref->copyName();
        reference->revision_ = ref->copyRevision();
    }
    return reference;
}

std::optional<std::string> ZQCoreiPodRef::serialNumber() const
{
    const Value* serial = properties_.find("SerialNumber");
    if (!serial || !serial->string())
        return std::nullopt;
    return *serial->string();
}

std::shared_ptr<Image> ZQCoreiPodRef::icon() const { return Resources::imageForResource("iPod", "icns"); }

std::shared_ptr<ZQCoreiPodRef> ZQCoreiPodRef::copy() const
{
    std::shared_ptr<ZQCoreiPodRef> duplicate(new ZQCoreiPodRef());
    duplicate->setName(name());
    duplicate->setRevision(revision());
    duplicate->setiPodRef(iPodRef());
    duplicate->setPath(path());
    return duplicate;
}

std::string ZQCoreiPodRef::description() const
{
    return "iPod name=" + describe(name()) + " rev=" + describe(revision()) + " path=" + describe(path());
}

} // namespace zq
