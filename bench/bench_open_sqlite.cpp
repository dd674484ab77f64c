// Opening the same 50,000-track library from the SQLite databases and from iTunesDB.
//
// The library (50,000 tracks in albums, a master playlist and 20 playlists of a few hundred to a
// few thousand items) is generated once into the build folder, in both formats from one
// description, and reused. Each SQLite load starts like the first load of a process: the
// sub-query statements the loader keeps are let go between iterations, outside the timing.
//
//   bench_open_sqlite     time both loads (Google Benchmark)

#include "tests/support/SampleDevice.h"

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/reader/XRDataReader.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"

#include <benchmark/benchmark.h>

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct DetachedLibrary : zq::ZQCoreiPod {
    explicit DetachedLibrary(std::string base) { iPodBasePath_ = std::move(base); }
};

constexpr std::size_t kTracks = 50000;
constexpr std::size_t kPlaylists = 20;

/// The generated volume: iPod_Control/iTunes/iTunesDB and the four SQLite databases.
std::string volume()
{
    static const std::string path = [] {
        const std::string root = "bench_library_50k.volume";
        if (!fs::exists(fs::path(root) / "done")) {
            std::cerr << "generating " << root << " ...\n";
            fs::remove_all(root);
            zq::test::VolumeSpec setup;
            setup.database = zq::test::makeLargeLibrary(kTracks, kPlaylists, 5);
            setup.format = zq::test::LibraryFormat::Both;
            zq::test::writeVolume(root, setup);
            std::FILE* done = std::fopen((fs::path(root) / "done").c_str(), "w");
            if (done)
                std::fclose(done);
        }
        return fs::absolute(root).string();
    }();
    return path;
}

std::shared_ptr<DetachedLibrary> loadSQLite(const std::string& root)
{
    const std::string folder = zq::test::sqliteLibraryFolder(root);
    auto library = std::make_shared<DetachedLibrary>(root);
    library->loadFromLocalSQLiteDatabase(folder + "/Library.itdb", folder + "/Extras.itdb",
                                         folder + "/Locations.itdb", folder + "/Dynamic.itdb");
    return library;
}

std::shared_ptr<DetachedLibrary> loadBinary(const std::string& root)
{
    auto library = std::make_shared<DetachedLibrary>(root);
    auto reader = library->readerForFileAtPath(root + "/iPod_Control/iTunes/iTunesDB");
    if (!reader)
        throw std::runtime_error("cannot read the iTunesDB of " + root);
    library->parseiTunesDBWithReader(*reader);
    return library;
}

template <class Load>
void run(benchmark::State& state, Load load)
{
    const std::string root = volume();
    std::size_t tracks = 0, playlists = 0;
    for (auto _ : state) {
        auto library = load(root);
        tracks = library->allTracks().size();
        playlists = library->allPlaylists().size();
        benchmark::DoNotOptimize(library);
        state.PauseTiming();
        library.reset();  // teardown is not part of opening
        state.ResumeTiming();
    }
    state.counters["tracks"] = static_cast<double>(tracks);
    state.counters["playlists"] = static_cast<double>(playlists);
}

void BM_OpenSQLiteLibrary50k(benchmark::State& state) { run(state, loadSQLite); }
BENCHMARK(BM_OpenSQLiteLibrary50k)->Unit(benchmark::kMillisecond)->MinTime(3);

void BM_OpenBinaryLibrary50k(benchmark::State& state) { run(state, loadBinary); }
BENCHMARK(BM_OpenBinaryLibrary50k)->Unit(benchmark::kMillisecond)->MinTime(3);

} // namespace

BENCHMARK_MAIN();
