// Databases written by real iPods and by iTunes, read as an application reads them (a
// reference from the mount path, then the library object), each compared whole with what
// `zqpod library --json` printed for it when it was last checked by hand: every field of every
// track, every playlist with its members, rules and shows, the artwork each track carries.
// Samples of more than 200 tracks keep one line per track with a checksum of its JSON and its
// title, so that the expectation stays small; the smaller ones keep the whole JSON.
//
// Regenerate after an intended change (then review the diff):
//   ZQ_WRITE_EXPECTED=1 build/zqcore_tests --gtest_filter='*RealSamples*'

#include "LibraryReport.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "tests/support/Expectations.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>

namespace zq {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

/// 64-bit FNV-1a, as 16 hex digits.
std::string checksum(const std::string& text)
{
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (unsigned char c : text)
        hash = (hash ^ c) * 0x100000001b3ULL;
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(hash));
    return hex;
}

/// One line per part of the JSON view: the device, each track, each top-level playlist. The
/// volume's own path is written as "<volume>".
std::string linesOf(const ZQCoreiPod& library, bool compactTracks)
{
    std::ostringstream printed;
    zqpod::printLibraryJSON(printed, library);
    std::string text = printed.str();
    for (std::size_t at; (at = text.find(library.path())) != std::string::npos;)
        text.replace(at, library.path().size(), "<volume>");
    const Json json = Json::parse(text);
    std::string out = "device " + Json{{"name", json["name"]}, {"serialNumber", json["serialNumber"]},
                                       {"type", json["type"]}, {"model", json["model"]}}.dump() + "\n";
    for (const auto& track : json["tracks"]) {
        const std::string line = track.dump(-1, ' ', false, Json::error_handler_t::replace);
        out += compactTracks ? "track " + std::to_string(track["trackID"].get<std::uint32_t>()) + " " + checksum(line) +
                                   " " + track["title"].dump(-1, ' ', false, Json::error_handler_t::replace)
                             : "track " + line;
        out += "\n";
    }
    for (const auto& playlist : json["playlists"])
        out += "playlist " + playlist.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    return out;
}

class RealSamples : public testing::TestWithParam<const char*> {};

TEST_P(RealSamples, ReadWholeAsLastChecked)
{
    const std::string sample = GetParam();
    const std::string source = test::sampleFolder(sample);
    if (source.empty())
        GTEST_SKIP() << test::samplesMissing(sample);
    // The files laid out on a volume as a device keeps them.
    test::TempDir volume;
    const fs::path root(volume.path());
    fs::create_directories(root / "iPod_Control" / "iTunes");
    fs::create_directories(root / "iPod_Control" / "Artwork");
    fs::create_directories(root / "iPod_Control" / "Device");
    for (const auto& entry : fs::directory_iterator(source)) {
        const std::string name = entry.path().filename().string();
        const fs::path folder = name == "iTunesDB" ? "iTunes" : name == "SysInfo" ? "Device" : "Artwork";
        if (name == "iTunesDB" || name == "SysInfo" || name == "ArtworkDB" || name.ends_with(".ithmb"))
            fs::copy_file(entry.path(), root / "iPod_Control" / folder / name);
    }
    // The copies keep the samples' read-only modes; the volume must be removable afterwards.
    for (const auto& entry : fs::recursive_directory_iterator(root))
        fs::permissions(entry.path(), fs::perms::owner_write, fs::perm_options::add);

    test::ZoneScope utc("UTC");  // the files' 1904-based local dates read the same everywhere
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(volume.path()));
    const bool compact = library->allTracks().size() > 200;
    test::expectMatchesFile(sample + ".txt", linesOf(*library, compact),
                            "# zqpod library --json of the sample " + sample +
                                ", one line per part (see tests/device/device_samples_test.cpp)\n");
}

INSTANTIATE_TEST_SUITE_P(Real, RealSamples,
                         testing::Values("ipod-2005-1855", "itunes-art-142", "itunes-de-23", "itunes-empty",
                                         "itunes-it-1172", "itunes45-1"),
                         [](const testing::TestParamInfo<const char*>& param) {
                             std::string name = param.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

} // namespace
} // namespace zq
