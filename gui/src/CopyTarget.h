#pragma once
// Where "Copy to…" will meet the copy engine of `zqpod copy` once the framework offers it: the
// window gathers what is selected (tracks, albums, playlists or everything) into a CopyRequest
// and hands it to a CopyEngine; until an engine exists the action stays disabled.

#include <ZQCore/model/Playlist.h>
#include <ZQCore/model/iPodTrack.h>

#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace gui {

struct CopyRequest {
    std::vector<std::shared_ptr<zq::iPodTrack>> tracks;
    std::vector<std::shared_ptr<zq::Playlist>> playlists;  // written as M3U8 beside the music
    QString destination;
    QString nameTemplate;  // as `zqpod copy --template`
    bool covers = true;
};

struct CopyProgress {
    std::uint64_t filesDone = 0, filesTotal = 0;
    std::uint64_t bytesDone = 0, bytesTotal = 0;
    double secondsLeft = -1;  // negative while unknown
};

struct CopyFailure {
    QString track;  // as the listing names it
    QString reason;
};

/// What the copy dialog will drive. Progress is reported on the engine's thread; returning
/// false from it cancels (no partial file stays). A device that leaves is a failure of the
/// remaining tracks, not a crash.
class CopyEngine {
public:
    virtual ~CopyEngine() = default;
    virtual std::vector<CopyFailure> copy(const CopyRequest& request,
                                          const std::function<bool(const CopyProgress&)>& progress) = 0;
};

/// The engine this build has: none yet.
inline std::unique_ptr<CopyEngine> makeCopyEngine() { return nullptr; }

} // namespace gui
