// The device's AFC service, served from a local folder that stands for the device's file system.
//
// Packets are a 40-byte little-endian header ("CFA6LPAA", entire length, length of the header
// part, packet number, operation) followed by the operation's arguments and, for writes, the
// data. Every answer echoes the packet number. Device paths are resolved inside the folder only:
// ".." stops at the top, and symbolic links are followed as if the folder were the root
// (openat2 with RESOLVE_IN_ROOT), so nothing outside the folder can be read or changed.

#include "tools/zq-device-sim/Simulator.h"
#include "tools/zq-device-sim/Wire.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zq::sim {

namespace {

enum Operation : std::uint64_t {
    kStatus = 0x01,
    kData = 0x02,
    kReadDirectory = 0x03,
    kTruncatePath = 0x07,
    kRemovePath = 0x08,
    kMakeDirectory = 0x09,
    kGetFileInfo = 0x0A,
    kGetDeviceInfo = 0x0B,
    kFileOpen = 0x0D,
    kFileOpenResult = 0x0E,
    kFileRead = 0x0F,
    kFileWrite = 0x10,
    kFileSeek = 0x11,
    kFileTell = 0x12,
    kFileTellResult = 0x13,
    kFileClose = 0x14,
    kFileSetSize = 0x15,
    kSetConnectionOptions = 0x17,
    kRenamePath = 0x18,
    kSetFSBlockSize = 0x19,
    kSetSocketBlockSize = 0x1A,
    kFileLock = 0x1B,
    kMakeLink = 0x1C,
    kSetFileModTime = 0x1E,
    kRemovePathAndContents = 0x22,
};

enum Status : std::uint64_t {
    kSuccess = 0,
    kUnknownError = 1,
    kNoResources = 3,
    kReadError = 4,
    kWriteError = 5,
    kUnknownPacketType = 6,
    kInvalidArgument = 7,
    kObjectNotFound = 8,
    kObjectIsDirectory = 9,
    kPermissionDenied = 10,
    kObjectExists = 16,
    kObjectBusy = 17,
    kNoSpaceLeft = 18,
    kWouldBlock = 19,
    kIOError = 20,
    kDirectoryNotEmpty = 33,
};

constexpr std::size_t kHeaderSize = 40;
constexpr std::uint64_t kLargestPacket = 32u << 20;  // far above the client's 256 KiB writes
constexpr std::uint64_t kLargestRead = 8u << 20;      // a read asks for more: it gets this much
constexpr std::size_t kMostOpenFiles = 256;
constexpr char kMagic[8] = {'C', 'F', 'A', '6', 'L', 'P', 'A', 'A'};

std::uint64_t statusOfErrno(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
        return kObjectNotFound;
    case EISDIR:
        return kObjectIsDirectory;
    case EACCES:
    case EPERM:
    case EROFS:
    case EXDEV:
        return kPermissionDenied;
    case EEXIST:
        return kObjectExists;
    case ENOTEMPTY:
        return kDirectoryNotEmpty;
    case ENOSPC:
    case EDQUOT:
        return kNoSpaceLeft;
    case EBUSY:
    case ETXTBSY:
        return kObjectBusy;
    case EWOULDBLOCK:
        return kWouldBlock;
    case EINVAL:
    case ENAMETOOLONG:
        return kInvalidArgument;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
        return kNoResources;
    default:
        return kIOError;
    }
}

struct FD {
    int fd = -1;
    explicit FD(int value = -1) : fd(value) {}
    FD(FD&& other) noexcept : fd(other.fd) { other.fd = -1; }
    FD& operator=(FD&& other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }
    ~FD()
    {
        if (fd >= 0)
            ::close(fd);
    }
    explicit operator bool() const { return fd >= 0; }
};

