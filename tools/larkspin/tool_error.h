// The one error type of the command-line program: a message for the user,
// printed as a single line by main.
#pragma once

#include <stdexcept>
#include <string>

namespace larkspin_tool {

class ToolError : public std::runtime_error {
public:
  explicit ToolError(const std::string& message) : std::runtime_error(message) {}
};

// A command line that makes no sense: exit status 2.
class UsageError : public ToolError {
public:
  using ToolError::ToolError;
};

} // namespace larkspin_tool
