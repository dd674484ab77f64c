// zq-list: prints the music library of the iPod whose volume is mounted at the path given.
#include <ZQCore/ZQCore.h>

#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: zq-list MOUNT-PATH\n";
        return 2;
    }
    try {
        auto reference = zq::ZQCoreiPodRef::initWithPath(argv[1]);
        auto library = zq::ZQCoreiPod::initWithiPodReference(reference);
        std::cout << library->name().value_or("?") << " (serial "
                  << reference->serialNumber().value_or("none") << "): "
                  << library->allTracks().size() << " tracks\n";
        for (const auto& playlist : library->allPlaylists()) {
            std::cout << playlist->name().value_or("") << '\n';
            for (const auto& track : playlist->tracks())
                std::cout << "  " << track->artist().value_or("") << " - "
                          << track->title().value_or("") << '\n';
        }
    } catch (const zq::Exception& error) {
        std::cerr << "zq-list: " << error.name() << ": " << error.reason() << '\n';
        return 1;
    }
}
