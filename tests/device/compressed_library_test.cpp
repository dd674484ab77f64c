// Which binary database a volume's library and its name come from when iTunesCDB is there: the
// compressed one whenever it can be read, iTunesDB (with a log line) when it cannot and iTunesDB
// holds a library, and an error naming iTunesCDB when there is nothing else.

#include "ZQCore/foundation/Application.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <ostream>

namespace zq {
namespace {

using namespace test;

DatabaseSpec namedLibrary(std::uint32_t trackID, const std::string& title, const std::string& name)
{
    return DatabaseSpec{.tracks = {{.trackID = trackID, .title = title}},
                        .playlists = {PlaylistSpec{.name = name, .master = 1, .items = {trackID}}}};
}

const DatabaseSpec kCompressed = namedLibrary(1, "From iTunesCDB", "Nano");
const DatabaseSpec kPlain = namedLibrary(2, "From iTunesDB", "Classic");

enum class Stored { None, Empty, Good, Truncated, CutDataSets };

/// The file as stored: for iTunesCDB the compressed library; for iTunesDB the plain one. A
/// truncated iTunesCDB has lost the second half of its stream; one with cut data sets is a whole
/// stream of a database cut short (it inflates, and the walk then fails).
std::optional<Data> stored(Stored kind, bool compressed)
{
    const Data plain = buildITunesDB(compressed ? kCompressed : kPlain);
    switch (kind) {
    case Stored::None: return std::nullopt;
    case Stored::Empty: return Data();
    case Stored::Good: return compressed ? compressITunesDB(plain) : plain;
    case Stored::Truncated: {
        const Data whole = compressITunesDB(plain);
        return whole.subdata(0, whole.size() - whole.size() / 3);
    }
    case Stored::CutDataSets: return compressITunesDB(plain.subdata(0, plain.size() / 2));
    }
    return std::nullopt;
}

struct ChoiceCase {
    const char* what;
    Stored compressed;
    Stored plain;
    std::optional<std::string> title;   ///< the one track's title; none: the load throws
    std::string errorName = applicationIdentifier() + ".DatabaseDamaged";
    bool logged = false;                ///< a line naming iTunesCDB and the fallback
};
void PrintTo(const ChoiceCase& c, std::ostream* out) { *out << c.what; }

class CompressedLibraryChoice : public testing::TestWithParam<ChoiceCase> {};

TEST_P(CompressedLibraryChoice, PrefersiTunesCDBAndFallsBackOnlyToALibrary)
{
    const ChoiceCase& c = GetParam();
    TempDir dir;
    VolumeSpec volume{.rawITunesDB = stored(c.plain, false), .rawITunesCDB = stored(c.compressed, true)};
    writeVolume(dir.path(), volume);
    const std::string cdb = "iPod_Control/iTunes/iTunesCDB";
    LogCapture log;

    std::shared_ptr<ZQCoreiPod> library;
    try {
        library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir.path()));
        ASSERT_TRUE(c.title) << "loaded";
        ASSERT_EQ(library->allTracks().size(), 1u);
        EXPECT_EQ(library->allTracks()[0]->title(), c.title);
        // The master playlist of the same file names the device, on the library and on its
        // reference alike.
        const std::string expectedName = *c.title == "From iTunesCDB" ? "Nano" : "Classic";
        EXPECT_EQ(library->name(), expectedName);
        EXPECT_EQ(ZQCoreiPodRef::initWithPath(dir.path())->name(), expectedName);
    } catch (const Exception& e) {
        ASSERT_FALSE(c.title) << e.what();
        EXPECT_EQ(e.name(), c.errorName);
        EXPECT_NE(e.reason().find("The compressed library database " + cdb + " is damaged: "), std::string::npos)
            << e.reason();
    }

    ASSERT_EQ(log.lines.size(), c.logged ? 1u : 0u) << testing::PrintToString(log.lines);
    if (c.logged) {
        EXPECT_NE(log.lines[0].find(cdb), std::string::npos) << log.lines[0];
        EXPECT_NE(log.lines[0].find("reading iTunesDB instead"), std::string::npos) << log.lines[0];
    }
}

INSTANTIATE_TEST_SUITE_P(
    Volumes, CompressedLibraryChoice,
    testing::Values(
        ChoiceCase{"iTunesCDB beside an empty iTunesDB", Stored::Good, Stored::Empty, "From iTunesCDB"},
        ChoiceCase{"iTunesCDB alone", Stored::Good, Stored::None, "From iTunesCDB"},
        ChoiceCase{"iTunesCDB beside a stale iTunesDB", Stored::Good, Stored::Good, "From iTunesCDB"},
        ChoiceCase{"an empty iTunesCDB leaves it to iTunesDB", Stored::Empty, Stored::Good, "From iTunesDB"},
        ChoiceCase{"a truncated iTunesCDB beside a good iTunesDB", Stored::Truncated, Stored::Good, "From iTunesDB",
                   "", true},
        ChoiceCase{"cut data sets in iTunesCDB beside a good iTunesDB", Stored::CutDataSets, Stored::Good,
                   "From iTunesDB", "", true},
        ChoiceCase{"a truncated iTunesCDB beside an empty iTunesDB", Stored::Truncated, Stored::Empty, std::nullopt},
        ChoiceCase{"a truncated iTunesCDB alone", Stored::Truncated, Stored::None, std::nullopt},
        ChoiceCase{"cut data sets in iTunesCDB alone", Stored::CutDataSets, Stored::None, std::nullopt,
                   "XRDataReaderInvalidRead"}),
    [](const auto& testCase) { return "case" + std::to_string(testCase.index); });

} // namespace
} // namespace zq
