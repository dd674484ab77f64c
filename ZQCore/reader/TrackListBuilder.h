#pragma once

// Making the tracks of a track list from its raw records, beside the walk that reads them.

#include "ZQCore/model/TrackLibrary.h"
#include "ZQCore/model/iPodTrack.h"
#include "ZQCore/foundation/IDIndex.h"
#include "ZQCore/foundation/UTF16.h"
#include "ZQCore/reader/RecordLayouts.h"

#include <condition_variable>
#include <cstdint>
#include <array>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace zq {

class TrackArena;

/// The tracks of a walked list by ID: where each ID last stands, each position's ID, and
/// whether any ID stands twice.
struct TrackIDIndex {
    IDIndex byID;
    /// The ID at each position, so that an answer can be checked without reaching into the
    /// track itself (for 100,000 tracks, a cache miss each).
    std::vector<std::uint32_t> idAt;
    bool repeatedIDs = false;

    void reserve(std::size_t tracks)
    {
        byID.reserve(tracks);
        idAt.reserve(tracks);
    }

    /// The next track has `trackID`; a later track of the same ID takes an earlier one's place.
    void add(std::uint32_t trackID)
    {
        const auto position = static_cast<std::uint32_t>(idAt.size());
        idAt.push_back(trackID);
        if (!byID.insert(trackID, position)) {
            byID.assign(trackID, position);
            repeatedIDs = true;
        }
    }
};

/// Takes the walk's track records (the header block and the text objects, in the order they
/// come) and makes the tracks from them.
///
/// Reading a large database and making its tracks cost about the same, so for a long list the
/// tracks are made on a thread of their own while the walk reads on. The walk decodes each text
/// as it reads it (its spans last only until its next read) into a batch, and hands over whole
/// batches. For a short list a thread would cost more than it saves, and each batch is made
/// where it is handed over. Either way the tracks come out in the order of their records and
/// equal to each other: the walk alone decides what is read, what fails and where it stops.
class TrackListBuilder {
public:
    /// `expectedTracks` is the list's own count (the thread starts when it reaches
    /// minimumTracksForThread and the machine has a second processor).
    TrackListBuilder(std::shared_ptr<TrackLibrary> parent, std::string basePath, std::size_t expectedTracks);
    /// Stops and waits for the thread on every way out, a walk that throws included.
    ~TrackListBuilder();
    TrackListBuilder(const TrackListBuilder&) = delete;
    TrackListBuilder& operator=(const TrackListBuilder&) = delete;

    /// Starts the next record with its header block.
    void beginTrack(std::span<const std::uint8_t> header);
    /// A text object of `type` (one that reaches a track field) whose UTF-16LE bytes (an even
    /// count) are `bytes`; no bytes for a string that could not be read, which makes "". A
    /// later text of the same type in the record replaces it.
    void addText(std::uint32_t type, std::span<const std::uint8_t> bytes);
    /// Ends the record: its track is made.
    void endTrack();

    /// Whether the next record should go over whole (addPlainRecord) rather than text by text:
    /// true while the thread keeps up with the walk, so that the two share the work.
    bool wantsWholeRecords() const { return wholeRecords_; }
    /// A whole track record that the walk has checked: its header of `headerLength` bytes and
    /// its objects lie within it, each text object that reaches a field wholly. Its track is
    /// made exactly as from beginTrack, addText for each such object of an even length, and
    /// endTrack.
    void addPlainRecord(std::span<const std::uint8_t> record, std::uint32_t headerLength);

    /// How records are handed over; tests pin either way.
    enum class Handover { Adaptive, TextByText, WholeRecords };
    static Handover handover;
    /// Waits for every track and hands them over, in record order.
    std::vector<std::shared_ptr<iPodTrack>> finish();
    /// After finish(): the tracks by ID, made along the way (on the builder's own thread, while
    /// the walk was still reading).
    TrackIDIndex takeIndex() { return std::move(index_); }

