// Copying music off a device at the speed of the disk: `zqpod copy` against `cp -r` of the same
// track files, from a device folder on a local volume into a folder beside it.
//
// Writes a device volume with 2 GB of track files (400 files of 5 MB, incompressible bytes)
// under $TMPDIR (or /tmp), reads it once so both copies start from a warm cache, then times
// each copy a few times (the destination removed and the disk flushed between runs, outside the
// timing) and prints the best and median of each and their ratio. Everything it wrote is
// removed at the end.
//
//   bench_copy [ROUNDS]    default 3

#include "tests/support/SampleDevice.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFiles = 400;
constexpr std::uint32_t kFileSize = 5'000'000;

std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

void run(const std::string& command)
{
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "bench_copy: failed: %s\n", command.c_str());
        std::exit(1);
    }
}

double timed(const std::string& command)
{
    const auto start = std::chrono::steady_clock::now();
    run(command);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void writeDevice(const std::string& root)
{
    zq::test::DatabaseSpec db;
    zq::test::PlaylistSpec master{.name = "Bench iPod", .master = 1};
    for (std::uint32_t i = 0; i < kFiles; ++i) {
        char location[64], title[32], album[32], artist[32];
        std::snprintf(location, sizeof location, ":iPod_Control:Music:F%02u:T%04u.mp3", i % 50, i);
        std::snprintf(title, sizeof title, "Track %u", i);
        std::snprintf(album, sizeof album, "Album %u", i / 10);
        std::snprintf(artist, sizeof artist, "Artist %u", i / 40);
        db.tracks.push_back({.trackID = i + 1, .fileSize = kFileSize, .trackNumber = i % 10 + 1, .title = title,
                             .location = location, .album = album, .artist = artist});
        master.items.emplace_back(i + 1);
    }
    db.playlists.push_back(std::move(master));
    zq::test::writeVolume(root, {.database = db, .sysInfo = zq::test::sysInfoText("BENCH000Y5N")});

    std::vector<std::uint8_t> bytes(kFileSize);
    std::mt19937_64 random(7);
    for (std::size_t i = 0; i + 8 <= bytes.size(); i += 8) {
        const std::uint64_t word = random();
        std::copy_n(reinterpret_cast<const std::uint8_t*>(&word), 8, bytes.data() + i);
    }
    for (std::uint32_t i = 0; i < kFiles; ++i) {
        char relative[64];
        std::snprintf(relative, sizeof relative, "iPod_Control/Music/F%02u/T%04u.mp3", i % 50, i);
        const fs::path path = fs::path(root) / relative;
        fs::create_directories(path.parent_path());
        bytes[0] = static_cast<std::uint8_t>(i);  // no two files alike
        const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
        if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            std::fprintf(stderr, "bench_copy: cannot write %s\n", path.c_str());
            std::exit(1);
        }
        ::close(fd);
    }
}

struct Figures {
    double best;
    double median;
};

Figures figures(std::vector<double> seconds)
{
    std::sort(seconds.begin(), seconds.end());
    return {seconds.front(), seconds[seconds.size() / 2]};
}

} // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    zq::test::TempDir work;  // removed with everything in it at the end
    const std::string device = work.file("device");
    const std::string target = work.file("copy");
    const double total = static_cast<double>(kFiles) * kFileSize;
    std::printf("Writing %zu track files, %.1f GB, under %s ...\n", kFiles, total / 1e9, work.path().c_str());
    writeDevice(device);
    run("sync");
    // Warm cache: both copies read the device's files from memory, so they measure the copy.
    run("cat " + quoted(device) + "/iPod_Control/Music/*/* > /dev/null");

    const std::string cp = "cp -r " + quoted(device + "/iPod_Control/Music") + " " + quoted(target);
    const std::string zqpod = quoted(ZQPOD_PATH) + " copy " + quoted(device) + " " + quoted(target) + " > /dev/null";
    const std::string clean = "rm -rf " + quoted(target) + " && sync";
    std::vector<double> cpSeconds, zqpodSeconds;
    for (int round = 0; round < rounds; ++round) {
        // Alternate the order, so that neither always follows the other's write-back.
        for (int which = 0; which < 2; ++which) {
            const bool cpTurn = (which == 0) == (round % 2 == 0);
            run(clean);
            const double seconds = timed(cpTurn ? cp : zqpod);
            (cpTurn ? cpSeconds : zqpodSeconds).push_back(seconds);
            std::printf("  round %d  %-10s %6.2f s  %7.0f MB/s\n", round + 1, cpTurn ? "cp -r" : "zqpod copy", seconds,
                        total / seconds / 1e6);
        }
    }
    run(clean);
    const Figures cpFigures = figures(cpSeconds), zqFigures = figures(zqpodSeconds);
    std::printf("\n%-12s best %6.2f s (%5.0f MB/s)  median %6.2f s (%5.0f MB/s)\n", "cp -r", cpFigures.best,
                total / cpFigures.best / 1e6, cpFigures.median, total / cpFigures.median / 1e6);
    std::printf("%-12s best %6.2f s (%5.0f MB/s)  median %6.2f s (%5.0f MB/s)\n", "zqpod copy", zqFigures.best,
                total / zqFigures.best / 1e6, zqFigures.median, total / zqFigures.median / 1e6);
    std::printf("zqpod copy runs at %.0f%% of the speed of cp -r (median), %.0f%% (best)\n",
                100.0 * cpFigures.median / zqFigures.median, 100.0 * cpFigures.best / zqFigures.best);
    return 0;
}
