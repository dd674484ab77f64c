#pragma once
// The album grid: the albums of the tracks shown, each with its cover (from CoverCache, so
// scrolling never waits for a decode), title, artist and track count.

#include "CoverCache.h"
#include "LibraryIndex.h"

#include <QAbstractListModel>
#include <QPixmap>

#include <memory>
#include <vector>

namespace gui {

class AlbumModel : public QAbstractListModel {
    Q_OBJECT
public:
    struct Album {
        QString title;
        QString artist;
        std::vector<std::uint32_t> tracks;  // library indices, in list order
        std::shared_ptr<zq::AlbumArt> art;   // of the first track that has one
    };
    /// The side of a cover in the grid, in device-independent pixels.
    static constexpr int kCoverSide = 128;

    AlbumModel(CoverCache* covers, QObject* parent = nullptr);

    /// Groups `rows` by album artist (else artist) and album, in the order they first appear.
    void setTracks(std::shared_ptr<const LibraryIndex> index, const std::vector<std::uint32_t>& rows);
    const Album* albumAt(int row) const;
    /// The device pixel ratio covers are decoded for.
    void setDevicePixelRatio(qreal ratio) { ratio_ = ratio; }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

private:
    void coverReady(const zq::AlbumArt* art);

    CoverCache* covers_;
    std::shared_ptr<const LibraryIndex> index_;
    std::vector<Album> albums_;
    QPixmap placeholder_;
    qreal ratio_ = 1.0;
};

} // namespace gui
