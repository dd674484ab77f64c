// libFuzzer target: the library database walk, the device-name lookup and the smart-playlist
// rule-blob parser, all on the same input. Any exception other than the framework's own, any
// crash, sanitizer report, leak or runaway allocation is a finding.
//
// The walk runs twice: over the input in memory, and over the same bytes as a file read
// through a window of a few bytes (a kilobyte for large inputs), so that reads keep moving the
// window: the way a device library is read, under stress. The first hands track records to the
// track maker text by text, the second whole. Both must build the same library.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/reader/TrackListBuilder.h"
#include "ZQCore/reader/XRDataReader.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>

namespace {

// A library object that is not tied to any device: the fuzzer only feeds its parser.
struct DetachedLibrary : zq::ZQCoreiPod {
    DetachedLibrary() = default;
};

struct Outcome {
    std::size_t tracks = 0;
    std::size_t playlists = 0;
    std::size_t items = 0;
    std::size_t texts = 0; // a hash of the tracks' descriptions
    std::string failure;
};

template <typename Parse>
Outcome walk(Parse parse)
{
    Outcome outcome;
    auto library = std::make_shared<DetachedLibrary>();
    try {
        parse(*library);
    } catch (const zq::Exception& e) {
        outcome.failure = e.name() + ": " + e.reason();
    }
    // Touch what a client would read, so that bad objects show up here.
    outcome.tracks = library->allTracks().size();
    outcome.playlists = library->allPlaylists().size();
    for (const auto& playlist : library->allPlaylists()) {
        outcome.items += playlist->tracks().size();
        (void)playlist->description();
    }
    for (const auto& track : library->allTracks())
        outcome.texts = outcome.texts * 31 + std::hash<std::string>()(track->description());
    return outcome;
}

// The input as a file that needs no disk: an anonymous memory file named through /proc.
class MemoryFile {
public:
    MemoryFile(const std::uint8_t* bytes, std::size_t size) : fd_(::memfd_create("itunesdb", MFD_CLOEXEC))
    {
        std::size_t written = 0;
        while (fd_ >= 0 && written < size) {
            ssize_t n = ::write(fd_, bytes + written, size - written);
            if (n <= 0)
                std::abort();
            written += static_cast<std::size_t>(n);
        }
    }
    ~MemoryFile()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const zq::Data data(bytes, size);
    const Outcome inMemory = walk([&](zq::ZQCoreiPod& library) { library.parseiTunesDBWithData(data); });

    if (size > 0) {
        MemoryFile file(bytes, size);
        zq::TrackListBuilder::handover = zq::TrackListBuilder::Handover::WholeRecords;
        const Outcome throughWindow = walk([&](zq::ZQCoreiPod& library) {
            // A tiny window for small inputs; larger ones would spend the run in system calls.
            auto reader = zq::XRDataReader::dataReaderWithFile(file.path(), true, size < 8192 ? 7 : 1024);
            if (!reader)
                std::abort();
            library.parseiTunesDBWithReader(*reader);
        });
        zq::TrackListBuilder::handover = zq::TrackListBuilder::Handover::Adaptive;
        if (inMemory.tracks != throughWindow.tracks || inMemory.playlists != throughWindow.playlists ||
            inMemory.items != throughWindow.items || inMemory.texts != throughWindow.texts ||
            inMemory.failure != throughWindow.failure)
            std::abort();
    }

    (void)zq::ZQCoreiPodRef::getNameFromiTunesDBWithData(data);
    try {
        (void)zq::ZQCoreiPod::parseSmartPlaylistRulesInData(data);
    } catch (const zq::Exception&) {
    }
    return 0;
}
