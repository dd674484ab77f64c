// The mobile-device test program. Everything that depends on process-wide state is fixed here,
// before the framework first runs: the temporary directory (the AFC library's database copies
// go there, and tests look at what is left), and SIGPIPE, which the real client can raise after
// a device departs.

#include "tests/afc/SharedSimulator.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace zq::test {

namespace {
SimulatedUsbmuxd* simulator = nullptr;
}

SimulatedUsbmuxd& sharedSimulator() { return *simulator; }

bool runMainLoopUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout)
{
    GMainContext* context = g_main_context_default();
    bool expired = false;
    GSource* timer = g_timeout_source_new(static_cast<guint>(timeout.count()));
    g_source_set_callback(
        timer, [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &expired, nullptr);
    g_source_attach(timer, context);
    while (!done() && !expired)
        g_main_context_iteration(context, TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
    return done();
}

} // namespace zq::test

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    const char* base = std::getenv("TMPDIR");
    const std::filesystem::path temporary = std::filesystem::path(base && *base ? base : "/tmp") /
                                            ("zq-afc-tests-" + std::to_string(::getpid()));
    std::filesystem::create_directories(temporary);
    ::setenv("TMPDIR", temporary.c_str(), 1);

    ::testing::InitGoogleTest(&argc, argv);
    int result = 0;
    if (::testing::GTEST_FLAG(list_tests)) {
        // Listing the tests (as the build does to register them) needs no device.
        result = RUN_ALL_TESTS();
    } else {
        zq::test::SimulatedUsbmuxd usbmuxd(zq::test::SimulatedUsbmuxd::Listen::Tcp);
        usbmuxd.exportAddress();
        zq::test::simulator = &usbmuxd;
        result = RUN_ALL_TESTS();
        zq::test::simulator = nullptr;
    }

    std::error_code ignored;
    std::filesystem::remove_all(temporary, ignored);
    return result;
}
