#include "MainWindow.h"

#include "CopyTarget.h"
#include "Text.h"

#include <ZQCore/device/ZQCoreiPod.h>
#include <ZQCore/model/PlaylistFolder.h>
#include <ZQCore/model/Podcasts.h>
#include <ZQCore/model/PurchasedPlaylist.h>
#include <ZQCore/model/SmartPlaylist.h>

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTableView>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace gui {

MainWindow::MainWindow(bool watchDevices, QWidget* parent) : QMainWindow(parent)
{
    setWindowTitle(tr("ZQPod"));
    setWindowIcon(applicationIcon());
    loader_ = new LibraryLoader(this);
    covers_ = new CoverCache(this);
    trackModel_ = new TrackTableModel(this);
    albumModel_ = new AlbumModel(covers_, this);

    splitter_ = new QSplitter(this);
    splitter_->setObjectName(QStringLiteral("mainSplitter"));
    splitter_->setChildrenCollapsible(false);

    sidebar_ = new QTreeWidget(splitter_);
    sidebar_->setHeaderHidden(true);
    sidebar_->setAccessibleName(tr("Devices and playlists"));
    sidebar_->setIconSize(QSize(24, 24));
    sidebar_->setUniformRowHeights(false);
    sidebar_->setMinimumWidth(200);
    sidebar_->setTextElideMode(Qt::ElideRight);
    devicesSection_ = new QTreeWidgetItem(sidebar_, {tr("Devices")});
    foldersSection_ = new QTreeWidgetItem(sidebar_, {tr("Folders")});
    for (auto* item : {devicesSection_, foldersSection_}) {
        item->setData(0, KindRole, SectionItem);
        item->setFlags(Qt::ItemIsEnabled);
        QFont font = item->font(0);
        font.setBold(true);
        item->setFont(0, font);
        item->setExpanded(true);
    }
    foldersSection_->setHidden(true);
    devicesSection_->setHidden(!watchDevices);

    auto* centre = new QWidget(splitter_);
    auto* centreLayout = new QVBoxLayout(centre);
    centreLayout->setContentsMargins(0, 0, 0, 0);
    auto* bar = new QHBoxLayout;
    tracksButton_ = new QToolButton(centre);
    tracksButton_->setText(tr("&Tracks"));
    tracksButton_->setAccessibleName(tr("Show tracks"));
    albumsButton_ = new QToolButton(centre);
    albumsButton_->setText(tr("&Albums"));
    albumsButton_->setAccessibleName(tr("Show albums"));
    auto* views = new QButtonGroup(this);
    for (auto* button : {tracksButton_, albumsButton_}) {
        button->setCheckable(true);
        button->setAutoRaise(true);
        views->addButton(button);
        bar->addWidget(button);
    }
    tracksButton_->setChecked(true);
    listLabel_ = new QLabel(centre);
    listLabel_->setAccessibleName(tr("List description"));
    listLabel_->setTextFormat(Qt::PlainText);
    listLabel_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    bar->addWidget(listLabel_, 1);
    filter_ = new QLineEdit(centre);
    filter_->setPlaceholderText(tr("Filter"));
    filter_->setAccessibleName(tr("Filter tracks"));
    filter_->setClearButtonEnabled(true);
    filter_->setMaximumWidth(260);
    bar->addWidget(filter_);
    centreLayout->addLayout(bar);

    notice_ = new QLabel(centre);
    notice_->setWordWrap(true);
    notice_->setAccessibleName(tr("Notice"));
    notice_->setTextFormat(Qt::PlainText);
    notice_->setStyleSheet(QStringLiteral("QLabel { background: #fff3cd; color: #5c4400; padding: 6px; }"));
    notice_->hide();
    centreLayout->addWidget(notice_);

    loadPanel_ = new QWidget(centre);
    auto* loadLayout = new QHBoxLayout(loadPanel_);
    loadLabel_ = new QLabel(loadPanel_);
    loadProgress_ = new QProgressBar(loadPanel_);
    loadProgress_->setRange(0, 0);  // the framework's load says nothing of how far it is
    loadProgress_->setAccessibleName(tr("Loading progress"));
    cancel_ = new QPushButton(tr("Cancel"), loadPanel_);
    cancel_->setAccessibleName(tr("Cancel loading"));
    loadLayout->addWidget(loadLabel_);
    loadLayout->addWidget(loadProgress_, 1);
    loadLayout->addWidget(cancel_);
    loadPanel_->hide();
    centreLayout->addWidget(loadPanel_);

    stack_ = new QStackedWidget(centre);
    trackView_ = new QTableView(stack_);
    trackView_->setAccessibleName(tr("Tracks"));
    trackView_->setModel(trackModel_);
    trackView_->setSortingEnabled(true);
    trackView_->sortByColumn(-1, Qt::AscendingOrder);
    trackView_->horizontalHeader()->setSortIndicatorShown(true);
    trackView_->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    trackView_->horizontalHeader()->setSectionsMovable(true);
    trackView_->horizontalHeader()->setHighlightSections(false);
    trackView_->verticalHeader()->hide();
    // Fixed row heights: the view then never measures 100,000 rows.
    trackView_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    trackView_->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    trackView_->setSelectionBehavior(QAbstractItemView::SelectRows);
    trackView_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    trackView_->setAlternatingRowColors(true);
    trackView_->setShowGrid(false);
    trackView_->setWordWrap(false);
    trackView_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    const int widths[] = {220, 160, 180, 140, 100, 56, 50, 56, 50, 50, 70, 130, 130, 72};
    for (int column = 0; column < TrackTableModel::ColumnCount; ++column)
        trackView_->setColumnWidth(column, widths[column]);
    albumView_ = new QListView(stack_);
    albumView_->setAccessibleName(tr("Albums"));
    albumView_->setModel(albumModel_);
    albumView_->setViewMode(QListView::IconMode);
    albumView_->setResizeMode(QListView::Adjust);
    albumView_->setMovement(QListView::Static);
    albumView_->setUniformItemSizes(true);
    albumView_->setWordWrap(true);
    albumView_->setIconSize(QSize(AlbumModel::kCoverSide, AlbumModel::kCoverSide));
    albumView_->setGridSize(QSize(AlbumModel::kCoverSide + 28, AlbumModel::kCoverSide + 3 * fontMetrics().height() + 8));
    albumView_->setSpacing(6);
    albumView_->setLayoutMode(QListView::SinglePass);
    stack_->addWidget(trackView_);
    stack_->addWidget(albumView_);
    centreLayout->addWidget(stack_, 1);

    details_ = new DetailPane(covers_, splitter_);
    details_->setMinimumWidth(240);
    splitter_->addWidget(sidebar_);
    splitter_->addWidget(centre);
    splitter_->addWidget(details_);
    splitter_->setStretchFactor(1, 1);
    splitter_->setSizes({260, 730, 290});
    setCentralWidget(splitter_);

    status_ = new QLabel(this);
    status_->setAccessibleName(tr("Status"));
    statusBar()->addWidget(status_, 1);

    buildMenus();

    connect(sidebar_, &QTreeWidget::itemSelectionChanged, this, &MainWindow::selectionChanged);
    connect(filter_, &QLineEdit::textChanged, this, [this](const QString& text) {
        trackModel_->setFilterText(text);
        // The grid is regrouped only while it is shown (showAlbums regroups it when it appears).
        if (stack_->currentWidget() == albumView_)
            albumModel_->setTracks(trackModel_->libraryIndex(), trackModel_->shownRows());
        updateStatus();
    });
    connect(views, &QButtonGroup::buttonClicked, this, [this](QAbstractButton* button) {
        showAlbums(button == albumsButton_);
    });
    connect(trackView_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &MainWindow::trackSelectionChanged);
    connect(albumView_->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& current) { albumActivated(current); });
    connect(albumView_, &QListView::activated, this, [this](const QModelIndex& index) {
        // Opening an album lists its tracks.
        if (const auto* album = albumModel_->albumAt(index.row())) {
            showAlbums(false);
            filter_->setText(album->title);
        }
    });
    connect(cancel_, &QPushButton::clicked, loader_, &LibraryLoader::cancel);
    connect(loader_, &LibraryLoader::started, this, &MainWindow::loadStarted);
    connect(loader_, &LibraryLoader::loaded, this, &MainWindow::libraryLoaded);
    connect(loader_, &LibraryLoader::failed, this, &MainWindow::loadFailed);
    connect(loader_, &LibraryLoader::cancelled, this, &MainWindow::loadCancelled);

    if (watchDevices) {
        watcher_ = new DeviceWatcher(this);
        connect(watcher_, &DeviceWatcher::devicesChanged, this, &MainWindow::devicesChanged);
        devicesChanged();
        if (!DeviceWatcher::eventLoopRunsGLib())
            statusBar()->showMessage(tr("Devices that arrive later will not be seen: this Qt does not run GLib's "
                                        "main loop (QT_NO_GLIB is set?)."));
    }
    restoreState();
    updateStatus();
}

