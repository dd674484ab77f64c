#include "TestSupport.h"

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QSet>
#include <QTreeWidgetItem>

namespace guitest {

SampleDevice::SampleDevice(const QStringList& options) : folder_(std::make_unique<QTemporaryDir>())
{
    const QString path = folder_->path() + QStringLiteral("/device");
    QProcess writer;
    writer.start(QStringLiteral(ZQ_MAKE_SAMPLE_PATH), QStringList(options) << path);
    if (!writer.waitForFinished(120000) || writer.exitCode() != 0) {
        error_ = QStringLiteral("zq-make-sample failed: ") + QString::fromLocal8Bit(writer.readAllStandardError());
        return;
    }
    path_ = path;
}

QJsonObject libraryListing(const QString& path)
{
    QProcess zqpod;
    zqpod.start(QStringLiteral(ZQPOD_PATH), {QStringLiteral("library"), QStringLiteral("--json"), path});
    if (!zqpod.waitForFinished(120000) || zqpod.exitCode() != 0)
        return {};
    return QJsonDocument::fromJson(zqpod.readAllStandardOutput()).object();
}

QHash<qint64, QJsonObject> tracksByID(const QJsonObject& listing)
{
    QHash<qint64, QJsonObject> result;
    for (const auto& value : listing.value(QStringLiteral("tracks")).toArray()) {
        const QJsonObject track = value.toObject();
        result.insert(track.value(QStringLiteral("trackID")).toInteger(), track);
    }
    return result;
}

QTreeWidgetItem* findItem(QTreeWidgetItem* under, const QString& name)
{
    for (int i = 0; i < under->childCount(); ++i) {
        QTreeWidgetItem* child = under->child(i);
        if (child->text(0).section(QLatin1Char('\n'), 0, 0) == name)
            return child;
        if (auto* found = findItem(child, name))
            return found;
    }
    return nullptr;
}

int colourCount(const QImage& image, const QRect& region)
{
    QSet<QRgb> colours;
    const QRect area = region.intersected(image.rect());
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            colours.insert(image.pixel(x, y));
    return static_cast<int>(colours.size());
}

QString outputPath(const QString& name)
{
    return QStringLiteral(ZQ_TEST_OUTPUT) + QLatin1Char('/') + name;
}

} // namespace guitest
