#pragma once

#include <string>
#include <string_view>

namespace quorbin {

// The sender's notation of a file ("/BS2/...", "*POSIX(...)", a path) reduced to its last name,
// without the blanks at its end. A name that does not begin with a slash keeps its slashes.
std::string ReduceName(std::string_view value);

// The extension taken from a name: its last four characters, or all of it if it is shorter.
std::string DeriveExt(std::string_view FileName);

}  // namespace quorbin
