#include "tests/support/SampleDevice.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace zq::test {

TempDir::TempDir()
{
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/zq-test-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!::mkdtemp(buffer.data()))
        throw std::runtime_error("cannot create a temporary folder from " + pattern);
    path_ = buffer.data();
}

TempDir::~TempDir()
{
    // Tests make files read-only to provoke read failures; removal must still succeed, so
    // folders are made writable again before their contents go.
    std::error_code ec;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec))
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ec);
    }
    std::filesystem::remove_all(path_, ec);
}

std::string TempDir::file(const std::string& relative) const
{
    return path_ + "/" + relative;
}

} // namespace zq::test
