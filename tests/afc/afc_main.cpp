// The mobile-device test program. Everything that depends on process-wide state is fixed here,
// before the framework first runs: the temporary directory (the AFC library's database copies
// go there, and tests look at what is left), and SIGPIPE, which the real client can raise after
// a device departs.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    const char* base = std::getenv("TMPDIR");
    const std::filesystem::path temporary = std::filesystem::path(base && *base ? base : "/tmp") /
                                            ("zq-afc-tests-" + std::to_string(::getpid()));
    std::filesystem::create_directories(temporary);
    ::setenv("TMPDIR", temporary.c_str(), 1);

    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();

    std::error_code ignored;
    std::filesystem::remove_all(temporary, ignored);
    return result;
}
