// zqpod: the command-line face of ZQCore. Reads the music library of an iPod or iPhone.

#include "ArtworkExport.h"
#include "CommandLine.h"
#include "DeviceList.h"
#include "DeviceSelection.h"
#include "FileNames.h"
#include "LibraryReport.h"
#include "ManPage.h"
#include "MobileDevices.h"
#include "TerminalText.h"
#include "TrackCopy.h"

#include "ZQCore/afc/MobileDevice.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"

#include <dlfcn.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int kExitOK = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

/// A mistake on the command line; the message says which.
struct UsageError {
    std::string message;
};

using Arguments = zqpod::ParsedCommandLine;

struct Command {
    const char* name;
    const char* usage;
    const char* summary;
    const char* help;
    std::function<int(Arguments&)> run;
    std::vector<zqpod::OptionSpec> options = {};
};

int runLibrary(Arguments& args);
int runArt(Arguments& args);
int runDevices(Arguments& args);
int runWatch(Arguments& args);
int runCopy(Arguments& args);
int runGet(Arguments& args);

/// Options of zqpod itself, taken before or after the command.
const std::vector<zqpod::OptionSpec> kGlobalOptions = {
    {"--timeout", "SECONDS"}, {"--help", nullptr, 'h'}, {"--version"}, {"--man"}};

#define ZQPOD_DEVICE_HELP                                                                            \
    "DEVICE is the mount path of a disk-mode iPod's volume (the folder that holds iPod_Control),\n" \
    "or the serial number, name or UDID of a connected device (iPhones and iPod touches too), as\n" \
    "'zqpod devices' lists them. Without it, the one device connected is used; when there are\n"  \
    "several or none, zqpod says so and lists them.\n"                                             \
    "\n"                                                                                            \
    "A phone that stops answering is given up after --timeout SECONDS per request (default 10,\n"  \
    "or the environment variable ZQ_DEVICE_TIMEOUT); after a device has left or stopped\n"         \
    "answering, zqpod tries it no more, says so and exits with status 1.\n"

