#pragma once

// Runs the command-line tool as a separate process, as a person or a script does, and keeps
// what it printed; and what the tests compare of the folders it reads and writes.

#include "tests/support/SampleDevice.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace zq::test {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

inline std::string shellQuoted(const std::string& text)
{
    std::string result = "'";
    for (char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

inline std::string contentsOf(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

/// Runs zqpod with `args` in UTC (so printed dates do not depend on the machine's zone), its
/// standard input empty and its output captured (so it is not a terminal).
inline Outcome zqpod(const std::vector<std::string>& args)
{
    TempDir capture;
    std::string command = "TZ=UTC " + shellQuoted(ZQPOD_PATH);
    for (const auto& arg : args)
        command += " " + shellQuoted(arg);
    command += " >" + shellQuoted(capture.file("out")) + " 2>" + shellQuoted(capture.file("err")) + " </dev/null";
    const int raw = std::system(command.c_str());
    Outcome run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = contentsOf(capture.file("out"));
    run.err = contentsOf(capture.file("err"));
    return run;
}

inline std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

/// The regular files below `root` by relative path.
inline std::set<std::string> filesBelow(const std::string& root)
{
    std::set<std::string> files;
    if (std::filesystem::exists(root))
        for (const auto& item : std::filesystem::recursive_directory_iterator(root))
            if (item.is_regular_file())
                files.insert(std::filesystem::relative(item.path(), root).string());
    return files;
}

/// zqpod running in the background (through a shell that first prints its process id and
/// then becomes zqpod), its standard output on a pipe.
class RunningTool {
public:
    explicit RunningTool(const std::string& command)
        : pipe_(::popen(("echo $$; exec '" ZQPOD_PATH "' " + command).c_str(), "r"))
    {
        std::setvbuf(pipe_, nullptr, _IONBF, 0);  // every line read is one poll can see
        pid_ = std::stoi(nextLine().value_or("0"));
    }
    ~RunningTool()
    {
        if (pid_ > 0)
            ::kill(pid_, SIGKILL);
        if (pipe_)
            ::pclose(pipe_);
    }
    /// The next line of output; nothing when none comes within ten seconds or at the end.
    std::optional<std::string> nextLine()
    {
        pollfd waiting{::fileno(pipe_), POLLIN, 0};
        char line[1024];
        if (::poll(&waiting, 1, 10000) <= 0 || !std::fgets(line, sizeof line, pipe_))
            return std::nullopt;
        return std::string(line, std::strcspn(line, "\n"));
    }
    /// Interrupts it as Ctrl-C does (or with another signal) and gives its wait status.
    int interrupt(int signal = SIGINT)
    {
        ::kill(std::exchange(pid_, -1), signal);
        return ::pclose(std::exchange(pipe_, nullptr));
    }

private:
    FILE* pipe_;
    pid_t pid_ = -1;
};

} // namespace zq::test
