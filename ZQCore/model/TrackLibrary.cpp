#include "ZQCore/model/TrackLibrary.h"

#include "ZQCore/files/VolumeFiles.h"

namespace zq {

TrackLibrary::TrackLibrary() : files_(std::make_shared<VolumeFiles>(std::string())) {}

TrackLibrary::~TrackLibrary() = default;

} // namespace zq