const std::vector<Command>& commands()
{
    static const std::vector<Command> list = {
        {"library", "zqpod library [DEVICE] [--json]", "print the library of a device",
         "Opens the device and prints its library: device name, serial number, model (\"iPod\n"
         "classic (6th generation), 80 GB, silver (MB029)\", as far as the device's files tell it),\n"
         "model type, counts, and every playlist in the framework's own words (smart playlists with their\n"
         "rules and limits, podcasts with their shows).\n"
         "\n" ZQPOD_DEVICE_HELP
         "\n"
         "Options:\n"
         "  --json   print the whole library as JSON for programs: the device's \"name\",\n"
         "           \"serialNumber\" and \"type\", its \"model\" (\"number\", \"name\", \"generation\",\n"
         "           \"capacity\", \"colour\" and \"displayName\", each null when unknown), every\n"
         "           track with all its fields, and every playlist with its kind and members.\n",
         runLibrary, {{"--json"}}},
        {"art", "zqpod art [DEVICE] OUTDIR", "write the album covers of a device as PNG files",
         "Opens the device and writes one PNG file per album into OUTDIR (created when missing):\n"
         "the cover that the album's tracks carry, decoded from the device's thumbnail files at\n"
         "its largest stored size (or the largest that can be read). Files are named\n"
         "\"<album artist> - <album>.png\". Prints a line for every album: the file written with\n"
         "its size in pixels and artwork ID, or why there is none.\n"
         "\n" ZQPOD_DEVICE_HELP,
         runArt},
        {"copy", "zqpod copy [DEVICE] DEST [OPTIONS]", "copy music off a device into a folder",
         "Copies the device's tracks into the folder DEST (created when missing), named by a\n"
         "template from their tags. The copy only reads the device, and refuses a DEST on it.\n"
         "\n"
         "Each file is copied under a temporary name, checked against the size the device\n"
         "reports, and only then given its name, so DEST never holds a partial file. A file that\n"
         "is already there with the same size is skipped: running the same command again resumes\n"
         "an interrupted copy. A different file of that name is kept, and the new copy is named\n"
         "beside it (\"Title (2).mp3\"). Two tracks never get the same name. A track whose file\n"
         "is missing or unreadable is reported and the copy goes on. A device that leaves or stops\n"
         "answering stops the copy; run the same command again when it is back to finish.\n"
         "\n"
         "On a terminal a bar shows files, bytes, speed and time left; otherwise each file is a\n"
         "line (\"copied\", \"skipped\"). A file that fails is a line (\"failed\", with the reason)\n"
         "on standard error. Ctrl-C stops cleanly, removing the file being copied. The last line,\n"
         "on standard output even when some failed, sums up what was copied, skipped and failed.\n"
         "\n" ZQPOD_DEVICE_HELP
         "\n"
         "Options:\n"
         "  --template T      name files by T instead of\n"
         "                    \"{albumArtist|artist}/{album}/{disc-}{track:02} {title}.{ext}\"\n"
         "  --playlist NAME   copy only the tracks of the playlist NAME\n"
         "  --artist TEXT     copy only tracks whose artist or album artist contains TEXT\n"
         "  --album TEXT      copy only tracks whose album contains TEXT\n"
         "  --genre TEXT      copy only tracks whose genre contains TEXT (case is ignored in all three)\n"
         "  --playlists       write an M3U8 file per playlist into DEST, listing the copied files\n"
         "                    by their paths relative to it\n"
         "  --art             write the album's cover as cover.png into each album folder\n"
         "  --overwrite       replace files of the same name instead of skipping or keeping them\n"
         "  --dry-run         print what would be copied, skipped or fail, and write nothing\n"
         "\n"
         "Template fields, written {field}: title, artist, albumArtist, album, genre, composer,\n"
         "year, track, trackTotal, disc (only on albums of several discs), discTotal, ext (the\n"
         "device file's extension) and id. {a|b} takes the first field that has a value; {track:02}\n"
         "pads a number to two digits; characters around a name inside the braces, as in {disc-},\n"
         "appear only when the field has a value. \"/\" separates folders. Names are made safe for\n"
         "any file system: the characters <>:\"/\\|?* and control characters become \"_\", leading\n"
         "and trailing blanks and trailing dots go, and long names are shortened.\n"
         "\n"
         "Exit status: 0 when every track was copied or already there, 1 when any failed (or the\n"
         "device could not be opened), 2 for a usage mistake, 130 when interrupted.\n",
         runCopy,
         {{"--template", "T"}, {"--playlist", "NAME"}, {"--artist", "TEXT"}, {"--album", "TEXT"},
          {"--genre", "TEXT"}, {"--playlists"}, {"--art"}, {"--overwrite"}, {"--dry-run"}}},
        {"devices", "zqpod devices", "list the iPods connected now",
         "Lists every disk-mode iPod whose volume is mounted as removable media (below /media or\n"
         "/run/media/USER, as a file manager shows it), and every iPhone or iPod touch that\n"
         "usbmuxd reports (path \"/\"): its name, serial number, model type\n"
         "(see ZQCore/resources/README.md; \"-\" when unknown), model (\"iPod nano (3rd\n"
         "generation), 8 GB, black (MB261)\", as far as the device's files tell it) and mount path.\n",
         runDevices},
        {"watch", "zqpod watch", "print iPods as they arrive and depart, until interrupted",
         "Prints the iPods connected now (\"present:\"), then a line as each device arrives\n"
         "(\"arrived:\") or departs (\"departed:\") while volumes are mounted and unmounted.\n"
         "Nothing polls; stop it with Ctrl-C.\n",
         runWatch},
        {"get", "zqpod get DEVICE TRACK-ID OUTFILE", "copy one track's file off a device",
         "Copies the file of the track with TRACK-ID (as 'zqpod library --json' lists it) off the\n"
         "device to OUTFILE ('-' for standard output), as it is, without naming. The file streams\n"
         "in pieces and OUTFILE appears only once all of it has come: a read that fails leaves no\n"
         "OUTFILE (exit status 1), Ctrl-C none either (130).\n"
         "\n" ZQPOD_DEVICE_HELP,
         runGet},
    };
    return list;
}

