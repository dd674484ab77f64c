#pragma once

// Names for the files copied off a device: a template of track fields, made safe for any file
// system the music may land on (a FAT memory stick included) and unique within one copy.

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace zq {
class iPodTrack;
}

namespace zqpod {

/// The template the copy names files by unless told otherwise.
inline constexpr const char* kDefaultNameTemplate = "{albumArtist|artist}/{album}/{disc-}{track:02} {title}.{ext}";

/// The longest file or folder name written, in bytes: under every common file system's limit
/// of 255, with room for a " (12)" to tell names apart and for a temporary name's decoration.
inline constexpr std::size_t kMaxNameBytes = 180;

/// A template that did not parse; what() says where and why.
class TemplateError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file-name template: literal text and `{...}` fields, with "/" between folders.
///
/// A field is `{` [prefix] name [`|` name ...] [`:` width] [suffix] `}`: the first of the named
/// track fields that has a value, zero-padded to `width` digits when it is a number, with the
/// prefix and suffix (any characters that are not letters or digits) written around it only
/// when there is a value. So "{disc-}" writes "2-" on the second disc of a set and nothing on a
/// single-disc album. Fields: title, artist, albumArtist, album, genre, composer, year, track,
/// trackTotal, disc (only when the album has more than one disc), discTotal, ext (the device
/// file's extension, lower case) and id (the track ID).
class NameTemplate {
public:
    /// Throws TemplateError for an unknown field, an unclosed brace or an empty template.
    explicit NameTemplate(const std::string& text);

    /// The track's relative path under the template, each part made safe (safeName); an empty
    /// folder part becomes "Unknown", an empty file name "Track <id>".
    std::string pathFor(const zq::iPodTrack& track) const;

    /// The names of the fields a template may use, for messages.
    static const std::vector<std::string>& fieldNames();

private:
    struct Field {
        std::vector<std::string> names;
        std::string prefix;
        std::string suffix;
        int width = 0;
    };
    struct Piece {
        std::string literal;
        std::optional<Field> field;
    };
    std::vector<std::vector<Piece>> parts_;  ///< one list per path component
};

/// A file or folder name safe on Linux, Windows and FAT file systems: control characters and
/// <>:"/\|?* become "_", leading blanks and trailing blanks and dots go, a leading dot (a hidden
/// file) and device names such as "CON" or "lpt1.txt" get a "_" in front, and the name is cut
/// to kMaxNameBytes on a character boundary, keeping an extension of up to 16 bytes when
/// `keepExtension`. Nothing left gives "_".
std::string safeName(const std::string& text, bool keepExtension = false);

/// `path` with " (n)" inserted before the extension of its last component: "a/b.mp3", 2 gives
/// "a/b (2).mp3".
std::string numberedPath(const std::string& path, int n);

/// The key under which two relative paths count as the same name: ASCII letters folded, since
/// the destination may be a file system that ignores case.
std::string nameKey(const std::string& path);

} // namespace zqpod
