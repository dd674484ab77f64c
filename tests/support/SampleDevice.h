#pragma once

// What tests take from the sample-device writer, and the temporary folders they build in. The
// writer's descriptions (VolumeSpec, DatabaseSpec, ...) are named here as zq::test names too, so
// a test reads as one vocabulary.

#include "tools/zq-make-sample/DeviceImage.h"

#include <string>

namespace zq::test {

using namespace zq::sample;

/// A temporary folder (mkdtemp under $TMPDIR or /tmp), removed with its contents on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    /// path() + "/" + relative.
    std::string file(const std::string& relative) const;

private:
    std::string path_;
};

} // namespace zq::test