/// The device's file system: its folder, and path resolution that cannot leave it.
class DeviceRoot {
public:
    explicit DeviceRoot(const std::string& folder)
        : root_(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
    {
    }
    bool valid() const { return bool(root_); }
    int fd() const { return root_.fd; }

    /// The path's components below the root: "." and empty ones dropped, ".." taking one away
    /// and never going above the top, as in a chroot.
    static std::vector<std::string> components(std::string_view path)
    {
        std::vector<std::string> parts;
        std::size_t start = 0;
        while (start <= path.size()) {
            std::size_t end = path.find('/', start);
            if (end == std::string_view::npos)
                end = path.size();
            std::string_view part = path.substr(start, end - start);
            if (part == "..") {
                if (!parts.empty())
                    parts.pop_back();
            } else if (!part.empty() && part != ".") {
                parts.emplace_back(part);
            }
            start = end + 1;
        }
        return parts;
    }

    static std::string join(const std::vector<std::string>& parts, std::size_t count)
    {
        std::string joined = ".";
        for (std::size_t i = 0; i < count; ++i)
            joined += "/" + parts[i];
        return joined;
    }

    /// Opens a path below the root; symbolic links on the way resolve inside the root too.
    FD open(const std::vector<std::string>& parts, std::size_t count, int flags, mode_t mode = 0) const
    {
        std::string relative = join(parts, count);
        open_how how{};
        how.flags = std::uint64_t(flags | O_CLOEXEC);
        how.mode = (flags & O_CREAT) ? mode : 0;
        how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
        long fd = ::syscall(SYS_openat2, root_.fd, relative.c_str(), &how, sizeof how);
        if (fd < 0 && errno == ENOSYS)  // older kernels: the lexical clamp above still holds
            fd = ::openat(root_.fd, relative.c_str(), flags | O_CLOEXEC, mode);
        return FD(int(fd));
    }

    FD open(const std::string& path, int flags, mode_t mode = 0) const
    {
        auto parts = components(path);
        return open(parts, parts.size(), flags, mode);
    }

    /// The folder holding the path's last component, and that component; the root itself has
    /// no parent (an empty name comes back).
    std::pair<FD, std::string> parent(const std::string& path) const
    {
        auto parts = components(path);
        if (parts.empty())
            return {FD(), std::string()};
        FD folder = open(parts, parts.size() - 1, O_PATH | O_DIRECTORY);
        return {std::move(folder), parts.back()};
    }

private:
    FD root_;
};

/// The arguments of one request: fixed 64-bit words, then NUL-terminated strings.
class Arguments {
public:
    explicit Arguments(const std::vector<std::uint8_t>& bytes) : bytes_(bytes) {}
    std::optional<std::uint64_t> word()
    {
        if (offset_ > bytes_.size() || bytes_.size() - offset_ < 8)
            return std::nullopt;
        std::uint64_t value = loadLE64(bytes_.data() + offset_);
        offset_ += 8;
        return value;
    }
    std::optional<std::string> string()
    {
        if (offset_ >= bytes_.size())
            return std::nullopt;
        auto begin = bytes_.begin() + std::ptrdiff_t(offset_);
        auto end = std::find(begin, bytes_.end(), std::uint8_t(0));
        if (end == bytes_.end())
            return std::nullopt;
        std::string value(begin, end);
        offset_ += value.size() + 1;
        return value;
    }
    /// What follows the words and strings taken so far (the data of a write).
    const std::uint8_t* rest() const { return bytes_.data() + offset_; }
    std::size_t restSize() const { return offset_ <= bytes_.size() ? bytes_.size() - offset_ : 0; }

private:
    const std::vector<std::uint8_t>& bytes_;
    std::size_t offset_ = 0;
};

class AFCSession {
public:
    AFCSession(int socket, Device& device) : socket_(socket), device_(device), root_(device.root) {}
    ~AFCSession()
    {
        for (auto& [handle, fd] : files_)
            ::close(fd);
    }

    void run()
    {
        std::vector<std::uint8_t> arguments;
        for (;;) {
            std::uint8_t header[kHeaderSize];
            if (!readExact(socket_, header, sizeof header))
                return;
            if (!std::equal(kMagic, kMagic + 8, header))
                return;  // not AFC: a real device drops the connection too
            std::uint64_t entireLength = loadLE64(header + 8);
            std::uint64_t thisLength = loadLE64(header + 16);
            packetNumber_ = loadLE64(header + 24);
            std::uint64_t operation = loadLE64(header + 32);
            if (thisLength < kHeaderSize || entireLength < thisLength ||
                entireLength - kHeaderSize > kLargestPacket)
                return;
            arguments.resize(std::size_t(entireLength - kHeaderSize));
            if (!readExact(socket_, arguments.data(), arguments.size()))
                return;
            if (device_.frozen) {
                hang();
                return;
            }
            if (!root_.valid()) {
                if (!status(kObjectNotFound))
                    return;
                continue;
            }
            Arguments args(arguments);
            if (!dispatch(operation, args))
                return;
        }
    }

private:
    bool send(std::uint64_t operation, const std::uint8_t* payload, std::size_t size)
    {
        std::vector<std::uint8_t> packet(kHeaderSize + size);
        fillHeader(packet.data(), operation, size);
        if (size)
            std::copy(payload, payload + size, packet.begin() + kHeaderSize);
        return writeAll(socket_, packet.data(), packet.size());
    }

