// Loading the library of an iOS 5+ phone of 20,000 tracks through a simulated device and the
// real mobile-device client: MediaLibrary.sqlitedb (with its -wal and -shm) copied over AFC into
// a temporary folder, opened with its WAL applied, and every track, playlist and cover link
// built.
//
//   BM_PhoneLibraryLoad/modern, /ios6   the whole load, database copy included, on a library
//                                       object whose device is already open (as when a library
//                                       is reloaded); "tracks" counts what was loaded
//   BM_PhoneLibraryLocalLoad            the same database read from a local folder (no AFC)

#include "tests/support/SampleDevice.h"
#include "tests/support/SimulatedDevice.h"

#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPodRef.h"

#include <benchmark/benchmark.h>
#include <glib.h>

#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <stdexcept>

namespace {

constexpr std::size_t kTracks = 20000;

struct Phone {
    zq::test::TempDir root;
    std::shared_ptr<zq::ZQCoreiPod> library;
};

/// The simulator with one phone per layout, started once (the framework subscribes to device
/// events once per process).
struct Simulated {
    zq::test::SimulatedUsbmuxd simulator{zq::test::SimulatedUsbmuxd::Listen::Unix};
    std::map<int, Phone> phones;

    Simulated()
    {
        std::signal(SIGPIPE, SIG_IGN);
        simulator.exportAddress();
        auto core = zq::ZQCore::sharedInstance();
        zq::AFCFactory::factory()->waitForAttachedDevices(std::chrono::seconds(5));
        for (int modern : {1, 0}) {
            Phone& phone = phones[modern];
            const auto generation = modern ? zq::test::MediaLibraryGeneration::Modern : zq::test::MediaLibraryGeneration::IOS6;
            zq::test::writePhone(phone.root.path(), zq::test::makeLargePhone(kTracks, generation));
            const std::string serial = modern ? "BENCHMODERN01" : "BENCHIOS6001";
            simulator.attach({.udid = "00008110-BENCH" + serial, .root = phone.root.path(), .serialNumber = serial});
            std::shared_ptr<zq::ZQCoreiPodRef> found;
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (!found && std::chrono::steady_clock::now() < deadline) {
                g_main_context_iteration(g_main_context_default(), FALSE);
                for (const auto& reference : core->connectediPods())
                    if (reference->serialNumber() == serial)
                        found = reference;
            }
            if (!found)
                throw std::runtime_error("the simulated phone did not arrive");
            phone.library = zq::ZQCoreiPod::initWithiPodReference(found);
        }
    }
};

Simulated& simulated()
{
    static Simulated instance;
    return instance;
}

void BM_PhoneLibraryLoad(benchmark::State& state)
{
    auto& library = *simulated().phones.at(static_cast<int>(state.range(0))).library;
    for (auto _ : state) {
        if (!library.loadFromMediaLibrary("/")) {
            state.SkipWithError("no media library");
            return;
        }
    }
    state.counters["tracks"] = static_cast<double>(library.allTracks().size());
}
BENCHMARK(BM_PhoneLibraryLoad)->ArgName("modern")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PhoneLibraryLocalLoad(benchmark::State& state)
{
    auto& phone = simulated().phones.at(1);
    auto local = zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(phone.root.path()));
    for (auto _ : state)
        local->loadFromMediaLibrary(phone.root.path());
    state.counters["tracks"] = static_cast<double>(local->allTracks().size());
}
BENCHMARK(BM_PhoneLibraryLocalLoad)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
