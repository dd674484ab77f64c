#pragma once
// Album covers decoded off the UI thread. A view asks for a cover and gets it at once when it
// is decoded already, else nothing (the view shows a stand-in) and coverReady later. Decoding
// runs on one background thread: the framework decodes an artwork's pixels on first use and
// reads them through its device, neither of which is meant for two threads at once.

#include <ZQCore/artwork/AlbumArt.h>

#include <QCache>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QThreadPool>

#include <memory>

namespace gui {

class CoverCache : public QObject {
    Q_OBJECT
public:
    explicit CoverCache(QObject* parent = nullptr);
    ~CoverCache() override;

    /// The cover of `art` scaled to fit `side` device pixels, when decoded; else a null image
    /// and the decoding is queued (once). A track without artwork has no cover: null, nothing
    /// queued.
    QImage cover(const std::shared_ptr<zq::AlbumArt>& art, int side);
    /// Whether the cover was asked for and could not be had (no stand-in "loading" then).
    bool isUnavailable(const std::shared_ptr<zq::AlbumArt>& art, int side) const
    {
        return failed_.contains(Key(reinterpret_cast<quintptr>(art.get()), side));
    }
    /// Forgets everything (another library is shown); decodings under way are dropped.
    void clear();
    /// Waits until nothing is queued (tests, screenshots).
    void waitForIdle();

signals:
    /// A cover asked for has been decoded, or has turned out unavailable.
    void coverReady(const zq::AlbumArt* art);

private:
    using Key = QPair<quintptr, int>;
    QThreadPool pool_;
    QCache<Key, QImage> images_;
    QSet<Key> pending_;
    QSet<Key> failed_;
    quint64 generation_ = 0;
};

} // namespace gui
