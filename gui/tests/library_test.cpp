// The window on sample devices (offscreen): what it lists is compared with `zqpod library
// --json` of the same device: counts, playlists, filtering, sorting, the detail pane, the album
// grid and its covers, and what a person sees in a rendered picture.

#include "TestSupport.h"

#include "MainWindow.h"
#include "Screenshot.h"
#include "TrackTableModel.h"

#include <QAbstractButton>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTableView>
#include <QTest>
#include <QTreeWidget>

using namespace guitest;

namespace {

/// The listing's text of one track for a text column ("" for null).
QString textOf(const QJsonObject& track, int column)
{
    static const char* keys[] = {"title", "artist", "album", "albumArtist", "genre"};
    if (column <= gui::TrackTableModel::Genre)
        return track.value(QLatin1String(keys[column])).toString();
    if (column == gui::TrackTableModel::Kind)
        return track.value(QStringLiteral("fileType")).toString();
    return {};
}

/// The listing's number a numeric column sorts by.
double numberOf(const QJsonObject& track, int column)
{
    auto n = [&](const char* key) { return track.value(QLatin1String(key)).toDouble(); };
    switch (column) {
    case gui::TrackTableModel::Time: return n("trackLength");
    case gui::TrackTableModel::Year: return n("year");
    case gui::TrackTableModel::TrackNumber: return n("discNumber") * 1e6 + n("trackNumber");
    case gui::TrackTableModel::DiscNumber: return n("discNumber") * 1e6 + n("trackNumber");
    case gui::TrackTableModel::Plays: return n("playCount");
    case gui::TrackTableModel::Rating: return n("rating");
    case gui::TrackTableModel::Size: return n("fileSize");
    case gui::TrackTableModel::DateAdded: {
        const QString when = track.value(QStringLiteral("dateAdded")).toString();
        return when.isEmpty() ? -1e300 : QDateTime::fromString(when, Qt::ISODate).toSecsSinceEpoch();
    }
    default: return 0;
    }
}

QList<qint64> shownIDs(const gui::MainWindow& window)
{
    QList<qint64> ids;
    for (int row = 0; row < window.trackModel()->rowCount(); ++row)
        ids << window.trackModel()->trackAt(row)->trackID();
    return ids;
}

QList<qint64> idsOf(const QJsonObject& playlist)
{
    QList<qint64> ids;
    for (const auto& id : playlist.value(QStringLiteral("trackIDs")).toArray())
        ids << id.toInteger();
    return ids;
}

} // namespace

class LibraryTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { window_.reset(); }
    void layouts_data();
    void layouts();
    void playlists();
    void filter_data();
    void filter();
    void filterAsTyped();
    void sort_data();
    void sort();
    void detailPane();
    void albumGrid();
    void renderedWindow();
    void cancelLeavesNothing();
    void damagedLibrary();
    void coversThatCannotBeRead();
    void windowStateRemembered();
    void accessibleNames();

private:
    std::unique_ptr<SampleDevice> sample_;
    QJsonObject listing_;
    QHash<qint64, QJsonObject> tracks_;
    std::unique_ptr<gui::MainWindow> window_;
};

void LibraryTest::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QSettings().clear();
    sample_ = std::make_unique<SampleDevice>();
    QVERIFY2(sample_->valid(), qPrintable(sample_->error()));
    listing_ = libraryListing(sample_->path());
    QVERIFY2(!listing_.isEmpty(), "zqpod library --json gave nothing");
    tracks_ = tracksByID(listing_);
    window_ = std::make_unique<gui::MainWindow>(false);
    window_->resize(1280, 780);
    window_->show();
    QVERIFY(QTest::qWaitForWindowExposed(window_.get()));
    const QString failure = gui::showDeviceAndWait(*window_, sample_->path());
    QVERIFY2(failure.isEmpty(), qPrintable(failure));
}

