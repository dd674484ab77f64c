#include "LibraryReport.h"
#include "TerminalText.h"

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/DeviceModel.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <stop_token>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zqpod {

using Json = nlohmann::ordered_json;

namespace {

Json text(const std::optional<std::string>& value) { return value ? Json(*value) : Json(nullptr); }

std::string serialOf(const zq::ZQCoreiPod& library)
{
    const zq::Value* serial = library.properties().find("SerialNumber");
    return serial && serial->string() ? *serial->string() : std::string();
}

// Characters gathered for one write to the stream: the JSON of a large library is a great many
// short appends, and each here checks its room once and copies.
class Block {
public:
    explicit Block(std::size_t capacity) : data_(new char[capacity]), capacity_(capacity) {}

    const char* data() const { return data_.get(); }
    std::size_t size() const { return size_; }
    void clear() { size_ = 0; }
    /// Drops what came after `size` (never grows).
    void resize(std::size_t size) { size_ = std::min(size, size_); }
    void swap(Block& other) noexcept
    {
        data_.swap(other.data_);
        std::swap(capacity_, other.capacity_);
        std::swap(size_, other.size_);
    }

    void append(const char* text, std::size_t length)
    {
        std::memcpy(room(length), text, length);
        size_ += length;
    }
    void append(std::size_t count, char c)
    {
        std::memset(room(count), c, count);
        size_ += count;
    }
    Block& operator+=(std::string_view text)
    {
        append(text.data(), text.size());
        return *this;
    }
    Block& operator+=(const char* text) { return *this += std::string_view(text); }
    Block& operator+=(char c)
    {
        *room(1) = c;
        ++size_;
        return *this;
    }

private:
    char* room(std::size_t length)
    {
        if (capacity_ - size_ < length) {
            const std::size_t grown = std::max(capacity_ * 2, size_ + length);
            std::unique_ptr<char[]> larger(new char[grown]);
            std::memcpy(larger.get(), data_.get(), size_);
            data_ = std::move(larger);
            capacity_ = grown;
        }
        return data_.get() + size_;
    }

    std::unique_ptr<char[]> data_;
    std::size_t capacity_;
    std::size_t size_ = 0;
};

// Writes the library's JSON as it is produced, in nlohmann's pretty-printed form (two-space
// indent, one element per line, "[]" for an empty array) so the text is the same as a
// whole-document dump, without holding a document of 100,000 tracks in memory. Text goes out
// in blocks; values that need nlohmann's rules (escapes, invalid UTF-8 replaced) go through its
// own serializer into the same block.
class JSONStream {
public:
    explicit JSONStream(std::ostream& out) : JSONStream(&out) {}
    // A stream that only gathers, for a piece made on another thread: the text stays in its
    // block (see gathered) for the writing stream to take whole. It continues a list whose
    // first element is written already.
    JSONStream() : JSONStream(nullptr) { first_ = false; }

    explicit JSONStream(std::ostream* out)
        : out_(out),
          buffer_(kBlock + 4096),
          serializer_(nlohmann::detail::output_adapter<char, std::string>(scratch_), ' ',
                      Json::error_handler_t::replace)
    {
    }

    // "{" or "[" opening a container whose members are indented by indent + 2; an empty one is
    // written whole ("[]") by open and close together.
    void open(char bracket, unsigned indent, bool empty = false)
    {
        (void)indent;
        buffer_ += bracket;
        if (empty)
            buffer_ += bracket == '[' ? ']' : '}';
        first_ = true;
    }
    void close(char bracket, unsigned indent, bool empty = false)
    {
        if (empty) {
            first_ = false;
            return;
        }
        buffer_ += '\n';
        buffer_.append(indent, ' ');
        buffer_ += bracket;
        first_ = false;
        flushIfFull();
    }
    // Starts an array element at the given indent.
    void element(unsigned indent)
    {
        buffer_ += first_ ? "\n" : ",\n";
        buffer_.append(indent, ' ');
        first_ = true;
    }
    // Starts an array element that is a single value.
    void item(unsigned indent)
    {
        buffer_ += first_ ? "\n" : ",\n";
        buffer_.append(indent, ' ');
        first_ = false;
    }
    // Starts an object member; `name` is plain ASCII and needs no escaping.
    void key(std::string_view name, unsigned indent)
    {
        buffer_ += first_ ? "\n" : ",\n";
        buffer_.append(indent, ' ');
        buffer_ += '"';
        buffer_ += name;
        buffer_ += "\": ";
        first_ = false;
    }
    void text(const std::optional<std::string>& value)
    {
        text(value ? std::optional<std::string_view>(*value) : std::nullopt);
    }
    // A string as nlohmann writes it (ensure_ascii off): well-formed UTF-8 as it is, quote,
    // backslash and control characters escaped. Text that is not well-formed UTF-8 takes
    // nlohmann's own path, which replaces what it cannot read.
    void text(std::optional<std::string_view> value)
    {
        if (!value) {
            buffer_ += "null";
            return;
        }
        const std::string_view s = *value;
        const std::size_t mark = buffer_.size();
        buffer_ += '"';
        std::size_t i = 0, run = 0;
        while (i < s.size()) {
#if defined(__SSE2__)
            // Sixteen plain characters at a time: none below 0x20 or above 0x7F (a signed
            // compare catches both), no quote, no backslash.
            if (i + 16 <= s.size()) {
                const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.data() + i));
                const __m128i special = _mm_or_si128(
                    _mm_cmplt_epi8(v, _mm_set1_epi8(0x20)),
                    _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('"')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\\'))));
                if (_mm_movemask_epi8(special) == 0) {
                    i += 16;
                    continue;
                }
            }
#endif
            const auto c = static_cast<unsigned char>(s[i]);
            if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
                ++i;
                continue;
            }
            if (c >= 0x80) {
                const std::size_t length = wellFormedSequence(s, i);
                if (length == 0) {
                    buffer_.resize(mark);
                    dump(Json(std::string(s)), 0);
                    return;
                }
                i += length;
                continue;
            }
            buffer_.append(s.data() + run, i - run);
            escape(c);
            run = ++i;
        }
        buffer_.append(s.data() + run, s.size() - run);
        buffer_ += '"';
    }
    void date(const std::optional<zq::Date>& value)
    {
        if (!value) {
            buffer_ += "null";
            return;
        }
        char digits[zq::Date::kISO8601Capacity];
        buffer_ += '"';
        buffer_.append(digits, value->iso8601(digits));
        buffer_ += '"';
    }
    // A member whose "\n", indent, name and colon are written out in `prefix` (",\n..." for
    // every member but an object's first).
    void member(std::string_view prefix)
    {
        buffer_ += prefix;
        first_ = false;
    }
    template <class Integer>
    void number(Integer value)
    {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        buffer_.append(digits, static_cast<std::size_t>(end - digits));
    }
    void boolean(bool value) { buffer_ += value ? "true" : "false"; }
    void null() { buffer_ += "null"; }
    void value(const Json& json, unsigned indent)
    {
        dump(json, indent);
        first_ = false;
    }
    void raw(std::string_view text) { buffer_ += text; }
    void endObject(unsigned indent)
    {
        close('}', indent);
    }

    void flush()
    {
        if (!out_)
            return;
        out_->write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        buffer_.clear();
    }
    // Text gathered by another stream, after what is written so far.
    void write(const Block& text)
    {
        flush();
        out_->write(text.data(), static_cast<std::streamsize>(text.size()));
    }
    Block& gathered() { return buffer_; }

private:
    static constexpr std::size_t kBlock = 1 << 16;

    // nlohmann's pretty form of `json` at `indent`, into the block.
    void dump(const Json& json, unsigned indent)
    {
        scratch_.clear();
        serializer_.dump(json, true, false, 2, indent);
        buffer_ += scratch_;
    }

    void escape(unsigned char c)
    {
        switch (c) {
        case '\b': buffer_ += "\\b"; break;
        case '\t': buffer_ += "\\t"; break;
        case '\n': buffer_ += "\\n"; break;
        case '\f': buffer_ += "\\f"; break;
        case '\r': buffer_ += "\\r"; break;
        case '"': buffer_ += "\\\""; break;
        case '\\': buffer_ += "\\\\"; break;
        default: {
            static constexpr char hex[] = "0123456789abcdef";
            const char code[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
            buffer_.append(code, sizeof code);
        }
        }
    }
    // The length of the well-formed UTF-8 sequence at s[i] (Unicode's table of well-formed
    // byte sequences), or 0.
    static std::size_t wellFormedSequence(std::string_view s, std::size_t i)
    {
        auto at = [&](std::size_t k) { return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : 0u; };
        auto tail = [](unsigned b) { return b >= 0x80 && b <= 0xBF; };
        const unsigned c = at(0);
        if (c >= 0xC2 && c <= 0xDF)
            return tail(at(1)) ? 2 : 0;
        if (c >= 0xE0 && c <= 0xEF) {
            const unsigned b = at(1);
            const bool second = c == 0xE0 ? (b >= 0xA0 && b <= 0xBF) : c == 0xED ? (b >= 0x80 && b <= 0x9F) : tail(b);
            return second && tail(at(2)) ? 3 : 0;
        }
        if (c >= 0xF0 && c <= 0xF4) {
            const unsigned b = at(1);
            const bool second = c == 0xF0 ? (b >= 0x90 && b <= 0xBF) : c == 0xF4 ? (b >= 0x80 && b <= 0x8F) : tail(b);
            return second && tail(at(2)) && tail(at(3)) ? 4 : 0;
        }
        return 0;
    }
    void flushIfFull()
    {
        if (out_ && buffer_.size() >= kBlock)
            flush();
    }

    std::ostream* out_; // null for a stream that only gathers
    Block buffer_;
    std::string scratch_;
    nlohmann::detail::serializer<Json> serializer_;
    bool first_ = true;
};

// One track object at indent 4, members at 6, in the order programs have always seen. Member
// names are written with their line breaks and indent in one piece.
#define ZQPOD_MEMBER(name) ",\n      \"" name "\": "
void writeTrack(JSONStream& json, const zq::iPodTrack& t)
{
    using T = zq::iPodTrack;
    json.open('{', 4);
    json.member("\n      \"trackID\": ");
    json.number(t.trackID());
    auto number = [&](std::string_view member, auto value) {
        json.member(member);
        json.number(value);
    };
    auto string = [&](std::string_view member, T::StringField field) {
        json.member(member);
        json.text(t.textView(field));
    };
    auto date = [&](std::string_view member, const std::optional<zq::Date>& value) {
        json.member(member);
        json.date(value);
    };
    number(ZQPOD_MEMBER("dbid"), t.dbid());
    string(ZQPOD_MEMBER("title"), T::Title);
    string(ZQPOD_MEMBER("artist"), T::Artist);
    string(ZQPOD_MEMBER("album"), T::Album);
    string(ZQPOD_MEMBER("albumArtist"), T::AlbumArtist);
    string(ZQPOD_MEMBER("genre"), T::Genre);
    string(ZQPOD_MEMBER("composer"), T::Composer);
    string(ZQPOD_MEMBER("comment"), T::Comment);
    string(ZQPOD_MEMBER("grouping"), T::Grouping);
    string(ZQPOD_MEMBER("fileType"), T::FileType);
    string(ZQPOD_MEMBER("EQSetting"), T::EQSettingText);
    string(ZQPOD_MEMBER("podcastCategory"), T::PodcastCategory);
    string(ZQPOD_MEMBER("trackDescription"), T::TrackDescription);
    string(ZQPOD_MEMBER("filePath"), T::FilePath);
    number(ZQPOD_MEMBER("rating"), t.rating());
    number(ZQPOD_MEMBER("fileSize"), t.fileSize());
    number(ZQPOD_MEMBER("trackLength"), t.trackLength());
    number(ZQPOD_MEMBER("trackNumber"), t.trackNumber());
    number(ZQPOD_MEMBER("trackTotal"), t.trackTotal());
    number(ZQPOD_MEMBER("discNumber"), t.discNumber());
    number(ZQPOD_MEMBER("discTotal"), t.discTotal());
    number(ZQPOD_MEMBER("year"), t.year());
    number(ZQPOD_MEMBER("bitrate"), t.bitrate());
    number(ZQPOD_MEMBER("sampleRate"), t.sampleRate());
    number(ZQPOD_MEMBER("volume"), t.volume());
    number(ZQPOD_MEMBER("startTime"), t.startTime());
    number(ZQPOD_MEMBER("endTime"), t.endTime());
    number(ZQPOD_MEMBER("soundcheckValue"), t.soundcheckValue());
    number(ZQPOD_MEMBER("playCount"), t.playCount());
    number(ZQPOD_MEMBER("BPM"), t.BPM());
    number(ZQPOD_MEMBER("mediaType"), t.mediaType());
    date(ZQPOD_MEMBER("lastModified"), t.lastModified());
    date(ZQPOD_MEMBER("lastPlayedTime"), t.lastPlayedTime());
    date(ZQPOD_MEMBER("dateAdded"), t.dateAdded());
    date(ZQPOD_MEMBER("dateReleased"), t.dateReleased());
    date(ZQPOD_MEMBER("lastSkippedTime"), t.lastSkippedTime());
    json.member(ZQPOD_MEMBER("compilation"));
    json.boolean(t.compilation());
    number(ZQPOD_MEMBER("albumID"), t.albumID());
    number(ZQPOD_MEMBER("artworkLink"), t.artworkLink());
    // The artwork the track carries: its image identifier and the visible size of the stored
    // size its image is made from; null for a track without artwork.
    std::optional<std::uint32_t> artworkID;
    std::optional<std::int32_t> artworkWidth, artworkHeight;
    if (t.hasAlbumArt()) {
        const auto art = t.albumArt();
        artworkID = art->artworkID();
        if (const auto& rep = art->preferredRep()) {
            artworkWidth = rep->width();
            artworkHeight = rep->height();
        }
    }
    auto optionalNumber = [&](std::string_view member, auto value) {
        json.member(member);
        if (value)
            json.number(*value);
        else
            json.null();
    };
    optionalNumber(ZQPOD_MEMBER("artworkID"), artworkID);
    optionalNumber(ZQPOD_MEMBER("artworkWidth"), artworkWidth);
    optionalNumber(ZQPOD_MEMBER("artworkHeight"), artworkHeight);
    json.endObject(4);
}
#undef ZQPOD_MEMBER

// The elements of the track list. Making their text is most of the time of a listing, so a
// second thread makes every other piece of tracks while this one makes the piece before it;
// the pieces go out in order as they are done. The text is the same as from one thread, and
// no more than two pieces are held at once.
void writeTrackElements(JSONStream& json, const zq::ZQCoreiPod::Tracks& tracks)
{
    constexpr std::size_t kPiece = 256;
    const std::size_t pieces = (tracks.size() + kPiece - 1) / kPiece;
    auto make = [&](JSONStream& into, std::size_t piece) {
        const std::size_t end = std::min(tracks.size(), (piece + 1) * kPiece);
        for (std::size_t i = piece * kPiece; i < end; ++i) {
            into.element(4);
            writeTrack(into, *tracks[i]);
        }
    };
    if (pieces < 4 || std::thread::hardware_concurrency() < 2) {
        for (std::size_t piece = 0; piece < pieces; ++piece)
            make(json, piece);
        return;
    }

    constexpr std::size_t kNone = SIZE_MAX;
    std::mutex mutex;
    std::condition_variable_any changed;
    Block ready(0);              // the odd piece made last, until it is written
    std::size_t readyPiece = kNone;
    std::exception_ptr failure;
    // Asked to stop and waited for on every way out, as a jthread is when it goes.
    std::jthread other([&](std::stop_token stop) {
        try {
            // Its blocks go back and forth with this thread's, so each piece is made in place
            // in memory that is already there and is written straight from it.
            JSONStream into;
            for (std::size_t piece = 1; piece < pieces; piece += 2) {
                into.gathered().clear();
                make(into, piece);
                std::unique_lock lock(mutex);
                if (!changed.wait(lock, stop, [&] { return readyPiece == kNone; }))
                    return;
                ready.swap(into.gathered());
                readyPiece = piece;
                changed.notify_all();
            }
        } catch (...) {
            std::lock_guard lock(mutex);
            failure = std::current_exception();
            changed.notify_all();
        }
    });

    Block text(0);
    for (std::size_t piece = 0; piece < pieces; piece += 2) {
        make(json, piece);
        if (piece + 1 == pieces)
            break;
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return readyPiece == piece + 1 || failure; });
            if (failure)
                std::rethrow_exception(failure);
            text.swap(ready);
            readyPiece = kNone;
        }
        changed.notify_all();
        json.write(text);
    }
}

