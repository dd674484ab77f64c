#include "CoverCache.h"

#include "Text.h"

#include <ZQCore/foundation/Image.h>

#include <QPointer>

namespace gui {

CoverCache::CoverCache(QObject* parent) : QObject(parent)
{
    pool_.setMaxThreadCount(1);
    // About 400 covers of a grid at 2x: enough for several screens of scrolling.
    images_.setMaxCost(64 * 1024 * 1024);
}

CoverCache::~CoverCache()
{
    pool_.clear();
    pool_.waitForDone();
}

QImage CoverCache::cover(const std::shared_ptr<zq::AlbumArt>& art, int side)
{
    if (!art || art == zq::AlbumArt::noAlbumArtInstance())
        return {};
    const Key key(reinterpret_cast<quintptr>(art.get()), side);
    if (QImage* cached = images_.object(key))
        return *cached;
    if (pending_.contains(key) || failed_.contains(key))
        return {};
    pending_.insert(key);
    CoverCache* owner = this;  // outlives the task: the destructor waits for the pool
    const quint64 generation = generation_;
    pool_.start([owner, art, side, key, generation] {
        QImage image;
        try {
            // A cover a device cannot give (gone, damaged) stays a stand-in.
            if (auto decoded = art->image())
                image = toQImage(decoded.get());
        } catch (const std::exception&) {
        }
        if (!image.isNull() && (image.width() > side || image.height() > side))
            image = image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        QMetaObject::invokeMethod(
            owner,
            [self = QPointer<CoverCache>(owner), art, key, image, generation] {
                if (!self || generation != self->generation_)
                    return;
                self->pending_.remove(key);
                if (image.isNull())
                    self->failed_.insert(key);
                else
                    self->images_.insert(key, new QImage(image), static_cast<int>(image.sizeInBytes()));
                emit self->coverReady(art.get());
            },
            Qt::QueuedConnection);
    });
    return {};
}

void CoverCache::clear()
{
    pool_.clear();
    ++generation_;
    images_.clear();
    pending_.clear();
    failed_.clear();
}

void CoverCache::waitForIdle()
{
    pool_.waitForDone();
}

} // namespace gui