void LibraryTest::layouts_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("volume") << QStringList{};
    QTest::newRow("nano") << QStringList{QStringLiteral("--nano")};
    QTest::newRow("phone") << QStringList{QStringLiteral("--phone")};
    QTest::newRow("phone-modern") << QStringList{QStringLiteral("--phone=modern")};
    QTest::newRow("phone-ios6") << QStringList{QStringLiteral("--phone=ios6")};
    QTest::newRow("phone-ios8") << QStringList{QStringLiteral("--phone=ios8")};
}

// Every layout the framework reads shows all its tracks and a sidebar entry per playlist.
void LibraryTest::layouts()
{
    QFETCH(QStringList, options);
    SampleDevice device(options);
    QVERIFY2(device.valid(), qPrintable(device.error()));
    const QJsonObject listing = libraryListing(device.path());
    QVERIFY(!listing.isEmpty());
    gui::MainWindow window(false);
    const QString failure = gui::showDeviceAndWait(window, device.path());
    QVERIFY2(failure.isEmpty(), qPrintable(failure));
    QCOMPARE(window.trackModel()->rowCount(), listing.value(QStringLiteral("tracks")).toArray().size());
    QTreeWidgetItem* library = window.libraryItem();
    QVERIFY(library);
    QCOMPARE(library->text(0).section(QLatin1Char('\n'), 0, 0), listing.value(QStringLiteral("name")).toString());
    for (const auto& value : listing.value(QStringLiteral("playlists")).toArray()) {
        const QJsonObject playlist = value.toObject();
        if (playlist.value(QStringLiteral("isMaster")).toBool())
            continue;
        QVERIFY2(findItem(library, playlist.value(QStringLiteral("name")).toString()),
                 qPrintable(playlist.value(QStringLiteral("name")).toString()));
    }
}

// Selecting each playlist (folders' children and podcast shows included) lists exactly its
// tracks, in its order; the smart playlist's rules are shown as a sentence.
void LibraryTest::playlists()
{
    QTreeWidgetItem* library = window_->libraryItem();
    int checked = 0;
    std::function<void(const QJsonObject&)> check = [&](const QJsonObject& playlist) {
        const QString name = playlist.value(QStringLiteral("name")).toString();
        if (!playlist.value(QStringLiteral("isMaster")).toBool()) {
            QTreeWidgetItem* item = findItem(library, name);
            QVERIFY2(item, qPrintable(name));
            window_->sidebar()->setCurrentItem(item);
            QCOMPARE(shownIDs(*window_), idsOf(playlist));
            ++checked;
            for (const auto& rule : playlist.value(QStringLiteral("rules")).toArray()) {
                const QString sentence = rule.toObject().value(QStringLiteral("description")).toString();
                QVERIFY2(window_->listLabel()->text().contains(sentence), qPrintable(window_->listLabel()->text()));
            }
            for (const auto& group : playlist.value(QStringLiteral("groups")).toArray()) {
                const QJsonObject show = group.toObject();
                QTreeWidgetItem* showItem = findItem(item, show.value(QStringLiteral("name")).toString());
                QVERIFY2(showItem, qPrintable(show.value(QStringLiteral("name")).toString()));
                window_->sidebar()->setCurrentItem(showItem);
                QCOMPARE(shownIDs(*window_), idsOf(show));
                ++checked;
            }
        }
        for (const auto& child : playlist.value(QStringLiteral("children")).toArray())
            check(child.toObject());
    };
    for (const auto& value : listing_.value(QStringLiteral("playlists")).toArray())
        check(value.toObject());
    QVERIFY(checked >= 4);
    // "Music" is every track, in the library's order.
    window_->sidebar()->setCurrentItem(findItem(library, QStringLiteral("Music")));
    QList<qint64> all;
    for (const auto& value : listing_.value(QStringLiteral("tracks")).toArray())
        all << value.toObject().value(QStringLiteral("trackID")).toInteger();
    QCOMPARE(shownIDs(*window_), all);
}

