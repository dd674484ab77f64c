#include "FileNames.h"

#include "ZQCore/model/iPodTrack.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

namespace zqpod {

namespace {

bool isLetterOrDigit(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

std::string lowerASCII(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

/// Cuts UTF-8 text to at most `limit` bytes without splitting a character.
std::string cutUTF8(const std::string& text, std::size_t limit)
{
    if (text.size() <= limit)
        return text;
    std::size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end);
}

void trimBlanksAndDots(std::string& text)
{
    std::size_t start = 0;
    while (start < text.size() && (text[start] == ' ' || text[start] == '\t'))
        ++start;
    text.erase(0, start);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '.'))
        text.pop_back();
}

bool isReservedDeviceName(const std::string& name)
{
    const std::string stem = lowerASCII(name.substr(0, name.find('.')));
    static const std::array<const char*, 4> plain = {"con", "prn", "aux", "nul"};
    for (const char* reserved : plain)
        if (stem == reserved)
            return true;
    return stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) && stem[3] >= '1' && stem[3] <= '9';
}

std::string numberText(std::uint64_t value, int width)
{
    std::string text = std::to_string(value);
    if (static_cast<int>(text.size()) < width)
        text.insert(0, static_cast<std::size_t>(width) - text.size(), '0');
    return text;
}

std::string extensionOf(const std::optional<std::string>& path)
{
    if (!path)
        return "";
    const std::size_t slash = path->find_last_of('/');
    const std::size_t dot = path->find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) || dot + 1 == path->size())
        return "";
    return lowerASCII(path->substr(dot + 1));
}

/// The value of one field for a track; "" when the track has none (a 0 counts as none).
std::string fieldValue(const zq::iPodTrack& track, const std::string& name, int width)
{
    auto number = [width](std::uint64_t value) { return value ? numberText(value, width) : std::string(); };
    if (name == "title")
        return track.title().value_or("");
    if (name == "artist")
        return track.artist().value_or("");
    if (name == "albumArtist")
        return track.albumArtist().value_or("");
    if (name == "album")
        return track.album().value_or("");
    if (name == "genre")
        return track.genre().value_or("");
    if (name == "composer")
        return track.composer().value_or("");
    if (name == "year")
        return number(track.year());
    if (name == "track")
        return number(track.trackNumber());
    if (name == "trackTotal")
        return number(track.trackTotal());
    if (name == "disc")
        return track.discTotal() > 1 || track.discNumber() > 1 ? number(track.discNumber()) : std::string();
    if (name == "discTotal")
        return number(track.discTotal());
    if (name == "ext")
        return extensionOf(track.filePath());
    if (name == "id")
        return std::to_string(track.trackID());
    return "";
}

} // namespace

const std::vector<std::string>& NameTemplate::fieldNames()
{
    static const std::vector<std::string> names = {"title", "artist", "albumArtist", "album", "genre",
                                                   "composer", "year", "track", "trackTotal", "disc",
                                                   "discTotal", "ext", "id"};
    return names;
}

