// zq-device-sim: a usbmuxd with simulated mobile devices, for tests and for trying zqpod without
// an iPhone at hand.
//
//   zq-device-sim --listen UNIX:/path/to/socket     or     --listen 127.0.0.1:0
//
// Prints "listening <address>" once clients may connect (the real port for TCP), then reads one
// command per line from standard input and answers each with one line, "ok" or "error <why>":
//
//   attach UDID ROOT [key=value ...]   keys: name, productType, productVersion, serial,
//                                      deviceClass, modelNumber, paired=0|1, and faults:
//                                      readErrorAt=PATH@OFFSET, departAt=PATH@OFFSET, freezeAt=PATH@OFFSET,
//                                      shortReadAt=PATH@OFFSET, stallAt=PATH@OFFSET, lockdown=silent
//   detach UDID
//   restart                            drop every client connection, keep listening
//   hang / answer                      stop answering requests (a stuck usbmuxd) / answer again
//   quit                               (also at the end of standard input)
//
// Words may be double-quoted ("name=My iPhone" or name="My iPhone"); a backslash escapes the
// next character.

#include "tools/zq-device-sim/Simulator.h"

#include <charconv>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

std::optional<std::vector<std::string>> splitWords(const std::string& line)
{
    std::vector<std::string> words;
    std::string word;
    bool inWord = false, quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (c == '\\' && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else if (c == '"') {
            quoted = !quoted;
            inWord = true;
        } else if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quoted)
        return std::nullopt;
    if (inWord)
        words.push_back(word);
    return words;
}

bool byteCount(const std::string& text, std::uint64_t& value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && !text.empty() && value < (1ULL << 62);
}

std::string attach(zq::sim::Simulator& simulator, const std::vector<std::string>& words)
{
    if (words.size() < 3)
        return "usage: attach UDID ROOT [key=value ...]";
    auto device = std::make_shared<zq::sim::Device>();
    device->udid = words[1];
    device->root = words[2];
    for (std::size_t i = 3; i < words.size(); ++i) {
        auto equals = words[i].find('=');
        if (equals == std::string::npos)
            return "expected key=value, got " + words[i];
        std::string key = words[i].substr(0, equals);
        std::string value = words[i].substr(equals + 1);
        if (key == "name")
            device->name = value;
        else if (key == "productType")
            device->productType = value;
        else if (key == "productVersion")
            device->productVersion = value;
        else if (key == "serial")
            device->serialNumber = value;
        else if (key == "deviceClass")
            device->deviceClass = value;
        else if (key == "modelNumber")
            device->modelNumber = value;
        else if (key == "paired" && (value == "0" || value == "1"))
            device->paired = value == "1";
        else if (key == "lockdown" && value == "silent")
            device->lockdownSilent = true;
        else if (key == "readErrorAt" || key == "departAt" || key == "freezeAt" || key == "shortReadAt" ||
                 key == "stallAt") {
            using Fault = zq::sim::Device::Fault;
            Fault fault{key == "readErrorAt" ? Fault::ReadError
                        : key == "departAt"  ? Fault::Depart
                        : key == "freezeAt"  ? Fault::Freeze
                        : key == "stallAt"   ? Fault::Stall
                                             : Fault::ShortRead,
                        {}, 0};
            const auto at = value.rfind('@');
            if (at == std::string::npos || at == 0 || !byteCount(value.substr(at + 1), fault.offset))
                return "expected " + key + "=PATH@OFFSET, got " + words[i];
            fault.path = value.substr(0, at);
            device->faults.push_back(fault);
        }
        else
            return "unknown setting " + words[i];
    }
    std::error_code ec;
    if (!std::filesystem::is_directory(device->root, ec))
        return "no folder " + device->root;
    // Called from the connection that used up the budget; the detach drops that connection too.
    device->depart = [&simulator, udid = device->udid] { simulator.detach(udid); };
    return simulator.attach(device);
}

