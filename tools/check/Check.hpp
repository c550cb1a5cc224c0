#pragma once

#include <optional>
#include <string>

#include "Explain.hpp"
#include "RecordedService.hpp"
#include "Report.hpp"
#include "Viewer.hpp"
#include "Warnings.hpp"

namespace quorbin::check {

// What is asked beside the settings; at most one of both.
struct Question {
  std::optional<std::string> Host;  // a peer's address
  std::optional<Transfer> Extension;
};

// The settings as the service takes them, their warnings, and the answer to the question. The
// result is the answer's, or without a question whether there are warnings. For the values the
// name service is not asked.
Report Check(const Sources& sources, const Machine& machine, const Question& question);

}  // namespace quorbin::check
