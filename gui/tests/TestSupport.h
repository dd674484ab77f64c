#pragma once
// What the application's tests share: sample devices written by zq-make-sample, the listing
// `zqpod library --json` gives of them (the independent expectation), and pixel checks.

#include <QImage>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class QTreeWidgetItem;

namespace gui {
class MainWindow;
}

namespace guitest {

/// A sample device in a temporary folder: `layout` is "" (the default volume) or one of
/// zq-make-sample's options ("--nano", "--phone=modern", ...). QVERIFY-able through valid().
class SampleDevice {
public:
    explicit SampleDevice(const QStringList& options = {});
    bool valid() const { return !path_.isEmpty(); }
    const QString& path() const { return path_; }
    const QString& error() const { return error_; }

private:
    std::unique_ptr<QTemporaryDir> folder_;
    QString path_;
    QString error_;
};

/// `zqpod library --json PATH`; an empty object when zqpod is missing or fails.
QJsonObject libraryListing(const QString& path);
/// The listing's tracks by their trackID.
QHash<qint64, QJsonObject> tracksByID(const QJsonObject& listing);

/// The sidebar item whose text (first line) is `name`, below `under` (any depth).
QTreeWidgetItem* findItem(QTreeWidgetItem* under, const QString& name);

/// How many different colours a region of an image has: a blank area has one or two.
int colourCount(const QImage& image, const QRect& region);

/// Where tests leave their pictures (for a person to look at).
QString outputPath(const QString& name);

} // namespace guitest
