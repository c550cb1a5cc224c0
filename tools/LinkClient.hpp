#pragma once

#include <optional>
#include <string>

namespace quorbin {

// One line to the link channel of the running service and its answer.
struct LinkAnswer {
  std::optional<std::string> Line;  // without its line end; nullopt if no service answered
  std::string Failure;              // why, in words
};

// Sends the line, which has no line end of its own, to the service of the same user whose program
// has this name. Waits at most five seconds for each step.
LinkAnswer AskService(const std::string& program, const std::string& line);

}  // namespace quorbin