MainWindow::~MainWindow() = default;

void MainWindow::buildMenus()
{
    auto* file = menuBar()->addMenu(tr("&File"));
    auto* open = file->addAction(tr("&Open Folder…"), this, &MainWindow::chooseFolder);
    open->setShortcut(QKeySequence::Open);
    open->setToolTip(tr("Open a mounted iPod or a copied device folder"));
    copyAction_ = file->addAction(tr("&Copy to…"));
    copyAction_->setObjectName(QStringLiteral("copyTo"));
    copyAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+C")));
    // Enabled once the framework offers the copy engine (see CopyTarget.h).
    copyAction_->setEnabled(makeCopyEngine() != nullptr);
    copyAction_->setToolTip(tr("Copying music off the device is not available in this version"));
    file->addSeparator();
    auto* quit = file->addAction(tr("&Quit"), this, &QWidget::close);
    quit->setShortcut(QKeySequence::Quit);

    auto* view = menuBar()->addMenu(tr("&View"));
    auto* tracks = view->addAction(tr("&Tracks"), this, [this] { showAlbums(false); });
    tracks->setShortcut(QKeySequence(tr("Ctrl+1")));
    auto* albums = view->addAction(tr("&Albums"), this, [this] { showAlbums(true); });
    albums->setShortcut(QKeySequence(tr("Ctrl+2")));
    auto* find = view->addAction(tr("&Filter"), this, [this] {
        filter_->setFocus(Qt::ShortcutFocusReason);
        filter_->selectAll();
    });
    find->setShortcut(QKeySequence::Find);
    detailsAction_ = view->addAction(tr("&Details"));
    detailsAction_->setCheckable(true);
    detailsAction_->setChecked(true);
    detailsAction_->setShortcut(QKeySequence(tr("Ctrl+I")));
    connect(detailsAction_, &QAction::toggled, details_, &QWidget::setVisible);
    view->addSeparator();
    auto* appearance = view->addMenu(tr("A&ppearance"));
    auto* group = new QActionGroup(this);
    const QSettings settings;
    const Appearance current = appearanceFromKey(settings.value(QStringLiteral("appearance")).toString());
    for (auto [choice, label] : {std::pair{Appearance::System, tr("&System")}, std::pair{Appearance::Light, tr("&Light")},
                                 std::pair{Appearance::Dark, tr("&Dark")}}) {
        auto* action = appearance->addAction(label, this, [this, choice = choice] { setAppearance(choice); });
        action->setCheckable(true);
        action->setChecked(choice == current);
        group->addAction(action);
    }

    auto* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&About ZQPod"), this, &MainWindow::about);
    help->addAction(tr("About &Qt"), qApp, &QApplication::aboutQt);
}

