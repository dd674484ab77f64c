#include "ZQCore/reader/TrackListBuilder.h"

#include "ZQCore/foundation/UTF16.h"
#include "ZQCore/model/TrackArena.h"

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

} // namespace

std::size_t TrackListBuilder::minimumTracksForThread = 4096;
TrackListBuilder::Handover TrackListBuilder::handover = TrackListBuilder::Handover::Adaptive;

bool TrackListBuilder::reachesField(std::uint32_t type)
{
    return (type >= 1 && type <= 9) || type == 12 || type == 13 || type == 14 || type == 22;
}

TrackListBuilder::TrackListBuilder(std::shared_ptr<TrackLibrary> parent, std::string basePath, std::size_t expectedTracks)
    : parent_(std::move(parent)), basePath_(std::move(basePath))
{
    tracks_.reserve(expectedTracks);
    index_.reserve(expectedTracks);
    // Small lists keep the general allocator: an arena's first chunk would outweigh them.
    if (expectedTracks >= minimumTracksForThread)
        arena_ = std::make_shared<TrackArena>();
    if (expectedTracks >= minimumTracksForThread && std::thread::hardware_concurrency() > 1)
        thread_ = std::thread([this] { run(); });
    wholeRecords_ = handover == Handover::WholeRecords;
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

char* TrackListBuilder::addEntry(EntryHead head, std::size_t room)
{
    char* at = filling_.bytes.reserve(sizeof head + room);
    std::memcpy(at, &head, sizeof head);
    filling_.bytes.size += sizeof head;
    return at + sizeof head;
}

void TrackListBuilder::beginTrack(std::span<const std::uint8_t> header)
{
    const auto size = static_cast<std::uint32_t>(header.size());
    std::memcpy(addEntry({kHeader, size, 0}, size), header.data(), size);
    filling_.bytes.size += size;
}

void TrackListBuilder::addText(std::uint32_t type, std::span<const std::uint8_t> bytes)
{
    bytes = bytes.first(lengthWithoutTrailingNULs(bytes.data(), bytes.size()));
    // The walk decodes the ASCII a text starts with, which costs no more than copying it; the
    // rest (the slow part) is left to the builder, behind room for its UTF-8.
    const std::size_t base = baseLength(type);
    const std::size_t units = bytes.size() / 2;
    const std::size_t size = filling_.bytes.size;
    char* const at = filling_.bytes.reserve(sizeof(EntryHead) + base + units * 5) + sizeof(EntryHead);
    const std::size_t ascii = decodeStart(type, bytes, at);
    const std::size_t rest = units - ascii;
    if (rest)
        std::memcpy(at + base + ascii + rest * 3, bytes.data() + ascii * 2, rest * 2);
    const EntryHead head{rest ? type | kUndecoded : type, static_cast<std::uint32_t>(base + ascii),
                         static_cast<std::uint32_t>(rest * 2)};
    std::memcpy(filling_.bytes.data.get() + size, &head, sizeof head);
    filling_.bytes.size = size + sizeof head + base + ascii + rest * 5;
}

void TrackListBuilder::endTrack()
{
    addEntry({kEnd, 0, 0}, 0);
    if (filling_.bytes.size >= kBatchBytes)
        handOver();
}

void TrackListBuilder::addPlainRecord(std::span<const std::uint8_t> record, std::uint32_t headerLength)
{
    const auto size = static_cast<std::uint32_t>(record.size());
    std::memcpy(addEntry({kRecord, size, headerLength}, size), record.data(), size);
    filling_.bytes.size += size;
    if (filling_.bytes.size >= kBatchBytes)
        handOver();
}

void TrackListBuilder::handOver()
{
    if (filling_.bytes.size == 0)
        return;
    if (!thread_.joinable()) {
        make(filling_);
        filling_.bytes.size = 0;
        return;
    }
    Batch next;
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return queue_.size() < kQueueLength || failure_; });
        if (failure_)
            std::rethrow_exception(failure_);
        queue_.push_back(std::move(filling_));
        // Copying a whole record costs the walk less than decoding its texts, and the thread
        // more: while the thread has caught up with the walk, it is given whole records.
        if (handover == Handover::Adaptive)
            wholeRecords_ = queue_.size() <= 1;
        if (!spare_.empty()) {
            next = std::move(spare_.back());
            spare_.pop_back();
        }
    }
    changed_.notify_all();
    next.bytes.size = 0;
    filling_ = std::move(next);
}

