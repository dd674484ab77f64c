// Reading a 100 MB track file off a simulated iPhone through the framework, against a plain
// read of the same file from the simulator's own folder.
//
//   BM_FrameworkWholeRead   AFCiPod::contentsOfFileAtPath: the session's whole-file read in
//                           262144-byte requests over the real client, gathered in one buffer
//   BM_FrameworkRangedRead  the same 100 MB as one chunkOfFileAtPath range
//   BM_PlainRead            Data::contentsOfFile of the file in the device's folder (page cache
//                           warm): the yardstick
//
// All report "MB" per second (10^6 bytes per second of wall-clock time; with the simulator the
// work happens in two processes).

#include "tests/support/SampleDevice.h"
#include "tests/support/SimulatedDevice.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/device/ZQCore.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::size_t kFileSize = 100'000'000;

struct Device {
    zq::test::TempDir root;
    std::string localPath;
    zq::test::SimulatedUsbmuxd simulator;
    std::shared_ptr<zq::AFCDevice> session;

    Device()
    {
        localPath = root.file("big.m4a");
        std::vector<char> block(1 << 20);
        for (std::size_t i = 0; i < block.size(); ++i)
            block[i] = static_cast<char>(i * 131 + 7);
        std::ofstream out(localPath, std::ios::binary);
        for (std::size_t written = 0; written < kFileSize; written += block.size())
            out.write(block.data(), static_cast<std::streamsize>(std::min(block.size(), kFileSize - written)));
        out.close();

        simulator.exportAddress();
        simulator.attach({.udid = "00008030-0000BENCH0000", .root = root.path()});
        zq::ZQCore::sharedInstance();
        zq::AFCFactory::factory()->waitForAttachedDevices(std::chrono::seconds(10));
        for (const auto& reference : zq::ZQCore::sharedInstance()->connectediPods())
            if (auto mobile = std::dynamic_pointer_cast<zq::AFCiPodRef>(reference))
                session = mobile->device();
        if (!session)
            throw std::runtime_error("the simulated device did not arrive");
    }
};

Device& device()
{
    static Device instance;
    return instance;
}

void report(benchmark::State& state)
{
    state.counters["MB"] = benchmark::Counter(kFileSize / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_FrameworkWholeRead(benchmark::State& state)
{
    auto& session = *device().session;
    for (auto _ : state) {
        auto data = session.contentsOfFileAtPath("/big.m4a");
        if (!data || data->size() != kFileSize) {
            state.SkipWithError("short read");
            return;
        }
        benchmark::DoNotOptimize(data->bytes());
    }
    report(state);
}
BENCHMARK(BM_FrameworkWholeRead)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void BM_FrameworkRangedRead(benchmark::State& state)
{
    auto& session = *device().session;
    for (auto _ : state) {
        auto data = session.chunkOfFileAtPath("/big.m4a", {0, static_cast<std::uint32_t>(kFileSize)});
        if (!data || data->size() != kFileSize) {
            state.SkipWithError("short read");
            return;
        }
        benchmark::DoNotOptimize(data->bytes());
    }
    report(state);
}
BENCHMARK(BM_FrameworkRangedRead)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void BM_PlainRead(benchmark::State& state)
{
    const std::string path = device().localPath;
    for (auto _ : state) {
        auto data = zq::Data::contentsOfFile(path);
        if (!data || data->size() != kFileSize) {
            state.SkipWithError("short read");
            return;
        }
        benchmark::DoNotOptimize(data->bytes());
    }
    report(state);
}
BENCHMARK(BM_PlainRead)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1);

} // namespace

BENCHMARK_MAIN();
