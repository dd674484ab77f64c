#include "CopyProgress.h"
#include "TerminalText.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

namespace zqpod {

std::string formatBytes(std::uint64_t bytes)
{
    if (bytes < 1000)
        return std::to_string(bytes) + " B";
    const char* units[] = {"KB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes) / 1000.0;
    std::size_t unit = 0;
    while (value >= 999.5 && unit + 1 < std::size(units)) {  // "%.0f" would print 1000
        value /= 1000.0;
        ++unit;
    }
    char text[32];
    // One decimal below ten, judged after rounding (9.96 reads "10 KB", not "10.0 KB").
    std::snprintf(text, sizeof text, value < 9.95 ? "%.1f %s" : "%.0f %s", value, units[unit]);
    return text;
}

std::string formatDuration(std::chrono::seconds duration)
{
    const long long total = std::max<long long>(0, duration.count());
    char text[32];
    if (total >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", total / 60, total % 60);
    return text;
}

CopyProgress::CopyProgress(std::ostream& out, std::ostream& err, bool live, int columns)
    : out_(out), err_(err), live_(live), columns_(std::clamp(columns, 40, 300))
{
}

void CopyProgress::begin(std::size_t files, std::uint64_t bytes, Clock::time_point start)
{
    totalFiles_ = files;
    totalBytes_ = bytes;
    started_ = start;
}

void CopyProgress::startFile(const std::string& name)
{
    currentName_ = name;
    currentBytes_ = 0;
    if (live_)
        draw(Clock::now());
}

void CopyProgress::advance(std::uint64_t bytes)
{
    currentBytes_ = bytes;
    const auto now = Clock::now();
    if (live_ && now - lastDrawn_ >= std::chrono::milliseconds(100))
        draw(now);
}

void CopyProgress::finishFile(std::uint64_t plannedBytes)
{
    ++doneFiles_;
    doneBytes_ += plannedBytes;
    currentBytes_ = 0;
    if (live_)
        draw(Clock::now());
}

void CopyProgress::note(const std::string& line, Kind kind)
{
    if (live_ && kind == Routine)
        return;
    if (live_)
        clearLine();
    std::ostream& to = kind == Failure ? err_ : out_;
    if (&to != &out_)
        out_.flush();  // what stands before it comes first: both streams often end in one log
    to << terminalSafe(line) << '\n';
    to.flush();
    if (live_ && drawn_)
        draw(Clock::now());
    out_.flush();
}

void CopyProgress::end()
{
    // The finished bar stays on screen above the summary, as a record of the run.
    if (live_ && drawn_) {
        currentName_.clear();
        out_ << "\r\033[K" << barLine(Clock::now()) << '\n';
    }
    out_.flush();
}

std::string CopyProgress::barLine(Clock::time_point now) const
{
    const std::uint64_t done = std::min(totalBytes_, doneBytes_ + currentBytes_);
    const double seconds = std::chrono::duration<double>(now - started_).count();
    const double speed = seconds > 0.2 ? static_cast<double>(done) / seconds : 0.0;
    std::string figures = " " + std::to_string(std::min(doneFiles_ + 1, totalFiles_)) + "/" +
                          std::to_string(totalFiles_) + " files  " + formatBytes(done) + " of " +
                          formatBytes(totalBytes_);
    const bool finished = doneFiles_ >= totalFiles_;
    if (finished && seconds > 0) {
        // The closing bar: how long it took, and the speed it ran at.
        figures += "  " + formatBytes(static_cast<std::uint64_t>(static_cast<double>(done) / seconds)) + "/s  took " +
                   formatDuration(std::chrono::seconds(static_cast<long long>(seconds + 0.5)));
    } else if (speed > 0) {
        figures += "  " + formatBytes(static_cast<std::uint64_t>(speed)) + "/s";
        const auto left = std::chrono::seconds(static_cast<long long>(static_cast<double>(totalBytes_ - done) / speed + 0.5));
        figures += "  " + formatDuration(left) + " left";
    }
    const int barWidth = std::clamp(columns_ / 4, 10, 40);
    const double fraction = totalBytes_ ? static_cast<double>(done) / static_cast<double>(totalBytes_)
                                        : (totalFiles_ ? static_cast<double>(doneFiles_) / static_cast<double>(totalFiles_) : 1.0);
    const int filled = static_cast<int>(fraction * barWidth + 0.5);
    std::string line = "[" + std::string(static_cast<std::size_t>(filled), '#') +
                       std::string(static_cast<std::size_t>(barWidth - filled), '.') + "]" + figures;
    // The file's name fills what the terminal has left; a line that wraps would break the bar.
    const std::size_t room = static_cast<std::size_t>(columns_ - 1);
    if (line.size() + 3 < room && !currentName_.empty()) {
        std::string name = currentName_;
        const std::size_t space = room - line.size() - 2;
        if (name.size() > space) {
            std::size_t cut = name.size() - (space - 3);
            while (cut < name.size() && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80)
                ++cut;
            name = "..." + name.substr(cut);
        }
        line += "  " + name;
    }
    return line;
}

void CopyProgress::draw(Clock::time_point now)
{
    lastDrawn_ = now;
    drawn_ = true;
    out_ << "\r\033[K" << barLine(now) << std::flush;
}

void CopyProgress::clearLine()
{
    if (drawn_)
        out_ << "\r\033[K";
}

} // namespace zqpod
