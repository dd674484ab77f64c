// Reading a 100 MB file off a simulated iPhone through the real mobile-device client, against a
// plain read of the same file from the simulator's own folder.
//
//   BM_AFCRead/unix, BM_AFCRead/tcp   open, then seek and read in 262144-byte requests until a
//                                     read gives nothing (the framework's whole-file read), over
//                                     the simulator's UNIX socket or its TCP port
//   BM_PlainRead                      read() of the same file in 262144-byte pieces (page cache
//                                     warm): the yardstick
//
// Both report "MB=.../s" (10^6 bytes per second of wall-clock time; the work happens in two
// processes).

#include "tests/support/SampleDevice.h"
#include "tests/support/SimulatedDevice.h"

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::size_t kFileSize = 100'000'000;
constexpr std::uint32_t kChunk = 262144;
const char* const kUDID = "00008030-0000BE0C0000BE0C";

struct Setup {
    zq::test::TempDir root;
    std::string localPath;

    Setup()
    {
        std::signal(SIGPIPE, SIG_IGN);
        localPath = root.file("big.m4a");
        std::vector<char> block(1 << 20);
        for (std::size_t i = 0; i < block.size(); ++i)
            block[i] = char(i * 131 + 7);
        std::ofstream out(localPath, std::ios::binary);
        for (std::size_t written = 0; written < kFileSize; written += block.size())
            out.write(block.data(), std::streamsize(std::min(block.size(), kFileSize - written)));
    }
};

Setup& setup()
{
    static Setup instance;
    return instance;
}

/// A simulator with the device attached and an AFC client open on it.
struct Session {
    zq::test::SimulatedUsbmuxd simulator;
    idevice_t device = nullptr;
    lockdownd_client_t lockdown = nullptr;
    afc_client_t afc = nullptr;

    explicit Session(zq::test::SimulatedUsbmuxd::Listen listen) : simulator(listen)
    {
        simulator.exportAddress();
        simulator.attach({.udid = kUDID, .root = setup().root.path()});
        lockdownd_service_descriptor_t service = nullptr;
        if (idevice_new(&device, kUDID) != IDEVICE_E_SUCCESS ||
            lockdownd_client_new_with_handshake(device, &lockdown, "bench") != LOCKDOWN_E_SUCCESS ||
            lockdownd_start_service(lockdown, "com.apple.afc", &service) != LOCKDOWN_E_SUCCESS ||
            afc_client_new(device, service, &afc) != AFC_E_SUCCESS)
            throw std::runtime_error("cannot open the simulated device");
        lockdownd_service_descriptor_free(service);
    }
    ~Session()
    {
        if (afc)
            afc_client_free(afc);
        if (lockdown)
            lockdownd_client_free(lockdown);
        if (device)
            idevice_free(device);
    }
};

void BM_AFCRead(benchmark::State& state)
{
    setup();
    Session session(state.range(0) ? zq::test::SimulatedUsbmuxd::Listen::Tcp : zq::test::SimulatedUsbmuxd::Listen::Unix);
    std::vector<char> buffer(kChunk);
    for (auto _ : state) {
        std::uint64_t handle = 0;
        if (afc_file_open(session.afc, "/big.m4a", AFC_FOPEN_RW, &handle) != AFC_E_SUCCESS) {
            state.SkipWithError("open failed");
            return;
        }
        std::uint64_t offset = 0;
        std::uint32_t ask = kChunk, got = 0;
        do {
            afc_file_seek(session.afc, handle, std::int64_t(offset), SEEK_SET);
            got = 0;
            if (afc_file_read(session.afc, handle, buffer.data(), ask, &got) != AFC_E_SUCCESS)
                got = 0;
            offset += got;
            ask = got ? got : ask;
        } while (got != 0);
        afc_file_close(session.afc, handle);
        if (offset != kFileSize) {
            state.SkipWithError("short read");
            return;
        }
        benchmark::DoNotOptimize(buffer.data());
    }
    state.counters["MB"] = benchmark::Counter(kFileSize / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_AFCRead)->ArgName("tcp")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void BM_PlainRead(benchmark::State& state)
{
    std::vector<char> buffer(kChunk);
    for (auto _ : state) {
        int fd = ::open(setup().localPath.c_str(), O_RDONLY | O_CLOEXEC);
        std::size_t total = 0;
        for (ssize_t got; (got = ::read(fd, buffer.data(), buffer.size())) > 0;)
            total += std::size_t(got);
        ::close(fd);
        if (total != kFileSize) {
            state.SkipWithError("short read");
            return;
        }
        benchmark::DoNotOptimize(buffer.data());
    }
    state.counters["MB"] = benchmark::Counter(kFileSize / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_PlainRead)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1);

} // namespace

BENCHMARK_MAIN();