void MainWindow::setAppearance(Appearance appearance)
{
    QSettings().setValue(QStringLiteral("appearance"), appearanceKey(appearance));
    if (auto* application = qobject_cast<QApplication*>(QCoreApplication::instance()))
        applyAppearance(*application, appearance);
}

void MainWindow::restoreState()
{
    const QSettings settings;
    restoreGeometry(settings.value(QStringLiteral("window/geometry")).toByteArray());
    splitter_->restoreState(settings.value(QStringLiteral("window/splitter")).toByteArray());
    trackView_->horizontalHeader()->restoreState(settings.value(QStringLiteral("window/columns")).toByteArray());
    detailsAction_->setChecked(settings.value(QStringLiteral("window/details"), true).toBool());
    showAlbums(settings.value(QStringLiteral("window/albums"), false).toBool());
}

void MainWindow::saveState()
{
    QSettings settings;
    settings.setValue(QStringLiteral("window/geometry"), saveGeometry());
    settings.setValue(QStringLiteral("window/splitter"), splitter_->saveState());
    settings.setValue(QStringLiteral("window/columns"), trackView_->horizontalHeader()->saveState());
    settings.setValue(QStringLiteral("window/details"), detailsAction_->isChecked());
    settings.setValue(QStringLiteral("window/albums"), stack_->currentWidget() == albumView_);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    saveState();
    loader_->cancel();
    event->accept();
}

void MainWindow::showAlbums(bool albums)
{
    stack_->setCurrentWidget(albums ? static_cast<QWidget*>(albumView_) : trackView_);
    (albums ? albumsButton_ : tracksButton_)->setChecked(true);
    if (albums) {
        albumModel_->setDevicePixelRatio(albumView_->devicePixelRatioF());
        albumModel_->setTracks(trackModel_->libraryIndex(), trackModel_->shownRows());
    }
}

