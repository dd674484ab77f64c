#include "TrackTableModel.h"

#include "Text.h"

#include <QRegularExpression>

#include <algorithm>

namespace gui {

namespace {

/// The folded text field a text column sorts and filters by; -1 for the other columns.
int textFieldOf(int column)
{
    switch (column) {
    case TrackTableModel::Title: return LibraryIndex::Title;
    case TrackTableModel::Artist: return LibraryIndex::Artist;
    case TrackTableModel::Album: return LibraryIndex::Album;
    case TrackTableModel::AlbumArtist: return LibraryIndex::AlbumArtist;
    case TrackTableModel::Genre: return LibraryIndex::Genre;
    case TrackTableModel::Kind: return LibraryIndex::Kind;
    default: return -1;
    }
}

double numericKey(const zq::iPodTrack& track, int column)
{
    switch (column) {
    case TrackTableModel::Time: return track.trackLength();
    case TrackTableModel::Year: return track.year();
    // Track numbers sort within their disc, so an album sorted by either reads in order.
    case TrackTableModel::TrackNumber: return track.trackNumber() + track.discNumber() * 1e6;
    case TrackTableModel::DiscNumber: return track.discNumber() * 1e6 + track.trackNumber();
    case TrackTableModel::Plays: return track.playCount();
    case TrackTableModel::Rating: return track.rating();
    case TrackTableModel::DateAdded: {
        const auto added = track.dateAdded();
        return added ? added->timeIntervalSinceReferenceDate() : -1e300;
    }
    case TrackTableModel::Size: return track.fileSize();
    default: return 0;
    }
}

QString numberOf(std::uint32_t number, std::uint32_t total)
{
    if (number == 0)
        return {};
    return total ? QStringLiteral("%1/%2").arg(number).arg(total) : QString::number(number);
}

} // namespace

TrackTableModel::TrackTableModel(QObject* parent) : QAbstractTableModel(parent) {}

void TrackTableModel::setTracks(std::shared_ptr<const LibraryIndex> index, std::vector<std::uint32_t> rows)
{
    beginResetModel();
    index_ = std::move(index);
    playlistOrder_ = std::move(rows);
    sortList();
    refilter(false);
    endResetModel();
}

void TrackTableModel::clear()
{
    setTracks(nullptr, {});
}

int TrackTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(shown_.size());
}

int TrackTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

std::shared_ptr<zq::iPodTrack> TrackTableModel::trackAt(int row) const
{
    if (!index_ || row < 0 || row >= static_cast<int>(shown_.size()))
        return nullptr;
    return index_->trackPointer(shown_[static_cast<std::size_t>(row)]);
}

QVariant TrackTableModel::data(const QModelIndex& index, int role) const
{
    if (!index_ || !index.isValid() || index.row() >= static_cast<int>(shown_.size()))
        return {};
    const std::uint32_t at = shown_[static_cast<std::size_t>(index.row())];
    const zq::iPodTrack& track = index_->track(at);
    const int column = index.column();
    if (role == Qt::TextAlignmentRole) {
        const bool numeric = textFieldOf(column) < 0 && column != DateAdded;
        return QVariant::fromValue(Qt::Alignment((numeric ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter));
    }
    if (role == SortKeyRole) {
        if (const int field = textFieldOf(column); field >= 0)
            return QString::fromStdString(std::string(index_->folded(at, static_cast<LibraryIndex::TextField>(field))));
        return numericKey(track, column);
    }
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole)
        return {};
    switch (column) {
    case Title: return toQString(track.textView(zq::iPodTrack::Title));
    case Artist: return toQString(track.textView(zq::iPodTrack::Artist));
    case Album: return toQString(track.textView(zq::iPodTrack::Album));
    case AlbumArtist: return toQString(track.textView(zq::iPodTrack::AlbumArtist));
    case Genre: return toQString(track.textView(zq::iPodTrack::Genre));
    case Time: return formatDuration(track.trackLength());
    case Year: return track.year() ? QString::number(track.year()) : QString();
    case TrackNumber: return numberOf(track.trackNumber(), track.trackTotal());
    case DiscNumber: return numberOf(track.discNumber(), track.discTotal());
    case Plays: return track.playCount() ? QString::number(track.playCount()) : QString();
    case Rating: return formatRating(track.rating());
    case DateAdded: {
        const auto added = track.dateAdded();
        return formatDate(added ? std::optional<double>(added->timeIntervalSinceReferenceDate()) : std::nullopt);
    }
    case Kind: return toQString(track.textView(zq::iPodTrack::FileType));
    case Size: return formatSize(track.fileSize());
    default: return {};
    }
}