    void fillHeader(std::uint8_t* header, std::uint64_t operation, std::size_t payloadSize) const
    {
        std::copy(kMagic, kMagic + 8, header);
        // Like a real device, everything after the header goes in the packet's second part:
        // the client takes the first part in a single receive and only loops over the second.
        storeLE64(header + 8, kHeaderSize + payloadSize);
        storeLE64(header + 16, kHeaderSize);
        storeLE64(header + 24, packetNumber_);
        storeLE64(header + 32, operation);
    }

    bool status(std::uint64_t code)
    {
        std::uint8_t word[8];
        storeLE64(word, code);
        return send(kStatus, word, sizeof word);
    }
    bool statusOfResult(int result) { return status(result == 0 ? kSuccess : statusOfErrno(errno)); }
    bool word(std::uint64_t operation, std::uint64_t value)
    {
        std::uint8_t bytes[8];
        storeLE64(bytes, value);
        return send(operation, bytes, sizeof bytes);
    }
    bool strings(const std::vector<std::string>& list)
    {
        std::string joined;
        for (const auto& item : list) {
            joined += item;
            joined += '\0';
        }
        return send(kData, reinterpret_cast<const std::uint8_t*>(joined.data()), joined.size());
    }

    int fileOf(std::optional<std::uint64_t> handle) const
    {
        if (!handle)
            return -1;
        auto found = files_.find(*handle);
        return found == files_.end() ? -1 : found->second;
    }

    bool dispatch(std::uint64_t operation, Arguments& args)
    {
        switch (operation) {
        case kReadDirectory: return readDirectory(args);
        case kGetFileInfo: return fileInfo(args);
        case kGetDeviceInfo: return deviceInfo();
        case kFileOpen: return fileOpen(args);
        case kFileRead: return fileRead(args);
        case kFileWrite: return fileWrite(args);
        case kFileSeek: return fileSeek(args);
        case kFileTell: return fileTell(args);
        case kFileClose: return fileClose(args);
        case kFileSetSize: return fileSetSize(args);
        case kFileLock: return fileLock(args);
        case kTruncatePath: return truncatePath(args);
        case kRemovePath: return removePath(args, false);
        case kRemovePathAndContents: return removePath(args, true);
        case kMakeDirectory: return makeDirectory(args);
        case kRenamePath: return renamePath(args);
        case kMakeLink: return makeLink(args);
        case kSetFileModTime: return setModTime(args);
        case kSetConnectionOptions:
        case kSetFSBlockSize:
        case kSetSocketBlockSize: return status(kSuccess);
        default: return status(kUnknownPacketType);
        }
    }

    bool readDirectory(Arguments& args)
    {
        auto path = args.string();
        if (!path)
            return status(kInvalidArgument);
        FD folder = root_.open(*path, O_RDONLY | O_DIRECTORY);
        if (!folder)
            return status(statusOfErrno(errno));
        DIR* dir = ::fdopendir(folder.fd);
        if (!dir)
            return status(statusOfErrno(errno));
        folder.fd = -1;  // the DIR owns it now
        std::vector<std::string> names;
        while (dirent* entry = ::readdir(dir)) {
            std::string name = entry->d_name;
            if (name != "." && name != "..")
                names.push_back(name);
        }
        ::closedir(dir);
        // The folder's own entries first, then the rest in a fixed order, so that listings
        // do not depend on the host file system's hash order.
        std::sort(names.begin(), names.end());
        names.insert(names.begin(), {".", ".."});
        return strings(names);
    }

