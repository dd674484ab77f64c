#pragma once
// The track table over the framework's own track objects. Nothing is copied up front: a cell's
// text is made when the view asks for it (only the rows on screen), and sorting and filtering
// reorder a vector of row numbers over the library's folded texts (see LibraryIndex).

#include "LibraryIndex.h"

#include <QAbstractTableModel>
#include <QStringList>

#include <memory>
#include <vector>

namespace gui {

class TrackTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column {
        Title, Artist, Album, AlbumArtist, Genre, Time, Year, TrackNumber, DiscNumber, Plays, Rating,
        DateAdded, Kind, Size, ColumnCount
    };
    /// The value a column sorts by, for checks and for callers that need it typed.
    static constexpr int SortKeyRole = Qt::UserRole + 1;

    explicit TrackTableModel(QObject* parent = nullptr);

    /// Shows the tracks `rows` (library indices, in playlist order) of `index`.
    void setTracks(std::shared_ptr<const LibraryIndex> index, std::vector<std::uint32_t> rows);
    void clear();
    const std::shared_ptr<const LibraryIndex>& libraryIndex() const { return index_; }

    /// Shows only the tracks whose text columns contain every word of `text` (case-insensitive).
    void setFilterText(const QString& text);
    QString filterText() const { return filterText_; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    /// The track shown in a row; nullptr outside the rows.
    std::shared_ptr<zq::iPodTrack> trackAt(int row) const;
    /// The library indices of the rows shown, top to bottom.
    const std::vector<std::uint32_t>& shownRows() const { return shown_; }
    /// The tracks the current list holds before filtering, in the current sort order.
    const std::vector<std::uint32_t>& listRows() const { return list_; }

private:
    void sortList();
    void refilter(bool narrowing);

    std::shared_ptr<const LibraryIndex> index_;
    std::vector<std::uint32_t> playlistOrder_;  // as the playlist has them
    std::vector<std::uint32_t> list_;           // the same, sorted
    std::vector<std::uint32_t> shown_;          // the sorted list, filtered
    QString filterText_;
    std::vector<std::string> words_;  // the filter's words, folded
    int sortColumn_ = -1;
    Qt::SortOrder sortOrder_ = Qt::AscendingOrder;
};

} // namespace gui
