#pragma once

#include <string>

#include "Findings.hpp"

namespace quorbin::check {

// What is printed of the findings.
enum class Scope { Everything, WarningsOnly };

// Each returns the findings as printable text, with control bytes and invalid UTF-8 as the console
// display shows them. A fact or a warning is one line:
//   TOPIC NAME: VALUE (ORIGIN)
//   warning: PLACE: TEXT
std::string AsLines(const Findings& findings, Scope scope);
// One object, with the same texts.
std::string AsJson(const Findings& findings, Scope scope);

}  // namespace quorbin::check