const char* const kHelp =
    "Usage: zq-device-sim --listen UNIX:/path/to/socket | --listen 127.0.0.1:PORT\n"
    "\n"
    "A usbmuxd with simulated iPhones behind it: lockdown (device values, pairing, a session\n"
    "without TLS) and the AFC file service, each phone serving a local folder as its file system.\n"
    "Point libimobiledevice at it with USBMUXD_SOCKET_ADDRESS=UNIX:/path/to/socket.\n"
    "\n"
    "Prints \"listening ADDRESS\" (the real port for 127.0.0.1:0), then reads one command per line\n"
    "from standard input and answers each with \"ok\" or \"error WHY\":\n"
    "\n"
    "  attach UDID ROOT [key=value ...]  a phone arrives; keys: name, productType, productVersion,\n"
    "                                    serial, deviceClass, modelNumber, paired=0|1\n"
    "                                    faults (for trying failing devices):\n"
    "                                    and faults, each striking when a read of the file PATH on\n"
    "                                    the phone reaches byte OFFSET (bytes before it are served):\n"
    "                                      readErrorAt=PATH@OFFSET  the read fails with an I/O error\n"
    "                                      departAt=PATH@OFFSET     the phone leaves, as if unplugged\n"
    "                                      freezeAt=PATH@OFFSET     the phone stops answering its file\n"
    "                                                               service (connections stay open)\n"
    "                                      shortReadAt=PATH@OFFSET  the read that reaches OFFSET stops\n"
    "                                                               short there; the next ones go on\n"
    "                                      stallAt=PATH@OFFSET      the first read to reach it is never\n"
    "                                                               answered; other connections go on\n"
    "                                      lockdown=silent          its lockdown service answers nothing\n"
    "  detach UDID                       the phone leaves; its connections drop\n"
    "  restart                           every client connection drops, as when usbmuxd restarts\n"
    "  hang                              requests are read but never answered, as by a stuck usbmuxd\n"
    "  answer                            requests are answered again\n"
    "  quit                              ends the simulator (so does the end of the input)\n"
    "\n"
    "Words with spaces go in double quotes; a backslash escapes the next character.\n"
    "\n"
    "Example:\n"
    "  zq-make-sample --phone /tmp/phone\n"
    "  zq-device-sim --listen UNIX:/tmp/zq-usbmuxd\n"
    "  attach 00008030-000A1B2C3D4E5F60 /tmp/phone name=\"My iPhone\" serial=F2LZK0ABCDEF\n";

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::string address;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            std::cout << kHelp;
            return 0;
        }
        if (argument == "--listen" && i + 1 < argc) {
            address = argv[++i];
        } else if (argument.rfind("--listen=", 0) == 0) {
            address = argument.substr(9);
        } else {
            std::cerr << "zq-device-sim: unknown argument " << argument << " (see zq-device-sim --help)\n";
            return 2;
        }
    }
    if (address.empty()) {
        std::cerr << "usage: zq-device-sim --listen UNIX:/path | --listen 127.0.0.1:PORT (see --help)\n";
        return 2;
    }

    std::unique_ptr<zq::sim::Simulator> simulator;
    try {
        simulator = std::make_unique<zq::sim::Simulator>(address);
    } catch (const std::exception& error) {
        std::cerr << "zq-device-sim: " << error.what() << '\n';
        return 1;
    }
    simulator->start();
    std::cout << "listening " << simulator->address() << std::endl;

    std::string line;
    while (std::getline(std::cin, line)) {
        auto words = splitWords(line);
        std::string error;
        bool quit = false;
        if (!words) {
            error = "unbalanced quotes";
        } else if (words->empty()) {
            continue;
        } else if ((*words)[0] == "attach") {
            error = attach(*simulator, *words);
        } else if ((*words)[0] == "detach" && words->size() == 2) {
            error = simulator->detach((*words)[1]);
        } else if ((*words)[0] == "restart" && words->size() == 1) {
            simulator->restart();
        } else if ((*words)[0] == "hang" && words->size() == 1) {
            simulator->hang(true);
        } else if ((*words)[0] == "answer" && words->size() == 1) {
            simulator->hang(false);
        } else if ((*words)[0] == "quit") {
            quit = true;
        } else {
            error = "unknown command " + (*words)[0];
        }
        if (quit) {
            simulator->stop();
            std::cout << "ok" << std::endl;
            break;
        }
        std::cout << (error.empty() ? "ok" : "error " + error) << std::endl;
    }
    simulator.reset();
    return 0;
}