QTreeWidgetItem* MainWindow::section(int which)
{
    return which == 0 ? devicesSection_ : foldersSection_;
}

int MainWindow::sourceForReference(const std::shared_ptr<zq::ZQCoreiPodRef>& reference) const
{
    for (const auto& [id, source] : sources_)
        if (source.device.reference == reference)
            return id;
    // A device that comes back gets a new reference; its serial number says it is the same one.
    const auto serial = reference->serialNumber();
    if (!serial || serial->empty())
        return 0;
    for (const auto& [id, source] : sources_)
        if (source.folder.isEmpty() && source.device.reference && source.device.reference->serialNumber() == serial)
            return id;
    return 0;
}

void MainWindow::updateDeviceItem(Source& source)
{
    QTreeWidgetItem* item = source.item;
    const DeviceEntry& device = source.device;
    QString second = device.modelName;
    if (!device.capacity.isEmpty())
        second += (second.isEmpty() ? QString() : QStringLiteral(" · ")) + device.capacity;
    if (source.gone)
        second = tr("Disconnected");
    else if (!device.problem.isEmpty())
        second = tr("Not readable");
    QString name = device.name.isEmpty() ? QFileInfo(source.folder).fileName() : device.name;
    item->setText(0, second.isEmpty() ? name : name + QLatin1Char('\n') + second);
    item->setToolTip(0, device.problem.isEmpty() ? (source.folder.isEmpty() ? second : source.folder) : device.problem);
    item->setIcon(0, device.icon.isNull() ? applicationIcon() : device.icon);
    item->setData(0, Qt::AccessibleTextRole, item->text(0).replace(QLatin1Char('\n'), QStringLiteral(", ")));
    item->setDisabled(source.gone);
}

void MainWindow::devicesChanged()
{
    if (!watcher_)
        return;
    // Devices still connected keep their items (and their loaded playlists).
    std::vector<int> seen;
    for (const DeviceEntry& device : watcher_->devices()) {
        int id = device.reference ? sourceForReference(device.reference) : 0;
        if (!id) {
            id = nextSource_++;
            Source source;
            source.device = device;
            source.item = new QTreeWidgetItem(devicesSection_);
            source.item->setData(0, KindRole, DeviceItem);
            source.item->setData(0, SourceRole, id);
            sources_[id] = source;
        }
        Source& source = sources_[id];
        if (source.gone && id == shownSource_)
            notice_->hide();
        source.device = device;
        source.gone = false;
        updateDeviceItem(source);
        seen.push_back(id);
    }
    for (auto it = sources_.begin(); it != sources_.end();) {
        Source& source = it->second;
        const bool isDevice = source.folder.isEmpty();
        if (!isDevice || std::find(seen.begin(), seen.end(), it->first) != seen.end()) {
            ++it;
            continue;
        }
        if (it->first == shownSource_) {
            // What is shown stays readable; the device is marked gone, not pulled away.
            source.gone = true;
            updateDeviceItem(source);
            notice_->setText(tr("%1 was disconnected. The list shows what was read before it left.")
                                 .arg(source.device.name));
            notice_->show();
            ++it;
            continue;
        }
        if (it->first == loadingSource_)
            loader_->cancel();
        delete source.item;
        it = sources_.erase(it);
    }
    devicesSection_->setExpanded(true);
    updateStatus();
}

void MainWindow::chooseFolder()
{
    const QString path = QFileDialog::getExistingDirectory(this, tr("Open Device Folder"));
    if (!path.isEmpty())
        openFolder(path);
}

void MainWindow::openFolder(const QString& path)
{
    int id = 0;
    for (const auto& [key, source] : sources_)
        if (source.folder == path)
            id = key;
    if (!id) {
        id = nextSource_++;
        Source source;
        source.folder = path;
        source.device.name = QFileInfo(path).fileName();
        source.item = new QTreeWidgetItem(foldersSection_);
        source.item->setData(0, KindRole, DeviceItem);
        source.item->setData(0, SourceRole, id);
        sources_[id] = source;
        updateDeviceItem(sources_[id]);
        foldersSection_->setHidden(false);
        foldersSection_->setExpanded(true);
    }
    loadingSource_ = id;
    loader_->loadPath(path);
}

void MainWindow::openDevice(const std::shared_ptr<zq::ZQCoreiPodRef>& reference)
{
    const int id = sourceForReference(reference);
    if (!id)
        return;
    loadingSource_ = id;
    loader_->load(reference, sources_[id].device.name);
}

