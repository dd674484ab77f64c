#pragma once

#include "ZQCore/foundation/Export.h"

#include <exception>
#include <string>

namespace zq {

/// What kind of failure ended an operation: what a program tests to decide what to do next.
/// Names stay what they always were (a person or a log reads them); the kind is what code
/// branches on, so that no caller compares name texts, and a name's application prefix never
/// matters to anyone who catches it.
///
/// How each layer reports a failure:
/// - The mobile-device calls (MobileDevice.h) and the conduit wrappers of AFCInterface answer an
///   error number, false or no value, and AFCInterface keeps the last number (lastError()) for
///   the session above it. That number never leaves the afc folder: AFCDevice turns it into a
///   kind (kindOfAFCError) when it throws.
/// - File access below the loaders answers -1 with errno, as the system calls do; the code that
///   gives up on such a failure throws with kindOfErrno(errno).
/// - A copy of a file's bytes, which may fail in expected ways, answers a FileCopyResult: its
///   errno, whether the destination failed, and kind() for the category.
/// - Everything that ends an operation throws a zq::Exception with its kind.
enum class ErrorKind {
    NotFound,           ///< nothing at a path that was named: a mount path, a file, a folder
    Damaged,            ///< the bytes are there but are not what they should be: a database, a record
    DeviceGone,         ///< the device was disconnected (or its volume went) while it was in use
    NotAnswering,       ///< the device did not answer within the request timeout
    Refused,            ///< refused on purpose: a path that leads outside the device, a range past a
                        ///< file's recorded size, a session the device does not grant this computer
    Cancelled,          ///< the work was stopped on request (cancelDeviceRequests, a progress call)
    DestinationFailed,  ///< the caller's destination could not take the bytes: full, read-only, ...
    Other,              ///< none of the above: an error the device or the system gave without saying why
};

/// Whether the device can no longer be read for the work at hand: it left, stopped answering,
/// or the work was cancelled. Loads stop on these rather than falling back to another database.
constexpr bool endsDeviceAccess(ErrorKind kind) noexcept
{
    return kind == ErrorKind::DeviceGone || kind == ErrorKind::NotAnswering || kind == ErrorKind::Cancelled;
}

/// "not found", "damaged", ...: the kind as words for messages and bindings.
ZQ_EXPORT const char* errorKindName(ErrorKind kind) noexcept;

/// The kind of a failed system call's errno, for the reading side (a destination's errors are
/// the caller's to classify: see FileCopyResult). ENOENT is not found, EXDEV (the confined
/// open's refusal) refused, ENODEV and ENXIO a device that has gone, ...; Other for the rest.
ZQ_EXPORT ErrorKind kindOfErrno(int error) noexcept;

/// The framework's named exception: a kind that code tests, a name for logs and a reason for
/// people. Every exception the framework raises on purpose is a zq::Exception (or derives from
/// it); anything else thrown from below passes through untouched.
class ZQ_EXPORT Exception : public std::exception {
public:
    Exception(ErrorKind kind, std::string name, std::string reason);

    ErrorKind kind() const noexcept { return kind_; }
    const std::string& name() const noexcept { return name_; }
    const std::string& reason() const noexcept { return reason_; }
    /// "name: reason", the form a log line shows.
    const char* what() const noexcept override { return what_.c_str(); }

    /// The same failure told again with a reason that adds what the catcher knows (which file it
    /// was): kind and name stay.
    Exception withReason(std::string reason) const { return Exception(kind_, name_, std::move(reason)); }

private:
    ErrorKind kind_;
    std::string name_;
    std::string reason_;
    std::string what_;
};

} // namespace zq
