// Ready-made libraries: the large one the benchmarks load and the small sample device of the demo.

#include "tools/zq-make-sample/DeviceImage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <numbers>

namespace zq::sample {

namespace {

/// Seconds from 1904-01-01 to 1970-01-01: track dates are stored counted from 1904.
constexpr std::uint32_t kSeconds1904To1970 = 2082844800u;

constexpr std::uint32_t from1904(std::uint32_t unixTime) { return unixTime + kSeconds1904To1970; }

/// SplitMix64: small, fast and the same on every platform, so a seed always gives one library.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next()
    {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    /// Uniform in [lo, hi].
    std::uint32_t between(std::uint32_t lo, std::uint32_t hi)
    {
        return lo + static_cast<std::uint32_t>(next() % (static_cast<std::uint64_t>(hi) - lo + 1));
    }
    bool percent(unsigned p) { return next() % 100 < p; }
    template <typename T, std::size_t N>
    const T& pick(const std::array<T, N>& items) { return items[next() % N]; }
    template <typename T>
    const T& pick(const std::vector<T>& items) { return items[next() % items.size()]; }

private:
    std::uint64_t state_;
};

// Word pools. A few entries in each are non-ASCII (accents, Cyrillic, Greek, Japanese) so the
// benchmark pays for the UTF-16 decoding a real international library needs.
constexpr std::array<const char*, 96> kTitleWords = {
    "Love", "Night", "Heart", "Fire", "River", "Dream", "Light", "Shadow", "Summer", "Rain",
    "Blue", "Golden", "Song", "Road", "Home", "Morning", "Stars", "City", "Ocean", "Wild",
    "Silent", "Broken", "Lonely", "Dancing", "Forever", "Midnight", "Angel", "Thunder", "Winter",
    "Garden", "Mirror", "Paper", "Electric", "Velvet", "Crystal", "Echo", "Hollow", "Northern",
    "Sweet", "Little", "Lost", "Running", "Falling", "Waiting", "Coming", "Again", "Tonight",
    "Yesterday", "Tomorrow", "Highway", "Satellite", "Harbour", "Lantern", "Memory", "Violet",
    "Horizon", "Kingdom", "Machine", "Wonder", "Signal", "Weather", "Sugar", "Silver", "Island",
    "Desert", "Fever", "Window", "Letter", "Station", "Circle", "Gravity", "Holiday", "Avenue",
    "Über", "Café", "Niño", "Mañana", "Été", "Große", "Liebe", "Nuit", "Cœur", "Señorita",
    "Rêverie", "Smörgåsbord", "Ljubav", "Сердце", "Ночь", "Звезда", "夜", "東京", "さくら",
    "Κόσμος", "Θάλασσα", "Déjà", "Naïve",
};

constexpr std::array<const char*, 48> kFirstNames = {
    "John", "Mary", "Paul", "Anna", "David", "Laura", "Michael", "Sarah", "James", "Emma",
    "Robert", "Julia", "Thomas", "Nina", "Daniel", "Clara", "Peter", "Sofia", "Mark", "Alice",
    "Oliver", "Grace", "Henry", "Lucy", "Samuel", "Hannah", "Leo", "Ruby", "Isaac", "Ella",
    "José", "Zoë", "Jürgen", "Søren", "Łukasz", "Ángel", "François", "Renée", "Björn", "Anaïs",
    "Dmitri", "Пётр", "Yuki", "健二", "Αλέξης", "Siobhán", "Ōtomo", "İlker",
};

constexpr std::array<const char*, 48> kLastNames = {
    "Smith", "Johnson", "Williams", "Brown", "Jones", "Miller", "Davis", "Wilson", "Anderson",
    "Taylor", "Thomas", "Moore", "Martin", "Jackson", "White", "Harris", "Clark", "Lewis",
    "Walker", "Hall", "Young", "King", "Wright", "Scott", "Green", "Baker", "Adams", "Nelson",
    "Hill", "Campbell", "Mitchell", "Roberts", "Carter", "Phillips", "Evans", "Turner",
    "Müller", "Dvořák", "García", "Nuñez", "Lefèvre", "Sørensen", "Kowalczyk", "Ivanová",
    "Соколов", "山田", "Παπαδόπουλος", "Ó Briain",
};

constexpr std::array<const char*, 24> kGenres = {
    "Rock", "Pop", "Alternative", "Jazz", "Classical", "Electronic", "Hip-Hop/Rap", "R&B/Soul",
    "Country", "Folk", "Blues", "Reggae", "Soundtrack", "Singer/Songwriter", "Dance", "Metal",
    "Punk", "World", "Latin", "Ambient", "Indie Rock", "Easy Listening", "Chanson", "J-Pop",
};

constexpr std::array<const char*, 16> kComments = {
    "Ripped from CD",
    "Purchased at the iTunes Store",
    "Amazon.com Song ID: 2",
    "Recorded live at the Royal Albert Hall, London",
    "Remastered from the original analogue tapes in 2009",
    "Bonus track, Japanese edition",
    "Visit the band online for tour dates and news",
    "Gift from Grandma, Christmas 2008",
    "Encoded with LAME 3.98 -V2",
    "Favourite track of the album!",
    "Enregistré au Studio Ferber, Paris",
    "Grabado en directo en Buenos Aires",
    "Aufgenommen im Hansa Studio, Berlin",
    "Запись с концерта в Москве",
    "Single version",
    "From the motion picture soundtrack",
};

constexpr std::array<const char*, 14> kPlaylistNames = {
    "Road Trip", "Workout", "Chill", "Favourites", "Party Mix", "Late Night", "Running",
    "Dinner", "Focus", "Sunday Morning", "Années 80", "Café del Mar", "Música Latina", "Классика",
};

std::string titleWords(Random& random, unsigned lo, unsigned hi)
{
    std::string s;
    for (unsigned n = random.between(lo, hi), i = 0; i < n; ++i) {
        if (i)
            s += ' ';
        s += random.pick(kTitleWords);
    }
    return s;
}

std::string personName(Random& random)
{
    return std::string(random.pick(kFirstNames)) + " " + random.pick(kLastNames);
}

std::string artistName(Random& random)
{
    switch (random.between(0, 3)) {
    case 0: return "The " + titleWords(random, 1, 2) + "s";
    case 1: return titleWords(random, 1, 2);
    default: return personName(random);
    }
}

std::string fileName(Random& random)
{
    static const char kChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::string name;
    for (int i = 0; i < 4; ++i)
        name += kChars[random.next() % (sizeof kChars - 1)];
    return name;
}

struct Encoding {
    const char* fileType;
    const char* extension;
};

} // namespace

DatabaseSpec makeLargeLibrary(std::size_t trackCount, std::size_t playlistCount, unsigned seed)
{
    Random random(0x5A17ULL * 1000003 + seed);
    DatabaseSpec db;
    db.tracks.reserve(trackCount);
    db.databaseID = random.next();

    std::vector<std::string> artists(trackCount / 40 + 8);
    for (auto& artist : artists)
        artist = artistName(random);

    const std::uint32_t added2006 = from1904(1136073600);  // 2006-01-01
    const std::uint32_t added2015 = from1904(1420070400);  // 2015-01-01
    std::size_t albumIndex = 0;
    while (db.tracks.size() < trackCount) {
        ++albumIndex;
        const std::uint32_t albumSize = random.between(6, 16);
        const bool compilation = random.percent(8);
        const std::string albumArtist = compilation ? "Various Artists" : random.pick(artists);
        const std::string album = random.percent(10) ? "Greatest Hits Vol. " + std::to_string(random.between(1, 4))
                                  : random.percent(8) ? "Live at the " + titleWords(random, 1, 2)
                                                      : titleWords(random, 1, 4);
        const std::string genre = random.pick(kGenres);
        const std::string composer = random.percent(45) ? personName(random) + " & " + personName(random)
                                                        : personName(random);
        const std::uint32_t year = random.between(1960, 2014);
        // Mostly MP3 at the usual bit rates, some AAC, a little Apple Lossless.
        const Encoding encoding = random.percent(70) ? Encoding{"MPEG audio file", "mp3"}
                                  : random.percent(85) ? Encoding{"AAC audio file", "m4a"}
                                                       : Encoding{"Apple Lossless audio file", "m4a"};
        const std::uint32_t bitrate = encoding.extension[1] == 'p' ? 128 + 64 * random.between(0, 3)
                                      : encoding.fileType[0] == 'A' && encoding.fileType[1] == 'A'
                                          ? 256
                                          : random.between(700, 1100);
        const std::uint32_t albumAdded = random.between(added2006, added2015);
        const bool artwork = random.percent(70);

        for (std::uint32_t number = 1; number <= albumSize && db.tracks.size() < trackCount; ++number) {
            const std::size_t index = db.tracks.size();
            TrackSpec t;
            t.trackID = static_cast<std::uint32_t>(100 + index);
            t.compilation = compilation ? 1 : 0;
            t.rating = random.percent(60) ? 0 : static_cast<std::uint8_t>(20 * random.between(1, 5));
            t.trackLength = random.percent(80) ? random.between(150000, 330000) : random.between(60000, 720000);
            t.bitrate = bitrate;
            t.fileSize = static_cast<std::uint32_t>(std::uint64_t(t.trackLength) * bitrate / 8) + random.between(2000, 60000);
            t.trackNumber = number;
            t.trackTotal = albumSize;
            t.year = year;
            t.sampleRate = 44100;
            t.soundcheckValue = random.between(400, 4000);
            t.dateAdded = albumAdded + random.between(0, 600);
            t.lastModified = t.dateAdded - random.between(0, 30 * 86400);
            t.playCount = random.percent(40) ? 0 : random.between(1, 120);
            t.lastPlayedTime = t.playCount ? t.dateAdded + random.between(3600, 200 * 86400) : 0;
            t.hasBeenPlayed = t.playCount ? 1 : 2;
            t.skipCount = random.percent(70) ? 0 : random.between(1, 6);
            t.lastSkippedTime = t.skipCount ? t.dateAdded + random.between(3600, 100 * 86400) : 0;
            t.discNumber = 1;
            t.discTotal = 1;
            t.dbid = random.next();
            t.BPM = random.percent(15) ? static_cast<std::uint16_t>(random.between(60, 180)) : 0;
            t.artworkCount = artwork ? 1 : 0;
            t.artworkLink = artwork ? static_cast<std::uint32_t>(0x64 + index) : 0;
            t.albumID = static_cast<std::uint16_t>(albumIndex);
            t.mediaType = 1;

            t.title = titleWords(random, 1, 5);
            if (random.percent(6))
                t.title = *t.title + " (Remastered " + std::to_string(random.between(1995, 2014)) + ")";
            else if (random.percent(5))
                t.title = *t.title + " (feat. " + personName(random) + ")";
            char location[64];
            std::snprintf(location, sizeof location, ":iPod_Control:Music:F%02u:%s.%s", random.between(0, 49),
                          fileName(random).c_str(), encoding.extension);
            t.location = location;
            t.album = album;
            t.artist = compilation ? random.pick(artists) : albumArtist;
            t.albumArtist = albumArtist;
            t.genre = genre;
            t.fileType = encoding.fileType;
            t.composer = composer;
            std::string comment = random.pick(kComments);
            if (comment.back() == '2')  // the store's song IDs run to nine digits
                comment += std::to_string(random.between(10000000, 99999999));
            if (random.percent(40))
                comment = comment + ". " + random.pick(kComments);
            t.comment = comment;
            db.tracks.push_back(std::move(t));
        }
    }

    PlaylistSpec master{
        .name = "Large Library",
        .master = 1,
        .creationTimestamp = added2006,
        .playlistID = random.next(),
        .sortOrder = 5,
    };
    master.items.reserve(trackCount);
    for (const auto& t : db.tracks)
        master.items.emplace_back(t.trackID);
    db.playlists.push_back(std::move(master));

    for (std::size_t p = 0; p < playlistCount; ++p) {
        PlaylistSpec playlist{
            .name = std::string(random.pick(kPlaylistNames)) + " " + std::to_string(p + 1),
            .creationTimestamp = random.between(added2006, added2015),
            .playlistID = random.next(),
            .sortOrder = 1,
        };
        std::uint32_t size = std::min<std::uint32_t>(random.between(300, 4000), static_cast<std::uint32_t>(trackCount));
        playlist.items.reserve(size);
        for (std::uint32_t i = 0; i < size; ++i)
            playlist.items.emplace_back(db.tracks[random.next() % trackCount].trackID);
        db.playlists.push_back(std::move(playlist));
    }
    return db;
}

// ---- the sample device --------------------------------------------------------------------------

namespace {

struct SampleTrack {
    const char* title;
    const char* artist;
    const char* album;
    const char* albumArtist;
    const char* genre;
    const char* composer;
    std::uint32_t year, trackNumber, trackTotal, playCount;
    std::uint8_t rating;
    const char* file;
};

// Nine songs over five albums (one a compilation) and four podcast episodes of two shows.
constexpr SampleTrack kSongs[] = {
    {"Harbour Song", "The Hollow Pines", "Northern Lights", "The Hollow Pines", "Indie Rock", "Ada Lindqvist", 2011, 1, 10, 31, 80, ":iPod_Control:Music:F03:HBSG.wav"},
    {"Northern Lights", "The Hollow Pines", "Northern Lights", "The Hollow Pines", "Indie Rock", "Ada Lindqvist", 2011, 2, 10, 44, 100, ":iPod_Control:Music:F17:NRTL.wav"},
    {"Paper Boats", "The Hollow Pines", "Northern Lights", "The Hollow Pines", "Indie Rock", "Ada Lindqvist & Tom Reyes", 2011, 5, 10, 12, 60, ":iPod_Control:Music:F08:PPRB.wav"},
    {"Słońce", "Marta Kowalska Quartet", "Cicha noc", "Marta Kowalska Quartet", "Jazz", "Marta Kowalska", 2014, 1, 8, 7, 80, ":iPod_Control:Music:F22:SLNC.wav"},
    {"Cicha noc", "Marta Kowalska Quartet", "Cicha noc", "Marta Kowalska Quartet", "Jazz", "Marta Kowalska", 2014, 8, 8, 3, 0, ":iPod_Control:Music:F41:CCHN.wav"},
    {"Symphony No. 5 in C minor, Op. 67: I. Allegro con brio", "Vienna Chamber Orchestra", "Beethoven: Symphonies 5 & 7", "Vienna Chamber Orchestra", "Classical", "Ludwig van Beethoven", 2009, 1, 8, 19, 100, ":iPod_Control:Music:F11:BTH5.wav"},
    {"Symphony No. 5 in C minor, Op. 67: II. Andante con moto", "Vienna Chamber Orchestra", "Beethoven: Symphonies 5 & 7", "Vienna Chamber Orchestra", "Classical", "Ludwig van Beethoven", 2009, 2, 8, 9, 80, ":iPod_Control:Music:F29:BTH6.wav"},
    {"夜の街 (Night Town)", "DJ Kōji", "Tokyo Nights", "DJ Kōji", "Electronic", "Kōji Tanaka", 2016, 3, 12, 25, 60, ":iPod_Control:Music:F35:YRNM.wav"},
    {"Beach Days", "Sunny Day Club", "Summer Hits 2012", "Various Artists", "Pop", "Lena Park & Chris Moreau", 2012, 7, 20, 56, 40, ":iPod_Control:Music:F02:BCHD.wav"},
};

struct SampleEpisode {
    const char* title;
    const char* show;
    const char* host;
    const char* category;
    const char* description;
    std::uint32_t episode;
    const char* file;
};

constexpr SampleEpisode kEpisodes[] = {
    {"Episode 41: Disk Mode Forever", "The Morning Byte", "Sam Okafor", "Technology", "Why a music player with a hard disk still makes sense, and how its library is stored.", 41, ":iPod_Control:Music:F14:MB41.wav"},
    {"Episode 42: Click Wheels", "The Morning Byte", "Sam Okafor", "Technology", "A short history of the scroll wheel, from mechanical to touch-sensitive.", 42, ":iPod_Control:Music:F14:MB42.wav"},
    {"Spring Bulbs", "Garden Talk", "Helen Marsh", "Home & Garden", "Planting tulips and daffodils for a colourful spring.", 12, ":iPod_Control:Music:F45:GT12.wav"},
    {"Composting 101", "Garden Talk", "Helen Marsh", "Home & Garden", "Everything you need to start a compost heap this weekend.", 13, ":iPod_Control:Music:F45:GT13.wav"},
};

// ---- covers -----------------------------------------------------------------------------------
//
// Each album and show of the sample gets a small painted cover, so that the artwork a tool
// writes out can be told apart at a glance. The painters work on the unit square, so the same
// cover comes out at every stored size.

using Painter = zq::Image::Pixel (*)(double u, double v);

std::uint8_t channel(double value) { return static_cast<std::uint8_t>(std::clamp(value, 0.0, 1.0) * 255.0 + 0.5); }
zq::Image::Pixel rgb(double r, double g, double b) { return {255, channel(r), channel(g), channel(b)}; }
zq::Image::Pixel mix(zq::Image::Pixel a, zq::Image::Pixel b, double t)
{
    auto m = [t](std::uint8_t x, std::uint8_t y) { return static_cast<std::uint8_t>(x + (y - x) * std::clamp(t, 0.0, 1.0)); };
    return {255, m(a.red, b.red), m(a.green, b.green), m(a.blue, b.blue)};
}
bool inside(double u, double v, double cu, double cv, double r) { return (u - cu) * (u - cu) + (v - cv) * (v - cv) < r * r; }

// "Northern Lights": green and violet curtains over a night sky and dark hills.
zq::Image::Pixel northernLights(double u, double v)
{
    if (v > 0.78 + 0.06 * std::sin(u * 7.0))
        return rgb(0.04, 0.08, 0.06);
    zq::Image::Pixel sky = rgb(0.02, 0.03 + 0.1 * v, 0.15 + 0.2 * v);
    const double band = std::exp(-std::pow((v - 0.35 - 0.12 * std::sin(u * 9.0)) / 0.08, 2));
    const double band2 = std::exp(-std::pow((v - 0.55 - 0.08 * std::sin(u * 5.0 + 1.0)) / 0.05, 2));
    return mix(mix(sky, rgb(0.2, 0.95, 0.5), band), rgb(0.6, 0.3, 0.9), band2 * 0.8);
}

// "Cicha noc": a full moon and a few stars over a quiet navy sky.
zq::Image::Pixel quietNight(double u, double v)
{
    if (inside(u, v, 0.68, 0.3, 0.16))
        return rgb(0.98, 0.95, 0.8);
    const double stars[][2] = {{0.15, 0.2}, {0.3, 0.55}, {0.45, 0.15}, {0.2, 0.8}, {0.85, 0.7}, {0.55, 0.6}};
    for (const auto& star : stars)
        if (inside(u, v, star[0], star[1], 0.018))
            return rgb(1, 1, 0.9);
    return rgb(0.05, 0.07, 0.25 + 0.15 * (1 - v));
}

// "Beethoven: Symphonies 5 & 7": a cream page with a bold dark-red band and black staff lines.
zq::Image::Pixel symphonies(double u, double v)
{
    if (v > 0.62 && v < 0.8)
        return rgb(0.55, 0.08, 0.1);
    for (int line = 0; line < 5; ++line)
        if (std::abs(v - (0.2 + 0.07 * line)) < 0.008 && u > 0.1 && u < 0.9)
            return rgb(0.1, 0.1, 0.1);
    if (inside(u, v, 0.35, 0.34, 0.04) || inside(u, v, 0.6, 0.27, 0.04))
        return rgb(0.1, 0.1, 0.1);
    return rgb(0.96, 0.92, 0.8);
}

// "Tokyo Nights": a neon grid running to a magenta horizon.
zq::Image::Pixel tokyoNights(double u, double v)
{
    if (v < 0.45)
        return mix(rgb(0.1, 0.0, 0.25), rgb(0.95, 0.2, 0.6), v / 0.45);
    const double depth = (v - 0.45) / 0.55;
    const double x = (u - 0.5) / (0.1 + depth);
    const bool lineX = std::abs(x * 4 - std::round(x * 4)) < 0.06 * (1 + depth);
    const bool lineY = std::abs(std::sin(1.0 / (depth + 0.05) * 3.0)) < 0.15;
    return lineX || lineY ? rgb(0.2, 0.95, 1.0) : rgb(0.08, 0.0, 0.18);
}

// "Summer Hits 2012": an orange sun sinking into a striped blue sea.
zq::Image::Pixel summerHits(double u, double v)
{
    if (v < 0.55)
        return inside(u, v, 0.5, 0.55, 0.25) ? rgb(1.0, 0.55, 0.1) : mix(rgb(1.0, 0.85, 0.4), rgb(1.0, 0.5, 0.35), v / 0.55);
    return (static_cast<int>(v * 30) % 2) ? rgb(0.1, 0.45, 0.8) : rgb(0.2, 0.6, 0.9);
}

// "The Morning Byte": a white coffee cup on teal.
zq::Image::Pixel morningByte(double u, double v)
{
    if (u > 0.3 && u < 0.62 && v > 0.4 && v < 0.75)
        return rgb(1, 1, 1);
    if (inside(u, v, 0.66, 0.55, 0.08) && !inside(u, v, 0.66, 0.55, 0.04))
        return rgb(1, 1, 1);
    if (v > 0.2 && v < 0.35 && std::abs(std::sin(u * 40.0)) < 0.3 && u > 0.35 && u < 0.58)
        return rgb(0.85, 0.95, 0.95);
    return rgb(0.0, 0.5, 0.5);
}

// "Garden Talk": a yellow-hearted flower on leaf green.
zq::Image::Pixel gardenTalk(double u, double v)
{
    if (inside(u, v, 0.5, 0.45, 0.09))
        return rgb(1.0, 0.85, 0.1);
    for (int petal = 0; petal < 6; ++petal) {
        const double angle = petal * 3.14159265 / 3;
        if (inside(u, v, 0.5 + 0.17 * std::cos(angle), 0.45 + 0.17 * std::sin(angle), 0.1))
            return rgb(0.95, 0.4, 0.6);
    }
    if (std::abs(u - 0.5) < 0.02 && v > 0.55)
        return rgb(0.1, 0.4, 0.1);
    return rgb(0.45, 0.75, 0.3);
}

struct Cover {
    const char* album;
    Painter paint;
};

constexpr Cover kCovers[] = {
    {"Northern Lights", northernLights},
    {"Cicha noc", quietNight},
    {"Beethoven: Symphonies 5 & 7", symphonies},
    {"Tokyo Nights", tokyoNights},
    {"Summer Hits 2012", summerHits},
    {"The Morning Byte", morningByte},
    {"Garden Talk", gardenTalk},
};

/// The album ID of the sample's songs: one per album, in the order the albums first appear.
std::uint16_t albumNumber(const char* album)
{
    std::uint16_t number = 0;
    for (const auto& cover : kCovers) {
        ++number;
        if (std::string(cover.album) == album)
            return number;
    }
    return 0;
}

/// The cover's two stored sizes, as an iPod classic keeps them: 100 and 200 pixels square.
std::vector<ThumbnailSpec> coverThumbnails(Painter paint)
{
    std::vector<ThumbnailSpec> sizes;
    for (std::uint16_t side : {100, 200}) {
        ThumbnailSpec thumbnail{.formatID = side == 100 ? 1028u : 1029u, .width = side, .height = side};
        thumbnail.picture = [paint, side](std::uint32_t x, std::uint32_t y) {
            return paint((x + 0.5) / side, (y + 0.5) / side);
        };
        sizes.push_back(std::move(thumbnail));
    }
    return sizes;
}

// ---- audio ------------------------------------------------------------------------------------
//
// Every track of the sample is a short real recording, so that what the demo copies off the
// "device" plays in any player: a little tune as a WAV file (the RIFF container iPods play),
// 8-bit mono PCM at 11025 Hz to keep the whole sample a few hundred kilobytes.

constexpr std::uint32_t kSampleRate = 11025;
constexpr std::uint32_t kNoteMs = 280;
constexpr std::size_t kTuneNotes = 9;

void putLE(std::vector<std::uint8_t>& bytes, std::uint32_t value, int size)
{
    for (int i = 0; i < size; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

/// A tune as a complete WAV file: each MIDI note sounds for kNoteMs with a plucked decay and a
/// touch of its octave (0 is a rest).
Data tuneWAV(const std::vector<int>& notes)
{
    const std::uint32_t perNote = kSampleRate * kNoteMs / 1000;
    const std::uint32_t samples = perNote * static_cast<std::uint32_t>(notes.size());
    std::vector<std::uint8_t> bytes;
    bytes.reserve(44 + samples + 1);
    bytes.insert(bytes.end(), {'R', 'I', 'F', 'F'});
    putLE(bytes, 36 + samples + (samples & 1), 4);
    bytes.insert(bytes.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    putLE(bytes, 16, 4);           // format chunk size
    putLE(bytes, 1, 2);            // PCM
    putLE(bytes, 1, 2);            // mono
    putLE(bytes, kSampleRate, 4);
    putLE(bytes, kSampleRate, 4);  // bytes per second
    putLE(bytes, 1, 2);            // block alignment
    putLE(bytes, 8, 2);            // bits per sample
    bytes.insert(bytes.end(), {'d', 'a', 't', 'a'});
    putLE(bytes, samples, 4);
    for (int note : notes) {
        const double frequency = 440.0 * std::pow(2.0, (note - 69) / 12.0);
        for (std::uint32_t i = 0; i < perNote; ++i) {
            const double t = static_cast<double>(i) / kSampleRate;
            double value = 0;
            if (note > 0) {
                const double envelope = std::min(1.0, t * 200.0) * std::exp(-t * 7.0);
                value = envelope * (0.8 * std::sin(2 * std::numbers::pi * frequency * t) + 0.2 * std::sin(4 * std::numbers::pi * frequency * t));
            }
            bytes.push_back(static_cast<std::uint8_t>(std::lround(128.0 + 100.0 * value)));
        }
    }
    if (samples & 1)
        bytes.push_back(0);  // chunks are padded to an even length
    return Data(std::move(bytes));
}

/// The tune of the sample's track number `index`: a phrase in a pentatonic scale on `root`,
/// different for every track.
std::vector<int> tuneFor(std::size_t index, int root)
{
    static constexpr int kScale[] = {0, 2, 4, 7, 9, 12, 14, 16};
    std::vector<int> notes;
    for (std::size_t i = 0; i < kTuneNotes; ++i)
        notes.push_back(i + 1 == kTuneNotes ? root : root + kScale[(index * 5 + i * (index % 3 + 2) + i * i) % std::size(kScale)]);
    return notes;
}

std::uint32_t tuneLengthMs() { return kNoteMs * static_cast<std::uint32_t>(kTuneNotes); }

} // namespace

VolumeSpec makeSampleDevice()
{
    const std::uint32_t baseAdded = from1904(1686477600);  // 2023-06-11 10:00 UTC
    DatabaseSpec db;
    db.databaseID = 0x3C1F6A7E20B54D91ULL;

    std::uint32_t id = 52;
    std::vector<std::uint32_t> songIDs, episodeIDs;
    std::map<std::uint32_t, Data> audio;  // by track ID
    for (const auto& s : kSongs) {
        const Data& wav = audio[id] = tuneWAV(tuneFor(id - 52, 57 + 2 * albumNumber(s.album)));
        TrackSpec t{
            .trackID = id,
            .compilation = std::string(s.albumArtist) == "Various Artists" ? std::uint8_t(1) : std::uint8_t(0),
            .rating = s.rating,
            .lastModified = baseAdded - 86400 * (id % 7) - 3600,
            .fileSize = static_cast<std::uint32_t>(wav.size()),
            .trackLength = tuneLengthMs(),
            .trackNumber = s.trackNumber,
            .trackTotal = s.trackTotal,
            .year = s.year,
            .bitrate = kSampleRate * 8 / 1000,
            .sampleRate = kSampleRate,
            .soundcheckValue = 1200 + 37 * id,
            .playCount = s.playCount,
            .lastPlayedTime = s.playCount ? baseAdded + 86400 * (id % 9) + 4321 : 0,
            .discNumber = 1,
            .discTotal = 1,
            .dateAdded = baseAdded + 60 * (id - 52),
            .dbid = 0x7A3E000000000000ULL + 0x1111ULL * id,
            .hasBeenPlayed = s.playCount ? std::uint8_t(1) : std::uint8_t(2),
            .mediaType = 1,
            .albumID = albumNumber(s.album),
            .title = s.title,
            .location = s.file,
            .album = s.album,
            .artist = s.artist,
            .genre = s.genre,
            .fileType = "WAV audio file",
            .composer = s.composer,
            .albumArtist = s.albumArtist,
        };
        songIDs.push_back(id++);
        db.tracks.push_back(std::move(t));
    }
    for (const auto& e : kEpisodes) {
        const Data& wav = audio[id] = tuneWAV(tuneFor(id - 52, 48));
        TrackSpec t{
            .trackID = id,
            .lastModified = baseAdded - 5 * 86400,
            .fileSize = static_cast<std::uint32_t>(wav.size()),
            .trackLength = tuneLengthMs(),
            .year = 2023,
            .bitrate = kSampleRate * 8 / 1000,
            .sampleRate = kSampleRate,
            .dateAdded = baseAdded + 3600 * (id - 60),
            .dbid = 0x7A3E000000000000ULL + 0x1111ULL * id,
            .dateReleased = baseAdded - 86400 * (70 - id),
            .hasBeenPlayed = 2,
            .mediaType = 4,  // podcast
            .episodeNumber = e.episode,
            .title = e.title,
            .location = e.file,
            .album = e.show,
            .artist = e.host,
            .genre = "Podcast",
            .fileType = "WAV audio file",
            .podcastCategory = e.category,
            .description = e.description,
        };
        episodeIDs.push_back(id++);
        db.tracks.push_back(std::move(t));
    }

    // Covers. Each is found by a different route, as on real devices: most tracks carry the
    // cover's image ID as their artwork link; the first "Cicha noc" track is found by its dbid
    // alone and its album-mate through the shared album ID; the first "Garden Talk" episode by
    // its dbid (episodes have no album ID, so nothing is shared there).
    ArtworkDBSpec artwork;
    for (std::size_t i = 0; i < std::size(kCovers); ++i) {
        const std::uint32_t imageID = 100 + static_cast<std::uint32_t>(i);
        auto first = std::find_if(db.tracks.begin(), db.tracks.end(),
                                  [&](const TrackSpec& t) { return t.album == kCovers[i].album; });
        artwork.images.push_back({.imageID = imageID, .songID = first->dbid, .thumbnails = coverThumbnails(kCovers[i].paint)});
        const bool byDbid = std::string(kCovers[i].album) == "Cicha noc" || std::string(kCovers[i].album) == "Garden Talk";
        for (auto& t : db.tracks) {
            if (t.album != kCovers[i].album)
                continue;
            t.artworkCount = 1;
            t.artworkLink = byDbid ? 0 : imageID;
        }
        if (std::string(kCovers[i].album) == "Garden Talk")
            std::find_if(std::next(first), db.tracks.end(), [&](const TrackSpec& t) { return t.album == "Garden Talk"; })
                ->artworkLink = imageID;
    }

    const std::uint32_t created = from1904(1686300000);
    PlaylistSpec master{.name = "Sample iPod", .master = 1, .creationTimestamp = created,
                        .playlistID = 0x4E2B9C0D11A07F01ULL, .sortOrder = 5};
    for (const auto& t : db.tracks)
        master.items.emplace_back(t.trackID);
    db.playlists.push_back(std::move(master));

    db.playlists.push_back({.name = "Road Trip", .creationTimestamp = created + 7200,
                            .playlistID = 0x4E2B9C0D11A07F02ULL, .sortOrder = 1,
                            .items = {songIDs[8], songIDs[0], songIDs[7], songIDs[1], songIDs[2]}});
    db.playlists.push_back({.name = "Quiet Evenings", .creationTimestamp = created + 9000,
                            .playlistID = 0x4E2B9C0D11A07F03ULL, .sortOrder = 1,
                            .items = {songIDs[3], songIDs[4], songIDs[5], songIDs[6]}});
    db.playlists.push_back({.name = "Podcasts", .podcast = 1, .creationTimestamp = created + 10800,
                            .playlistID = 0x4E2B9C0D11A07F04ULL, .sortOrder = 24,
                            .items = {PlaylistItem::group("The Morning Byte"), episodeIDs[0], episodeIDs[1],
                                      PlaylistItem::group("Garden Talk"), episodeIDs[2], episodeIDs[3]}});

    // "Recent Favourites": any of three rules, at most 25 songs, most played first. Its items
    // are what iTunes last computed: the songs that match, by play count.
    db.playlists.push_back({
        .name = "Recent Favourites",
        .creationTimestamp = created + 14400,
        .playlistID = 0x4E2B9C0D11A07F05ULL,
        .sortOrder = 20,
        .items = {songIDs[8], songIDs[1], songIDs[0], songIDs[7], songIDs[2], songIDs[3], songIDs[4]},
        .smartPrefs = SmartPrefsSpec{.liveUpdating = 1, .enableRules = 1, .enableLimits = 1,
                                     .limitType = 3, .limitSort = 20, .limitValue = 25},
        .smartRules = SmartRulesSpec{
            .conjunction = 1,
            .rules = {
                {.field = 4, .action = 0x01000002, .text = "Hollow Pines"},           // Artist contains
                {.field = 7, .action = 0x00000100, .fromValue = 2010, .toValue = 2016}, // Year in range
                {.field = 22, .action = 0x00000010, .fromValue = 2, .toValue = 2},    // Play count > 2
            },
        },
    });

    VolumeSpec volume;
    for (const auto& t : db.tracks)
        volume.files.emplace(relativePathOfLocation(*t.location), audio.at(t.trackID));
    volume.database = std::move(db);
    volume.artwork = std::move(artwork);
    volume.sysInfo = sysInfoText("8K9281QJY5N");
    return volume;
}

} // namespace zq::sample
