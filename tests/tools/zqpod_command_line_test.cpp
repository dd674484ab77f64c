// zqpod's command line as people type it: options before or after the command, its own
// options (--help, --version), and mistakes named with exit status 2.

#include "tests/support/SampleDevice.h"
#include "tests/tools/ToolProcess.h"

#include "CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

namespace zq {
namespace {

using test::Outcome;
using test::TempDir;
using test::zqpod;
using testing::HasSubstr;

std::string printed(const std::vector<std::string>& args)
{
    const Outcome run = zqpod(args);
    EXPECT_EQ(run.status, 0) << testing::PrintToString(args) << run.err;
    return run.out;
}

TEST(CommandLine, OptionsStandBeforeOrAfterTheCommand)
{
    TempDir device;
    test::writeVolume(device.path(), test::makeSampleDevice());
    const std::string& dev = device.path();
    const std::string json = printed({"library", dev, "--json"});
    ASSERT_THAT(json, testing::StartsWith("{\n"));
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"--json", "library", dev},
             {"--timeout", "5", "library", "--json", dev},
             {"--timeout=5", "--json", "library", dev},
             {"library", "--json", "--timeout", "5", dev},
             {"library", dev, "--timeout", "0.5", "--json"}})
        EXPECT_EQ(printed(args), json) << testing::PrintToString(args);
    const std::string text = printed({"library", dev});
    EXPECT_EQ(printed({"--timeout", "5", "library", dev}), text);
    EXPECT_NE(text, json);

    // After "--" every word is a word: here the device's name.
    const Outcome named = zqpod({"library", "--", "--json"});
    EXPECT_EQ(named.status, 1);
    EXPECT_THAT(named.err, HasSubstr("No device called '--json'"));

    // The copy's options anywhere too, with their values.
    TempDir out;
    const Outcome copy = zqpod({"--dry-run", "--playlist", "Road Trip", "copy", dev, out.file("music")});
    EXPECT_EQ(copy.status, 0) << copy.err;
    EXPECT_THAT(copy.out, HasSubstr("Dry run, nothing written: would copy 5 files"));
}

TEST(CommandLine, MistakesAreNamedWithStatusTwo)
{
    struct Case {
        std::vector<std::string> args;
        std::string said;  ///< the first line on standard error
    };
    const std::vector<Case> cases = {
        {{"library", "/", "--yaml"}, "zqpod library: unknown option '--yaml'"},
        {{"--yaml", "library", "/"}, "zqpod library: unknown option '--yaml'"},
        {{"--frob"}, "zqpod: unknown option '--frob'"},
        {{"frob", "--json"}, "zqpod: unknown command 'frob'"},
        // Another command's option is no option of this one.
        {{"devices", "--json"}, "zqpod devices: unknown option '--json'"},
        {{"library", "--json=yes", "/"}, "zqpod library: unknown option '--json=yes'"},
        {{"copy", "/a", "/b", "--template"}, "zqpod copy: --template needs a value"},
        {{"library", "--timeout"}, "zqpod: --timeout needs a number of seconds"},
        {{"--timeout", "soon", "library"}, "zqpod: --timeout wants a number of seconds above 0, not 'soon'"},
        {{"get", "DEV", "twelve", "out.mp3"}, "zqpod get: 'twelve' is not a track ID"},
        {{"get", "DEV", "12"}, "usage: zqpod get DEVICE TRACK-ID OUTFILE"},
        {{"--timeout", "5"}, "usage: zqpod COMMAND [ARGS]"},
    };
    for (const Case& row : cases) {
        const Outcome run = zqpod(row.args);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(row.args) << run.err;
        EXPECT_EQ(run.out, "") << testing::PrintToString(row.args);
        EXPECT_EQ(test::lines(run.err).at(0), row.said) << testing::PrintToString(row.args);
    }
}

TEST(CommandLine, HelpAndVersion)
{
    // One command's help, asked for in three ways; zqpod's own from --help alone.
    const std::string copyHelp = printed({"copy", "--help"});
    EXPECT_THAT(copyHelp, testing::StartsWith("usage: zqpod copy [DEVICE] DEST [OPTIONS]\n"));
    EXPECT_EQ(printed({"--help", "copy"}), copyHelp);
    EXPECT_EQ(printed({"help", "copy"}), copyHelp);
    EXPECT_EQ(printed({"-h", "copy", "/a", "/b"}), copyHelp);
    const std::string usage = printed({"--help"});
    EXPECT_THAT(usage, testing::StartsWith("usage: zqpod COMMAND [ARGS]\n"));
    EXPECT_THAT(usage, HasSubstr("  --version  "));
    EXPECT_EQ(zqpod({}).err, usage);

    // The tool's version and the framework's, with the library file the process runs.
    const std::string version = printed({"library", "--version"});
    EXPECT_TRUE(std::regex_match(version, std::regex("zqpod [0-9]+\\.[0-9]+\\.[0-9]+\n"
                                                     "ZQCore [0-9]+\\.[0-9]+\\.[0-9]+ \\(/.*libZQCore\\.so[.0-9]*\\)\n")))
        << version;
    EXPECT_EQ(printed({"--version"}), version);

    // The manual page carries the options of zqpod itself.
    const std::string manual = printed({"--man"});
    EXPECT_THAT(manual, HasSubstr(".SH OPTIONS\n"));
    EXPECT_THAT(manual, HasSubstr(".B \\-\\-version\n"));
    EXPECT_THAT(manual, HasSubstr(".B \\-\\-timeout SECONDS\n"));
}

// Values are taken byte for byte, as names on a device or a disk may be in any encoding.
TEST(CommandLine, ValuesAreTakenAsTheyAre)
{
    const std::vector<zqpod::OptionSpec> declared = {{"--playlist", "NAME"}, {"--art"}, {"--help", nullptr, 'h'}};
    const std::string latin1 = "Caf\xE9";
    const auto parsed = zqpod::parseCommandLine(
        {"copy", "--playlist", latin1, "-", "--art", "-h", "--playlist=second", "-x", "--", "--art", "-h"}, declared);
    EXPECT_EQ(parsed.words, (std::vector<std::string>{"copy", "-", "--art", "-h"}));
    EXPECT_EQ(parsed.unknown, (std::vector<std::string>{"-x"}));
    EXPECT_EQ(parsed.options, (std::vector<std::pair<std::string, std::string>>{
                                  {"--playlist", latin1}, {"--art", ""}, {"--help", ""}, {"--playlist", "second"}}));
    EXPECT_EQ(parsed.value("--playlist"), "second");
    EXPECT_FALSE(parsed.has("--timeout"));
}

} // namespace
} // namespace zq
