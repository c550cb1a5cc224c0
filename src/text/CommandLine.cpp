#include "CommandLine.hpp"

namespace quorbin {

std::vector<std::string> SplitCommandLine(std::string_view line) {
  std::vector<std::string> arguments;
  bool inArgument = false;  // also true for an argument of two quotes and nothing between them
  bool inQuotes = false;
  const auto put = [&](char c) {
    if (!inArgument) arguments.emplace_back();
    inArgument = true;
    arguments.back() += c;
  };
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '\\' && line.substr(i + 1).starts_with('"')) {
      put('"');
      ++i;
    } else if (c == '"') {
      if (!inArgument) arguments.emplace_back();
      inArgument = true;
      inQuotes = !inQuotes;
    } else if ((c == ' ' || c == '\t') && !inQuotes) {
      inArgument = false;
    } else {
      put(c);
    }
  }
  return arguments;
}

}  // namespace quorbin