    /// Whether a data object of `type` holds text that reaches a track field.
    /// (Types 15 to 17 hold no text and never do.)
    static bool reachesField(std::uint32_t type);

    /// Calls `use(type, bytes)` for each text object of a checked plain record (see
    /// addPlainRecord) that reaches a field and is UTF-16 (an even byte count), in order.
    template <class Use>
    static void forEachText(std::span<const std::uint8_t> record, std::size_t headerLength, Use&& use)
    {
        using namespace layout;
        const std::uint32_t objects = le32(record, MHITHeader::dataObjectCount);
        std::size_t q = headerLength;
        for (std::uint32_t j = 0; j < objects; ++j) {
            const std::uint32_t type = le32(record, q + MHODHeader::type);
            if (reachesField(type)) {
                const std::uint32_t length = le32(record, q + MHODString::length);
                if (length % 2 == 0) {
                    const auto text = record.subspan(q + MHODString::text, length);
                    use(type, text.first(lengthWithoutTrailingNULs(text.data(), text.size())));
                }
            }
            q += le32(record, q + ChunkStart::totalLength);
        }
    }

    /// Lists shorter than this are made without a thread; tests lower it to use the thread.
    static std::size_t minimumTracksForThread;

private:
    /// Bytes that grow without being zeroed first (they are always written before use).
    struct Bytes {
        std::unique_ptr<char[]> data;
        std::size_t size = 0;
        std::size_t capacity = 0;
        /// Room for `count` more bytes at data.get() + size.
        char* reserve(std::size_t count);
    };
    /// The walk's records as one stream of entries, each an EntryHead and its bytes: a
    /// header block, a text, or a record's end.
    struct Batch {
        Bytes bytes;
    };
    struct EntryHead {
        std::uint32_t type;   // kHeader, kEnd, or a text object's type (with kUndecoded)
        std::uint32_t length; // the bytes that follow (a text's UTF-8 so far)
        std::uint32_t rest;   // undecoded UTF-16 bytes, after room for their UTF-8
    };
    static constexpr std::uint32_t kHeader = 0;
    static constexpr std::uint32_t kRecord = 0xFFFE; // a whole record; `rest` is its header length
    static constexpr std::uint32_t kEnd = 0xFFFF;
    static constexpr std::uint32_t kUndecoded = 0x10000;

    char* addEntry(EntryHead head, std::size_t room);
    /// Decoding a text of `type` at `out`, which has room for the base path and three bytes per
    /// UTF-16 unit: a location is a path on the volume (after the base path, colons as slashes).
    /// decodeStart writes the base path and the ASCII the text starts with and returns that
    /// many units; decodeRest writes the UTF-8 of the units after them and returns its length.
    std::size_t baseLength(std::uint32_t type) const;
    std::size_t decodeStart(std::uint32_t type, std::span<const std::uint8_t> bytes, char* out) const;
    static std::size_t decodeRest(std::uint32_t type, std::span<const std::uint8_t> bytes, char* out);
    /// Both: the whole text's length.
    std::size_t decodeText(std::uint32_t type, std::span<const std::uint8_t> bytes, char* out) const;
    void makeFromRecord(const std::uint8_t* record, std::size_t total, std::size_t headerLength);
    void makeTrack(const std::uint8_t* header);

    void handOver();
    void make(Batch& batch);
    void run();

    std::shared_ptr<TrackLibrary> parent_;
    std::string basePath_;
    std::shared_ptr<TrackArena> arena_;
    LocalDateConverter dates_;
    std::array<std::optional<std::string_view>, iPodTrack::kMHITTextTypes> texts_;
    std::size_t header_ = 0;
    std::vector<std::shared_ptr<iPodTrack>> tracks_;
    TrackIDIndex index_;

    Batch filling_;
    bool wholeRecords_ = false;
    std::unique_ptr<char[]> decoded_; // the texts of a whole record, while its track is made
    std::size_t decodedCapacity_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Batch> queue_;
    std::vector<Batch> spare_;
    bool closed_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

} // namespace zq
