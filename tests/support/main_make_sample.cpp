// zq-make-sample DIR: writes the built-in sample device to DIR, for the demo and for trying the
// command-line tool without an iPod at hand.

#include "tests/support/DeviceImage.h"

#include <cstdio>
#include <exception>
#include <filesystem>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argc > 0 ? argv[0] : "zq-make-sample");
        return 2;
    }
    try {
        namespace fs = std::filesystem;
        const fs::path root = fs::absolute(argv[1]).lexically_normal();
        // Replace an earlier sample: only its iPod_Control folder goes, so DIR itself (perhaps a
        // mount point) and anything else in it are left alone.
        fs::remove_all(root / "iPod_Control");
        zq::test::writeVolume(root.string(), zq::test::makeSampleDevice());
        std::printf("%s\n", root.string().c_str());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zq-make-sample: %s\n", e.what());
        return 1;
    }
    return 0;
}
