#pragma once

#include "ZQCore/foundation/Data.h"

#include <memory>
#include <optional>
#include <string>

namespace zq {

class Image;

/// The framework's own files (its pictures and the "iPodTypes" list), compiled into the
/// library at build time so that nothing has to be found on disk at run time. A resource is
/// named by its file name without the extension and typed by the extension.
class Resources {
public:
    /// A copy of the resource's bytes; no value when there is no resource of that name and type.
    static std::optional<Data> dataForResource(const std::string& name, const std::string& type);

    /// The resource decoded as a picture: "png", or "icns" (its largest PNG entry). A new image
    /// on every call, so a caller may change it freely. nullptr when the resource is missing,
    /// of another type, or does not decode.
    static std::shared_ptr<Image> imageForResource(const std::string& name, const std::string& type);
};

} // namespace zq
