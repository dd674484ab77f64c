// zq-device-sim: a usbmuxd with simulated mobile devices, for tests and for trying zqpod without
// an iPhone at hand.
//
//   zq-device-sim --listen UNIX:/path/to/socket     or     --listen 127.0.0.1:0
//
// Prints "listening <address>" once clients may connect (the real port for TCP), then reads one
// command per line from standard input and answers each with one line, "ok" or "error <why>":
//
//   attach UDID ROOT [key=value ...]   keys: name, productType, productVersion, serial,
//                                      deviceClass, modelNumber, paired=0|1
//   detach UDID
//   restart                            drop every client connection, keep listening
//   quit                               (also at the end of standard input)
//
// Words may be double-quoted ("name=My iPhone" or name="My iPhone"); a backslash escapes the
// next character.

#include "tests/support/devicesim/Simulator.h"

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
        else
            return "unknown setting " + words[i];
    }
    std::error_code ec;
    if (!std::filesystem::is_directory(device->root, ec))
        return "no folder " + device->root;
    return simulator.attach(device);
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::string address;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--listen" && i + 1 < argc)
            address = argv[++i];
        else if (argument.rfind("--listen=", 0) == 0)
            address = argument.substr(9);
    }
    if (address.empty()) {
        std::cerr << "usage: zq-device-sim --listen UNIX:/path | --listen 127.0.0.1:PORT\n";
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