Json ruleJSON(const zq::SmartPlaylistRule& rule)
{
    Json json{{"field", rule.field()}, {"action", rule.action()}, {"isStringRule", rule.isStringRule()}};
    if (rule.isStringRule()) {
        json["ruleValue"] = text(rule.ruleValue());
    } else {
        json["fromValue"] = rule.fromValue();
        json["toValue"] = rule.toValue();
        if (rule.numericRuleIsDateStamp()) {
            json["fromUnit"] = rule.fromUnit();
            json["toUnit"] = rule.toUnit();
            json["fromDate"] = rule.fromDate();
            json["toDate"] = rule.toDate();
        }
    }
    json["description"] = rule.description();
    return json;
}

// A list of track IDs at `indent`, one per line, as nlohmann prints an array ("[]" when empty).
void writeTrackIDs(JSONStream& json, const zq::Playlist::Tracks& tracks, unsigned indent)
{
    json.open('[', indent, tracks.empty());
    for (const auto& track : tracks) {
        json.item(indent + 2);
        json.number(track->trackID());
    }
    json.close(']', indent, tracks.empty());
}

// One playlist object at `indent` (members at indent + 2), written as it is produced: a master
// playlist lists every track of the library.
void writePlaylist(JSONStream& json, const zq::Playlist& playlist, unsigned indent)
{
    const unsigned inner = indent + 2;
    json.open('{', indent);
    json.key("kind", inner);
    json.text(std::optional<std::string_view>(playlist.kind()));
    json.key("name", inner);
    json.text(playlist.name());
    json.key("playlistID", inner);
    json.number(playlist.playlistID());
    json.key("parentID", inner);
    json.number(playlist.parentID());
    json.key("isMaster", inner);
    json.boolean(playlist.isMaster());
    json.key("isPodcasts", inner);
    json.boolean(playlist.isPodcasts());
    json.key("trackIDs", inner);
    writeTrackIDs(json, playlist.tracks(), inner);
    if (const auto* smart = dynamic_cast<const zq::SmartPlaylist*>(&playlist)) {
        auto number = [&](std::string_view name, std::int32_t value) {
            json.key(name, inner);
            json.number(value);
        };
        auto boolean = [&](std::string_view name, bool value) {
            json.key(name, inner);
            json.boolean(value);
        };
        number("limitType", smart->limitType());
        number("limitSortType", smart->limitSortType());
        number("limit", smart->limit());
        boolean("liveUpdating", smart->liveUpdating());
        boolean("rulesEnabled", smart->rulesEnabled());
        boolean("limitsEnabled", smart->limitsEnabled());
        boolean("onlyMatchCheckedTracks", smart->onlyMatchCheckedTracks());
        boolean("limitSortReversed", smart->limitSortReversed());
        boolean("isOr", smart->isOr());
        // Rules are few: nlohmann writes them.
        Json rules = Json::array();
        for (const auto& rule : smart->rules())
            rules.push_back(ruleJSON(*rule));
        json.key("rules", inner);
        json.value(rules, inner);
    } else if (const auto* podcasts = dynamic_cast<const zq::Podcasts*>(&playlist)) {
        const auto& shows = podcasts->podcasts();
        json.key("groups", inner);
        json.open('[', inner, shows.empty());
        for (const auto& show : shows) {
            json.element(inner + 2);
            json.open('{', inner + 2);
            json.key("name", inner + 4);
            json.text(show->name());
            json.key("trackIDs", inner + 4);
            writeTrackIDs(json, show->tracks(), inner + 4);
            json.close('}', inner + 2);
        }
        json.close(']', inner, shows.empty());
    } else if (const auto* folder = dynamic_cast<const zq::PlaylistFolder*>(&playlist)) {
        const auto& children = folder->playlists();
        json.key("children", inner);
        json.open('[', inner, children.empty());
        for (const auto& child : children) {
            json.element(inner + 2);
            writePlaylist(json, *child, inner + 2);
        }
        json.close(']', inner, children.empty());
    }
    json.close('}', indent);
}

