// zqpod: the command-line face of ZQCore. Reads the music library of an iPod or iPhone.

#include "ArtworkExport.h"
#include "DeviceList.h"
#include "LibraryReport.h"
#include "MobileDevices.h"

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"

#include <cstring>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr int kExitOK = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

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
int runGet(const std::vector<std::string>& args) { return zqpod::copyTrack(args, std::cout, std::cerr); }

const std::vector<Command>& commands()
{
    static const std::vector<Command> list = {
        {"library", "zqpod library PATH [--json]", "print the library of the device mounted at PATH",
         "Opens the device whose volume is mounted at PATH (the folder that holds iPod_Control),\n"
         "or the connected device (an iPhone or iPod touch too) whose serial number, UDID or name\n"
         "is PATH,\n"
         "and prints its library: device name, serial number, model type, counts, and every\n"
         "playlist in the framework's own words (smart playlists with their rules and limits,\n"
         "podcasts with their shows).\n"
         "\n"
         "Options:\n"
         "  --json   print the whole library as JSON for programs: the device's \"name\",\n"
         "           \"serialNumber\" and \"type\", every track with all its fields, and every\n"
         "           playlist with its kind and members.\n",
         runLibrary},
        {"art", "zqpod art PATH OUTDIR", "write the album covers of the device at PATH as PNG files",
         "Opens the device whose volume is mounted at PATH and writes one PNG file per album into\n"
         "OUTDIR (created when missing): the cover that the album's tracks carry, decoded from the\n"
         "device's thumbnail files at its largest stored size (or the largest that can be read).\n"
         "Files are named \"<album artist> - <album>.png\". Prints a line for every album: the\n"
         "file written with its size in pixels and artwork ID, or why there is none.\n",
         runArt},
        {"devices", "zqpod devices", "list the iPods connected now",
         "Lists every disk-mode iPod whose volume is mounted as removable media (below /media or\n"
         "/run/media/USER, as a file manager shows it), and every iPhone or iPod touch that\n"
         "usbmuxd reports (path \"/\"): its name, serial number, model type\n"
         "(see ZQCore/resources/README.md; \"-\" when unknown) and mount path.\n",
         runDevices},
        {"watch", "zqpod watch", "print iPods as they arrive and depart, until interrupted",
         "Prints the iPods connected now (\"present:\"), then a line as each device arrives\n"
         "(\"arrived:\") or departs (\"departed:\") while volumes are mounted and unmounted.\n"
         "Nothing polls; stop it with Ctrl-C.\n",
         runWatch},
        {"get", "zqpod get DEVICE TRACK-ID OUTFILE", "copy one track's file off a device",
         "Copies the file of the track with TRACK-ID (as 'zqpod library --json' lists it) off the\n"
         "device to OUTFILE ('-' for standard output). DEVICE is a disk-mode iPod's mount path, or\n"
         "the serial number, UDID or name of a connected device (iPhones and iPod touches too).\n",
         runGet},
    };
    return list;
}

void printUsage(std::ostream& out)
{
    out << "usage: zqpod COMMAND [ARGS]\n\nCommands:\n";
    for (const auto& command : commands())
        out << "  " << command.name << std::string(10 - std::strlen(command.name), ' ') << command.summary << '\n';
    out << "\nRun 'zqpod COMMAND --help' for the details of one command.\n";
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

std::shared_ptr<zq::ZQCoreiPod> openLibrary(const std::string& path)
{
    auto reference = zqpod::referenceForDevice(path);
    return zq::ZQCoreiPod::initWithiPodReference(reference);
}

int runLibrary(const std::vector<std::string>& args)
{
    bool json = false;
    std::vector<std::string> paths;
    for (const auto& arg : args) {
        if (arg == "--json")
            json = true;
        else if (!arg.empty() && arg[0] == '-') {
            std::cerr << "zqpod library: unknown option '" << arg << "'\n";
            return kExitUsage;
        } else
            paths.push_back(arg);
    }
    if (paths.size() != 1) {
        std::cerr << "usage: zqpod library PATH [--json]\n";
        return kExitUsage;
    }
    auto library = openLibrary(paths[0]);
    if (json)
        zqpod::printLibraryJSON(std::cout, *library);
    else
        zqpod::printLibraryText(std::cout, *library);
    return kExitOK;
}

int runArt(const std::vector<std::string>& args)
{
    std::vector<std::string> paths;
    for (const auto& arg : args) {
        if (!arg.empty() && arg[0] == '-') {
            std::cerr << "zqpod art: unknown option '" << arg << "'\n";
            return kExitUsage;
        }
        paths.push_back(arg);
    }
    if (paths.size() != 2) {
        std::cerr << "usage: zqpod art PATH OUTDIR\n";
        return kExitUsage;
    }
    auto library = openLibrary(paths[0]);
    const std::size_t written = zqpod::exportAlbumArt(std::cout, *library, paths[1]);
    std::cout << written << (written == 1 ? " file" : " files") << " written\n";
    return kExitOK;
}

int runDevices(const std::vector<std::string>& args)
{
    if (!args.empty()) {
        std::cerr << "usage: zqpod devices\n";
        return kExitUsage;
    }
    zqpod::collectMobileDevices();
    zqpod::printConnectedDevices(std::cout);
    return kExitOK;
}

int runWatch(const std::vector<std::string>& args)
{
    if (!args.empty()) {
        std::cerr << "usage: zqpod watch\n";
        return kExitUsage;
    }
    zqpod::collectMobileDevices();
    zqpod::watchDevices(std::cout);
    return kExitOK;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        printUsage(std::cerr);
        return kExitUsage;
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
            return command.run(rest);
        } catch (const zq::Exception& error) {
            std::cerr << "zqpod " << command.name << ": " << error.reason() << " (" << error.name() << ")\n";
            return kExitFailure;
        }
    }
    std::cerr << "zqpod: unknown command '" << args[0] << "'\n\n";
    printUsage(std::cerr);
    return kExitUsage;
}
