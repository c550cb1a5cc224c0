#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

namespace quorbin {

// One line on standard error, in one write: what the service does without, and why.
inline void Report(const std::string& sentence) {
  ::dprintf(STDERR_FILENO, "Quorbin: %s\n", sentence.c_str());
}

}  // namespace quorbin
