#pragma once
// Loads a device's library off the UI thread. Cancel frees the window at once: the load's
// requests to a phone are cut through its cancellation token, and whatever the thread still
// delivers is dropped. (A disk-mode volume's load reads local files and is not cut; it ends on
// its own, and a later open of the same device finds the framework's kept object.)

#include "LibraryIndex.h"

#include <ZQCore/afc/MobileDevice.h>
#include <ZQCore/device/ZQCoreiPodRef.h>

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QThread>

#include <atomic>
#include <memory>

namespace gui {

class LibraryLoader : public QObject {
    Q_OBJECT
public:
    explicit LibraryLoader(QObject* parent = nullptr);
    /// Waits for loads still running (their devices are told to give up first).
    ~LibraryLoader() override;

    /// Starts loading; a load already running is abandoned.
    void load(const std::shared_ptr<zq::ZQCoreiPodRef>& reference, const QString& shownName);
    /// Opens the device folder at `path` (a mounted volume or a copied folder) and loads it.
    void loadPath(const QString& path);
    void cancel();
    bool isLoading() const { return loading_; }
    /// Loads whose threads have not ended yet (cancelled ones included).
    int runningThreads() const;
    /// Milliseconds the last completed load took, reading and indexing.
    qint64 lastLoadMilliseconds() const { return lastLoadMilliseconds_; }

signals:
    void started(const QString& shownName);
    void loaded(std::shared_ptr<const gui::LibraryIndex> index, std::shared_ptr<zq::ZQCoreiPodRef> reference);
    void failed(const QString& shownName, const QString& reason);
    void cancelled();

private:
    void start(std::function<std::shared_ptr<zq::ZQCoreiPodRef>()> reference, const QString& shownName);

    std::shared_ptr<std::atomic<quint64>> generation_ = std::make_shared<std::atomic<quint64>>(0);
    QList<QPointer<QThread>> threads_;
    std::shared_ptr<zq::CancellationToken> token_;  // of the load under way
    bool loading_ = false;
    QElapsedTimer timer_;
    qint64 lastLoadMilliseconds_ = 0;
};

} // namespace gui
