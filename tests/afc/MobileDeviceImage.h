#pragma once
// The file system of a mobile device for the simulator: the same files as a disk-mode volume
// (iTunesDB, the SQLite databases of "iTunes Library.itlp", artwork, track files), under
// iTunes_Control instead of iPod_Control.

#include "tests/support/SampleDevice.h"

#include <cstdint>
#include <filesystem>
#include <string>

namespace zq::test {

/// Lays `setup` out under `root` as a mobile device keeps it (iTunes_Control). Track locations
/// should name ":iTunes_Control:..." paths, and `files` keys "iTunes_Control/...".
inline void writeMobileDevice(const std::string& root, const VolumeSpec& setup)
{
    writeVolume(root, setup);
    namespace fs = std::filesystem;
    const fs::path from = fs::path(root) / "iPod_Control";
    const fs::path to = fs::path(root) / "iTunes_Control";
    fs::create_directories(to);
    for (const auto& entry : fs::directory_iterator(from))
        fs::rename(entry.path(), to / entry.path().filename());
    fs::remove_all(from);
}

} // namespace zq::test