QVariant TrackTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case Title: return tr("Title");
    case Artist: return tr("Artist");
    case Album: return tr("Album");
    case AlbumArtist: return tr("Album Artist");
    case Genre: return tr("Genre");
    case Time: return tr("Time");
    case Year: return tr("Year");
    case TrackNumber: return tr("Track");
    case DiscNumber: return tr("Disc");
    case Plays: return tr("Plays");
    case Rating: return tr("Rating");
    case DateAdded: return tr("Date Added");
    case Kind: return tr("Kind");
    case Size: return tr("Size");
    default: return {};
    }
}

void TrackTableModel::sort(int column, Qt::SortOrder order)
{
    if (column == sortColumn_ && order == sortOrder_)
        return;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    sortColumn_ = column;
    sortOrder_ = order;
    sortList();
    // The filter keeps the sorted order, so filtering the sorted list again is the new view.
    refilter(false);
    // Rows are not followed through the sort: persistent indexes (the selection) are dropped.
    const auto persistent = persistentIndexList();
    changePersistentIndexList(persistent, QModelIndexList(persistent.size()));
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void TrackTableModel::sortList()
{
    list_ = playlistOrder_;
    if (!index_ || sortColumn_ < 0 || sortColumn_ >= ColumnCount)
        return;
    const LibraryIndex& index = *index_;
    const bool descending = sortOrder_ == Qt::DescendingOrder;
    if (const int field = textFieldOf(sortColumn_); field >= 0) {
        const auto textField = static_cast<LibraryIndex::TextField>(field);
        std::stable_sort(list_.begin(), list_.end(), [&](std::uint32_t a, std::uint32_t b) {
            return descending ? index.folded(b, textField) < index.folded(a, textField)
                              : index.folded(a, textField) < index.folded(b, textField);
        });
        return;
    }
    // Keys once per track, not once per comparison: dates and numbers go through getters.
    std::vector<std::pair<double, std::uint32_t>> keyed;
    keyed.reserve(list_.size());
    for (std::uint32_t at : list_)
        keyed.emplace_back(numericKey(index.track(at), sortColumn_), at);
    std::stable_sort(keyed.begin(), keyed.end(), [descending](const auto& a, const auto& b) {
        return descending ? b.first < a.first : a.first < b.first;
    });
    for (std::size_t i = 0; i < keyed.size(); ++i)
        list_[i] = keyed[i].second;
}

void TrackTableModel::setFilterText(const QString& text)
{
    if (text == filterText_)
        return;
    const bool narrowing = !filterText_.trimmed().isEmpty() && text.startsWith(filterText_);
    filterText_ = text;
    words_.clear();
    for (const QString& word : text.split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts))
        words_.push_back(foldedUtf8(word.toStdString()));
    beginResetModel();
    refilter(narrowing);
    endResetModel();
}

void TrackTableModel::refilter(bool narrowing)
{
    if (words_.empty() || !index_) {
        shown_ = list_;
        return;
    }
    // Typing on narrows what is shown, so only the rows still shown need looking at.
    const std::vector<std::uint32_t> source = narrowing ? std::move(shown_) : list_;
    shown_.clear();
    for (std::uint32_t at : source) {
        const std::string_view record = index_->foldedRecord(at);
        bool all = true;
        for (const std::string& word : words_)
            if (record.find(word) == std::string_view::npos) {
                all = false;
                break;
            }
        if (all)
            shown_.push_back(at);
    }
}

} // namespace gui
