#pragma once

#include "ZQCore/foundation/Export.h"

#include <exception>
#include <string>

namespace zq {

/// The framework's named exception: a name that callers match on and a reason for people.
/// Every exception the framework raises on purpose is a zq::Exception (or derives from it);
/// anything else thrown from below passes through untouched.
class ZQ_EXPORT Exception : public std::exception {
public:
    Exception(std::string name, std::string reason);

    const std::string& name() const noexcept { return name_; }
    const std::string& reason() const noexcept { return reason_; }
    /// "name: reason", the form a log line shows.
    const char* what() const noexcept override { return what_.c_str(); }

private:
    std::string name_;
    std::string reason_;
    std::string what_;
};

} // namespace zq