    bool fileInfo(Arguments& args)
    {
        auto path = args.string();
        if (!path)
            return status(kInvalidArgument);
        struct stat info {};
        std::string linkTarget;
        auto [folder, name] = root_.parent(*path);
        if (name.empty()) {
            if (::fstat(root_.fd(), &info) != 0)
                return status(statusOfErrno(errno));
        } else {
            if (!folder)
                return status(statusOfErrno(errno));
            if (::fstatat(folder.fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
                return status(statusOfErrno(errno));
            if (S_ISLNK(info.st_mode)) {
                char target[4096];
                ssize_t length = ::readlinkat(folder.fd, name.c_str(), target, sizeof target);
                if (length > 0)
                    linkTarget.assign(target, std::size_t(length));
            }
        }
        const char* kind = S_ISDIR(info.st_mode)    ? "S_IFDIR"
                           : S_ISREG(info.st_mode)  ? "S_IFREG"
                           : S_ISLNK(info.st_mode)  ? "S_IFLNK"
                           : S_ISCHR(info.st_mode)  ? "S_IFCHR"
                           : S_ISBLK(info.st_mode)  ? "S_IFBLK"
                           : S_ISFIFO(info.st_mode) ? "S_IFIFO"
                                                    : "S_IFSOCK";
        auto nanoseconds = [](const timespec& t) {
            return std::to_string(std::uint64_t(t.tv_sec) * 1000000000ull + std::uint64_t(t.tv_nsec));
        };
        std::vector<std::string> pairs = {
            "st_size", std::to_string(info.st_size),   "st_blocks", std::to_string(info.st_blocks),
            "st_nlink", std::to_string(info.st_nlink), "st_ifmt", kind,
            // Linux keeps no birth time in stat; the change time stands in for it.
            "st_mtime", nanoseconds(info.st_mtim),     "st_birthtime", nanoseconds(info.st_ctim),
        };
        if (!linkTarget.empty()) {
            pairs.push_back("LinkTarget");
            pairs.push_back(linkTarget);
        }
        return strings(pairs);
    }

    bool deviceInfo()
    {
        struct statvfs fs {};
        if (::fstatvfs(root_.fd(), &fs) != 0)
            return status(statusOfErrno(errno));
        return strings({
            "Model", device_.productType,
            "FSTotalBytes", std::to_string(std::uint64_t(fs.f_blocks) * fs.f_frsize),
            "FSFreeBytes", std::to_string(std::uint64_t(fs.f_bavail) * fs.f_frsize),
            "FSBlockSize", std::to_string(fs.f_bsize),
        });
    }

    bool fileOpen(Arguments& args)
    {
        auto mode = args.word();
        auto path = args.string();
        if (!mode || !path)
            return status(kInvalidArgument);
        int flags = 0;
        switch (*mode) {
        case 1: flags = O_RDONLY; break;
        case 2: flags = O_RDWR | O_CREAT; break;
        case 3: flags = O_WRONLY | O_CREAT | O_TRUNC; break;
        case 4: flags = O_RDWR | O_CREAT | O_TRUNC; break;
        case 5: flags = O_WRONLY | O_APPEND | O_CREAT; break;
        case 6: flags = O_RDWR | O_APPEND | O_CREAT; break;
        default: return status(kInvalidArgument);
        }
        if (files_.size() >= kMostOpenFiles)
            return status(kNoResources);
        auto parts = DeviceRoot::components(*path);
        if (parts.empty())
            return status(kObjectIsDirectory);
        FD file = root_.open(parts, parts.size(), flags, 0644);
        if (!file)
            return status(statusOfErrno(errno));
        struct stat info {};
        if (::fstat(file.fd, &info) != 0)
            return status(statusOfErrno(errno));
        if (S_ISDIR(info.st_mode))
            return status(kObjectIsDirectory);
        // Handle 0 means "no file" to clients, so handles start at 1.
        std::uint64_t handle = nextHandle_++;
        files_[handle] = file.fd;
        for (const auto& fault : device_.faults) {
            const auto faultParts = DeviceRoot::components(fault.path);
            if (faultParts == parts)
                faults_[handle].push_back(&fault);
        }
        file.fd = -1;
        return word(kFileOpenResult, handle);
    }

    /// A frozen device: nothing more is answered; the connection ends when the client gives up.
    bool hang()
    {
        std::uint8_t sink[4096];
        while (::read(socket_, sink, sizeof sink) > 0 || errno == EINTR) {
        }
        return false;
    }

    bool fileRead(Arguments& args)
    {
        auto handle = args.word();
        int fd = fileOf(handle);
        auto size = args.word();
        if (fd < 0 || !size)
            return status(kInvalidArgument);
        std::size_t wanted = std::size_t(std::min(*size, kLargestRead));
        // Injected faults strike once the read reaches their byte; the read before stops there.
        const off_t at = ::lseek(fd, 0, SEEK_CUR);
        const auto faults = faults_.find(*handle);
        for (const Device::Fault* fault : faults == faults_.end() ? std::vector<const Device::Fault*>() : faults->second) {
            if (at < 0)
                break;
            if (fault->kind == Device::Fault::Stall && *fault->spent)
                continue;
            if (std::uint64_t(at) < fault->offset) {
                wanted = std::size_t(std::min<std::uint64_t>(wanted, fault->offset - std::uint64_t(at)));
                continue;
            }
            switch (fault->kind) {
            case Device::Fault::ReadError:
                return status(kIOError);
            case Device::Fault::Freeze:
                device_.frozen = true;
                return hang();
            case Device::Fault::Stall:
                if (fault->spent->exchange(true))
                    break;  // struck already (by another connection): this read is served
                return hang();
            case Device::Fault::Depart:
                if (device_.depart)
                    device_.depart();
                return false;
            case Device::Fault::ShortRead:
                break;  // it has cut the read before it short; from here on reads are whole
            }
        }
        std::vector<std::uint8_t> packet(kHeaderSize + wanted);
        std::size_t got = 0;
        while (got < wanted) {
            ssize_t n = ::read(fd, packet.data() + kHeaderSize + got, wanted - got);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0 && got == 0)
                return status(statusOfErrno(errno));
            if (n <= 0)
                break;  // what was read before a failure still goes out, as from a device
            got += std::size_t(n);
        }
        packet.resize(kHeaderSize + got);
        fillHeader(packet.data(), kData, got);
        return writeAll(socket_, packet.data(), packet.size());
    }

    bool fileWrite(Arguments& args)
    {
        int fd = fileOf(args.word());
        if (fd < 0)
            return status(kInvalidArgument);
        const std::uint8_t* data = args.rest();
        std::size_t left = args.restSize();
        while (left > 0) {
            ssize_t n = ::write(fd, data, left);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return status(n < 0 ? statusOfErrno(errno) : kWriteError);
            data += n;
            left -= std::size_t(n);
        }
        return status(kSuccess);
    }

    bool fileSeek(Arguments& args)
    {
        int fd = fileOf(args.word());
        auto whence = args.word();
        auto offset = args.word();
        if (fd < 0 || !whence || !offset || *whence > 2)
            return status(kInvalidArgument);
        int how = *whence == 0 ? SEEK_SET : *whence == 1 ? SEEK_CUR : SEEK_END;
        return statusOfResult(::lseek(fd, off_t(std::int64_t(*offset)), how) < 0 ? -1 : 0);
    }

    bool fileTell(Arguments& args)
    {
        int fd = fileOf(args.word());
        if (fd < 0)
            return status(kInvalidArgument);
        off_t position = ::lseek(fd, 0, SEEK_CUR);
        if (position < 0)
            return status(statusOfErrno(errno));
        return word(kFileTellResult, std::uint64_t(position));
    }

    bool fileClose(Arguments& args)
    {
        auto handle = args.word();
        int fd = fileOf(handle);
        if (fd < 0)
            return status(kInvalidArgument);
        files_.erase(*handle);
        faults_.erase(*handle);
        return statusOfResult(::close(fd));
    }

    bool fileSetSize(Arguments& args)
    {
        int fd = fileOf(args.word());
        auto size = args.word();
        if (fd < 0 || !size || *size > std::uint64_t(INT64_MAX))
            return status(kInvalidArgument);
        return statusOfResult(::ftruncate(fd, off_t(*size)));
    }

    bool fileLock(Arguments& args)
    {
        int fd = fileOf(args.word());
        auto operation = args.word();
        if (fd < 0 || !operation)
            return status(kInvalidArgument);
        int how = 0;
        switch (*operation) {
        case 1 | 4: how = LOCK_SH | LOCK_NB; break;
        case 2 | 4: how = LOCK_EX | LOCK_NB; break;
        case 8 | 4: how = LOCK_UN; break;
        default: return status(kInvalidArgument);
        }
        return statusOfResult(::flock(fd, how));
    }

    bool truncatePath(Arguments& args)
    {
        auto size = args.word();
        auto path = args.string();
        if (!size || !path || *size > std::uint64_t(INT64_MAX))
            return status(kInvalidArgument);
        FD file = root_.open(*path, O_WRONLY);
        if (!file)
            return status(statusOfErrno(errno));
        return statusOfResult(::ftruncate(file.fd, off_t(*size)));
    }

    static int removeTree(int folder, const std::string& name)
    {
        struct stat info {};
        if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            return -1;
        if (!S_ISDIR(info.st_mode))
            return ::unlinkat(folder, name.c_str(), 0);
        int inner = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (inner < 0)
            return -1;
        DIR* dir = ::fdopendir(inner);
        if (!dir) {
            ::close(inner);
            return -1;
        }
        std::vector<std::string> names;
        while (dirent* entry = ::readdir(dir)) {
            std::string child = entry->d_name;
            if (child != "." && child != "..")
                names.push_back(child);
        }
        int result = 0;
        for (const auto& child : names)
            if (removeTree(::dirfd(dir), child) != 0)
                result = -1;
        ::closedir(dir);
        return result == 0 ? ::unlinkat(folder, name.c_str(), AT_REMOVEDIR) : -1;
    }

    bool removePath(Arguments& args, bool withContents)
    {
        auto path = args.string();
        if (!path)
            return status(kInvalidArgument);
        auto [folder, name] = root_.parent(*path);
        if (name.empty())
            return status(kPermissionDenied);  // the root stays
        if (!folder)
            return status(statusOfErrno(errno));
        if (withContents)
            return statusOfResult(removeTree(folder.fd, name));
        int result = ::unlinkat(folder.fd, name.c_str(), 0);
        if (result != 0 && (errno == EISDIR || errno == EPERM))
            result = ::unlinkat(folder.fd, name.c_str(), AT_REMOVEDIR);
        return statusOfResult(result);
    }

    bool makeDirectory(Arguments& args)
    {
        auto path = args.string();
        if (!path)
            return status(kInvalidArgument);
        auto [folder, name] = root_.parent(*path);
        if (name.empty())
            return status(kSuccess);  // the root exists
        if (!folder)
            return status(statusOfErrno(errno));
        if (::mkdirat(folder.fd, name.c_str(), 0755) == 0)
            return status(kSuccess);
        // Asking for a folder that is already there is not an error on a device.
        struct stat info {};
        if (errno == EEXIST && ::fstatat(folder.fd, name.c_str(), &info, 0) == 0 && S_ISDIR(info.st_mode))
            return status(kSuccess);
        return status(statusOfErrno(errno));
    }

    bool renamePath(Arguments& args)
    {
        auto from = args.string();
        auto to = args.string();
        if (!from || !to)
            return status(kInvalidArgument);
        auto [fromFolder, fromName] = root_.parent(*from);
        auto [toFolder, toName] = root_.parent(*to);
        if (fromName.empty() || toName.empty())
            return status(kPermissionDenied);
        if (!fromFolder || !toFolder)
            return status(kObjectNotFound);
        return statusOfResult(::renameat(fromFolder.fd, fromName.c_str(), toFolder.fd, toName.c_str()));
    }

    bool makeLink(Arguments& args)
    {
        auto type = args.word();
        auto target = args.string();
        auto linkName = args.string();
        if (!type || !target || !linkName || (*type != 1 && *type != 2))
            return status(kInvalidArgument);
        auto [linkFolder, name] = root_.parent(*linkName);
        if (name.empty())
            return status(kObjectExists);
        if (!linkFolder)
            return status(statusOfErrno(errno));
        if (*type == 2)  // symbolic: the text is kept as given and only ever resolved in the root
            return statusOfResult(::symlinkat(target->c_str(), linkFolder.fd, name.c_str()));
        auto [targetFolder, targetName] = root_.parent(*target);
        if (!targetFolder || targetName.empty())
            return status(kObjectNotFound);
        return statusOfResult(::linkat(targetFolder.fd, targetName.c_str(), linkFolder.fd, name.c_str(), 0));
    }

    bool setModTime(Arguments& args)
    {
        auto time = args.word();
        auto path = args.string();
        if (!time || !path)
            return status(kInvalidArgument);
        auto [folder, name] = root_.parent(*path);
        if (name.empty() || !folder)
            return status(name.empty() ? kPermissionDenied : statusOfErrno(errno));
        timespec times[2];
        times[0].tv_sec = times[1].tv_sec = time_t(*time / 1000000000ull);
        times[0].tv_nsec = times[1].tv_nsec = long(*time % 1000000000ull);
        return statusOfResult(::utimensat(folder.fd, name.c_str(), times, AT_SYMLINK_NOFOLLOW));
    }

    int socket_;
    Device& device_;
    DeviceRoot root_;
    std::uint64_t packetNumber_ = 0;
    std::map<std::uint64_t, int> files_;
    std::map<std::uint64_t, std::vector<const Device::Fault*>> faults_;  // of the open files, by handle
    std::uint64_t nextHandle_ = 1;
};

} // namespace

void serveAFC(int fd, Device& device)
{
    AFCSession(fd, device).run();
}

} // namespace zq::sim
