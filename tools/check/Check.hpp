#pragma once

#include <optional>
#include <string>

#include "Explain.hpp"
#include "Findings.hpp"
#include "RecordedService.hpp"
#include "Viewer.hpp"
#include "Warnings.hpp"

namespace quorbin::check {

// What is asked besides the settings; at most one of the two.
struct Question {
  std::optional<std::string> Host;  // a peer's address
  std::optional<Transfer> Extension;
};

// The settings as the service takes them, their warnings, and the answer to the question. The
// result is that of the answer, or without a question whether there are warnings. The name service
// is asked only for a host.
Findings Check(const Sources& sources, const Machine& machine, const Question& question);

}  // namespace quorbin::check
