#include "larkspin/command_line.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace larkspin_tool {

namespace {

size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) {
    row[j] = j;
  }
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

std::vector<std::string> subcommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(sub->get_name());
  }
  return names;
}

std::vector<std::string> longOptionNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return names;
}

std::string withSuggestion(const std::string& what, const std::string& word, const std::vector<std::string>& names) {
  const std::string nearest = nearestName(word, names);
  return what + " '" + word + "'" + (nearest.empty() ? "" : "; did you mean '" + nearest + "'?");
}

} // namespace

std::string nearestName(const std::string& word, const std::vector<std::string>& names) {
  std::string best;
  size_t bestDistance = std::max<size_t>(2, word.size() / 3) + 1;
  for (const std::string& name : names) {
    const size_t distance = editDistance(word, name);
    if (distance < bestDistance) {
      best = name;
      bestDistance = distance;
    }
  }
  return best;
}

std::string describeUsageError(const CLI::App& app, const std::vector<std::string>& arguments,
                               const CLI::ParseError& error) {
  // Walk the command words as the parser would, to find the innermost
  // command and the first word that belongs to none.
  const CLI::App* command = &app;
  std::vector<std::string> options = longOptionNames(app);
  for (const std::string& word : arguments) {
    if (word.rfind("--", 0) == 0) {
      const std::string name = word.substr(0, word.find('='));
      if (name.size() > 2 && std::find(options.begin(), options.end(), name) == options.end()) {
        return withSuggestion("unknown option", name, options);
      }
      continue;
    }
    if (word.empty() || word[0] == '-') {
      continue;
    }
    const std::vector<std::string> commands = subcommandNames(*command);
    if (commands.empty()) {
      continue;
    }
    const auto found = std::find(commands.begin(), commands.end(), word);
    if (found == commands.end()) {
      if (command == &app || command->get_require_subcommand_min() > 0) {
        return withSuggestion("unknown command", word, commands);
      }
      continue;
    }
    command = command->get_subcommand(word);
    const std::vector<std::string> more = longOptionNames(*command);
    options.insert(options.end(), more.begin(), more.end());
  }
  std::string message = error.what();
  std::replace(message.begin(), message.end(), '\n', ' ');
  if (!message.empty()) {
    message[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(message[0])));
  }
  return message;
}

const CLI::Validator& finiteNumber() {
  static const CLI::Validator validator(
      [](std::string& text) -> std::string {
        try {
          if (!std::isfinite(std::stod(text))) {
            return "'" + text + "' is not a finite number";
          }
        } catch (const std::exception&) {
          return "'" + text + "' is not a number";
        }
        return {};
      },
      "FINITE");
  return validator;
}

} // namespace larkspin_tool