NameTemplate::NameTemplate(const std::string& text)
{
    std::vector<Piece> part;
    std::size_t i = 0;
    auto fail = [&](const std::string& why) { throw TemplateError("bad template \"" + text + "\": " + why); };
    while (i < text.size()) {
        const char c = text[i];
        if (c == '/') {
            if (!part.empty())
                parts_.push_back(std::move(part));
            part.clear();
            ++i;
            continue;
        }
        if (c == '}')
            fail("\"}\" without \"{\"");
        if (c != '{') {
            if (part.empty() || part.back().field)
                part.push_back({});
            part.back().literal += c;
            ++i;
            continue;
        }
        const std::size_t close = text.find('}', i);
        if (close == std::string::npos)
            fail("\"{\" without \"}\"");
        const std::string inside = text.substr(i + 1, close - i - 1);
        if (inside.find('{') != std::string::npos || inside.find('/') != std::string::npos)
            fail("\"{" + inside + "}\" holds \"{\" or \"/\"");
        Field field;
        std::size_t j = 0;
        while (j < inside.size() && !isLetterOrDigit(inside[j]))
            field.prefix += inside[j++];
        for (;;) {
            std::string name;
            while (j < inside.size() && isLetterOrDigit(inside[j]))
                name += inside[j++];
            const auto& known = fieldNames();
            if (std::find(known.begin(), known.end(), name) == known.end())
                fail(name.empty() ? "a field without a name in \"{" + inside + "}\""
                                  : "unknown field \"" + name + "\"");
            field.names.push_back(name);
            if (j < inside.size() && inside[j] == '|') {
                ++j;
                continue;
            }
            break;
        }
        if (j < inside.size() && inside[j] == ':') {
            ++j;
            std::string digits;
            while (j < inside.size() && std::isdigit(static_cast<unsigned char>(inside[j])))
                digits += inside[j++];
            if (digits.empty() || digits.size() > 2)
                fail("\":\" must be followed by a width of one or two digits in \"{" + inside + "}\"");
            field.width = std::stoi(digits);
        }
        field.suffix = inside.substr(j);
        if (std::any_of(field.suffix.begin(), field.suffix.end(), isLetterOrDigit))
            fail("letters after the field names in \"{" + inside + "}\" (use \"|\" between names)");
        part.push_back({"", std::move(field)});
        i = close + 1;
    }
    if (!part.empty())
        parts_.push_back(std::move(part));
    if (parts_.empty())
        fail("it names no file");
}

std::string NameTemplate::pathFor(const zq::iPodTrack& track) const
{
    std::string path;
    for (std::size_t p = 0; p < parts_.size(); ++p) {
        const bool last = p + 1 == parts_.size();
        std::string text;
        for (const Piece& piece : parts_[p]) {
            if (!piece.field) {
                text += piece.literal;
                continue;
            }
            for (const std::string& name : piece.field->names) {
                const std::string value = fieldValue(track, name, piece.field->width);
                if (!value.empty()) {
                    text += piece.field->prefix + value + piece.field->suffix;
                    break;
                }
            }
        }
        std::string name = safeName(text, last);
        if (name == "_" || (last && name.starts_with("_."))) {
            // Nothing of substance came out of the fields: a name that still says what it is.
            const std::string extension = extensionOf(track.filePath());
            name = last ? "Track " + std::to_string(track.trackID()) + (extension.empty() ? "" : "." + extension)
                        : "Unknown";
        }
        path += (p ? "/" : "") + name;
    }
    return path;
}

std::string safeName(const std::string& text, bool keepExtension)
{
    std::string name;
    name.reserve(text.size());
    for (char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        const bool forbidden = u < 0x20 || u == 0x7F || std::string_view("<>:\"/\\|?*").find(c) != std::string_view::npos;
        name += forbidden ? '_' : c;
    }
    trimBlanksAndDots(name);
    if (name.empty())
        return "_";
    if (name.front() == '.' || isReservedDeviceName(name))
        name.insert(name.begin(), '_');
    if (name.size() > kMaxNameBytes) {
        std::string extension;
        const std::size_t dot = name.find_last_of('.');
        if (keepExtension && dot != std::string::npos && name.size() - dot <= 16)
            extension = name.substr(dot);
        name = cutUTF8(name.substr(0, name.size() - extension.size()), kMaxNameBytes - extension.size());
        trimBlanksAndDots(name);
        name += extension;
    }
    return name;
}

std::string numberedPath(const std::string& path, int n)
{
    const std::size_t slash = path.find_last_of('/');
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    std::size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || dot <= start)
        dot = path.size();
    return path.substr(0, dot) + " (" + std::to_string(n) + ")" + path.substr(dot);
}

std::string nameKey(const std::string& path) { return lowerASCII(path); }

} // namespace zqpod
