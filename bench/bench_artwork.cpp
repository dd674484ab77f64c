// Album artwork: linking covers to a large library, walking a large artwork database, and
// decoding thumbnails against a plain copy of the same bytes.
//
//   BM_LinkArtwork           50,000 tracks to 50,000 covers (the link step alone); checked once
//                            against the literal scan (every cover for every track, then the
//                            album pass), whose time is printed for comparison
//   BM_WalkArtworkDB         the whole walk of a 50,000-item database (two sizes each) and the link
//   BM_Decode565 / 1555      16-bit pixels to 32-bit, in megapixels per second ("MP/s"), for
//                            every conversion kernel the processor has
//   BM_CopySameBytes         memcpy of the same 16-bit pixels, the yardstick for the above
//   BM_DecodeImage565        the whole image maker: allocation, conversion and Image

#include "tests/support/SampleDevice.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/PixelConversion.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <map>
#include <random>

namespace {

struct DetachedLibrary : zq::ZQCoreiPod {
    DetachedLibrary() = default;
};

constexpr std::size_t kTracks = 50000;
constexpr std::size_t kCovers = 50000;

/// 50,000 tracks in albums of 1 to 20 tracks. Each track has a cover of its own: two thirds are
/// found by artwork link, one third by dbid only; a few albums share through the album pass.
/// The covers lie in the database in an order unrelated to the tracks'.
struct LinkingSetup {
    std::shared_ptr<DetachedLibrary> library;
    std::vector<std::shared_ptr<zq::AlbumArt>> covers;
};

const LinkingSetup& linkingSetup()
{
    static const LinkingSetup setup = [] {
        std::mt19937_64 random(7);
        zq::test::DatabaseSpec db;
        db.dataSets = {1};
        db.tracks.reserve(kTracks);
        std::uint16_t album = 1;
        std::size_t leftInAlbum = 0;
        for (std::uint32_t i = 0; i < kTracks; ++i) {
            if (leftInAlbum == 0) {
                leftInAlbum = 1 + random() % 20;
                album = static_cast<std::uint16_t>(album % 65535 + 1);
            }
            --leftInAlbum;
            zq::test::TrackSpec t{.trackID = i + 1, .dbid = 0x5000000000000000ULL + i,
                                  .albumID = random() % 50 == 0 ? album : std::uint16_t(0),
                                  .artworkLink = i % 3 == 2 ? 0u : 100 + i};
            db.tracks.push_back(std::move(t));
        }
        auto library = std::make_shared<DetachedLibrary>();
        library->parseiTunesDBWithData(zq::test::buildITunesDB(db));

        std::vector<std::uint32_t> order(kCovers);
        for (std::uint32_t i = 0; i < kCovers; ++i)
            order[i] = i;
        std::shuffle(order.begin(), order.end(), random);
        std::vector<std::shared_ptr<zq::AlbumArt>> covers;
        covers.reserve(kCovers);
        for (std::uint32_t i : order)
            covers.push_back(zq::AlbumArt::initWithReps({}, 100 + i, 0x5000000000000000ULL + i));
        return LinkingSetup{library, covers};
    }();
    return setup;
}

/// The link step exactly as described, on the identifiers: for each track the first cover in
/// file order that matches, then the album pass.
std::vector<const zq::AlbumArt*> literalScan(const zq::ZQCoreiPod::Tracks& tracks,
                                             const std::vector<std::shared_ptr<zq::AlbumArt>>& covers)
{
    std::vector<std::uint64_t> songs(covers.size());
    std::vector<std::uint32_t> images(covers.size());
    for (std::size_t i = 0; i < covers.size(); ++i) {
        songs[i] = covers[i]->trackID();
        images[i] = covers[i]->artworkID();
    }
    std::vector<const zq::AlbumArt*> result(tracks.size(), nullptr);
    std::map<std::uint64_t, const zq::AlbumArt*> albums;
    for (std::size_t t = 0; t < tracks.size(); ++t) {
        const std::uint64_t dbid = tracks[t]->dbid();
        const std::uint64_t link = tracks[t]->artworkLink();
        const bool linkFits = link >> 32 == 0;
        for (std::size_t i = 0; i < covers.size(); ++i) {
            if (songs[i] == dbid || (linkFits && images[i] == link)) {
                result[t] = covers[i].get();
                if (tracks[t]->albumID() != 0)
                    albums[tracks[t]->albumID()] = covers[i].get();
                break;
            }
        }
    }
    for (std::size_t t = 0; t < tracks.size(); ++t)
        if (auto album = albums.find(tracks[t]->albumID()); album != albums.end())
            result[t] = album->second;
    return result;
}

void BM_LinkArtwork(benchmark::State& state)
{
    const LinkingSetup& setup = linkingSetup();
    const auto& tracks = setup.library->allTracks();
    for (auto _ : state)
        zq::ZQCoreiPod::linkArtwork(tracks, setup.covers);

    static bool checked = false;
    if (!checked) {
        checked = true;
        const auto start = std::chrono::steady_clock::now();
        const auto expected = literalScan(tracks, setup.covers);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::size_t differences = 0, linked = 0;
        for (std::size_t t = 0; t < tracks.size(); ++t) {
            const zq::AlbumArt* actual = tracks[t]->hasAlbumArt() ? tracks[t]->albumArt().get() : nullptr;
            differences += actual != expected[t];
            linked += actual != nullptr;
        }
        std::cerr << "literal scan: " << seconds * 1000 << " ms; " << linked << " of " << tracks.size()
                  << " tracks linked; " << differences << " differ from the literal scan\n";
        if (differences)
            state.SkipWithError("linking differs from the literal scan");
    }
    state.counters["tracks"] = static_cast<double>(tracks.size());
    state.counters["covers"] = static_cast<double>(setup.covers.size());
}
BENCHMARK(BM_LinkArtwork)->Unit(benchmark::kMillisecond);

void BM_WalkArtworkDB(benchmark::State& state)
{
    static const zq::Data database = [] {
        zq::test::ArtworkDBSpec layout;
        layout.images.reserve(kCovers);
        for (std::uint32_t i = 0; i < kCovers; ++i) {
            zq::test::ArtworkImageSpec image{.imageID = 100 + i, .songID = 0x5000000000000000ULL + i};
            image.thumbnails = {{.formatID = 1028, .width = 100, .height = 100, .writePixels = false},
                                {.formatID = 1029, .width = 200, .height = 200, .writePixels = false}};
            layout.images.push_back(std::move(image));
        }
        return zq::test::buildArtwork(layout).artworkDB;
    }();
    const LinkingSetup& setup = linkingSetup();
    for (auto _ : state)
        setup.library->parseArtworkDBWithData(database, setup.library->allTracks(), "/media/ipod/iPod_Control/Artwork");
    state.counters["bytes"] = static_cast<double>(database.size());
}
BENCHMARK(BM_WalkArtworkDB)->Unit(benchmark::kMillisecond);

// ---- decoding ------------------------------------------------------------------------------------

std::vector<std::uint8_t> pixelsOf(std::size_t count)
{
    std::vector<std::uint8_t> bytes(count * 2);
    std::mt19937 random(3);
    for (auto& byte : bytes)
        byte = static_cast<std::uint8_t>(random());
    return bytes;
}

void setRate(benchmark::State& state, std::size_t pixels)
{
    state.counters["MP/s"] = benchmark::Counter(static_cast<double>(pixels) * static_cast<double>(state.iterations()) / 1e6,
                                                benchmark::Counter::kIsRate);
    state.SetBytesProcessed(static_cast<std::int64_t>(pixels * 2 * state.iterations()));
}

void BM_Decode565(benchmark::State& state, zq::pixelkernels::Kernel kernel)
{
    const std::size_t pixels = static_cast<std::size_t>(state.range(0) * state.range(0));
    const auto source = pixelsOf(pixels);
    std::vector<std::uint8_t> destination(pixels * 4);
    for (auto _ : state) {
        zq::pixelkernels::convertRGB565(kernel, source.data(), pixels, destination.data(), 0xFF);
        benchmark::DoNotOptimize(destination.data());
        benchmark::ClobberMemory();
    }
    setRate(state, pixels);
}

void BM_Decode1555(benchmark::State& state, zq::pixelkernels::Kernel kernel)
{
    const std::size_t pixels = static_cast<std::size_t>(state.range(0) * state.range(0));
    const auto source = pixelsOf(pixels);
    std::vector<std::uint8_t> destination(pixels * 4);
    for (auto _ : state) {
        zq::pixelkernels::convertARGB1555(kernel, source.data(), pixels, destination.data());
        benchmark::DoNotOptimize(destination.data());
        benchmark::ClobberMemory();
    }
    setRate(state, pixels);
}

void BM_CopySameBytes(benchmark::State& state)
{
    const std::size_t pixels = static_cast<std::size_t>(state.range(0) * state.range(0));
    const auto source = pixelsOf(pixels);
    std::vector<std::uint8_t> destination(pixels * 2);
    for (auto _ : state) {
        std::memcpy(destination.data(), source.data(), source.size());
        benchmark::DoNotOptimize(destination.data());
        benchmark::ClobberMemory();
    }
    setRate(state, pixels);
}

void BM_DecodeImage565(benchmark::State& state)
{
    const auto side = static_cast<std::int32_t>(state.range(0));
    const std::size_t pixels = static_cast<std::size_t>(side) * static_cast<std::size_t>(side);
    const auto source = pixelsOf(pixels);
    for (auto _ : state) {
        auto image = zq::imageWith16BitPixels(source, side, side, zq::PixelLayout::RGB565);
        benchmark::DoNotOptimize(image);
    }
    setRate(state, pixels);
}

// 100 and 200 are the thumbnail sizes of an iPod classic; 1024 fits the last-level cache only,
// 4096 (32 MiB of pixels in, 64 MiB out) none, so it runs at memory speed.
void sizes(benchmark::internal::Benchmark* b)
{
    for (int side : {100, 200, 1024, 4096})
        b->Arg(side);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::RegisterBenchmark("BM_CopySameBytes", BM_CopySameBytes)->Apply(sizes);
    // Every kernel this processor has; the library uses the last (widest) one.
    for (auto kernel : zq::pixelkernels::supported()) {
        const std::string name = zq::pixelkernels::name(kernel);
        benchmark::RegisterBenchmark(("BM_Decode565/" + name).c_str(), BM_Decode565, kernel)->Apply(sizes);
        benchmark::RegisterBenchmark(("BM_Decode1555/" + name).c_str(), BM_Decode1555, kernel)->Apply(sizes);
    }
    benchmark::RegisterBenchmark("BM_DecodeImage565", BM_DecodeImage565)->Apply(sizes);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
