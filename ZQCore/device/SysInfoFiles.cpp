#include "ZQCore/device/SysInfoFiles.h"

#include <glib.h>

#include <charconv>
#include <cstdlib>
#include <limits>
#include <vector>

namespace zq {

namespace {

std::string_view trimmed(std::string_view text)
{
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Nesting deeper than any device writes is refused, so that a hostile file cannot make the
// value tree (and its recursive destruction) arbitrarily deep.
constexpr std::size_t kMaxDepth = 32;

/// Builds the top-level dictionary of an XML property list element by element. Every element
/// is a frame; a value that completes goes to its parent. Anything that is not a property list
/// (a key outside a dictionary, a key without a value, an unknown element, text that is no
/// number) breaks the container it stands in, and a broken container breaks its own parent in
/// turn, up to the top-level dictionary, which drops just that entry. XML that is not
/// well-formed stops the parse; the entries completed before the fault stay.
class EntryCollector {
public:
    std::optional<Value> result() const
    {
        if (!sawTopDictionary_)
            return std::nullopt;
        // A parse stopped by a fault leaves the top-level dictionary open: its finished entries count.
        for (const Frame& frame : frames_)
            if (frame.isTop)
                return frame.value;
        return Value(top_);
    }

    void start(std::string_view name)
    {
        if (skipping_ > 0) {
            ++skipping_;
            return;
        }
        if (frames_.size() >= kMaxDepth) {
            breakParent();
            skipping_ = 1;
            return;
        }
        Frame frame;
        frame.name = std::string(name);
        if (name == "plist") {
            if (!frames_.empty()) {
                breakParent();
                skipping_ = 1;
                return;
            }
        } else if (name == "dict" || name == "array") {
            if (name == "dict" && !sawTopDictionary_ && (frames_.empty() || (frames_.size() == 1 && frames_[0].name == "plist"))) {
                frame.isTop = true;
                sawTopDictionary_ = true;
            }
            frame.value = name == "dict" ? Value(Value::Dictionary{}) : Value(Value::Array{});
        } else if (name == "key") {
            if (frames_.empty() || frames_.back().name != "dict") {
                breakParent();
                skipping_ = 1;
                return;
            }
        } else if (!(name == "string" || name == "integer" || name == "real" || name == "true" || name == "false" ||
                     name == "date" || name == "data")) {
            breakParent();
            skipping_ = 1;
            return;
        }
        frames_.push_back(std::move(frame));
    }

    void text(std::string_view text)
    {
        if (skipping_ == 0 && !frames_.empty() && frames_.back().name != "dict" && frames_.back().name != "array")
            frames_.back().text.append(text);
    }

    void end()
    {
        if (skipping_ > 0) {
            --skipping_;
            return;
        }
        if (frames_.empty())
            return;
        Frame frame = std::move(frames_.back());
        frames_.pop_back();
        if (frame.isTop) {
            top_ = std::move(*frame.value.dictionary());
            return;
        }
        if (frame.name == "plist" || frames_.empty())
            return;
        Frame& parent = frames_.back();
        if (frame.name == "key") {
            // A key that follows a key without a value leaves the first one unanswered.
            if (parent.pendingKey)
                breakFrame(parent);
            parent.pendingKey = std::move(frame.text);
            return;
        }
        if (!frame.broken && frame.value.isNull())
            frame.broken = !scalar(frame);
        deliver(parent, std::move(frame));
    }

private:
    struct Frame {
        std::string name;
        std::string text;
        Value value;
        std::optional<std::string> pendingKey;
        bool broken = false;
        bool isTop = false;
    };

    void breakFrame(Frame& frame)
    {
        if (frame.isTop)
            frame.pendingKey.reset();  // the top level loses the entry, never the rest
        else
            frame.broken = true;
    }

    void breakParent()
    {
        if (!frames_.empty())
            breakFrame(frames_.back());
    }

    void deliver(Frame& parent, Frame&& child)
    {
        if (parent.name == "plist")
            return;
        if (auto* entries = parent.value.dictionary()) {
            if (!parent.pendingKey || child.broken) {
                breakFrame(parent);
                parent.pendingKey.reset();
                return;
            }
            entries->insert_or_assign(std::move(*parent.pendingKey), std::move(child.value));
            parent.pendingKey.reset();
            return;
        }
        if (auto* items = parent.value.array()) {
            if (child.broken)
                breakFrame(parent);
            else
                items->push_back(std::move(child.value));
            return;
        }
        // A value inside a scalar element (<string><integer>1</integer></string>).
        breakFrame(parent);
    }

    static bool scalar(Frame& frame)
    {
        const std::string& name = frame.name;
        if (name == "string") {
            frame.value = Value(frame.text);
            return true;
        }
        if (name == "true" || name == "false") {
            frame.value = Value(name == "true");
            return trimmed(frame.text).empty();
        }
        const std::string_view text = trimmed(frame.text);
        if (name == "integer") {
            std::int64_t number = 0;
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
            if (error != std::errc() || end != text.data() + text.size() || text.empty())
                return false;
            frame.value = Value(number);
            return true;
        }
        if (name == "real") {
            const std::string copy(text);
            char* end = nullptr;
            const double number = std::strtod(copy.c_str(), &end);
            if (copy.empty() || end != copy.c_str() + copy.size())
                return false;
            frame.value = Value(number);
            return true;
        }
        if (name == "data") {
            std::string compact;
            for (char c : text)
                if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
                    compact += c;
            gsize length = 0;
            guchar* bytes = g_base64_decode(compact.c_str(), &length);
            frame.value = Value(Data(bytes, length));
            g_free(bytes);
            return true;
        }
        if (name == "date") {
            GDateTime* when = g_date_time_new_from_iso8601(std::string(text).c_str(), nullptr);
            if (!when)
                return false;
            frame.value = Value(Date::fromUnixTime(static_cast<double>(g_date_time_to_unix(when))));
            g_date_time_unref(when);
            return true;
        }
        return false;
    }

    std::vector<Frame> frames_;
    std::size_t skipping_ = 0;
    bool sawTopDictionary_ = false;
    Value::Dictionary top_;
};

void onStart(GMarkupParseContext*, const gchar* name, const gchar**, const gchar**, gpointer collector, GError**)
{
    static_cast<EntryCollector*>(collector)->start(name);
}

void onEnd(GMarkupParseContext*, const gchar*, gpointer collector, GError**)
{
    static_cast<EntryCollector*>(collector)->end();
}

void onText(GMarkupParseContext*, const gchar* text, gsize length, gpointer collector, GError**)
{
    static_cast<EntryCollector*>(collector)->text(std::string_view(text, length));
}

} // namespace

std::optional<std::string> sysInfoValue(std::string_view text, std::string_view key)
{
    std::optional<std::string> value;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        if (const std::size_t colon = line.find(':'); colon != std::string_view::npos && trimmed(line.substr(0, colon)) == key)
            value = std::string(trimmed(line.substr(colon + 1)));
        if (end == std::string_view::npos)
            break;
        text.remove_prefix(end + 1);
    }
    return value;
}

std::optional<Value> readPropertyListEntries(const Data& bytes)
{
    if (bytes.empty() || bytes.size() > static_cast<std::size_t>(std::numeric_limits<gssize>::max()))
        return std::nullopt;
    EntryCollector collector;
    GMarkupParser parser{};
    parser.start_element = onStart;
    parser.end_element = onEnd;
    parser.text = onText;
    GMarkupParseContext* context = g_markup_parse_context_new(&parser, G_MARKUP_DEFAULT_FLAGS, &collector, nullptr);
    const auto* text = reinterpret_cast<const gchar*>(bytes.bytes());
    // A fault in the XML stops the parse; what was whole before it is kept.
    if (g_markup_parse_context_parse(context, text, static_cast<gssize>(bytes.size()), nullptr))
        g_markup_parse_context_end_parse(context, nullptr);
    g_markup_parse_context_free(context);
    return collector.result();
}

std::optional<Value> readSysInfoExtended(const Data& bytes)
{
    if (auto list = Value::fromPropertyList(bytes))
        return list;
    auto entries = readPropertyListEntries(bytes);
    if (!entries || entries->dictionary()->empty())
        return std::nullopt;
    return entries;
}

} // namespace zq