std::vector<std::shared_ptr<iPodTrack>> TrackListBuilder::finish()
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

void TrackListBuilder::make(Batch& batch)
{
    const TrackArena::Use use(arena_);
    char* const bytes = batch.bytes.data.get();
    std::size_t at = 0;
    while (at < batch.bytes.size) {
        EntryHead head;
        std::memcpy(&head, bytes + at, sizeof head);
        char* const text = bytes + at + sizeof head;
        at += sizeof head + head.length;
        if (head.type == kHeader) {
            header_ = static_cast<std::size_t>(text - bytes);
            texts_.fill(std::nullopt);
        } else if (head.type == kEnd) {
            makeTrack(reinterpret_cast<const std::uint8_t*>(bytes + header_));
        } else if (head.type == kRecord) {
            makeFromRecord(reinterpret_cast<const std::uint8_t*>(text), head.length, head.rest);
        } else {
            const std::uint32_t type = head.type & ~kUndecoded;
            std::size_t length = head.length;
            if (head.type & kUndecoded) {
                // The rest lies behind room for its UTF-8, which follows the walk's part.
                const std::size_t rest = head.rest;
                const auto* utf16 = reinterpret_cast<const std::uint8_t*>(text + length + rest / 2 * 3);
                length += decodeRest(type, std::span(utf16, rest), text + length);
                at += rest / 2 * 5;
            }
            texts_[type] = std::string_view(text, length);
        }
    }
}

void TrackListBuilder::makeTrack(const std::uint8_t* header)
{
    auto track = iPodTrack::initWithMHIT(std::span(header, layout::MHITHeader::size), texts_, parent_, dates_);
    index_.add(track->trackID());
    tracks_.push_back(std::move(track));
}

std::size_t TrackListBuilder::baseLength(std::uint32_t type) const
{
    return type == kLocationType ? basePath_.size() : 0;
}

std::size_t TrackListBuilder::decodeStart(std::uint32_t type, std::span<const std::uint8_t> bytes, char* out) const
{
    if (type != kLocationType)
        return decodeASCIIPrefixUTF16LE(out, bytes.data(), bytes.size() / 2);
    // ":iPod_Control:Music:F00:X.mp3" on the volume mounted at the base path.
    std::memcpy(out, basePath_.data(), basePath_.size());
    return decodeASCIIPrefixUTF16LE<true>(out + basePath_.size(), bytes.data(), bytes.size() / 2);
}

std::size_t TrackListBuilder::decodeRest(std::uint32_t type, std::span<const std::uint8_t> bytes, char* out)
{
    const std::size_t decoded = decodeUTF16To(out, bytes.data(), bytes.size(), true);
    if (type == kLocationType)
        std::replace(out, out + decoded, ':', '/');
    return decoded;
}

std::size_t TrackListBuilder::decodeText(std::uint32_t type, std::span<const std::uint8_t> bytes, char* out) const
{
    const std::size_t ascii = decodeStart(type, bytes, out);
    const std::size_t start = baseLength(type) + ascii;
    return start + decodeRest(type, bytes.subspan(ascii * 2), out + start);
}

void TrackListBuilder::makeFromRecord(const std::uint8_t* start, std::size_t total, std::size_t headerLength)
{
    // The same objects the walk checked, in the same order: a later text of a type replaces an
    // earlier one, and text of an odd length is left out.
    const std::span<const std::uint8_t> record(start, total);
    // Every text stays in place until the track is made; objects may share bytes, so room is
    // counted text by text.
    std::size_t room = 0;
    forEachText(record, headerLength, [&](std::uint32_t type, std::span<const std::uint8_t> bytes) {
        room += baseLength(type) + bytes.size() / 2 * 3;
    });
    if (decodedCapacity_ < room) {
        decoded_.reset(new char[room]);
        decodedCapacity_ = room;
    }
    texts_.fill(std::nullopt);
    char* out = decoded_.get();
    forEachText(record, headerLength, [&](std::uint32_t type, std::span<const std::uint8_t> bytes) {
        const std::size_t length = decodeText(type, bytes, out);
        texts_[type] = std::string_view(out, length);
        out += length;
    });
    makeTrack(start);
}

} // namespace zq
