#pragma once

#include <string>

namespace quorbin {

// What replaces the field codes of an application's Exec line.
struct ExecFields {
  std::string Name;         // %c, as shown to the user
  std::string Icon;         // %i, empty if it has none
  std::string DesktopFile;  // %k, the path of its .desktop file
};

// The open command that an Exec line makes, in the grammar of the program's command lines: blanks
// and tabs separate arguments, double quotes group, a backslash is itself except before a double
// quote. The first file field code (%f %F %u %U) becomes the placeholder "%1" in double quotes,
// which is appended if there was none; no other text of the command reads %1. Empty if the line
// can't be parsed, names no program, would start the file itself, or has a file code inside a word.
std::string OpenCommandOfExec(const std::string& exec, const ExecFields& fields);

}  // namespace quorbin
