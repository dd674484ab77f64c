#include "ZQCore/reader/TrackListBuilder.h"

#include "ZQCore/foundation/UTF16.h"
#include "ZQCore/model/TrackArena.h"
#include "ZQCore/reader/RecordLayouts.h"

#include <algorithm>
#include <cstring>

namespace zq {

namespace {

constexpr std::uint32_t kLocationType = 2;
// Big enough that handing over costs nothing next to the work, small enough to stay in the
// processors' caches.
constexpr std::size_t kBatchBytes = 256 * 1024;
// Batches waiting for the builder: the walk stops there, so memory stays bounded.
constexpr std::size_t kQueueLength = 4;
// Entries of a full batch, about: a record is its header, its texts and its end.
constexpr std::size_t kBatchEntries = 8192;

} // namespace

std::size_t TrackListBuilder::minimumTracksForThread = 4096;

TrackListBuilder::TrackListBuilder(std::shared_ptr<ZQCoreiPod> parent, std::string basePath, std::size_t expectedTracks)
    : parent_(std::move(parent)), basePath_(std::move(basePath))
{
    tracks_.reserve(expectedTracks);
    filling_.entries.reserve(kBatchEntries);
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

char* TrackListBuilder::Bytes::reserve(std::size_t count)
{
    if (capacity - size < count) {
        const std::size_t grown = std::max(capacity * 2, size + count + kBatchBytes / 4);
        std::unique_ptr<char[]> larger(new char[grown]);
        if (size)
            std::memcpy(larger.get(), data.get(), size);
        data = std::move(larger);
        capacity = grown;
    }
    return data.get() + size;
}

void TrackListBuilder::beginTrack(std::span<const std::uint8_t> header)
{
    char* at = filling_.bytes.reserve(header.size());
    std::memcpy(at, header.data(), header.size());
    filling_.entries.push_back({kHeader, filling_.bytes.size, 0});
    filling_.bytes.size += header.size();
}

void TrackListBuilder::addText(std::uint32_t type, std::span<const std::uint8_t> bytes)
{
    const bool location = type == kLocationType;
    char* const at = filling_.bytes.reserve((location ? basePath_.size() : 0) + bytes.size() / 2 * 3);
    char* p = at;
    if (location) {
        // ":iPod_Control:Music:F00:X.mp3" on the volume mounted at the base path.
        std::memcpy(p, basePath_.data(), basePath_.size());
        p += basePath_.size();
    }
    const std::size_t decoded = bytes.empty() ? 0 : decodeUTF16To(p, bytes.data(), bytes.size(), true);
    if (location)
        std::replace(p, p + decoded, ':', '/');
    p += decoded;
    const auto length = static_cast<std::size_t>(p - at);
    filling_.entries.push_back({type, filling_.bytes.size, length});
    filling_.bytes.size += length;
}

void TrackListBuilder::endTrack()
{
    filling_.entries.push_back({kEnd, 0, 0});
    if (filling_.bytes.size >= kBatchBytes)
        handOver();
}

void TrackListBuilder::handOver()
{
    if (filling_.entries.empty())
        return;
    if (!thread_.joinable()) {
        make(filling_);
        filling_.bytes.size = 0;
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
    next.bytes.size = 0;
    next.entries.clear();
    next.entries.reserve(kBatchEntries);
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
    const char* bytes = batch.bytes.data.get();
    for (const Batch::Entry& entry : batch.entries) {
        if (entry.type == kHeader) {
            header_ = entry.offset;
            texts_.fill(std::nullopt);
        } else if (entry.type == kEnd) {
            const auto* header = reinterpret_cast<const std::uint8_t*>(bytes + header_);
            tracks_.push_back(iPodTrack::initWithMHITTexts(std::span(header, layout::MHITHeader::size), texts_,
                                                           parent_, dates_));
        } else {
            texts_[entry.type] = std::string_view(bytes + entry.offset, entry.length);
        }
    }
}

} // namespace zq
