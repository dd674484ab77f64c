#include "ZQCore/foundation/Exception.h"

#include <cerrno>

namespace zq {

Exception::Exception(ErrorKind kind, std::string name, std::string reason)
    : kind_(kind), name_(std::move(name)), reason_(std::move(reason)), what_(name_ + ": " + reason_)
{
}

const char* errorKindName(ErrorKind kind) noexcept
{
    switch (kind) {
    case ErrorKind::NotFound: return "not found";
    case ErrorKind::Damaged: return "damaged";
    case ErrorKind::DeviceGone: return "device gone";
    case ErrorKind::NotAnswering: return "not answering";
    case ErrorKind::Refused: return "refused";
    case ErrorKind::Cancelled: return "cancelled";
    case ErrorKind::DestinationFailed: return "destination failed";
    case ErrorKind::Other: break;
    }
    return "other";
}

ErrorKind kindOfErrno(int error) noexcept
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return ErrorKind::NotFound;
    // The confined open answers EXDEV for a path that leaves the device, ELOOP for a link it
    // will not follow.
    case EXDEV:
    case ELOOP:
    case EACCES:
    case EPERM:
        return ErrorKind::Refused;
    // What a read of a volume whose device was pulled answers.
    case ENODEV:
    case ENXIO:
    case ENOMEDIUM:
    case ESHUTDOWN:
        return ErrorKind::DeviceGone;
    case ETIMEDOUT:
        return ErrorKind::NotAnswering;
    case ECANCELED:
        return ErrorKind::Cancelled;
    default:
        return ErrorKind::Other;
    }
}

} // namespace zq
