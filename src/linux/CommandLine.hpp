#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorbin {

// A command line taken apart into program and arguments: blanks and tabs part them, double quotes
// group, a backslash is itself except before a double quote, which then is an ordinary character.
// A quote that is not closed reaches to the end. Empty if the line holds nothing.
std::vector<std::string> SplitCommandLine(std::string_view line);

}  // namespace quorbin
