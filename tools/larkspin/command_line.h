// Usage errors in the program's one-line style, with the nearest known name
// for a misspelt command or option.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace larkspin_tool {

// The name of `names` closest to `word` by edit distance, or "" when none is
// close enough to be a plausible typo.
std::string nearestName(const std::string& word, const std::vector<std::string>& names);

// One line describing a parse error; it names an unknown command or option
// and suggests the nearest one when there is one.
std::string describeUsageError(const CLI::App& app, const std::vector<std::string>& arguments,
                               const CLI::ParseError& error);

// Refuses NaN and infinities, which range checks let through.
const CLI::Validator& finiteNumber();

} // namespace larkspin_tool
