#pragma once
// Every field of the selected track, with its cover; or an album's cover and tracks.

#include "CoverCache.h"

#include <ZQCore/model/iPodTrack.h>

#include <QLabel>
#include <QTableWidget>
#include <QWidget>

#include <memory>

namespace gui {

class DetailPane : public QWidget {
    Q_OBJECT
public:
    explicit DetailPane(CoverCache* covers, QWidget* parent = nullptr);

    void showTrack(const std::shared_ptr<zq::iPodTrack>& track);
    void showAlbum(const QString& title, const QString& artist, const std::shared_ptr<zq::AlbumArt>& art,
                   int trackCount);
    void clear();
    /// The field table (name, value), for the tests.
    QTableWidget* fields() const { return fields_; }
    QLabel* cover() const { return cover_; }

    static constexpr int kCoverSide = 220;

private:
    void setCover(const std::shared_ptr<zq::AlbumArt>& art);
    void coverReady(const zq::AlbumArt* art);
    void addField(const QString& name, const QString& value);

    CoverCache* covers_;
    QLabel* cover_;
    QLabel* heading_;
    QTableWidget* fields_;
    std::shared_ptr<zq::AlbumArt> art_;
};

} // namespace gui
