#include "DetailPane.h"

#include "Text.h"

#include <ZQCore/foundation/Date.h>

#include <QHeaderView>
#include <QVBoxLayout>

namespace gui {

namespace {

QString dateText(const std::optional<zq::Date>& date)
{
    return formatDate(date ? std::optional<double>(date->timeIntervalSinceReferenceDate()) : std::nullopt);
}

QString numberText(std::uint64_t value)
{
    return value ? QString::number(value) : QString();
}

} // namespace

DetailPane::DetailPane(CoverCache* covers, QWidget* parent) : QWidget(parent), covers_(covers)
{
    setAccessibleName(tr("Details"));
    auto* layout = new QVBoxLayout(this);
    cover_ = new QLabel(this);
    cover_->setAlignment(Qt::AlignCenter);
    cover_->setMinimumSize(kCoverSide, kCoverSide);
    cover_->setAccessibleName(tr("Cover"));
    heading_ = new QLabel(this);
    heading_->setWordWrap(true);
    heading_->setTextFormat(Qt::PlainText);
    QFont bold = heading_->font();
    bold.setBold(true);
    heading_->setFont(bold);
    fields_ = new QTableWidget(0, 2, this);
    fields_->setAccessibleName(tr("Track fields"));
    fields_->setHorizontalHeaderLabels({tr("Field"), tr("Value")});
    fields_->horizontalHeader()->setStretchLastSection(true);
    fields_->horizontalHeader()->hide();
    fields_->verticalHeader()->hide();
    fields_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    fields_->setSelectionBehavior(QAbstractItemView::SelectRows);
    fields_->setShowGrid(false);
    fields_->setWordWrap(true);
    layout->addWidget(cover_);
    layout->addWidget(heading_);
    layout->addWidget(fields_, 1);
    connect(covers_, &CoverCache::coverReady, this, &DetailPane::coverReady);
    clear();
}

void DetailPane::clear()
{
    art_.reset();
    cover_->clear();
    cover_->setText(tr("No selection"));
    heading_->clear();
    fields_->setRowCount(0);
}

void DetailPane::addField(const QString& name, const QString& value)
{
    if (value.isEmpty())
        return;
    const int row = fields_->rowCount();
    fields_->insertRow(row);
    auto* nameItem = new QTableWidgetItem(name);
    nameItem->setForeground(palette().color(QPalette::PlaceholderText));
    fields_->setItem(row, 0, nameItem);
    fields_->setItem(row, 1, new QTableWidgetItem(value));
}

void DetailPane::showTrack(const std::shared_ptr<zq::iPodTrack>& track)
{
    if (!track) {
        clear();
        return;
    }
    const zq::iPodTrack& t = *track;
    heading_->setText(toQString(t.textView(zq::iPodTrack::Title)));
    fields_->setRowCount(0);
    addField(tr("Title"), toQString(t.textView(zq::iPodTrack::Title)));
    addField(tr("Artist"), toQString(t.textView(zq::iPodTrack::Artist)));
    addField(tr("Album"), toQString(t.textView(zq::iPodTrack::Album)));
    addField(tr("Album Artist"), toQString(t.textView(zq::iPodTrack::AlbumArtist)));
    addField(tr("Composer"), toQString(t.textView(zq::iPodTrack::Composer)));
    addField(tr("Genre"), toQString(t.textView(zq::iPodTrack::Genre)));
    addField(tr("Grouping"), toQString(t.textView(zq::iPodTrack::Grouping)));
    addField(tr("Comment"), toQString(t.textView(zq::iPodTrack::Comment)));
    addField(tr("Time"), formatDuration(t.trackLength()));
    addField(tr("Track"), t.trackNumber() ? tr("%1 of %2").arg(t.trackNumber()).arg(t.trackTotal()) : QString());
    addField(tr("Disc"), t.discNumber() ? tr("%1 of %2").arg(t.discNumber()).arg(t.discTotal()) : QString());
    addField(tr("Year"), numberText(t.year()));
    addField(tr("Compilation"), t.compilation() ? tr("Yes") : QString());
    addField(tr("BPM"), numberText(t.BPM()));
    addField(tr("Kind"), toQString(t.textView(zq::iPodTrack::FileType)));
    addField(tr("Bit Rate"), t.bitrate() ? tr("%1 kbit/s").arg(t.bitrate()) : QString());
    addField(tr("Sample Rate"), t.sampleRate() ? tr("%1 Hz").arg(t.sampleRate()) : QString());
    addField(tr("Size"), formatSize(t.fileSize()));
    addField(tr("Plays"), numberText(t.playCount()));
    addField(tr("Rating"), formatRating(t.rating()));
    addField(tr("Date Added"), dateText(t.dateAdded()));
    addField(tr("Last Played"), dateText(t.lastPlayedTime()));
    addField(tr("Last Skipped"), dateText(t.lastSkippedTime()));
    addField(tr("Modified"), dateText(t.lastModified()));
    addField(tr("Released"), dateText(t.dateReleased()));
    addField(tr("Podcast Category"), toQString(t.textView(zq::iPodTrack::PodcastCategory)));
    addField(tr("Description"), toQString(t.textView(zq::iPodTrack::TrackDescription)));
    addField(tr("Equalizer"), toQString(t.textView(zq::iPodTrack::EQSettingText)));
    addField(tr("Volume"), t.volume() ? QString::number(t.volume()) : QString());
    addField(tr("Start Time"), t.startTime() ? formatDuration(t.startTime()) : QString());
    addField(tr("Stop Time"), t.endTime() ? formatDuration(t.endTime()) : QString());
    addField(tr("Sound Check"), numberText(t.soundcheckValue()));
    addField(tr("Media Type"), numberText(static_cast<std::uint32_t>(t.mediaType())));
    addField(tr("Track ID"), QString::number(t.trackID()));
    addField(tr("Database ID"), QString::number(t.dbid()));
    addField(tr("File"), toQString(t.textView(zq::iPodTrack::FilePath)));
    fields_->resizeColumnToContents(0);
    fields_->resizeRowsToContents();
    setCover(t.hasAlbumArt() ? t.albumArt() : nullptr);
}

void DetailPane::showAlbum(const QString& title, const QString& artist, const std::shared_ptr<zq::AlbumArt>& art,
                           int trackCount)
{
    heading_->setText(title);
    fields_->setRowCount(0);
    addField(tr("Album"), title);
    addField(tr("Artist"), artist);
    addField(tr("Tracks"), QString::number(trackCount));
    fields_->resizeColumnToContents(0);
    setCover(art);
}

void DetailPane::setCover(const std::shared_ptr<zq::AlbumArt>& art)
{
    art_ = art;
    const qreal ratio = devicePixelRatioF();
    const QImage image = covers_->cover(art, static_cast<int>(kCoverSide * ratio));
    if (image.isNull()) {
        cover_->setPixmap({});
        const bool coming = art && !covers_->isUnavailable(art, static_cast<int>(kCoverSide * ratio));
        cover_->setText(coming ? tr("Loading cover…") : tr("No cover"));
        return;
    }
    QPixmap pixmap = QPixmap::fromImage(image);
    pixmap.setDevicePixelRatio(ratio);
    cover_->setPixmap(pixmap);
}

void DetailPane::coverReady(const zq::AlbumArt* art)
{
    if (art_ && art_.get() == art)
        setCover(art_);
}

} // namespace gui
