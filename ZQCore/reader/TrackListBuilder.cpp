#include "ZQCore/reader/TrackListBuilder.h"

#include "ZQCore/foundation/UTF16.h"
#include "ZQCore/model/TrackArena.h"
#include "ZQCore/reader/RecordLayouts.h"

#include <algorithm>

namespace zq {

namespace {

constexpr std::uint32_t kLocationType = 2;
// Big enough that handing over costs nothing next to the work, small enough to stay in the
// processors' caches.
constexpr std::size_t kBatchBytes = 256 * 1024;
// Batches waiting for the builder: the walk stops there, so memory stays bounded.
constexpr std::size_t kQueueLength = 4;

} // namespace

std::size_t TrackListBuilder::minimumTracksForThread = 4096;

TrackListBuilder::TrackListBuilder(std::shared_ptr<ZQCoreiPod> parent, std::string basePath, std::size_t expectedTracks)
    : parent_(std::move(parent)), basePath_(std::move(basePath))
{
    tracks_.reserve(expectedTracks);
    // Small lists keep the general allocator: an arena's first chunk would outweigh them.
    if (expectedTracks >= minimumTracksForThread)
        arena_ = std::make_shared<TrackArena>();
    if (expectedTracks >= minimumTracksForThread && std::thread::hardware_concurrency() > 1)
        thread_ = std::thread([this] { run(); });
}

TrackListBuilder::~TrackListBuilder()
{
    if (!thread_.joinable())
        return;
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
        queue_.clear();
    }
    changed_.notify_all();
    thread_.join();
}

std::uint32_t TrackListBuilder::append(std::span<const std::uint8_t> bytes)
{
    const auto offset = static_cast<std::uint32_t>(filling_.bytes.size());
    filling_.bytes.insert(filling_.bytes.end(), bytes.begin(), bytes.end());
    return offset;
}

void TrackListBuilder::beginTrack(std::span<const std::uint8_t> header)
{
    filling_.entries.push_back({kHeader, append(header), static_cast<std::uint32_t>(header.size())});
}

void TrackListBuilder::addText(std::uint32_t type, std::span<const std::uint8_t> bytes)
{
    filling_.entries.push_back({type, append(bytes), static_cast<std::uint32_t>(bytes.size())});
}

void TrackListBuilder::endTrack()
{
    filling_.entries.push_back({kEnd, 0, 0});
    if (filling_.bytes.size() >= kBatchBytes)
        handOver();
}

void TrackListBuilder::handOver()
{
    if (filling_.entries.empty())
        return;
    if (!thread_.joinable()) {
        make(filling_);
        filling_.bytes.clear();
        filling_.entries.clear();
        return;
    }
    Batch next;
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return queue_.size() < kQueueLength || failure_; });
        if (failure_)
            std::rethrow_exception(failure_);
        queue_.push_back(std::move(filling_));
        if (!spare_.empty()) {
            next = std::move(spare_.back());
            spare_.pop_back();
        }
    }
    changed_.notify_all();
    next.bytes.clear();
    next.entries.clear();
    filling_ = std::move(next);
}

ZQCoreiPod::Tracks TrackListBuilder::finish()
{
    handOver();
    if (thread_.joinable()) {
        {
            std::lock_guard lock(mutex_);
            closed_ = true;
        }
        changed_.notify_all();
        thread_.join();
        if (failure_)
            std::rethrow_exception(failure_);
    }
    return std::move(tracks_);
}

void TrackListBuilder::run()
{
    for (;;) {
        Batch batch;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return !queue_.empty() || closed_; });
            if (queue_.empty())
                return;
            batch = std::move(queue_.front());
            queue_.pop_front();
        }
        changed_.notify_all();
        try {
            make(batch);
        } catch (...) {
            std::lock_guard lock(mutex_);
            failure_ = std::current_exception();
            changed_.notify_all();
            return;
        }
        std::lock_guard lock(mutex_);
        spare_.push_back(std::move(batch));
    }
}

void TrackListBuilder::make(const Batch& batch)
{
    const TrackArena::Use use(arena_);
    const std::uint8_t* bytes = batch.bytes.data();
    for (const Batch::Entry& entry : batch.entries) {
        if (entry.type == kHeader) {
            header_ = entry.offset;
            strings_.clear();
        } else if (entry.type == kEnd) {
            tracks_.push_back(iPodTrack::initWithMHIT(std::span(bytes + header_, layout::MHITHeader::size), strings_,
                                                      parent_, dates_));
        } else {
            decodeUTF16Into(text_, bytes + entry.offset, entry.length, true);
            if (entry.type == kLocationType) {
                // ":iPod_Control:Music:F00:X.mp3" on the volume mounted at the base path.
                std::replace(text_.begin(), text_.end(), ':', '/');
                text_.insert(0, basePath_);
            }
            std::swap(strings_.slot(entry.type), text_);
        }
    }
}

} // namespace zq
