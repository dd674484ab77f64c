// libFuzzer target: the library database walk, the device-name lookup and the smart-playlist
// rule-blob parser, all on the same input. Any exception other than the framework's own, any
// crash, sanitizer report, leak or runaway allocation is a finding.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"

#include <cstddef>
#include <cstdint>

namespace {

// A library object that is not tied to any device: the fuzzer only feeds its parser.
struct DetachedLibrary : zq::ZQCoreiPod {
    DetachedLibrary() = default;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const zq::Data data(bytes, size);
    try {
        auto library = std::make_shared<DetachedLibrary>();
        library->parseiTunesDBWithData(data);
        // Touch what a client would read, so that bad objects show up here.
        for (const auto& playlist : library->allPlaylists())
            (void)playlist->description();
        for (const auto& track : library->allTracks())
            (void)track->description();
    } catch (const zq::Exception&) {
    }
    (void)zq::ZQCoreiPodRef::getNameFromiTunesDBWithData(data);
    try {
        (void)zq::ZQCoreiPod::parseSmartPlaylistRulesInData(data);
    } catch (const zq::Exception&) {
    }
    return 0;
}
