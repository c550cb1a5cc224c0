#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorbin {

// Splits a command line into program and arguments: blanks and tabs separate them, double quotes
// group, a backslash is itself except before a double quote, which then is an ordinary character. A
// quote that is not closed extends to the end. Empty if the line has no argument.
std::vector<std::string> SplitCommandLine(std::string_view line);

}  // namespace quorbin
