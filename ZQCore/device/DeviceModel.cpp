#include "ZQCore/device/DeviceModel.h"

#include "ZQCore/device/SysInfoFiles.h"
#include "ZQCore/foundation/Resources.h"
#include "ZQCore/foundation/Value.h"

#include <cctype>
#include <charconv>

namespace zq {

struct DeviceModel::Fields {
    std::optional<std::string> modelNumber, name, generation, capacity, colour;
};

namespace {

const std::optional<std::string> kNothing;

/// The framework's model table (see the "iPodModels" resource): { "Models", "SerialSuffixes",
/// "UpdaterFamilyIDs", "FamilyIDs" }. Read once; a null value if the resource were missing.
const Value& modelTable()
{
    static const Value table = [] {
        auto resource = Resources::dataForResource("iPodModels", "plist");
        auto parsed = resource ? Value::fromPropertyList(*resource) : std::nullopt;
        return parsed ? std::move(*parsed) : Value();
    }();
    return table;
}

std::optional<std::string> textOf(const Value* entry, const std::string& key)
{
    const Value* value = entry ? entry->find(key) : nullptr;
    return value && value->string() ? std::optional<std::string>(*value->string()) : std::nullopt;
}

/// The four characters that name a model in a ModelNumStr value: after its one-letter prefix
/// ('M' for a retail unit, 'x' as iPods write it, 'P' for an engraved one, ...), or the value
/// itself when it starts with the number. Letters upper-cased; nothing when the text is no
/// model number.
std::optional<std::string> modelKey(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    if (text.size() >= 5 && std::isalpha(static_cast<unsigned char>(text[0])) &&
        std::isalnum(static_cast<unsigned char>(text[1])))
        text.remove_prefix(1);
    if (text.size() < 4)
        return std::nullopt;
    std::string key;
    for (char c : text.substr(0, 4)) {
        if (!std::isalnum(static_cast<unsigned char>(c)))
            return std::nullopt;
        key += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    // What follows the number may be a region code ("LL/A") but never more of the number.
    if (text.size() > 4 && std::isdigit(static_cast<unsigned char>(text[4])))
        return std::nullopt;
    return key;
}

std::optional<std::int64_t> numberOf(const Value* value)
{
    if (!value)
        return std::nullopt;
    if (value->type() == Value::Type::Integer)
        return value->integerValue();
    if (const std::string* text = value->string()) {
        std::int64_t number = 0;
        const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
        if (error == std::errc() && end == text->data() + text->size() && !text->empty())
            return number;
    }
    return std::nullopt;
}

std::optional<std::string> stringOf(const Value* value)
{
    return value && value->string() ? std::optional<std::string>(*value->string()) : std::nullopt;
}

} // namespace

DeviceModel::DeviceModel() = default;

DeviceModel::DeviceModel(std::optional<std::string> modelNumber, std::optional<std::string> name,
                         std::optional<std::string> generation, std::optional<std::string> capacity,
                         std::optional<std::string> colour)
    : d_(std::make_shared<const Fields>(Fields{std::move(modelNumber), std::move(name), std::move(generation),
                                               std::move(capacity), std::move(colour)}))
{
}

DeviceModel::DeviceModel(const DeviceModel&) = default;
DeviceModel::DeviceModel(DeviceModel&&) noexcept = default;
DeviceModel& DeviceModel::operator=(const DeviceModel&) = default;
DeviceModel& DeviceModel::operator=(DeviceModel&&) noexcept = default;
DeviceModel::~DeviceModel() = default;

const std::optional<std::string>& DeviceModel::modelNumber() const { return d_ ? d_->modelNumber : kNothing; }
const std::optional<std::string>& DeviceModel::name() const { return d_ ? d_->name : kNothing; }
const std::optional<std::string>& DeviceModel::generation() const { return d_ ? d_->generation : kNothing; }
const std::optional<std::string>& DeviceModel::capacity() const { return d_ ? d_->capacity : kNothing; }
const std::optional<std::string>& DeviceModel::colour() const { return d_ ? d_->colour : kNothing; }

std::string DeviceModel::displayName() const
{
    if (!name())
        return "";
    std::string text = *name();
    if (generation())
        text += " (" + *generation() + ")";
    if (capacity())
        text += ", " + *capacity();
    if (colour())
        text += ", " + *colour();
    return text;
}

bool operator==(const DeviceModel& a, const DeviceModel& b)
{
    return a.modelNumber() == b.modelNumber() && a.name() == b.name() && a.generation() == b.generation() &&
           a.capacity() == b.capacity() && a.colour() == b.colour();
}

DeviceModel DeviceModel::withModelNumber(std::string_view modelNumStr)
{
    const auto key = modelKey(modelNumStr);
    if (!key)
        return {};
    const std::string number = "M" + *key;
    const Value* models = modelTable().find("Models");
    const Value* entry = models ? models->find(number) : nullptr;
    if (!entry)
        return DeviceModel(number, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
    return DeviceModel(number, textOf(entry, "Family"), textOf(entry, "Generation"), textOf(entry, "Capacity"),
                       textOf(entry, "Colour"));
}

DeviceModel DeviceModel::withSerialNumber(std::string_view serialNumber)
{
    while (!serialNumber.empty() && std::isspace(static_cast<unsigned char>(serialNumber.back())))
        serialNumber.remove_suffix(1);
    if (serialNumber.size() < 3)
        return {};
    const Value* suffixes = modelTable().find("SerialSuffixes");
    const auto number = textOf(suffixes, std::string(serialNumber.substr(serialNumber.size() - 3)));
    return number ? withModelNumber(*number) : DeviceModel();
}

DeviceModel DeviceModel::withFamilyIDs(std::optional<std::int64_t> updaterFamilyID, std::optional<std::int64_t> familyID)
{
    for (const auto& [table, id] : {std::pair{"UpdaterFamilyIDs", updaterFamilyID}, std::pair{"FamilyIDs", familyID}}) {
        if (!id)
            continue;
        const Value* families = modelTable().find(table);
        const Value* entry = families ? families->find(std::to_string(*id)) : nullptr;
        if (entry)
            return DeviceModel(std::nullopt, textOf(entry, "Family"), textOf(entry, "Generation"), std::nullopt,
                               std::nullopt);
    }
    return {};
}

DeviceModel DeviceModel::fromDeviceInformation(const Value& extended, std::string_view sysInfo)
{
    const DeviceModel families =
        withFamilyIDs(numberOf(extended.find("UpdaterFamilyID")), numberOf(extended.find("FamilyID")));
    for (const auto& modelNumStr : {stringOf(extended.find("ModelNumStr")), sysInfoValue(sysInfo, "ModelNumStr")}) {
        if (!modelNumStr)
            continue;
        DeviceModel model = withModelNumber(*modelNumStr);
        if (model.isKnown())
            return model;
        if (model.modelNumber())
            return DeviceModel(model.modelNumber(), families.name(), families.generation(), std::nullopt, std::nullopt);
    }
    for (const auto& serial : {stringOf(extended.find("SerialNumber")), sysInfoValue(sysInfo, "pszSerialNumber")}) {
        if (!serial)
            continue;
        if (DeviceModel model = withSerialNumber(*serial); model.isKnown())
            return model;
        break;  // the device's serial stands; SysInfo's is no second opinion on it
    }
    return families;
}

} // namespace zq
