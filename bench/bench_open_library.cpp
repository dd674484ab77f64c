// Opening a large library: from reading the iTunesDB file to the finished model.
//
// The library (100,000 tracks, a master playlist and 20 playlists, about 170 MB) is generated
// once into the build folder and reused. Peak memory is measured in a child process that does
// nothing but one load, so that generating the file does not count.
//
//   bench_open_library                     time the load (Google Benchmark)
//   bench_open_library --peak-memory FILE  one load of FILE, then print the peak resident size

#include "tests/support/SampleDevice.h"

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/reader/XRDataReader.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

namespace {

struct DetachedLibrary : zq::ZQCoreiPod {
    DetachedLibrary() = default;
};

constexpr std::size_t kTracks = 100000;
constexpr std::size_t kPlaylists = 20;

std::string libraryFile()
{
    static const std::string path = [] {
        std::string file = "bench_library_100k.itunesdb";
        struct stat info {};
        if (::stat(file.c_str(), &info) != 0) {
            std::cerr << "generating " << file << " ...\n";
            auto data = zq::test::buildITunesDB(zq::test::makeLargeLibrary(kTracks, kPlaylists, 1));
            std::ofstream out(file + ".tmp", std::ios::binary);
            out.write(reinterpret_cast<const char*>(data.bytes()), static_cast<std::streamsize>(data.size()));
            out.close();
            std::rename((file + ".tmp").c_str(), file.c_str());
        }
        return file;
    }();
    return path;
}

std::shared_ptr<DetachedLibrary> load(const std::string& file)
{
    // The way a device library reads its database: the file is walked through a window.
    auto library = std::make_shared<DetachedLibrary>();
    auto reader = library->readerForFileAtPath(file);
    if (!reader)
        throw std::runtime_error("cannot read " + file);
    library->parseiTunesDBWithReader(*reader);
    return library;
}

void BM_OpenLibrary100k(benchmark::State& state)
{
    const std::string file = libraryFile();
    struct stat info {};
    ::stat(file.c_str(), &info);
    std::size_t tracks = 0;
    for (auto _ : state) {
        auto library = load(file);
        tracks = library->allTracks().size();
        benchmark::DoNotOptimize(library);
        state.PauseTiming();
        library.reset(); // teardown is not part of opening
        state.ResumeTiming();
    }
    state.counters["tracks"] = static_cast<double>(tracks);
    state.counters["file_MiB"] = static_cast<double>(info.st_size) / (1024.0 * 1024.0);
}
BENCHMARK(BM_OpenLibrary100k)->Unit(benchmark::kMillisecond)->MinTime(3);

// For comparison: reading the same file whole into memory, with nothing parsed (what the load
// would cost before parsing if it read the file first).
void BM_ReadLibraryFile(benchmark::State& state)
{
    const std::string file = libraryFile();
    for (auto _ : state) {
        auto data = zq::Data::contentsOfFile(file);
        benchmark::DoNotOptimize(data);
    }
}
BENCHMARK(BM_ReadLibraryFile)->Unit(benchmark::kMillisecond)->MinTime(2);

// Runs "--peak-memory" in a child and reports its figure next to the file size.
void reportPeakMemory(const char* self)
{
    const std::string file = libraryFile();
    struct stat info {};
    ::stat(file.c_str(), &info);
    pid_t child = ::fork();
    if (child == 0) {
        ::execl(self, self, "--peak-memory", file.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    std::cout << "file size: " << static_cast<double>(info.st_size) / (1024.0 * 1024.0) << " MiB\n";
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--peak-memory") == 0) {
        auto library = load(argv[2]);
        struct rusage usage {};
        ::getrusage(RUSAGE_SELF, &usage);
        std::cout << "tracks: " << library->allTracks().size() << ", playlists: " << library->allPlaylists().size()
                  << "\npeak resident memory of one load: " << static_cast<double>(usage.ru_maxrss) / 1024.0 << " MiB\n";
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    reportPeakMemory(argv[0]);
    return 0;
}
