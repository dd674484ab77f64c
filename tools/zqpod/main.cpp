// zqpod: the command-line face of ZQCore. Reads the music library of an iPod or iPhone.

#include "ArtworkExport.h"
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

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <optional>
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

struct Command {
    const char* name;
    const char* usage;
    const char* summary;
    const char* help;
    std::function<int(const std::vector<std::string>&)> run;
};

int runLibrary(const std::vector<std::string>& args);
int runArt(const std::vector<std::string>& args);
int runDevices(const std::vector<std::string>& args);
int runWatch(const std::vector<std::string>& args);
int runCopy(const std::vector<std::string>& args);
int runGet(const std::vector<std::string>& args);

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
         runLibrary},
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
         "line (\"copied\", \"skipped\", \"failed\"). Ctrl-C stops cleanly, removing the file being\n"
         "copied. The last line sums up what was copied, skipped and failed.\n"
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
         runCopy},
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
        << "\nRun 'zqpod COMMAND --help' for the details of one command.\n";
}

void printCommandHelp(std::ostream& out, const Command& command)
{
    out << "usage: " << command.usage << "\n\n" << command.help;
}

bool wantsHelp(const std::vector<std::string>& args)
{
    for (const auto& arg : args)
        if (arg == "--help" || arg == "-h")
            return true;
    return false;
}

/// Splits arguments into positional ones and options; `valued` options take the next argument
/// (or "=value"). Unknown options are usage errors.
struct ParsedArgs {
    std::vector<std::string> positional;
    std::vector<std::pair<std::string, std::string>> options;  ///< name, value ("" for flags)

    std::optional<std::string> value(const std::string& name) const
    {
        std::optional<std::string> found;
        for (const auto& [option, value] : options)
            if (option == name)
                found = value;
        return found;
    }
    bool has(const std::string& name) const { return value(name).has_value(); }
};

ParsedArgs parseArgs(const std::string& command, const std::vector<std::string>& args,
                     const std::vector<std::string>& flags, const std::vector<std::string>& valued)
{
    ParsedArgs parsed;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.size() < 2 || arg[0] != '-') {
            parsed.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            parsed.positional.insert(parsed.positional.end(), args.begin() + static_cast<long>(i) + 1, args.end());
            break;
        }
        const auto equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        if (std::find(flags.begin(), flags.end(), name) != flags.end() && equals == std::string::npos) {
            parsed.options.emplace_back(name, "");
        } else if (std::find(valued.begin(), valued.end(), name) != valued.end()) {
            if (equals != std::string::npos)
                parsed.options.emplace_back(name, arg.substr(equals + 1));
            else if (i + 1 < args.size())
                parsed.options.emplace_back(name, args[++i]);
            else
                throw UsageError{"zqpod " + command + ": " + name + " needs a value"};
        } else
            throw UsageError{"zqpod " + command + ": unknown option '" + arg + "'"};
    }
    return parsed;
}

const Command& commandNamed(const std::string& name);

/// --timeout SECONDS (or =SECONDS), taken out of any command's arguments before "--": the
/// longest a phone may take to answer one request.
void takeTimeoutOption(std::vector<std::string>& args)
{
    for (std::size_t i = 0; i < args.size() && args[i] != "--"; ++i) {
        if (args[i] != "--timeout" && !args[i].starts_with("--timeout="))
            continue;
        std::string value;
        std::size_t count = 1;
        if (args[i] == "--timeout") {
            if (i + 1 >= args.size())
                throw UsageError{"zqpod: --timeout needs a number of seconds"};
            value = args[i + 1];
            count = 2;
        } else
            value = args[i].substr(10);
        char* end = nullptr;
        const double seconds = std::strtod(value.c_str(), &end);
        if (value.empty() || *end != '\0' || !(seconds > 0) || seconds > 1e6)
            throw UsageError{"zqpod: --timeout wants a number of seconds above 0, not '" + value + "'"};
        zq::setRequestTimeout(std::chrono::milliseconds(static_cast<long long>(seconds * 1000 + 0.5)));
        args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i + count));
        --i;
    }
}

/// The device and the other positional arguments of a command taking [DEVICE] then `after`.
std::optional<std::string> deviceArgument(const std::string& command, std::vector<std::string>& positional,
                                          std::size_t after)
{
    if (positional.size() == after)
        return std::nullopt;
    if (positional.size() == after + 1) {
        std::string device = positional.front();
        positional.erase(positional.begin());
        return device;
    }
    throw UsageError{"usage: " + std::string(commandNamed(command).usage)};
}

void stopOnInterrupt();

int runLibrary(const std::vector<std::string>& args)
{
    ParsedArgs parsed = parseArgs("library", args, {"--json"}, {});
    const auto device = deviceArgument("library", parsed.positional, 0);
    // A signal during a phone's load stops it where it is; the copies it made go with it.
    stopOnInterrupt();
    auto library = zqpod::openSelectedDevice(device);
    if (zqpod::interruptRequested())
        return kExitInterrupted;
    if (parsed.has("--json"))
        zqpod::printLibraryJSON(std::cout, *library);
    else
        zqpod::printLibraryText(std::cout, *library);
    return kExitOK;
}