void MainWindow::selectionChanged()
{
    const auto items = sidebar_->selectedItems();
    if (items.isEmpty())
        return;
    QTreeWidgetItem* item = items.first();
    const int kind = item->data(0, KindRole).toInt();
    const int id = item->data(0, SourceRole).toInt();
    auto found = sources_.find(id);
    if (found == sources_.end())
        return;
    Source& source = found->second;
    if (kind == DeviceItem) {
        if (!source.device.problem.isEmpty()) {
            notice_->setText(source.device.problem);
            notice_->show();
            return;
        }
        if (source.index) {
            if (item->childCount() > 0)
                sidebar_->setCurrentItem(item->child(0));
            return;
        }
        if (loader_->isLoading() && loadingSource_ == id)
            return;
        if (!source.folder.isEmpty())
            openFolder(source.folder);
        else if (source.device.reference)
            openDevice(source.device.reference);
        return;
    }
    if (kind == LibraryItem)
        showList(id, nullptr);
    else if (kind == PlaylistItem) {
        const int at = item->data(0, PlaylistRole).toInt();
        if (at >= 0 && at < static_cast<int>(playlists_.size()))
            showList(id, playlists_[static_cast<std::size_t>(at)]);
    }
}

void MainWindow::showList(int id, const std::shared_ptr<zq::Playlist>& playlist)
{
    Source& source = sources_[id];
    if (!source.index)
        return;
    if (shownSource_ != id) {
        covers_->clear();
        details_->clear();
        if (!source.gone)
            notice_->hide();
    }
    shownSource_ = id;
    const LibraryIndex& index = *source.index;
    std::vector<std::uint32_t> rows;
    QString description;
    if (playlist) {
        rows = index.indicesOf(playlist->tracks());
        if (auto smart = std::dynamic_pointer_cast<zq::SmartPlaylist>(playlist))
            description = QString::fromStdString(smart->description());
        else
            description = toQString(playlist->name());
    } else {
        rows.resize(index.size());
        for (std::uint32_t i = 0; i < rows.size(); ++i)
            rows[i] = i;
        description = tr("All music on %1").arg(source.device.name);
    }
    trackModel_->setTracks(source.index, std::move(rows));
    albumModel_->setDevicePixelRatio(albumView_->devicePixelRatioF());
    albumModel_->setTracks(source.index, stack_->currentWidget() == albumView_ ? trackModel_->shownRows()
                                                                                : std::vector<std::uint32_t>{});
    listLabel_->setText(description);
    listLabel_->setToolTip(description);
    updateStatus();
}

void MainWindow::addPlaylistItems(QTreeWidgetItem* parent, int source, const std::shared_ptr<zq::Playlist>& playlist)
{
    auto* item = new QTreeWidgetItem(parent);
    const QString name = toQString(playlist->name());
    item->setText(0, name.isEmpty() ? tr("Untitled Playlist") : name);
    item->setData(0, KindRole, PlaylistItem);
    item->setData(0, SourceRole, source);
    item->setData(0, PlaylistRole, static_cast<int>(playlists_.size()));
    item->setIcon(0, iconFromImage(playlist->icon()));
    playlists_.push_back(playlist);
    if (auto smart = std::dynamic_pointer_cast<zq::SmartPlaylist>(playlist))
        item->setToolTip(0, QString::fromStdString(smart->description()));
    else
        item->setToolTip(0, tr("%n track(s)", nullptr, static_cast<int>(playlist->trackCount())));
    if (auto folder = std::dynamic_pointer_cast<zq::PlaylistFolder>(playlist))
        for (const auto& child : folder->playlists())
            addPlaylistItems(item, source, child);
    if (auto podcasts = std::dynamic_pointer_cast<zq::Podcasts>(playlist))
        for (const auto& show : podcasts->podcasts())
            addPlaylistItems(item, source, show);
}

void MainWindow::loadStarted(const QString& name)
{
    loadLabel_->setText(tr("Reading the library of %1…").arg(name));
    loadPanel_->show();
    cancel_->setFocus(Qt::OtherFocusReason);
}