void printUsage(std::ostream& out)
{
    out << "usage: zqpod COMMAND [ARGS]\n\nCommands:\n";
    for (const auto& command : commands())
        out << "  " << command.name << std::string(10 - std::strlen(command.name), ' ') << command.summary << '\n';
    out << "\nOption of the commands that read a device:\n"
           "  --timeout SECONDS  give up on a phone that does not answer a request within this time\n"
           "                     (default 10, or the environment variable ZQ_DEVICE_TIMEOUT)\n"
        << "\nOptions of zqpod itself:\n"
           "  --help, -h         this text, or with a command the details of that command\n"
           "  --version          the version of zqpod and of the ZQCore framework it runs on\n"
        << "\nOptions may stand before or after the command; \"--\" ends them.\n"
        << "Run 'zqpod COMMAND --help' for the details of one command.\n";
}

void printCommandHelp(std::ostream& out, const Command& command)
{
    out << "usage: " << command.usage << "\n\n" << command.help;
}

/// zqpod's version, and the framework's: the one it was built with and the library file that
/// the process runs (an older libZQCore.so.0 installed elsewhere shows here).
void printVersion(std::ostream& out)
{
    out << "zqpod " << ZQPOD_VERSION << '\n' << "ZQCore " << ZQCORE_VERSION;
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&zq::setRequestTimeout), &info) != 0 && info.dli_fname) {
        char* real = ::realpath(info.dli_fname, nullptr);
        out << " (" << (real ? real : info.dli_fname) << ')';
        std::free(real);
    }
    out << '\n';
}

const Command* commandNamed(const std::string& name)
{
    for (const auto& command : commands())
        if (name == command.name)
            return &command;
    return nullptr;
}

/// --timeout SECONDS: the longest a phone may take to answer one request.
void applyTimeout(const Arguments& args)
{
    const auto value = args.value("--timeout");
    if (!value)
        return;
    char* end = nullptr;
    const double seconds = std::strtod(value->c_str(), &end);
    if (value->empty() || *end != '\0' || !(seconds > 0) || seconds > 1e6)
        throw UsageError{"zqpod: --timeout wants a number of seconds above 0, not '" + *value + "'"};
    zq::setRequestTimeout(std::chrono::milliseconds(static_cast<long long>(seconds * 1000 + 0.5)));
}

/// The device and the other words of a command taking [DEVICE] then `after` words.
std::optional<std::string> deviceArgument(const Command& command, std::vector<std::string>& words, std::size_t after)
{
    if (words.size() == after)
        return std::nullopt;
    if (words.size() == after + 1) {
        std::string device = words.front();
        words.erase(words.begin());
        return device;
    }
    throw UsageError{"usage: " + std::string(command.usage)};
}

void stopOnInterrupt();

int runLibrary(Arguments& args)
{
    const auto device = deviceArgument(*commandNamed("library"), args.words, 0);
    // A signal during a phone's load stops it where it is; the copies it made go with it.
    stopOnInterrupt();
    auto library = zqpod::openSelectedDevice(device);
    if (zqpod::interruptRequested())
        return kExitInterrupted;
    if (args.has("--json"))
        zqpod::printLibraryJSON(std::cout, *library);
    else
        zqpod::printLibraryText(std::cout, *library);
    return kExitOK;
}

int runArt(Arguments& args)
{
    if (args.words.empty())
        throw UsageError{"usage: " + std::string(commandNamed("art")->usage)};
    const auto device = deviceArgument(*commandNamed("art"), args.words, 1);
    stopOnInterrupt();
    auto library = zqpod::openSelectedDevice(device);
    if (zqpod::interruptRequested())
        return kExitInterrupted;
    const zqpod::ArtExport exported = zqpod::exportAlbumArt(std::cout, std::cerr, *library, args.words[0]);
    const std::size_t written = exported.written;
    std::cout << written << (written == 1 ? " file" : " files") << " written\n";
    if (exported.failed) {
        std::cerr << "zqpod art: the artwork of " << exported.failed << (exported.failed == 1 ? " album" : " albums")
                  << " could not be read\n";
        return kExitFailure;
    }
    if (const auto& why = library->artworkLoadError()) {
        std::cerr << "zqpod art: the device's artwork database could not be read, so its covers are missing: "
                  << zqpod::terminalSafe(*why)
                  << '\n';
        return kExitFailure;
    }
    return kExitOK;
}

