#pragma once
// Whole outputs compared with expectation files under tests/expected, and the real sample
// databases that some of them are made from.
//
// An expectation file is the output as it was last checked by hand. After an intended change,
// run the test with ZQ_WRITE_EXPECTED=1 in the environment: it writes the file instead of
// comparing (and fails, so that a run that rewrote files is never mistaken for a pass); then
// read the diff before committing it.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace zq::test {

inline std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// Compares `actual` with tests/expected/`name` line by line (lines starting with "#" in the
/// file are comments), reporting the first few lines that differ.
inline void expectMatchesFile(const std::string& name, const std::string& actual, const std::string& header = "")
{
    const std::filesystem::path path = std::filesystem::path(ZQ_EXPECTED_DIR) / name;
    if (std::getenv("ZQ_WRITE_EXPECTED")) {
        std::ofstream(path, std::ios::binary) << header << actual;
        ADD_FAILURE() << "wrote " << path << " (ZQ_WRITE_EXPECTED is set); review the diff";
        return;
    }
    std::ifstream in(path, std::ios::binary);
    ASSERT_TRUE(in) << "no expectation file " << path << " (ZQ_WRITE_EXPECTED=1 writes it)";
    std::ostringstream text;
    text << in.rdbuf();
    std::vector<std::string> expected;
    for (auto& line : splitLines(text.str()))
        if (!line.starts_with("#"))
            expected.push_back(std::move(line));
    const std::vector<std::string> got = splitLines(actual);
    int reported = 0;
    for (std::size_t i = 0; i < std::max(expected.size(), got.size()) && reported < 5; ++i) {
        const std::string want = i < expected.size() ? expected[i] : "(nothing)";
        const std::string have = i < got.size() ? got[i] : "(nothing)";
        if (want != have) {
            ++reported;
            ADD_FAILURE() << name << " line " << i + 1 << " (not counting comments)\n  expected: " << want
                          << "\n  actual:   " << have;
        }
    }
    EXPECT_EQ(got.size(), expected.size()) << name << ": line count";
}

/// The folder of a real sample (../shared/samples beside the repository), or "" when the
/// samples are not there; tests then skip with samplesMissing().
inline std::string sampleFolder(const std::string& name)
{
    const std::filesystem::path folder = std::filesystem::path(ZQ_SAMPLES_DIR) / name;
    return std::filesystem::exists(folder) ? folder.string() : std::string();
}

inline std::string samplesMissing(const std::string& name)
{
    return "needs the real sample databases: put the samples folder (with " + name + "/) at " +
           std::filesystem::path(ZQ_SAMPLES_DIR).lexically_normal().string();
}

} // namespace zq::test