// Folder children are printed under their folder, so a top-level listing skips playlists that
// some folder holds.
bool insideSomeFolder(const zq::ZQCoreiPod& library, const zq::Playlist& playlist)
{
    for (const auto& candidate : library.allPlaylists())
        if (const auto* folder = dynamic_cast<const zq::PlaylistFolder*>(candidate.get()))
            for (const auto& child : folder->playlists())
                if (child.get() == &playlist)
                    return true;
    return false;
}

/// The model's parts, each null when unknown; "displayName" is null too when even the family is.
Json modelJSON(const zq::DeviceModel& model)
{
    const std::string display = model.displayName();
    return Json{{"number", text(model.modelNumber())}, {"name", text(model.name())},
                {"generation", text(model.generation())}, {"capacity", text(model.capacity())},
                {"colour", text(model.colour())}, {"displayName", display.empty() ? Json(nullptr) : Json(display)}};
}

void printIndented(std::ostream& out, const std::string& block, const std::string& indent)
{
    std::size_t start = 0;
    while (start < block.size()) {
        std::size_t end = block.find('\n', start);
        std::string line = block.substr(start, end == std::string::npos ? std::string::npos : end - start);
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        out << indent << line << '\n';
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
}

} // namespace

std::string describeModel(const zq::DeviceModel& model)
{
    std::string text = model.isKnown() ? model.displayName() : model.modelNumber() ? "unknown" : "";
    if (model.modelNumber())
        text += " (" + *model.modelNumber() + ")";
    return text;
}