void LibraryTest::filter_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("one word") << QStringLiteral("hollow");
    QTest::newRow("upper case") << QStringLiteral("PINES");
    QTest::newRow("two words, two fields") << QStringLiteral("hollow indie");
    QTest::newRow("accented, folded") << QStringLiteral("SŁOŃCE");
    QTest::newRow("kanji") << QStringLiteral("東京");
    QTest::newRow("genre") << QStringLiteral("jazz");
    QTest::newRow("kind") << QStringLiteral("wav");
    QTest::newRow("album artist only") << QStringLiteral("various");
    QTest::newRow("nothing") << QStringLiteral("zzzz-nothing");
    QTest::newRow("across fields is no match") << QStringLiteral("pinesnorthern");
    QTest::newRow("spaces only") << QStringLiteral("   ");
}

// The rows shown are exactly the tracks whose text columns contain every word.
void LibraryTest::filter()
{
    QFETCH(QString, text);
    window_->sidebar()->setCurrentItem(findItem(window_->libraryItem(), QStringLiteral("Music")));
    window_->filterField()->setText(text);
    QList<qint64> expected;
    const QStringList words = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const auto& value : listing_.value(QStringLiteral("tracks")).toArray()) {
        const QJsonObject track = value.toObject();
        bool all = true;
        for (const QString& word : words) {
            bool found = false;
            for (int column : {0, 1, 2, 3, 4, int(gui::TrackTableModel::Kind)})
                found = found || textOf(track, column).contains(word, Qt::CaseInsensitive);
            all = all && found;
        }
        if (all)
            expected << track.value(QStringLiteral("trackID")).toInteger();
    }
    QCOMPARE(shownIDs(*window_), expected);
    window_->filterField()->clear();
    QCOMPARE(window_->trackModel()->rowCount(), tracks_.size());
}

// Typed key by key (each keystroke narrows what the last one showed), then erased again.
void LibraryTest::filterAsTyped()
{
    window_->sidebar()->setCurrentItem(findItem(window_->libraryItem(), QStringLiteral("Music")));
    window_->filterField()->setFocus();
    QTest::keyClicks(window_->filterField(), QStringLiteral("the morning"));
    QList<qint64> expected;
    for (const auto& track : listing_.value(QStringLiteral("tracks")).toArray())
        if (track.toObject().value(QStringLiteral("album")).toString() == QStringLiteral("The Morning Byte"))
            expected << track.toObject().value(QStringLiteral("trackID")).toInteger();
    QCOMPARE(shownIDs(*window_), expected);
    QTest::keyClick(window_->filterField(), Qt::Key_Backspace);  // "the mornin"
    QCOMPARE(shownIDs(*window_), expected);
    for (int i = 0; i < 7; ++i)
        QTest::keyClick(window_->filterField(), Qt::Key_Backspace);  // "the"
    QVERIFY(window_->trackModel()->rowCount() > expected.size());
    window_->filterField()->clear();
}

void LibraryTest::sort_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<bool>("descending");
    for (int column = 0; column < gui::TrackTableModel::ColumnCount; ++column)
        for (bool descending : {false, true}) {
            const QString label = window_->trackModel()->headerData(column, Qt::Horizontal).toString() +
                                  (descending ? QStringLiteral(" descending") : QStringLiteral(" ascending"));
            QTest::newRow(qPrintable(label)) << column << descending;
        }
}

