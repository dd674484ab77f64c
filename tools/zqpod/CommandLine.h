#pragma once

// The words of zqpod's command line taken apart by GLib's option parser: options anywhere
// among the other words (before or after the command), "--NAME VALUE" and "--NAME=VALUE"
// alike, "--" ending the options. Values are taken byte for byte, as file names are: a
// playlist or a folder may be named in any encoding.

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zqpod {

/// An option zqpod knows: a flag, or one that takes a value.
struct OptionSpec {
    const char* name;                 ///< "--json"
    const char* valueName = nullptr;  ///< "SECONDS"; null for a flag
    char shortName = 0;               ///< 'h' for "-h"
};

struct ParsedCommandLine {
    std::vector<std::string> words;                            ///< the words that are no option, in order
    std::vector<std::pair<std::string, std::string>> options;  ///< name and value ("" for a flag), in order
    std::vector<std::string> unknown;                          ///< options that none of the declared ones names, as written

    /// The value of the option's last occurrence.
    std::optional<std::string> value(const std::string& name) const;
    bool has(const std::string& name) const { return value(name).has_value(); }
};

/// The command line could not be taken apart; `option` is set when an option that takes a value
/// came last, without one.
struct CommandLineError {
    std::string message;
    std::optional<std::string> optionWithoutValue;
};

/// Takes `args` (the program's name not among them) apart by `declared`. Options that none of them names are
/// kept in `unknown`, for the caller to name in its own words. Throws CommandLineError.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& args, const std::vector<OptionSpec>& declared);

} // namespace zqpod