void printLibraryJSON(std::ostream& out, const zq::ZQCoreiPod& library)
{
    JSONStream json(out);
    json.open('{', 0);
    json.key("name", 2);
    json.text(library.name());
    const zq::Value* serial = library.properties().find("SerialNumber");
    json.key("serialNumber", 2);
    json.text(serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt);
    json.key("type", 2);
    json.value(Json(library.type()), 2);
    json.key("model", 2);
    json.value(modelJSON(library.model()), 2);
    json.key("tracks", 2);
    const auto& tracks = library.allTracks();
    json.open('[', 2, tracks.empty());
    writeTrackElements(json, tracks);
    json.close(']', 2, tracks.empty());
    json.key("playlists", 2);
    std::size_t written = 0;
    for (const auto& playlist : library.allPlaylists()) {
        if (insideSomeFolder(library, *playlist))
            continue;
        if (written++ == 0)
            json.open('[', 2);
        json.element(4);
        writePlaylist(json, *playlist, 4);
    }
    if (written == 0)
        json.open('[', 2, true);
    json.close(']', 2, written == 0);
    json.close('}', 0);
    json.raw("\n");
    json.flush();
}

void printLibraryText(std::ostream& terminal, const zq::ZQCoreiPod& library)
{
    // Written whole once made, with the device's texts made harmless on a terminal.
    std::ostringstream out;
    const auto name = library.name();
    const std::string serial = serialOf(library);
    const std::string model = describeModel(library.model());
    out << (name ? *name : std::string("(unnamed)")) << '\n';
    out << "  Serial number: " << (serial.empty() ? "unknown" : serial) << '\n';
    out << "  Model:         " << (model.empty() ? "unknown" : model) << '\n';
    out << "  Model type:    " << library.type() << '\n';
    out << "  Mounted at:    " << library.path() << '\n';
    out << "  Tracks:        " << library.allTracks().size() << '\n';
    out << "  Playlists:     " << library.allPlaylists().size() << '\n';
    out << '\n';
    for (const auto& playlist : library.allPlaylists()) {
        if (insideSomeFolder(library, *playlist))
            continue;
        printIndented(out, playlist->description(), "");
        if (const auto* podcasts = dynamic_cast<const zq::Podcasts*>(playlist.get())) {
            for (const auto& show : podcasts->podcasts())
                out << "    " << (show->name() ? *show->name() : std::string("(unnamed show)")) << ": "
                    << show->trackCount() << (show->trackCount() == 1 ? " episode" : " episodes") << '\n';
        }
    }
    terminal << terminalSafe(out.str());
}

} // namespace zqpod
