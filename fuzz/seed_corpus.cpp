// fuzz_seed_corpus OUTDIR [SAMPLES]: writes the starting inputs of the fuzz targets: databases
// from the test image builder (every record kind, smart playlists, podcast groups), a rule blob,
// and the real databases under SAMPLES (any file named iTunesDB).

#include "tests/support/DeviceImage.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

void write(const fs::path& file, const zq::Data& data)
{
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(data.bytes()), static_cast<std::streamsize>(data.size()));
    std::printf("%s (%zu bytes)\n", file.c_str(), data.size());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUTDIR [SAMPLES]\n", argv[0]);
        return 2;
    }
    try {
        const fs::path out(argv[1]);
        fs::create_directories(out);
        using namespace zq::test;
        write(out / "sample-device", buildITunesDB(*makeSampleDevice().database));
        write(out / "generated-40", buildITunesDB(makeLargeLibrary(40, 3, 7)));
        write(out / "rule-blob", buildSmartRuleBlob(SmartRulesSpec{
                                     .conjunction = 1,
                                     .rules = {SmartRuleSpec{.field = 4, .action = 0x01000002, .text = "Pines"},
                                               SmartRuleSpec{.field = 7, .action = 0x100, .fromValue = 1990, .toValue = 1999}}}));
        if (argc > 2 && fs::is_directory(argv[2])) {
            for (const auto& entry : fs::recursive_directory_iterator(argv[2])) {
                if (entry.is_regular_file() && entry.path().filename() == "iTunesDB") {
                    const auto target = out / ("sample-" + entry.path().parent_path().filename().string());
                    fs::copy_file(entry.path(), target, fs::copy_options::overwrite_existing);
                    std::printf("%s\n", target.c_str());
                }
            }
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "fuzz_seed_corpus: %s\n", e.what());
        return 1;
    }
    return 0;
}
