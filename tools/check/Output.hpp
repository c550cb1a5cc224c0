#pragma once

#include <string>

#include "Report.hpp"

namespace quorbin::check {

// What is printed of a report.
enum class Scope { Everything, WarningsOnly };

// Each gives the report as printable text, control bytes and what is no UTF-8 as the console
// display shows them. A fact or a warning is one line:
//   TOPIC NAME: VALUE (ORIGIN)
//   warning: PLACE: TEXT
std::string AsLines(const Report& report, Scope scope);
// One object, with the same texts.
std::string AsJson(const Report& report, Scope scope);

}  // namespace quorbin::check
