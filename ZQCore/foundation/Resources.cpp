#include "ZQCore/foundation/Resources.h"

#include "ZQCore/foundation/Image.h"

#include <cstddef>
#include <cstdint>

namespace zq::generated {

// Defined in the source that the build writes from ZQCore/resources (cmake/WriteResources.cmake).
// This declaration must stay token for token the same as the one written there.
struct ResourceEntry { const char* name; const char* type; const std::uint8_t* bytes; std::size_t size; };
extern const ResourceEntry kResources[];

} // namespace zq::generated

namespace zq {

namespace {

const generated::ResourceEntry* find(const std::string& name, const std::string& type)
{
    for (const generated::ResourceEntry* entry = generated::kResources; entry->name; ++entry)
        if (name == entry->name && type == entry->type)
            return entry;
    return nullptr;
}

} // namespace

std::optional<Data> Resources::dataForResource(const std::string& name, const std::string& type)
{
    const generated::ResourceEntry* entry = find(name, type);
    if (!entry)
        return std::nullopt;
    return Data(entry->bytes, entry->size);
}

std::shared_ptr<Image> Resources::imageForResource(const std::string& name, const std::string& type)
{
    if (type != "png" && type != "icns")
        return nullptr;
    auto bytes = dataForResource(name, type);
    if (!bytes)
        return nullptr;
    return type == "png" ? Image::imageWithPNGData(*bytes) : Image::imageWithICNSData(*bytes);
}

} // namespace zq
