#include "tests/support/SimulatedDevice.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

extern char** environ;

namespace zq::test {

namespace {

std::string simulatorPath()
{
    if (const char* path = std::getenv("ZQ_DEVICE_SIM"); path && *path)
        return path;
#ifdef ZQ_DEVICE_SIM_PATH
    if (std::filesystem::exists(ZQ_DEVICE_SIM_PATH))
        return ZQ_DEVICE_SIM_PATH;
#endif
    std::error_code ec;
    auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return (self.parent_path() / "zq-device-sim").string();
}

/// One word of a command line, quoted so that spaces and quotes in names and paths survive.
std::string quoted(const std::string& word)
{
    std::string result = "\"";
    for (char c : word) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result + "\"";
}

} // namespace

SimulatedUsbmuxd::SimulatedUsbmuxd(Listen listen)
{
    // The client library writes to sockets the simulator may just have closed (a detach, a
    // restart), and this handle writes to the simulator's input: either must fail, not kill.
    std::signal(SIGPIPE, SIG_IGN);
    std::string listenAddress = "127.0.0.1:0";
    if (listen == Listen::Unix) {
        // A socket path must stay short (108 bytes), so the folder is made under /tmp.
        char pattern[] = "/tmp/zq-sim-XXXXXX";
        if (!::mkdtemp(pattern))
            throw std::runtime_error("cannot create a folder for the simulator's socket");
        folder_ = pattern;
        listenAddress = "UNIX:" + folder_ + "/usbmuxd";
    }

    int input[2], output[2];
    if (::pipe2(input, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    if (::pipe2(output, O_CLOEXEC) != 0) {
        ::close(input[0]);
        ::close(input[1]);
        throw std::runtime_error("pipe failed");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::string path = simulatorPath();
    std::vector<std::string> arguments = {path, "--listen", listenAddress};
    std::vector<char*> argv;
    for (auto& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    int spawned = ::posix_spawn(&pid_, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    toSimulator_ = input[1];
    fromSimulator_ = output[0];
    if (spawned != 0) {
        pid_ = -1;
        shutdown();
        throw std::runtime_error("cannot start " + path + ": " + std::strerror(spawned));
    }
    std::string line = readLine(10000);
    if (line.rfind("listening ", 0) != 0) {
        shutdown();
        throw std::runtime_error("the simulator did not start: " + line);
    }
    address_ = line.substr(10);
}

SimulatedUsbmuxd::~SimulatedUsbmuxd()
{
    shutdown();
}

void SimulatedUsbmuxd::shutdown()
{
    if (pid_ > 0) {
        try {
            command("quit");
        } catch (const std::exception&) {
            // It is reaped below either way.
        }
    }
    if (toSimulator_ >= 0)
        ::close(toSimulator_);
    if (fromSimulator_ >= 0)
        ::close(fromSimulator_);
    toSimulator_ = fromSimulator_ = -1;
    if (pid_ > 0) {
        int status = 0;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        bool killed = false;
        while (::waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                ::kill(pid_, SIGKILL);
                ::waitpid(pid_, &status, 0);
                killed = true;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        // A crash or a sanitizer report in the simulator would otherwise go unnoticed.
        if (killed || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            std::fprintf(stderr, "zq-device-sim ended abnormally (%s %d)\n",
                         killed ? "killed after" : WIFEXITED(status) ? "exit status" : "signal",
                         killed ? 5 : WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status));
        pid_ = -1;
    }
    if (exported_) {
        if (previousAddress_)
            ::setenv("USBMUXD_SOCKET_ADDRESS", previousAddress_->c_str(), 1);
        else
            ::unsetenv("USBMUXD_SOCKET_ADDRESS");
        exported_ = false;
    }
    if (!folder_.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(folder_, ec);
        folder_.clear();
    }
}

void SimulatedUsbmuxd::exportAddress() const
{
    if (!exported_) {
        if (const char* previous = std::getenv("USBMUXD_SOCKET_ADDRESS"))
            previousAddress_ = previous;
        exported_ = true;
    }
    ::setenv("USBMUXD_SOCKET_ADDRESS", address_.c_str(), 1);
}

void SimulatedUsbmuxd::attach(const SimulatedDeviceSpec& device)
{
    command("attach " + quoted(device.udid) + " " + quoted(device.root) + " " + quoted("name=" + device.deviceName) +
            " " + quoted("productType=" + device.productType) + " " + quoted("serial=" + device.serialNumber) + " " +
            quoted("deviceClass=" + device.deviceClass) + " paired=" + (device.paired ? "1" : "0") +
            (device.faults.empty() ? "" : " " + device.faults));
}

void SimulatedUsbmuxd::detach(const std::string& udid)
{
    command("detach " + quoted(udid));
}

void SimulatedUsbmuxd::restart()
{
    command("restart");
}

void SimulatedUsbmuxd::hang(bool hung)
{
    command(hung ? "hang" : "answer");
}

std::string SimulatedUsbmuxd::command(const std::string& line)
{
    std::string text = line + "\n";
    const char* p = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        ssize_t written = ::write(toSimulator_, p, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            throw std::runtime_error("the simulator is gone");
        p += written;
        left -= std::size_t(written);
    }
    std::string answer = readLine(10000);
    if (answer != "ok")
        throw std::runtime_error("simulator: " + line + ": " + answer);
    return answer;
}

std::string SimulatedUsbmuxd::readLine(int timeoutMilliseconds)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    for (;;) {
        if (auto newline = pending_.find('\n'); newline != std::string::npos) {
            std::string line = pending_.substr(0, newline);
            pending_.erase(0, newline + 1);
            return line;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            throw std::runtime_error("the simulator did not answer in time");
        pollfd ready{fromSimulator_, POLLIN, 0};
        int polled = ::poll(&ready, 1, int(left.count()));
        if (polled < 0 && errno == EINTR)
            continue;
        if (polled <= 0)
            continue;
        char buffer[512];
        ssize_t got = ::read(fromSimulator_, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            throw std::runtime_error("the simulator is gone");
        pending_.append(buffer, std::size_t(got));
    }
}

} // namespace zq::test
