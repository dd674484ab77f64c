// Plain playlists and their kinds: descriptions word for word, membership and its change
// notices, podcast shows, folders, icons.

#include "ZQCore/foundation/Image.h"
#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/model/iPodTrack.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace zq {
namespace {

using Tracks = Playlist::Tracks;
using Notices = std::vector<std::string>;

/// The 48-byte playlist record header with the fields the model reads.
std::array<std::uint8_t, 48> header(std::uint8_t master, std::uint64_t playlistID, std::uint32_t milliseconds = 0)
{
    std::array<std::uint8_t, 48> bytes{};
    bytes[20] = master;
    for (int i = 0; i < 8; ++i)
        bytes[28 + i] = static_cast<std::uint8_t>(playlistID >> (8 * i));
    for (int i = 0; i < 4; ++i)
        bytes[24 + i] = static_cast<std::uint8_t>(milliseconds >> (8 * i));
    return bytes;
}

std::shared_ptr<iPodTrack> track() { return iPodTrack::initWithParent(nullptr); }

std::shared_ptr<Playlist> playlistWith(const std::string& name, const Tracks& tracks)
{
    auto playlist = Playlist::initWithName(name);
    for (const auto& t : tracks)
        playlist->addTrack(t);
    return playlist;
}

/// Records every notice an observable sends for one key, as "will" and "did".
Notices& logNotices(Observable& object, const std::string& key, Notices& log)
{
    object.addObserver(key, [&log](const std::string& changed, Observable::Phase phase) {
        log.push_back((phase == Observable::Phase::WillChange ? "will " : "did ") + changed);
    });
    return log;
}

// A purchased-items list whose record claimed to be the master and the podcast list.
struct MarkedPurchasedPlaylist : PurchasedPlaylist {
    MarkedPurchasedPlaylist() : PurchasedPlaylist(std::string("Purchased"))
    {
        isMaster_ = true;
        isPodcasts_ = true;
    }
};

TEST(ModelPlaylist, KindsAndDescriptionsWordForWord)
{
    auto master = Playlist::initWithMHYP(header(1, 0xFFFFFFFFFFFFFFFFULL), std::string("Anna's iPod"));
    master->addTrack(track());
    master->addTrack(track());
    auto plain = Playlist::initWithMHYP(header(2, 42), std::nullopt); // only the exact value 1 marks the master
    auto folder = PlaylistFolder::initWithName(std::string("Road"));
    auto emptyFolder = PlaylistFolder::initWithName(std::string("Road"));
    folder->addPlaylist(playlistWith("One", {track(), track()}));
    folder->addPlaylist(Podcasts::init());
    auto marked = std::make_shared<MarkedPurchasedPlaylist>();
    const std::vector<std::tuple<std::shared_ptr<Playlist>, bool, bool, std::string>> cases = {
        {Playlist::init(), false, false, "Playlist name: New Playlist, ID: 0, 0 tracks."},
        {master, true, false, "Master playlist name: Anna's iPod, ID: 18446744073709551615, 2 tracks."},
        {plain, false, false, "Playlist name: (null), ID: 42, 0 tracks."},
        {Podcasts::initWithMHYP(header(0, 9), std::string("P")), false, true, "Podcasts"},
        {marked, false, false, "Playlist name: Purchased, ID: 0, 0 tracks."}, // whatever its record says
        {emptyFolder, false, false, "Playlist folder: Road, ID: 0, Children:\n(\n)"},
        {folder, false, false,
         "Playlist folder: Road, ID: 0, Children:\n(\n    Playlist name: One, ID: 0, 2 tracks.,\n    Podcasts\n)"},
    };
    for (const auto& [playlist, isMaster, isPodcasts, description] : cases) {
        EXPECT_EQ(playlist->description(), description);
        EXPECT_EQ(playlist->isMaster(), isMaster) << description;
        EXPECT_EQ(playlist->isPodcasts(), isPodcasts) << description;
    }
    // Milliseconds above 2^31 are read unsigned; whole seconds are kept.
    EXPECT_EQ(Playlist::initWithMHYP(header(0, 1, 4'000'000'999u), std::string("D"))
                  ->creationDate()->timeIntervalSinceReferenceDate(), 4'000'000.0);
}

TEST(ModelPlaylist, TracksKeepDuplicatesAndRemoveTrackTakesEveryOccurrence)
{
    auto a = track(), b = track();
    auto playlist = Playlist::initWithName(std::string("Mix"));
    Notices log;
    logNotices(*playlist, "tracks", log);
    playlist->addTrack(a);
    playlist->addTrack(b);
    playlist->addTrack(a);
    playlist->addTrack(nullptr); // ignored, and nothing announced
    EXPECT_EQ(playlist->tracks(), (Tracks{a, b, a}));
    EXPECT_EQ(log.size(), 6u);
    playlist->removeTrack(a);
    EXPECT_EQ(playlist->tracks(), (Tracks{b}));
    // Removing what is not there still announces the change.
    log.clear();
    playlist->removeTrack(a);
    playlist->removeTrack(nullptr);
    EXPECT_EQ(playlist->tracks(), (Tracks{b}));
    EXPECT_EQ(log, (Notices{"will tracks", "did tracks", "will tracks", "did tracks"}));
}

TEST(ModelPlaylist, ShowsAndFolderChildrenGiveTheirTracksInOrderAndAnnounceOnlyRealChanges)
{
    auto e1 = track(), e2 = track(), e3 = track();
    auto podcasts = Podcasts::init();
    auto show = playlistWith("The Morning Byte", {e1, e2});
    Notices shows;
    logNotices(*podcasts, "podcasts", shows);
    podcasts->addPodcast(show);
    podcasts->addPodcast(show);
    podcasts->addPodcast(playlistWith("Garden Talk", {e3, e1}));
    podcasts->removePodcast(playlistWith("Stranger", {}));
    podcasts->removePodcast(nullptr);
    podcasts->addTrack(track()); // the list's own track array is not part of the answer
    EXPECT_EQ(podcasts->tracks(), (Tracks{e1, e2, e3, e1}));
    EXPECT_EQ(shows, (Notices{"will podcasts", "did podcasts", "will podcasts", "did podcasts"}));
    podcasts->removePodcast(show);
    EXPECT_EQ(podcasts->podcasts().size(), 1u);

    auto folder = PlaylistFolder::initWithName(std::string("Road"));
    auto inner = PlaylistFolder::initWithName(std::string("Inner"));
    auto one = playlistWith("One", {e1, e2});
    inner->addPlaylist(playlistWith("Deep", {e3}));
    Notices children;
    logNotices(*folder, "playlists", children);
    folder->addPlaylist(one);
    folder->addPlaylist(one);
    folder->addPlaylist(playlistWith("Two", {e1}));
    folder->addPlaylist(inner);
    folder->removePlaylist(playlistWith("Stranger", {}));
    EXPECT_EQ(folder->tracks(), (Tracks{e1, e2, e1, e3})); // a shared track stands twice
    EXPECT_EQ(children.size(), 6u);
    folder->removePlaylist(one);
    EXPECT_EQ(folder->playlists().size(), 2u);
}

bool samePicture(const std::shared_ptr<Image>& a, const std::shared_ptr<Image>& b)
{
    return a && b && a->width() == b->width() && a->height() == b->height() &&
           std::equal(a->bytes(), a->bytes() + a->byteCount(), b->bytes());
}

TEST(ModelPlaylist, EveryKindHasItsIconAndEachCallMakesANewImage)
{
    auto master = Playlist::initWithMHYP(header(1, 1), std::string("M"));
    auto plain = Playlist::init();
    auto podcasts = Podcasts::init();
    auto folder = PlaylistFolder::initWithName(std::string("F"));
    auto purchased = PurchasedPlaylist::initWithName(std::string("P"));
    auto smart = SmartPlaylist::initWithMHYP(header(0, 2), std::string("S"), Value::Dictionary());
    MarkedPurchasedPlaylist marked;
    for (const Playlist* playlist : std::initializer_list<const Playlist*>{
             master.get(), plain.get(), podcasts.get(), folder.get(), purchased.get(), smart.get(), &marked}) {
        auto icon = playlist->icon();
        ASSERT_TRUE(icon && !icon->empty()) << playlist->description();
        EXPECT_NE(icon, playlist->icon()) << "a caller may change its image";
    }
    // The master shows the device; plain lists and folders share the list picture; the podcast,
    // purchased and smart lists each have their own, whatever the record says.
    EXPECT_FALSE(samePicture(master->icon(), plain->icon()));
    EXPECT_TRUE(samePicture(folder->icon(), plain->icon()));
    EXPECT_FALSE(samePicture(podcasts->icon(), plain->icon()));
    EXPECT_FALSE(samePicture(purchased->icon(), plain->icon()));
    EXPECT_FALSE(samePicture(smart->icon(), plain->icon()));
    EXPECT_TRUE(samePicture(marked.icon(), purchased->icon()));
}

} // namespace
} // namespace zq
