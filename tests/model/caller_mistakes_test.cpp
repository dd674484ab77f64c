// What a host application may get wrong must never bring it down: a null argument is an absent
// one, and a folder put inside itself is refused, so that the next walk of a library's
// playlists, tracks or descriptions still ends.

#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

namespace {

using namespace zq::test;

std::shared_ptr<zq::ZQCoreiPod> smallLibrary(const TempDir& dir)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 5, .title = "Five"}, TrackSpec{.trackID = 6, .title = "Six"}};
    db.playlists = {PlaylistSpec{.name = "My iPod", .master = 1, .items = {5, 6}},
                    PlaylistSpec{.name = "Casts", .podcast = 1, .items = {PlaylistItem::group("Show"), 6}}};
    return loadDatabase(dir.path(), db);
}

/// Everything a host walks: every playlist's tracks, count and description, the master, the
/// podcasts and every track's description.
void walk(const zq::ZQCoreiPod& library)
{
    for (const auto& playlist : library.allPlaylists()) {
        ASSERT_NE(playlist, nullptr);
        (void)playlist->tracks();
        (void)playlist->trackCount();
        (void)playlist->description();
    }
    for (const auto& track : library.allTracks()) {
        ASSERT_NE(track, nullptr);
        (void)track->description();
    }
    (void)library.masterPlaylist();
    (void)library.name();
}

TEST(CallerMistakes, NullArgumentsAreAbsentOnes)
{
    TempDir dir;
    auto library = smallLibrary(dir);
    const std::size_t playlists = library->allPlaylists().size(), tracks = library->allTracks().size();
    auto podcasts = library->podcasts();
    ASSERT_TRUE(podcasts);
    const std::size_t shows = podcasts->podcasts().size();
    auto folder = zq::PlaylistFolder::initWithName(std::string("Folder"));
    library->addPlaylist(folder);

    podcasts->addPodcast(nullptr);
    folder->addPlaylist(nullptr);
    library->addPlaylist(nullptr);
    library->addTrack(nullptr);
    library->masterPlaylist()->addTrack(nullptr);
    library->masterPlaylist()->addTracks({nullptr, nullptr});
    library->removePlaylist(nullptr);
    library->removeTrack(nullptr);
    podcasts->removePodcast(nullptr);
    folder->removePlaylist(nullptr);

    EXPECT_EQ(library->allPlaylists().size(), playlists + 1);
    EXPECT_EQ(library->allTracks().size(), tracks);
    EXPECT_EQ(podcasts->podcasts().size(), shows);
    EXPECT_TRUE(folder->playlists().empty());
    EXPECT_EQ(library->masterPlaylist()->trackCount(), 2u);
    walk(*library);

    // Opening nothing is "no such device", not a crash.
    EXPECT_THROW(zq::ZQCoreiPod::initWithiPodReference(nullptr), zq::Exception);
    zq::ZQCoreiPod::linkArtwork({nullptr}, {nullptr});
}

TEST(CallerMistakes, AFolderNeverEndsUpInsideItself)
{
    TempDir dir;
    auto library = smallLibrary(dir);
    auto outer = zq::PlaylistFolder::initWithName(std::string("Outer"));
    auto inner = zq::PlaylistFolder::initWithName(std::string("Inner"));
    auto innermost = zq::PlaylistFolder::initWithName(std::string("Innermost"));
    outer->addPlaylist(inner);
    inner->addPlaylist(innermost);
    innermost->addPlaylist(library->masterPlaylist());

    outer->addPlaylist(outer);      // itself
    innermost->addPlaylist(outer);  // a folder that holds it, two levels up
    inner->addPlaylist(outer);

    EXPECT_EQ(outer->playlists().size(), 1u);
    EXPECT_EQ(inner->playlists().size(), 1u);
    EXPECT_EQ(innermost->playlists().size(), 1u);
    EXPECT_TRUE(outer->holds(*library->masterPlaylist()));
    EXPECT_FALSE(innermost->holds(*outer));
    EXPECT_EQ(outer->trackCount(), 2u);
    library->addPlaylist(outer);
    walk(*library);

    auto podcasts = library->podcasts();
    podcasts->addPodcast(podcasts);
    EXPECT_EQ(podcasts->podcasts().size(), 1u);
    walk(*library);
}

} // namespace
