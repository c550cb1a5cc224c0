#pragma once

#include <string>
#include <string_view>

namespace quorbin {

// The sender's notation of a file ("/BS2/...", "*POSIX(...)", a path) reduced to its last name,
// without the blanks at its end. A name that does not begin with a slash keeps its slashes.
std::string ReduceName(std::string_view value);

// Whether a file is received under this name, which is reduced already. Not under one that still
// includes a directory, that no path can contain, or that would not remain one argument in the
// quotation marks of an open command; nor under none at all.
bool IsUsableName(std::string_view name);

// The extension taken from a name: its last four characters, or all of it if it is shorter.
std::string DeriveExt(std::string_view FileName);

}  // namespace quorbin
