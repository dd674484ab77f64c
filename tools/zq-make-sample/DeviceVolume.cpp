// Laying a described volume out on disk, and the device-information texts a volume carries.

#include "tools/zq-make-sample/DeviceImage.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace zq::sample {

namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const void* bytes, std::size_t length)
{
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(length));
    out.close();
    if (!out)
        throw std::runtime_error("cannot write " + path.string());
}

void writeFile(const fs::path& path, const Data& data)
{
    writeFile(path, data.bytes(), data.size());
}

void writeFile(const fs::path& path, const std::string& text)
{
    writeFile(path, text.data(), text.size());
}

std::string escapeXML(const std::string& text)
{
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        default: out += c;
        }
    }
    return out;
}

} // namespace

void writeVolume(const std::string& root, const VolumeSpec& setup)
{
    const fs::path base(root);
    const fs::path control = base / "iPod_Control";
    fs::create_directories(control);

    const bool binary = setup.format != LibraryFormat::SQLite;
    if (setup.rawITunesDB)
        writeFile(control / "iTunes" / "iTunesDB", *setup.rawITunesDB);
    else if (setup.database && binary)
        writeFile(control / "iTunes" / "iTunesDB", setup.compressedDatabase ? Data() : buildITunesDB(*setup.database));
    if (setup.rawITunesCDB)
        writeFile(control / "iTunes" / "iTunesCDB", *setup.rawITunesCDB);
    else if (setup.database && binary && setup.compressedDatabase)
        writeFile(control / "iTunes" / "iTunesCDB", buildITunesCDB(*setup.database));
    if (setup.database && setup.format != LibraryFormat::Binary)
        writeSQLiteLibrary(sqliteLibraryFolder(root), *setup.database, setup.sqlite);
    if (setup.sysInfo)
        writeFile(control / "Device" / "SysInfo", *setup.sysInfo);
    if (setup.sysInfoExtended)
        writeFile(control / "Device" / "SysInfoExtended", *setup.sysInfoExtended);
    if (setup.artwork || setup.rawArtworkDB) {
        const fs::path artwork = control / "Artwork";
        fs::create_directories(artwork);
        std::optional<ArtworkFiles> built;
        if (setup.artwork)
            built = buildArtwork(*setup.artwork);
        if (setup.rawArtworkDB)
            writeFile(artwork / "ArtworkDB", *setup.rawArtworkDB);
        else
            writeFile(artwork / "ArtworkDB", built->artworkDB);
        if (built)
            for (const auto& [name, contents] : built->thumbnails)
                writeFile(artwork / name, contents);
    }
    for (const auto& [relative, contents] : setup.files)
        writeFile(base / relative, contents);
}

std::string sysInfoText(const std::string& serial)
{
    // The lines an iPod classic keeps in its SysInfo; only the serial line matters to readers.
    return "BoardHwName: iPod Q98\n"
           "pszSerialNumber: " + serial + "\n"
           "ModelNumStr: xB029\n"
           "FirewireGuid: 0x000A27001A2B3C4D\n"
           "HddFirmwareRev: LU011D  \n"
           "RegionCode: LL(0x0005)\n"
           "PolicyFlags: 0x00000000\n"
           "buildID: 0x02018000 (2.0.1)\n"
           "visibleBuildID: 0x02018000 (2.0.1)\n"
           "boardHwRev: 0x00000000 (0.0 0)\n"
           "boardHwSwInterfaceRev: 0x000B0005 (0.0.11 5)\n"
           "bootLoaderImageRev: 0x00000000 (0.0 0)\n"
           "diskModeImageRev: 0x00000000 (0.0 0)\n"
           "diagImageRev: 0x00000000 (0.0 0)\n"
           "osImageRev: 0x00000000 (0.0 0)\n"
           "iPodFamily: 0x0000000B\n"
           "updaterFamily: 0x00000015\n";
}

std::string sysInfoExtendedXML(const std::string& serial,
                               const std::vector<std::pair<std::string, std::string>>& extraStrings)
{
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n"
        "<dict>\n"
        "\t<key>BuildID</key>\n\t<string>0x02018000</string>\n"
        "\t<key>FamilyID</key>\n\t<integer>11</integer>\n"
        "\t<key>FireWireGUID</key>\n\t<string>000A27001A2B3C4D</string>\n"
        "\t<key>SerialNumber</key>\n\t<string>" + escapeXML(serial) + "</string>\n";
    for (const auto& [key, value] : extraStrings)
        xml += "\t<key>" + escapeXML(key) + "</key>\n\t<string>" + escapeXML(value) + "</string>\n";
    xml += "</dict>\n</plist>\n";
    return xml;
}

std::string relativePathOfLocation(const std::string& location)
{
    std::string path = location;
    for (char& c : path)
        if (c == ':')
            c = '/';
    std::size_t first = path.find_first_not_of('/');
    return first == std::string::npos ? std::string() : path.substr(first);
}

} // namespace zq::sample
