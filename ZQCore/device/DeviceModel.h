#pragma once

#include "ZQCore/foundation/Export.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zq {

class Value;

/// What a device is, in the words people know it by: "iPod classic (6th generation), 80 GB,
/// silver". Every part may be unknown; the framework fills only what the device's files say
/// (its model number, its serial number, its family numbers) and the framework's model table
/// ("iPodModels" resource) knows. A model it cannot place keeps its number and no name, so a
/// device is never shown under another model's name.
///
/// A small immutable value: copies are cheap and share their text.
class ZQ_EXPORT DeviceModel {
public:
    /// Nothing known.
    DeviceModel();
    DeviceModel(std::optional<std::string> modelNumber, std::optional<std::string> name,
                std::optional<std::string> generation, std::optional<std::string> capacity,
                std::optional<std::string> colour);
    DeviceModel(const DeviceModel&);
    DeviceModel(DeviceModel&&) noexcept;
    DeviceModel& operator=(const DeviceModel&);
    DeviceModel& operator=(DeviceModel&&) noexcept;
    ~DeviceModel();

    /// Apple's model number in its order-number form ("MB029"), whatever one-letter prefix the
    /// device wrote before it ("xB029").
    const std::optional<std::string>& modelNumber() const;
    /// The family: "iPod", "iPod classic", "iPod nano", "iPod shuffle", "iPhone 3G", ...
    const std::optional<std::string>& name() const;
    /// "6th generation", "5th generation, late 2006"; none for families without generations.
    const std::optional<std::string>& generation() const;
    /// "80 GB", "512 MB".
    const std::optional<std::string>& capacity() const;
    const std::optional<std::string>& colour() const;

    /// "iPod classic (6th generation), 80 GB, silver", leaving out what is unknown; "" when
    /// even the family is unknown.
    std::string displayName() const;
    /// True when at least the family is known.
    bool isKnown() const { return name().has_value(); }

    friend ZQ_EXPORT bool operator==(const DeviceModel& a, const DeviceModel& b);

    /// The model a ModelNumStr value names ("xB029", "MA450", "M8541", "B029"): the model
    /// number is the four characters after the one-letter prefix, "M" in front. A number the
    /// table does not know gives the number alone; text that is no model number gives nothing.
    static DeviceModel withModelNumber(std::string_view modelNumStr);
    /// The model a serial number's last three characters stand for; nothing when unknown.
    static DeviceModel withSerialNumber(std::string_view serialNumber);
    /// The family and generation of SysInfoExtended's family numbers: UpdaterFamilyID (stable
    /// across firmware) first, then FamilyID. Nothing when neither is known.
    static DeviceModel withFamilyIDs(std::optional<std::int64_t> updaterFamilyID, std::optional<std::int64_t> familyID);

    /// The model as a device's information files tell it. `extended` is SysInfoExtended's
    /// dictionary (null when there is none), `sysInfo` the text of SysInfo ("" when none).
    /// In order, the first that applies:
    /// 1. a ModelNumStr, SysInfoExtended's before SysInfo's (the device's own word on its model;
    ///    a number the table does not know keeps its number and takes its family from 3.);
    /// 2. the serial number's suffix (SysInfoExtended's SerialNumber, else SysInfo's);
    /// 3. UpdaterFamilyID, then FamilyID: family and generation only.
    static DeviceModel fromDeviceInformation(const Value& extended, std::string_view sysInfo);

private:
    struct Fields;
    std::shared_ptr<const Fields> d_;
};

} // namespace zq
