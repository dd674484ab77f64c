// Plain playlists and their kinds: names, membership, change notices, printable forms, icons.

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

/// The 48-byte playlist record header with the fields the model reads.
std::array<std::uint8_t, 48> playlistHeader(std::uint8_t master, std::uint64_t playlistID, std::uint16_t podcast = 0)
{
    std::array<std::uint8_t, 48> header{};
    header[20] = master;
    for (int i = 0; i < 8; ++i)
        header[28 + i] = static_cast<std::uint8_t>(playlistID >> (8 * i));
    header[42] = static_cast<std::uint8_t>(podcast);
    return header;
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
struct NoticeLog {
    NoticeLog(Observable& object, const std::string& key)
    {
        object.addObserver(key, [this](const std::string& changed, Observable::Phase phase) {
            notices.push_back((phase == Observable::Phase::WillChange ? "will " : "did ") + changed);
        });
    }
    std::vector<std::string> notices;
};

// A purchased-items list whose record claimed to be the master and the podcast list, as a
// database row may.
class MarkedPurchasedPlaylist : public PurchasedPlaylist {
public:
    MarkedPurchasedPlaylist() : PurchasedPlaylist(std::string("Purchased"))
    {
        isMaster_ = true;
        isPodcasts_ = true;
    }
};

TEST(ModelPlaylist, NewPlaylistHasDefaultNameNoTracksAndPlainDescription)
{
    auto playlist = Playlist::init();
    EXPECT_EQ(playlist->name(), "New Playlist");
    EXPECT_TRUE(playlist->tracks().empty());
    EXPECT_EQ(playlist->playlistID(), 0u);
    EXPECT_FALSE(playlist->isMaster());
    EXPECT_FALSE(playlist->isPodcasts());
    EXPECT_EQ(playlist->description(), "Playlist name: New Playlist, ID: 0, 0 tracks.");
}

TEST(ModelPlaylist, DescriptionsOfMasterAndPlainRecords)
{
    auto master = Playlist::initWithMHYP(playlistHeader(1, 0xFFFFFFFFFFFFFFFFULL), std::string("Anna's iPod"));
    master->addTrack(track());
    master->addTrack(track());
    EXPECT_TRUE(master->isMaster());
    EXPECT_EQ(master->description(), "Master playlist name: Anna's iPod, ID: 18446744073709551615, 2 tracks.");

    // Only the exact value 1 marks the master.
    auto plain = Playlist::initWithMHYP(playlistHeader(2, 42), std::nullopt);
    EXPECT_FALSE(plain->isMaster());
    EXPECT_EQ(plain->description(), "Playlist name: (null), ID: 42, 0 tracks.");
}

TEST(ModelPlaylist, CreationDateCountsWholeSecondsFromTheReferenceDate)
{
    auto header = playlistHeader(0, 1);
    const std::uint32_t milliseconds = 4'000'000'999u;  // above 2^31: read unsigned
    for (int i = 0; i < 4; ++i)
        header[24 + i] = static_cast<std::uint8_t>(milliseconds >> (8 * i));
    auto playlist = Playlist::initWithMHYP(header, std::string("Dated"));
    ASSERT_TRUE(playlist->creationDate());
    EXPECT_EQ(playlist->creationDate()->timeIntervalSinceReferenceDate(), 4'000'000.0);
}

TEST(ModelPlaylist, TracksKeepDuplicatesAndRemoveTrackTakesEveryOccurrence)
{
    auto a = track(), b = track();
    auto playlist = Playlist::initWithName(std::string("Mix"));
    NoticeLog log(*playlist, "tracks");

    playlist->addTrack(a);
    playlist->addTrack(b);
    playlist->addTrack(a);
    playlist->addTrack(nullptr);  // ignored, and nothing announced
    EXPECT_EQ(playlist->tracks(), (Tracks{a, b, a}));
    EXPECT_EQ(log.notices.size(), 6u);

    playlist->removeTrack(a);
    EXPECT_EQ(playlist->tracks(), (Tracks{b}));

    // Removing what is not there still announces the change.
    log.notices.clear();
    playlist->removeTrack(a);
    playlist->removeTrack(nullptr);
    EXPECT_EQ(playlist->tracks(), (Tracks{b}));
    EXPECT_EQ(log.notices, (std::vector<std::string>{"will tracks", "did tracks", "will tracks", "did tracks"}));
}

TEST(ModelPodcasts, GroupsShowsAndAnswersTheirTracksInShowOrder)
{
    auto e1 = track(), e2 = track(), e3 = track(), own = track();
    auto podcasts = Podcasts::init();
    EXPECT_EQ(podcasts->name(), "New Playlist");
    EXPECT_TRUE(podcasts->isPodcasts());
    EXPECT_FALSE(podcasts->isMaster());
    EXPECT_EQ(podcasts->description(), "Podcasts");

    auto morning = playlistWith("The Morning Byte", {e1, e2});
    auto garden = playlistWith("Garden Talk", {e3, e1});
    podcasts->addPodcast(morning);
    podcasts->addPodcast(garden);
    // The list's own track array is not part of the answer.
    podcasts->addTrack(own);
    EXPECT_EQ(podcasts->tracks(), (Tracks{e1, e2, e3, e1}));
    EXPECT_EQ(podcasts->description(), "Podcasts");

    // The podcast flag of the record does not matter: a Podcasts object always is the list.
    auto fromRecord = Podcasts::initWithMHYP(playlistHeader(0, 9, 0), std::string("Podcasts"));
    EXPECT_TRUE(fromRecord->isPodcasts());
}

TEST(ModelPodcasts, AddingAPresentShowOrRemovingAnAbsentOneChangesNothing)
{
    auto podcasts = Podcasts::init();
    auto show = playlistWith("Show", {});
    auto other = playlistWith("Other", {});
    NoticeLog log(*podcasts, "podcasts");

    podcasts->addPodcast(show);
    podcasts->addPodcast(show);
    podcasts->removePodcast(other);
    podcasts->removePodcast(nullptr);
    EXPECT_EQ(podcasts->podcasts().size(), 1u);
    EXPECT_EQ(log.notices, (std::vector<std::string>{"will podcasts", "did podcasts"}));

    podcasts->removePodcast(show);
    EXPECT_TRUE(podcasts->podcasts().empty());
    EXPECT_EQ(log.notices.size(), 4u);
}

TEST(ModelPlaylistFolder, TracksConcatenateChildrenIncludingNestedFolders)
{
    auto shared = track(), x = track(), y = track();
    auto folder = PlaylistFolder::initWithName(std::string("Road"));
    auto inner = PlaylistFolder::initWithName(std::string("Inner"));
    inner->addPlaylist(playlistWith("Deep", {y}));
    folder->addPlaylist(playlistWith("One", {shared, x}));
    folder->addPlaylist(playlistWith("Two", {shared}));
    folder->addPlaylist(inner);

    // A track that two children share stands twice.
    EXPECT_EQ(folder->tracks(), (Tracks{shared, x, shared, y}));
}

TEST(ModelPlaylistFolder, DescriptionListsTheChildrenInTheirOwnWords)
{
    auto folder = PlaylistFolder::initWithName(std::string("Road"));
    EXPECT_EQ(folder->description(), "Playlist folder: Road, ID: 0, Children:\n(\n)");

    folder->addPlaylist(playlistWith("One", {track(), track()}));
    folder->addPlaylist(Podcasts::init());
    EXPECT_EQ(folder->description(), "Playlist folder: Road, ID: 0, Children:\n"
                                     "(\n"
                                     "    Playlist name: One, ID: 0, 2 tracks.,\n"
                                     "    Podcasts\n"
                                     ")");
}

TEST(ModelPlaylistFolder, AddingAPresentChildOrRemovingAnAbsentOneAnnouncesNothing)
{
    auto folder = PlaylistFolder::initWithName(std::string("F"));
    auto child = playlistWith("C", {});
    NoticeLog log(*folder, "playlists");
    folder->addPlaylist(child);
    folder->addPlaylist(child);
    folder->removePlaylist(playlistWith("Stranger", {}));
    EXPECT_EQ(folder->playlists().size(), 1u);
    EXPECT_EQ(log.notices, (std::vector<std::string>{"will playlists", "did playlists"}));
    folder->removePlaylist(child);
    EXPECT_TRUE(folder->playlists().empty());
}

TEST(ModelPurchasedPlaylist, IsNeverMasterNorPodcastsWhateverItsRecordSays)
{
    MarkedPurchasedPlaylist purchased;
    EXPECT_FALSE(purchased.isMaster());
    EXPECT_FALSE(purchased.isPodcasts());
    EXPECT_EQ(purchased.description(), "Playlist name: Purchased, ID: 0, 0 tracks.");
}

bool samePicture(const std::shared_ptr<Image>& a, const std::shared_ptr<Image>& b)
{
    return a && b && a->width() == b->width() && a->height() == b->height() &&
           std::equal(a->bytes(), a->bytes() + a->byteCount(), b->bytes());
}

TEST(ModelPlaylist, EveryKindHasItsIconAndEachCallMakesANewImage)
{
    auto master = Playlist::initWithMHYP(playlistHeader(1, 1), std::string("M"));
    auto plain = Playlist::init();
    auto podcasts = Podcasts::init();
    auto folder = PlaylistFolder::initWithName(std::string("F"));
    auto purchased = PurchasedPlaylist::initWithName(std::string("P"));
    auto smart = SmartPlaylist::initWithMHYP(playlistHeader(0, 2), std::string("S"), Value::Dictionary());
    MarkedPurchasedPlaylist markedPurchased;
    const std::vector<const Playlist*> kinds = {master.get(),    plain.get(), podcasts.get(),  folder.get(),
                                                purchased.get(), smart.get(), &markedPurchased};
    for (const Playlist* playlist : kinds) {
        auto icon = playlist->icon();
        ASSERT_TRUE(icon && !icon->empty()) << playlist->description();
        EXPECT_NE(icon, playlist->icon()) << "a caller may change its image";
    }
    // The master shows the device; plain lists and folders share the list picture; the
    // podcast, purchased and smart lists each have their own, whatever the record says.
    EXPECT_FALSE(samePicture(master->icon(), plain->icon()));
    EXPECT_TRUE(samePicture(folder->icon(), plain->icon()));
    EXPECT_FALSE(samePicture(podcasts->icon(), plain->icon()));
    EXPECT_FALSE(samePicture(purchased->icon(), plain->icon()));
    EXPECT_FALSE(samePicture(smart->icon(), plain->icon()));
    EXPECT_TRUE(samePicture(markedPurchased.icon(), purchased->icon()));
}

} // namespace
} // namespace zq