// Clicking a column's header sorts by it (again: the other way); every row stays, in order of
// the listing's value for that column.
void LibraryTest::sort()
{
    QFETCH(int, column);
    QFETCH(bool, descending);
    window_->sidebar()->setCurrentItem(findItem(window_->libraryItem(), QStringLiteral("Music")));
    QHeaderView* header = window_->trackView()->horizontalHeader();
    const Qt::SortOrder order = descending ? Qt::DescendingOrder : Qt::AscendingOrder;
    header->setSortIndicator(-1, Qt::AscendingOrder);
    window_->trackView()->scrollTo(window_->trackModel()->index(0, column));
    for (int click = 0; click < (descending ? 2 : 1); ++click)
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(column) + header->sectionSize(column) / 2, 4));
    QCOMPARE(header->sortIndicatorSection(), column);
    QCOMPARE(header->sortIndicatorOrder(), order);
    const QList<qint64> ids = shownIDs(*window_);
    QCOMPARE(QSet<qint64>(ids.begin(), ids.end()).size(), tracks_.size());
    for (int row = 1; row < ids.size(); ++row) {
        const QJsonObject& a = tracks_[ids[row - 1]];
        const QJsonObject& b = tracks_[ids[row]];
        const bool text = column <= gui::TrackTableModel::Genre || column == gui::TrackTableModel::Kind;
        const double comparison = text ? QString::compare(textOf(a, column), textOf(b, column), Qt::CaseInsensitive)
                                       : numberOf(a, column) - numberOf(b, column);
        QVERIFY2(descending ? comparison >= 0 : comparison <= 0,
                 qPrintable(QStringLiteral("rows %1 and %2 out of order").arg(row - 1).arg(row)));
    }
    window_->trackView()->sortByColumn(-1, Qt::AscendingOrder);
}

// Every field of the selected track is in the pane, and its cover arrives.
void LibraryTest::detailPane()
{
    window_->sidebar()->setCurrentItem(findItem(window_->libraryItem(), QStringLiteral("Music")));
    const int rows = window_->trackModel()->rowCount();
    int withCover = 0;
    for (int row = 0; row < rows; ++row) {
        window_->trackView()->selectRow(row);
        const auto track = window_->trackModel()->trackAt(row);
        const QJsonObject& listed = tracks_[track->trackID()];
        QHash<QString, QString> fields;
        QTableWidget* table = window_->detailPane()->fields();
        for (int i = 0; i < table->rowCount(); ++i)
            fields.insert(table->item(i, 0)->text(), table->item(i, 1)->text());
        for (auto [name, key] : {std::pair{"Title", "title"}, {"Artist", "artist"}, {"Album", "album"},
                                 {"Composer", "composer"}, {"Genre", "genre"}, {"Kind", "fileType"},
                                 {"File", "filePath"}})
            QCOMPARE(fields.value(QLatin1String(name)), listed.value(QLatin1String(key)).toString());
        QCOMPARE(fields.value(QStringLiteral("Track ID")), QString::number(track->trackID()));
        if (listed.value(QStringLiteral("year")).toInt())
            QCOMPARE(fields.value(QStringLiteral("Year")), QString::number(listed.value(QStringLiteral("year")).toInt()));
        if (!listed.value(QStringLiteral("artworkID")).isNull()) {
            QTRY_VERIFY2(!window_->detailPane()->cover()->pixmap().isNull(), qPrintable(fields.value("Title")));
            ++withCover;
        } else {
            QVERIFY(window_->detailPane()->cover()->pixmap().isNull());
        }
    }
    QVERIFY(withCover > 0);
}

// One cell per album; covers are decoded in the background and then drawn.
void LibraryTest::albumGrid()
{
    window_->sidebar()->setCurrentItem(findItem(window_->libraryItem(), QStringLiteral("Music")));
    window_->showAlbums(true);
    QSet<QString> albums;
    QSet<QString> withArt;
    for (const auto& value : listing_.value(QStringLiteral("tracks")).toArray()) {
        const QJsonObject track = value.toObject();
        QString artist = track.value(QStringLiteral("albumArtist")).toString();
        if (artist.isEmpty())
            artist = track.value(QStringLiteral("artist")).toString();
        const QString key = artist.toCaseFolded() + QLatin1Char('\x1f') + track.value("album").toString().toCaseFolded();
        albums.insert(key);
        if (!track.value(QStringLiteral("artworkID")).isNull())
            withArt.insert(key);
    }
    QCOMPARE(window_->albumModel()->rowCount(), albums.size());
    // Asking draws the stand-in at once; the decoded covers follow.
    QSignalSpy ready(window_->covers(), &gui::CoverCache::coverReady);
    window_->albumView()->viewport()->repaint();
    QTRY_COMPARE_WITH_TIMEOUT(ready.size(), withArt.size(), 20000);
    QApplication::processEvents();
    const QImage grid = window_->albumView()->grab().toImage();
    grid.save(outputPath(QStringLiteral("albums.png")));
    // A decoded cover is a picture, not the flat stand-in.
    int covered = 0;
    for (int row = 0; row < window_->albumModel()->rowCount(); ++row) {
        const QRect cell = window_->albumView()->visualRect(window_->albumModel()->index(row));
        const QRect cover(cell.left() + cell.width() / 2 - 40, cell.top() + 20, 80, 80);
        if (colourCount(grid, cover) > 20)
            ++covered;
    }
    QCOMPARE(covered, withArt.size());
    window_->showAlbums(false);
}

