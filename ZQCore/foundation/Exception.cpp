#include "ZQCore/foundation/Exception.h"

namespace zq {

Exception::Exception(std::string name, std::string reason)
    : name_(std::move(name)), reason_(std::move(reason)), what_(name_ + ": " + reason_)
{
}

} // namespace zq