int runArt(const std::vector<std::string>& args)
{
    ParsedArgs parsed = parseArgs("art", args, {}, {});
    if (parsed.positional.empty())
        throw UsageError{"usage: " + std::string(commandNamed("art").usage)};
    const auto device = deviceArgument("art", parsed.positional, 1);
    stopOnInterrupt();
    auto library = zqpod::openSelectedDevice(device);
    if (zqpod::interruptRequested())
        return kExitInterrupted;
    const zqpod::ArtExport exported = zqpod::exportAlbumArt(std::cout, std::cerr, *library, parsed.positional[0]);
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

int runCopy(const std::vector<std::string>& args)
{
    ParsedArgs parsed = parseArgs("copy", args, {"--overwrite", "--dry-run", "--playlists", "--art"},
                                  {"--template", "--playlist", "--artist", "--album", "--genre"});
    if (parsed.positional.empty())
        throw UsageError{"usage: " + std::string(commandNamed("copy").usage)};
    const auto device = deviceArgument("copy", parsed.positional, 1);

    zqpod::CopyOptions options;
    options.destination = parsed.positional[0];
    options.nameTemplate = parsed.value("--template").value_or(zqpod::kDefaultNameTemplate);
    try {
        zqpod::NameTemplate check(options.nameTemplate);  // a bad template is a usage mistake: say so first
    } catch (const zqpod::TemplateError& error) {
        throw UsageError{"zqpod copy: " + std::string(error.what()) + " (see zqpod copy --help)"};
    }
    options.playlist = parsed.value("--playlist");
    options.artist = parsed.value("--artist");
    options.album = parsed.value("--album");
    options.genre = parsed.value("--genre");
    options.overwrite = parsed.has("--overwrite");
    options.dryRun = parsed.has("--dry-run");
    options.playlists = parsed.has("--playlists");
    options.art = parsed.has("--art");
    options.live = ::isatty(STDOUT_FILENO) == 1;
    if (winsize size{}; options.live && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        options.columns = size.ws_col;

    stopOnInterrupt();
    auto library = zqpod::openSelectedDevice(device);
    const zqpod::CopySummary summary = zqpod::copyTracks(*library, options, std::cout);
    if (summary.interrupted)
        return kExitInterrupted;
    return summary.failed ? kExitFailure : kExitOK;
}

int runDevices(const std::vector<std::string>& args)
{
    if (!args.empty())
        throw UsageError{"usage: zqpod devices"};
    zqpod::collectMobileDevices();
    zqpod::printConnectedDevices(std::cout);
    // A list that may be missing the phones is not a successful listing.
    return zqpod::mobileDevicesUnreachable() || zqpod::unopenedMobileDevices() ? kExitFailure : kExitOK;
}

int runGet(const std::vector<std::string>& args)
{
    ParsedArgs parsed = parseArgs("get", args, {}, {});
    stopOnInterrupt();
    return zqpod::copyTrack(parsed.positional, std::cout, std::cerr);
}

int runWatch(const std::vector<std::string>& args)
{
    if (!args.empty())
        throw UsageError{"usage: zqpod watch"};
    zqpod::collectMobileDevices();
    zqpod::watchDevices(std::cout);
    return kExitOK;
}

const Command& commandNamed(const std::string& name)
{
    for (const auto& command : commands())
        if (name == command.name)
            return command;
    throw std::logic_error("no command " + name);
}

void writeManual(std::ostream& out)
{
    std::vector<zqpod::HelpPage> pages;
    for (const auto& command : commands())
        pages.push_back({command.name, command.usage, command.summary, command.help});
    zqpod::writeManPage(out, pages, ZQPOD_VERSION);
}

int runCommandLine(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        printUsage(std::cerr);
        return kExitUsage;
    }
    if (args[0] == "--man") {  // not listed: the build writes zqpod.1 with it
        writeManual(std::cout);
        return kExitOK;
    }
    if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
        if (args.size() > 1)
            for (const auto& command : commands())
                if (args[1] == command.name) {
                    printCommandHelp(std::cout, command);
                    return kExitOK;
                }
        printUsage(std::cout);
        return kExitOK;
    }
    for (const auto& command : commands()) {
        if (args[0] != command.name)
            continue;
        std::vector<std::string> rest(args.begin() + 1, args.end());
        if (wantsHelp(rest)) {
            printCommandHelp(std::cout, command);
            return kExitOK;
        }
        try {
            takeTimeoutOption(rest);
            return command.run(rest);
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
            std::cerr << "zqpod " << command.name << ": " << zqpod::terminalSafe(error.reason()) << " ("
                      << error.name() << ")\n";
            return kExitFailure;
        }
    }
    std::cerr << "zqpod: unknown command '" << args[0] << "'\n\n";
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