// What a person sees: the picture has text in its table rows, the sidebar and the detail pane,
// and the cover; `--screenshot` gives the same picture as a file.
void LibraryTest::renderedWindow()
{
    window_->sidebar()->setCurrentItem(findItem(window_->libraryItem(), QStringLiteral("Music")));
    window_->trackView()->scrollTo(window_->trackModel()->index(0, 0));
    window_->trackView()->selectRow(0);
    QTRY_VERIFY(!window_->detailPane()->cover()->pixmap().isNull());
    const QImage shot = window_->grab().toImage();
    shot.save(outputPath(QStringLiteral("window.png")));
    QTableView* table = window_->trackView();
    const QPoint origin = table->viewport()->mapTo(window_.get(), QPoint(0, 0));
    const qreal ratio = shot.devicePixelRatio();
    for (int row = 1; row < window_->trackModel()->rowCount(); ++row) {
        const QRect cell = table->visualRect(window_->trackModel()->index(row, 0)).translated(origin);
        const QRect scaled(cell.topLeft() * ratio, cell.size() * ratio);
        QVERIFY2(colourCount(shot, scaled) > 3, qPrintable(QStringLiteral("row %1 is blank").arg(row)));
    }
    const QRect below = table->visualRect(window_->trackModel()->index(window_->trackModel()->rowCount() - 1, 0))
                            .translated(origin)
                            .translated(0, 40);
    QCOMPARE(colourCount(shot, below), 1);  // nothing drawn past the last track

    QProcess program;
    const QString file = outputPath(QStringLiteral("screenshot.png"));
    QFile::remove(file);
    program.start(QStringLiteral(ZQ_GUI_PATH), {QStringLiteral("--screenshot"), file, sample_->path()});
    QVERIFY(program.waitForFinished(60000));
    QCOMPARE(program.exitCode(), 0);
    const QImage written(file);
    QCOMPARE(written.size(), QSize(1280, 780));
    QVERIFY(colourCount(written, QRect(300, 60, 400, 200)) > 20);
    program.start(QStringLiteral(ZQ_GUI_PATH), {QStringLiteral("--screenshot"), file, QStringLiteral("/no/such/device")});
    QVERIFY(program.waitForFinished(60000));
    QCOMPARE(program.exitCode(), 1);
}

// Cancel frees the window at once; the load still running is dropped when it ends.
void LibraryTest::cancelLeavesNothing()
{
    gui::MainWindow window(false);
    QSignalSpy loaded(window.loader(), &gui::LibraryLoader::loaded);
    window.openFolder(sample_->path());
    QVERIFY(window.loader()->isLoading());
    QTest::mouseClick(window.cancelButton(), Qt::LeftButton);
    QVERIFY(!window.loader()->isLoading());
    QVERIFY(!loaded.wait(1500));
    QCOMPARE(window.trackModel()->rowCount(), 0);
    // Opening it again works.
    QVERIFY(gui::showDeviceAndWait(window, sample_->path()).isEmpty());
    QCOMPARE(window.trackModel()->rowCount(), tracks_.size());
}