/// Ctrl-C, SIGTERM and SIGHUP (a closed terminal) ask the work to stop cleanly: a copy stops
/// between pieces of a file, a request to a phone in progress gives up at once, and what was
/// half made (a file being copied, a phone's databases copied for a load) is removed on the way
/// out. A second one ends the process.
extern "C" void stopCopy(int signal)
{
    zqpod::requestInterrupt();
    zq::cancelDeviceRequests();
    ::signal(signal, SIG_DFL);
}

void stopOnInterrupt()
{
    struct sigaction action {};
    action.sa_handler = stopCopy;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(signal, &action, nullptr);
}

int runCopy(Arguments& args)
{
    if (args.words.empty())
        throw UsageError{"usage: " + std::string(commandNamed("copy")->usage)};
    const auto device = deviceArgument(*commandNamed("copy"), args.words, 1);

    zqpod::CopyOptions options;
    options.destination = args.words[0];
    options.nameTemplate = args.value("--template").value_or(zqpod::kDefaultNameTemplate);
    try {
        zqpod::NameTemplate check(options.nameTemplate);  // a bad template is a usage mistake: say so first
    } catch (const zqpod::TemplateError& error) {
        throw UsageError{"zqpod copy: " + std::string(error.what()) + " (see zqpod copy --help)"};
    }
    options.playlist = args.value("--playlist");
    options.artist = args.value("--artist");
    options.album = args.value("--album");
    options.genre = args.value("--genre");
    options.overwrite = args.has("--overwrite");
    options.dryRun = args.has("--dry-run");
    options.playlists = args.has("--playlists");
    options.art = args.has("--art");
    options.live = ::isatty(STDOUT_FILENO) == 1;
    if (winsize size{}; options.live && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        options.columns = size.ws_col;

    stopOnInterrupt();
    auto library = zqpod::openSelectedDevice(device);
    const zqpod::CopySummary summary = zqpod::copyTracks(*library, options, std::cout, std::cerr);
    if (summary.interrupted)
        return kExitInterrupted;
    return summary.failed ? kExitFailure : kExitOK;
}

int runDevices(Arguments& args)
{
    if (!args.words.empty())
        throw UsageError{"usage: zqpod devices"};
    zqpod::collectMobileDevices();
    zqpod::printConnectedDevices(std::cout);
    // A list that may be missing the phones is not a successful listing.
    return zqpod::mobileDevicesUnreachable() || zqpod::unopenedMobileDevices() ? kExitFailure : kExitOK;
}

int runGet(Arguments& args)
{
    if (args.words.size() != 3)
        throw UsageError{"usage: " + std::string(commandNamed("get")->usage)};
    std::uint32_t trackID = 0;
    try {
        trackID = static_cast<std::uint32_t>(std::stoul(args.words[1]));
    } catch (const std::exception&) {
        throw UsageError{"zqpod get: '" + args.words[1] + "' is not a track ID"};
    }
    stopOnInterrupt();
    auto library = zqpod::openSelectedDevice(args.words[0]);
    return zqpod::getTrack(*library, trackID, args.words[2], std::cout, std::cerr);
}

int runWatch(Arguments& args)
{
    if (!args.words.empty())
        throw UsageError{"usage: zqpod watch"};
    zqpod::collectMobileDevices();
    zqpod::watchDevices(std::cout);
    return kExitOK;
}

/// The global options' help, in the commands' layout, for the manual page.
std::string globalOptionsHelp()
{
    std::ostringstream text;
    printUsage(text);
    const std::string all = text.str();
    const auto start = all.find("\nOption of the commands");
    const auto end = all.find("Run 'zqpod COMMAND");
    return all.substr(start + 1, end - start - 1);
}

void writeManual(std::ostream& out)
{
    std::vector<zqpod::HelpPage> pages;
    for (const auto& command : commands())
        pages.push_back({command.name, command.usage, command.summary, command.help});
    zqpod::writeManPage(out, pages, globalOptionsHelp(), ZQPOD_VERSION);
}

/// Every option any command knows, for finding the command among the words: an option's value
/// is no command, whichever command the option belongs to.
std::vector<zqpod::OptionSpec> everyOption()
{
    std::vector<zqpod::OptionSpec> all = kGlobalOptions;
    for (const auto& command : commands())
        all.insert(all.end(), command.options.begin(), command.options.end());
    return all;
}

/// The words taken apart by the options of zqpod and of `command`, the command's name taken
/// out; unknown options and missing values are usage mistakes.
Arguments argumentsOf(const Command& command, const std::vector<std::string>& words)
{
    std::vector<zqpod::OptionSpec> declared = kGlobalOptions;
    declared.insert(declared.end(), command.options.begin(), command.options.end());
    Arguments args;
    try {
        args = zqpod::parseCommandLine(words, declared);
    } catch (const zqpod::CommandLineError& error) {
        if (error.optionWithoutValue == "--timeout")
            throw UsageError{"zqpod: --timeout needs a number of seconds"};
        if (error.optionWithoutValue)
            throw UsageError{"zqpod " + std::string(command.name) + ": " + *error.optionWithoutValue + " needs a value"};
        throw UsageError{"zqpod " + std::string(command.name) + ": " + error.message};
    }
    if (!args.unknown.empty())
        throw UsageError{"zqpod " + std::string(command.name) + ": unknown option '" + args.unknown.front() + "'"};
    args.words.erase(args.words.begin());  // the command's name
    return args;
}

int runCommand(const Command& command, const std::vector<std::string>& words)
{
    try {
        Arguments args = argumentsOf(command, words);
        applyTimeout(args);
        return command.run(args);
    } catch (const UsageError& error) {
        std::cerr << error.message << '\n';
        return kExitUsage;
    } catch (const zqpod::DeviceSelectionError& error) {
        std::cerr << "zqpod " << command.name << ": " << zqpod::terminalSafe(error.what()) << '\n';
        return kExitFailure;
    } catch (const zqpod::CopyRefused& error) {
        std::cerr << "zqpod " << command.name << ": " << zqpod::terminalSafe(error.what()) << '\n';
        return kExitFailure;
    } catch (const zq::Exception& error) {
        if (zqpod::interruptRequested()) {
            std::cerr << "zqpod " << command.name << ": interrupted\n";
            return kExitInterrupted;
        }
        std::cerr << "zqpod " << command.name << ": " << zqpod::terminalSafe(error.reason()) << " (" << error.name()
                  << ")\n";
        return kExitFailure;
    }
}

int runCommandLine(int argc, char** argv)
{
    const std::vector<std::string> words(argv + 1, argv + argc);
    // First the command and zqpod's own options, wherever they stand; the command's options
    // are checked once it is known.
    zqpod::ParsedCommandLine found;
    try {
        found = zqpod::parseCommandLine(words, everyOption());
    } catch (const zqpod::CommandLineError& error) {
        // A value missing at the end: the command, found without that last word, says so.
        try {
            found = zqpod::parseCommandLine(std::vector<std::string>(words.begin(), words.end() - 1), everyOption());
        } catch (const zqpod::CommandLineError&) {
            std::cerr << "zqpod: " << error.message << '\n';
            return kExitUsage;
        }
    }
    if (found.has("--man")) {  // not listed: the build writes zqpod.1 with it
        writeManual(std::cout);
        return kExitOK;
    }
    if (found.has("--version")) {
        printVersion(std::cout);
        return kExitOK;
    }
    const std::string name = found.words.empty() ? "" : found.words.front();
    const Command* command = commandNamed(name);
    if (name == "help" || (found.has("--help") && (name.empty() || command))) {
        // "zqpod help copy", "zqpod --help copy", "zqpod copy --help"
        const Command* topic = name == "help" ? (found.words.size() > 1 ? commandNamed(found.words[1]) : nullptr) : command;
        if (topic)
            printCommandHelp(std::cout, *topic);
        else
            printUsage(std::cout);
        return kExitOK;
    }
    if (command)
        return runCommand(*command, words);
    if (!name.empty())
        std::cerr << "zqpod: unknown command '" << name << "'\n\n";
    else if (!found.unknown.empty())
        std::cerr << "zqpod: unknown option '" << found.unknown.front() << "'\n\n";
    printUsage(std::cerr);
    return kExitUsage;
}

} // namespace

int main(int argc, char** argv)
{
    const int status = runCommandLine(argc, argv);
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
#if defined(__SANITIZE_ADDRESS__)
    return status;  // the leak check runs at exit and must see the whole teardown
#else
    // Everything the command wrote is out and every temporary file is gone by now. Taking the
    // device's library apart object by object would only hand memory back to a process that is
    // ending: a tenth of the time of `zqpod library` on a large library.
    std::_Exit(status);
#endif
}
