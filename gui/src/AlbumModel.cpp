#include "AlbumModel.h"

#include "Text.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPalette>

#include <unordered_map>

namespace gui {

AlbumModel::AlbumModel(CoverCache* covers, QObject* parent) : QAbstractListModel(parent), covers_(covers)
{
    connect(covers_, &CoverCache::coverReady, this, &AlbumModel::coverReady);
}

void AlbumModel::setTracks(std::shared_ptr<const LibraryIndex> index, const std::vector<std::uint32_t>& rows)
{
    beginResetModel();
    index_ = std::move(index);
    albums_.clear();
    if (index_) {
        std::unordered_map<std::string, std::size_t> positions;
        std::string key;
        for (std::uint32_t at : rows) {
            auto artist = index_->folded(at, LibraryIndex::AlbumArtist);
            if (artist.empty())
                artist = index_->folded(at, LibraryIndex::Artist);
            const auto album = index_->folded(at, LibraryIndex::Album);
            key.assign(artist).append(1, '\x1f').append(album);
            auto [found, added] = positions.try_emplace(key, albums_.size());
            if (added) {
                const zq::iPodTrack& track = index_->track(at);
                Album made;
                made.title = toQString(track.textView(zq::iPodTrack::Album));
                made.artist = toQString(track.textView(zq::iPodTrack::AlbumArtist));
                if (made.artist.isEmpty())
                    made.artist = toQString(track.textView(zq::iPodTrack::Artist));
                albums_.push_back(std::move(made));
            }
            Album& album_ = albums_[found->second];
            album_.tracks.push_back(at);
            if (!album_.art && index_->track(at).hasAlbumArt())
                album_.art = index_->track(at).albumArt();
        }
    }
    endResetModel();
}

const AlbumModel::Album* AlbumModel::albumAt(int row) const
{
    return row >= 0 && row < static_cast<int>(albums_.size()) ? &albums_[static_cast<std::size_t>(row)] : nullptr;
}

int AlbumModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(albums_.size());
}

QVariant AlbumModel::data(const QModelIndex& index, int role) const
{
    const Album* album = albumAt(index.row());
    if (!album)
        return {};
    switch (role) {
    case Qt::DisplayRole: {
        const QString title = album->title.isEmpty() ? tr("Unknown Album") : album->title;
        return album->artist.isEmpty() ? title : title + QLatin1Char('\n') + album->artist;
    }
    case Qt::ToolTipRole:
        return tr("%1 — %2 (%n track(s))", nullptr, static_cast<int>(album->tracks.size()))
            .arg(album->title, album->artist);
    case Qt::AccessibleTextRole:
        return tr("Album %1 by %2").arg(album->title, album->artist);
    case Qt::DecorationRole: {
        const int side = static_cast<int>(kCoverSide * ratio_);
        QImage cover = covers_->cover(album->art, side);
        if (cover.isNull()) {
            if (placeholder_.isNull()) {
                // A plain square in the palette's colours stands in until the cover arrives.
                auto* self = const_cast<AlbumModel*>(this);
                self->placeholder_ = QPixmap(side, side);
                self->placeholder_.fill(QGuiApplication::palette().color(QPalette::Mid));
                self->placeholder_.setDevicePixelRatio(ratio_);
            }
            return placeholder_;
        }
        QPixmap pixmap = QPixmap::fromImage(cover);
        pixmap.setDevicePixelRatio(ratio_);
        return pixmap;
    }
    default:
        return {};
    }
}

void AlbumModel::coverReady(const zq::AlbumArt* art)
{
    for (std::size_t i = 0; i < albums_.size(); ++i)
        if (albums_[i].art.get() == art) {
            const QModelIndex changed = this->index(static_cast<int>(i));
            emit dataChanged(changed, changed, {Qt::DecorationRole});
        }
}

} // namespace gui