// A damaged database is said, with the file it is in; the window stays usable.
void LibraryTest::damagedLibrary()
{
    SampleDevice device;
    QVERIFY(device.valid());
    // Without its serial number the device is not taken for the sample already loaded (the
    // framework hands back the library it holds for a serial number it has seen).
    QVERIFY(QFile::remove(device.path() + QStringLiteral("/iPod_Control/Device/SysInfo")));
    QFile database(device.path() + QStringLiteral("/iPod_Control/iTunes/iTunesDB"));
    QVERIFY(database.open(QIODevice::ReadWrite));
    const QByteArray head = database.read(200);
    database.resize(0);
    database.write(head);
    database.close();
    gui::MainWindow window(false);
    const QString failure = gui::showDeviceAndWait(window, device.path());
    QVERIFY(!failure.isEmpty());
    QVERIFY2(window.noticeLabel()->text().contains(QStringLiteral("iTunesDB")), qPrintable(window.noticeLabel()->text()));
}

// Thumbnail files gone from the device: the covers turn into "No cover", never a stand-in that
// waits forever, and the grid keeps its flat stand-ins.
void LibraryTest::coversThatCannotBeRead()
{
    SampleDevice device;
    QVERIFY(device.valid());
    QVERIFY(QFile::remove(device.path() + QStringLiteral("/iPod_Control/Device/SysInfo")));
    QDir artwork(device.path() + QStringLiteral("/iPod_Control/Artwork"));
    const QStringList thumbnails = artwork.entryList({QStringLiteral("*.ithmb")});
    QVERIFY(!thumbnails.isEmpty());
    for (const QString& file : thumbnails)
        QVERIFY(artwork.remove(file));
    gui::MainWindow window(false);
    window.resize(1000, 700);
    window.show();
    QVERIFY(gui::showDeviceAndWait(window, device.path()).isEmpty());
    window.trackView()->selectRow(0);
    QTRY_COMPARE(window.detailPane()->cover()->text(), QStringLiteral("No cover"));
    QVERIFY(window.detailPane()->cover()->pixmap().isNull());
    window.showAlbums(true);
    QApplication::processEvents();
    window.covers()->waitForIdle();
    QApplication::processEvents();
    const QImage grid = window.albumView()->grab().toImage();
    const QRect cell = window.albumView()->visualRect(window.albumModel()->index(0));
    QCOMPARE(colourCount(grid, QRect(cell.left() + cell.width() / 2 - 40, cell.top() + 20, 80, 80)), 1);
}

void LibraryTest::windowStateRemembered()
{
    {
        gui::MainWindow window(false);
        window.resize(1111, 666);
        window.show();
        window.showAlbums(true);
        window.close();
    }
    gui::MainWindow again(false);
    QCOMPARE(again.size(), QSize(1111, 666));
    QVERIFY(again.albumView()->isVisibleTo(&again));
    QVERIFY(!again.trackView()->isVisibleTo(&again));
    again.showAlbums(false);
    again.close();
}

// Every control a person can reach has a name a screen reader says.
void LibraryTest::accessibleNames()
{
    QStringList unnamed;
    for (QWidget* widget : window_->findChildren<QWidget*>()) {
        const bool control = qobject_cast<QAbstractButton*>(widget) || qobject_cast<QLineEdit*>(widget) ||
                             qobject_cast<QAbstractItemView*>(widget) || qobject_cast<QProgressBar*>(widget);
        // Qt's own helpers (the table's corner, the menu bar's overflow) are not ours to name.
        if (!control || widget->inherits("QHeaderView") || widget->inherits("QTableCornerButton") ||
            widget->objectName().startsWith(QLatin1String("qt_")) || widget->parentWidget()->inherits("QLineEdit"))
            continue;
        auto* button = qobject_cast<QAbstractButton*>(widget);
        if (widget->accessibleName().isEmpty() && !(button && !button->text().isEmpty()))
            unnamed << QString::fromLatin1(widget->metaObject()->className()) + QLatin1Char(' ') + widget->objectName();
    }
    QVERIFY2(unnamed.isEmpty(), qPrintable(unnamed.join(QStringLiteral(", "))));
}

QTEST_MAIN(LibraryTest)
#include "library_test.moc"
