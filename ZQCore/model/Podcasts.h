#pragma once

#include "ZQCore/foundation/Export.h"
#include "ZQCore/model/Playlist.h"

namespace zq {

/// The podcast playlist: one child playlist per show, named after the show and holding that
/// show's episodes. Its tracks are the shows' tracks, show after show.
/// Observable key "podcasts" (addPodcast, removePodcast).
class ZQ_EXPORT Podcasts : public Playlist {
public:
    const char* kind() const override { return "podcasts"; }
    static std::shared_ptr<Podcasts> init();
    static std::shared_ptr<Podcasts> initWithMHYP(std::span<const std::uint8_t> header, const std::optional<std::string>& name);

    const std::vector<std::shared_ptr<Playlist>>& podcasts() const { return podcasts_; }
    /// Adds a show unless it is already there (then nothing is announced).
    void addPodcast(const std::shared_ptr<Playlist>& show);
    /// Removes a show if it is there (otherwise nothing is announced).
    void removePodcast(const std::shared_ptr<Playlist>& show);

    bool isPodcasts() const override { return true; }
    Tracks tracks() const override;
    std::size_t trackCount() const override;
    std::string description() const override { return "Podcasts"; }
    std::shared_ptr<Image> icon() const override;

protected:
    explicit Podcasts(const std::optional<std::string>& name) : Playlist(name) {}

private:
    std::vector<std::shared_ptr<Playlist>> podcasts_;
};

} // namespace zq