void MainWindow::libraryLoaded(std::shared_ptr<const LibraryIndex> index, std::shared_ptr<zq::ZQCoreiPodRef> reference)
{
    loadPanel_->hide();
    auto found = sources_.find(loadingSource_);
    loadingSource_ = 0;
    if (found == sources_.end())
        return;
    Source& source = found->second;
    source.index = std::move(index);
    const auto& library = source.index->library();
    if (source.device.name.isEmpty() || !source.folder.isEmpty()) {
        const QString name = toQString(library->name());
        if (!name.isEmpty())
            source.device.name = name;
        if (!reference)
            reference = library->iPodReference();
        if (reference) {
            const DeviceEntry described = DeviceWatcher::entryFor(reference);
            source.device.modelName = described.modelName;
            source.device.capacity = described.capacity;
            source.device.icon = described.icon;
        }
        updateDeviceItem(source);
    }
    qDeleteAll(source.item->takeChildren());
    auto* all = new QTreeWidgetItem(source.item, {tr("Music")});
    all->setData(0, KindRole, LibraryItem);
    all->setData(0, SourceRole, found->first);
    all->setIcon(0, iconFromImage(library->masterPlaylist() ? library->masterPlaylist()->icon() : nullptr));
    all->setToolTip(0, tr("%n track(s)", nullptr, static_cast<int>(source.index->size())));
    for (const auto& playlist : library->allPlaylists())
        if (!playlist->isMaster())
            addPlaylistItems(source.item, found->first, playlist);
    source.item->setExpanded(true);
    if (!library->loadWarnings().empty()) {
        QStringList lines;
        for (const auto& line : library->loadWarnings())
            lines << QString::fromStdString(line);
        notice_->setText(tr("Parts of this library could not be read:\n%1").arg(lines.join(QLatin1Char('\n'))));
        notice_->show();
    }
    sidebar_->setCurrentItem(all);
}

void MainWindow::loadFailed(const QString& name, const QString& reason)
{
    loadPanel_->hide();
    loadingSource_ = 0;
    notice_->setText(tr("The library of %1 could not be read: %2").arg(name, reason));
    notice_->show();
}

void MainWindow::loadCancelled()
{
    loadPanel_->hide();
    loadingSource_ = 0;
    statusBar()->showMessage(tr("Loading cancelled"), 5000);
}

QTreeWidgetItem* MainWindow::libraryItem() const
{
    auto found = sources_.find(shownSource_);
    return found == sources_.end() ? nullptr : found->second.item;
}

void MainWindow::trackSelectionChanged()
{
    const QModelIndex current = trackView_->selectionModel()->currentIndex();
    const auto rows = trackView_->selectionModel()->selectedRows();
    details_->showTrack(rows.isEmpty() ? nullptr : trackModel_->trackAt(current.isValid() ? current.row() : rows.first().row()));
}

void MainWindow::albumActivated(const QModelIndex& index)
{
    if (const auto* album = albumModel_->albumAt(index.row()))
        details_->showAlbum(album->title, album->artist, album->art, static_cast<int>(album->tracks.size()));
}

void MainWindow::updateStatus()
{
    const auto& index = trackModel_->libraryIndex();
    if (!index) {
        const bool none = devicesSection_->childCount() == 0;
        status_->setText(none ? tr("Connect an iPod or iPhone, or open a device folder (File → Open Folder…).")
                              : tr("Select a device to see its music."));
        return;
    }
    std::uint64_t milliseconds = 0, bytes = 0;
    for (std::uint32_t at : trackModel_->shownRows()) {
        milliseconds += index->track(at).trackLength();
        bytes += index->track(at).fileSize();
    }
    const int shown = trackModel_->rowCount();
    const int total = static_cast<int>(trackModel_->listRows().size());
    QString text = shown == total ? tr("%n track(s)", nullptr, shown)
                                  : tr("%1 of %n track(s)", nullptr, total).arg(shown);
    text += QStringLiteral(", %1, %2").arg(formatDuration(milliseconds), formatSize(bytes));
    status_->setText(text);
}

void MainWindow::about()
{
    QMessageBox box(this);
    box.setWindowTitle(tr("About ZQPod"));
    box.setIconPixmap(applicationIcon().pixmap(96, 96));
    box.setText(tr("<h3>ZQPod %1</h3><p>Your music from an iPod or iPhone, back on your computer. Nothing is ever "
                   "written to the device.</p>")
                    .arg(QStringLiteral(ZQPOD_GUI_VERSION)));
    box.setInformativeText(tr("ZQCore %1<br>Qt %2 (built with %3)")
                               .arg(QStringLiteral(ZQCORE_PACKAGE_VERSION), QString::fromLatin1(qVersion()),
                                    QStringLiteral(QT_VERSION_STR)));
    box.exec();
}

} // namespace gui
