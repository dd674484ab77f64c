#include "LibraryLoader.h"

#include <ZQCore/device/ZQCoreiPod.h>
#include <ZQCore/foundation/Exception.h>

#include <QCoreApplication>

namespace gui {

LibraryLoader::LibraryLoader(QObject* parent) : QObject(parent) {}

LibraryLoader::~LibraryLoader()
{
    ++*generation_;
    if (token_)
        token_->cancel();
    for (const auto& thread : threads_)
        if (thread)
            thread->wait();
}

int LibraryLoader::runningThreads() const
{
    int running = 0;
    for (const auto& thread : threads_)
        running += thread && thread->isRunning() ? 1 : 0;
    return running;
}

void LibraryLoader::load(const std::shared_ptr<zq::ZQCoreiPodRef>& reference, const QString& shownName)
{
    start([reference] { return reference; }, shownName);
}

void LibraryLoader::loadPath(const QString& path)
{
    const std::string folder = path.toStdString();
    // Making the reference reads the device's files too, so it happens on the thread as well.
    start([folder] { return zq::ZQCoreiPodRef::initWithPath(folder); }, path);
}

void LibraryLoader::cancel()
{
    if (!loading_)
        return;
    ++*generation_;
    if (token_)
        token_->cancel();
    loading_ = false;
    emit cancelled();
}

void LibraryLoader::start(std::function<std::shared_ptr<zq::ZQCoreiPodRef>()> makeReference, const QString& shownName)
{
    if (loading_)
        cancel();
    const quint64 generation = ++*generation_;
    loading_ = true;
    timer_.start();
    emit started(shownName);
    auto current = generation_;
    token_ = std::make_shared<zq::CancellationToken>();
    QThread* thread = QThread::create([this, makeReference, current, generation, shownName, token = token_] {
        zq::CancellationScope scope(token);
        std::shared_ptr<zq::ZQCoreiPodRef> reference;
        std::shared_ptr<const LibraryIndex> index;
        QString failure;
        try {
            reference = makeReference();
            auto library = zq::ZQCoreiPod::initWithiPodReference(reference);
            index = LibraryIndex::build(library, [&] { return current->load() != generation; });
        } catch (const zq::Exception& error) {
            failure = QString::fromStdString(error.reason());
        } catch (const std::exception& error) {
            failure = QString::fromUtf8(error.what());
        }
        if (current->load() != generation)
            return;
        // Back on the UI thread; the loader outlives its threads (its destructor waits).
        QMetaObject::invokeMethod(
            this,
            [self = QPointer<LibraryLoader>(this), current, generation, index, reference, failure, shownName] {
                if (!self || current->load() != generation)
                    return;
                self->loading_ = false;
                self->lastLoadMilliseconds_ = self->timer_.elapsed();
                if (index)
                    emit self->loaded(index, reference);
                else
                    emit self->failed(shownName, failure);
            },
            Qt::QueuedConnection);
    });
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    threads_.removeAll(nullptr);
    threads_.append(thread);
    thread->start();
}

} // namespace gui
