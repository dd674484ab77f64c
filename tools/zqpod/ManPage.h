#pragma once

// The manual page, made from the same help texts that --help prints, so the two never drift.

#include <iosfwd>
#include <string>
#include <vector>

namespace zqpod {

struct HelpPage {
    std::string name;
    std::string usage;
    std::string summary;
    std::string help;
};

/// Writes zqpod(1) in roff (man macros): NAME, SYNOPSIS, DESCRIPTION, OPTIONS (from
/// `globalOptions`, the help of the options every command takes), one section per command with
/// its help text (option lists become tagged paragraphs), EXIT STATUS and FILES.
void writeManPage(std::ostream& out, const std::vector<HelpPage>& pages, const std::string& globalOptions,
                  const std::string& version);

} // namespace zqpod
