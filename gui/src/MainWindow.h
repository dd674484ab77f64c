#pragma once
// The main window: devices and their playlists in the sidebar, the tracks (or albums) of what
// is selected in the middle, every field of the selected track on the right.

#include "AlbumModel.h"
#include "Appearance.h"
#include "CoverCache.h"
#include "DetailPane.h"
#include "DeviceWatcher.h"
#include "LibraryLoader.h"
#include "TrackTableModel.h"

#include <ZQCore/model/Playlist.h>

#include <QMainWindow>

#include <map>
#include <memory>

class QAction;
class QLabel;
class QLineEdit;
class QListView;
class QProgressBar;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTableView;
class QToolButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace gui {

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    /// Item kinds of the sidebar (Qt::UserRole).
    enum ItemKind { SectionItem = 1, DeviceItem, LibraryItem, PlaylistItem };
    static constexpr int KindRole = Qt::UserRole;
    static constexpr int SourceRole = Qt::UserRole + 1;
    static constexpr int PlaylistRole = Qt::UserRole + 2;

    /// `watchDevices` false leaves the framework's device discovery alone (a screenshot of a
    /// folder needs none).
    explicit MainWindow(bool watchDevices = true, QWidget* parent = nullptr);
    ~MainWindow() override;

    /// Opens a device folder (a mounted volume or a copied device folder) and loads it.
    void openFolder(const QString& path);
    /// Loads a connected device, by its sidebar entry.
    void openDevice(const std::shared_ptr<zq::ZQCoreiPodRef>& reference);

    // For the tests and the screenshot.
    QTreeWidget* sidebar() const { return sidebar_; }
    QTableView* trackView() const { return trackView_; }
    QListView* albumView() const { return albumView_; }
    TrackTableModel* trackModel() const { return trackModel_; }
    AlbumModel* albumModel() const { return albumModel_; }
    QLineEdit* filterField() const { return filter_; }
    DetailPane* detailPane() const { return details_; }
    LibraryLoader* loader() const { return loader_; }
    CoverCache* covers() const { return covers_; }
    QLabel* noticeLabel() const { return notice_; }
    QLabel* listLabel() const { return listLabel_; }
    QAction* copyAction() const { return copyAction_; }
    QPushButton* cancelButton() const { return cancel_; }
    /// The sidebar item of the library shown, or null.
    QTreeWidgetItem* libraryItem() const;
    void showAlbums(bool albums);
    void setAppearance(Appearance appearance);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    struct Source {
        DeviceEntry device;
        QString folder;  // for a folder opened by hand
        std::shared_ptr<const LibraryIndex> index;
        bool gone = false;
        QTreeWidgetItem* item = nullptr;
    };

    void buildMenus();
    void restoreState();
    void saveState();
    void devicesChanged();
    void selectionChanged();
    void trackSelectionChanged();
    void albumActivated(const QModelIndex& index);
    void loadStarted(const QString& name);
    void libraryLoaded(std::shared_ptr<const LibraryIndex> index, std::shared_ptr<zq::ZQCoreiPodRef> reference);
    void loadFailed(const QString& name, const QString& reason);
    void loadCancelled();
    void addPlaylistItems(QTreeWidgetItem* parent, int source, const std::shared_ptr<zq::Playlist>& playlist);
    void showList(int source, const std::shared_ptr<zq::Playlist>& playlist);
    void updateStatus();
    void updateDeviceItem(Source& source);
    void chooseFolder();
    void about();
    int sourceForReference(const std::shared_ptr<zq::ZQCoreiPodRef>& reference) const;
    QTreeWidgetItem* section(int which);

    DeviceWatcher* watcher_ = nullptr;
    LibraryLoader* loader_;
    CoverCache* covers_;
    TrackTableModel* trackModel_;
    AlbumModel* albumModel_;

    QSplitter* splitter_;
    QTreeWidget* sidebar_;
    QTreeWidgetItem* devicesSection_;
    QTreeWidgetItem* foldersSection_;
    QLineEdit* filter_;
    QToolButton* tracksButton_;
    QToolButton* albumsButton_;
    QLabel* listLabel_;
    QLabel* notice_;
    QWidget* loadPanel_;
    QLabel* loadLabel_;
    QProgressBar* loadProgress_;
    QPushButton* cancel_;
    QStackedWidget* stack_;
    QTableView* trackView_;
    QListView* albumView_;
    DetailPane* details_;
    QLabel* status_;
    QAction* copyAction_ = nullptr;
    QAction* detailsAction_ = nullptr;

    std::map<int, Source> sources_;
    int nextSource_ = 1;
    int shownSource_ = 0;
    int loadingSource_ = 0;
    std::vector<std::shared_ptr<zq::Playlist>> playlists_;  // of the sidebar, by PlaylistRole
};

} // namespace gui
