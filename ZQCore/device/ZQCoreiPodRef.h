#pragma once

#include "ZQCore/device/DeviceModel.h"
#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/Value.h"

#include <memory>
#include <optional>
#include <string>

namespace zq {

class Image;
class XRDataReader;
class ZQCoreiPod;

/// A device as a platform iPod service knows it: all a reference needs of such a service is
/// the device's name and its firmware revision, each of which may be unavailable. (No such
/// service exists on Linux; the hook stays so that a platform layer can make references from
/// its own device records.)
class ZQ_EXPORT iPodDeviceHandle {
public:
    virtual ~iPodDeviceHandle() = default;
    virtual std::optional<std::string> copyName() const = 0;
    virtual std::optional<std::string> copyRevision() const = 0;
};

/// The light-weight handle of one connected device, made before its library is loaded: where
/// its volume is mounted, what it calls itself, its firmware revision and its identity
/// properties (above all the serial number that ties it to an already loaded library).
class ZQ_EXPORT ZQCoreiPodRef {
public:
    /// A reference to the device volume mounted at `path`. Throws
    /// "ZQCoreiPodNotFoundException" when nothing exists at the path. The name comes from the
    /// library database ("iPod" when there is none), the properties from SysInfoExtended, or
    /// else from SysInfo's serial number line.
    static std::shared_ptr<ZQCoreiPodRef> initWithPath(const std::string& path);
    /// A reference to a device of a platform iPod service (not owned; must outlive the reference).
    static std::shared_ptr<ZQCoreiPodRef> initWithiPodRef(iPodDeviceHandle* ref);

    virtual ~ZQCoreiPodRef() = default;

    virtual std::optional<std::string> name() const { return name_; }
    void setName(const std::optional<std::string>& name) { name_ = name; }
    const std::optional<std::string>& revision() const { return revision_; }
    void setRevision(const std::optional<std::string>& revision) { revision_ = revision; }
    /// The mount point of the device's volume (the folder that holds iPod_Control).
    virtual std::optional<std::string> path() const { return basePath_; }
    void setPath(const std::optional<std::string>& path) { basePath_ = path; }
    iPodDeviceHandle* iPodRef() const { return ref_; }
    void setiPodRef(iPodDeviceHandle* ref) { ref_ = ref; }

    /// The identity properties: the whole SysInfoExtended property list, or
    /// { "SerialNumber": serial } from SysInfo; null when neither could be read.
    const Value& properties() const { return properties_; }
    virtual std::optional<std::string> serialNumber() const;
    /// What the device is ("iPod classic (6th generation), 80 GB, silver"), as its SysInfo and
    /// SysInfoExtended tell it (see DeviceModel::fromDeviceInformation); unknown when they do not.
    virtual DeviceModel model() const { return model_; }
    /// The device's picture (the framework's "iPod" image).
    virtual std::shared_ptr<Image> icon() const;
    /// True for a device whose file system is a mounted volume (disk mode); false for a device
    /// reached through a session (AFC), which volume events never judge.
    virtual bool isMountedVolume() const { return true; }

    /// A plain reference with the same name, revision, handle and path. The properties are
    /// deliberately not copied, so a copy has no serial number.
    std::shared_ptr<ZQCoreiPodRef> copy() const;

    /// "iPod name=<name> rev=<revision> path=<path>".
    virtual std::string description() const;

    /// The device's name as its library database gives it (the master playlist's title):
    /// "iPod" when the database is empty, unreadable or names no device playlist, "Unknown"
    /// when the master playlist has no title.
    static std::string getNameFromiTunesDBWithData(const Data& data);
    /// The same lookup through any reader (over a buffer, or over the file itself).
    static std::string getNameFromiTunesDBWithReader(XRDataReader& reader);

protected:
    ZQCoreiPodRef() = default;

    friend class ZQCoreiPod;
    /// Loads the library of the device this reference stands for, as the object of the kind
    /// that reads it: a volume's ZQCoreiPod here, a session's AFCiPod for an AFCiPodRef. This
    /// is where ZQCoreiPod::initWithiPodReference learns which kind to make; `self` is this
    /// reference.
    virtual std::shared_ptr<ZQCoreiPod> loadLibrary(const std::shared_ptr<ZQCoreiPodRef>& self) const;

    iPodDeviceHandle* ref_ = nullptr;
    std::optional<std::string> name_;
    std::optional<std::string> revision_;
    std::optional<std::string> basePath_;
    Value properties_;
    DeviceModel model_;

private:
    /// The walk of getNameFromiTunesDBWithReader, with the exception of a damaged database
    /// passed on instead of answered with "iPod".
    static std::string walkNameFromiTunesDB(XRDataReader& reader);
    /// The name the compressed library at `path` (inside the device's folder `root`) gives;
    /// none when it is missing, empty or damaged (the library is then read from iTunesDB, and
    /// so is the name).
    static std::optional<std::string> nameFromCompressedLibrary(const std::string& root, const std::string& path);
};

/// The serial number in SysInfo text: the rest of the last line that holds "pszSerialNumber:",
/// blanks and tabs trimmed. No value when no line holds the marker.
ZQ_EXPORT std::optional<std::string> serialNumberFromSysInfo(const std::string& text);

} // namespace zq
