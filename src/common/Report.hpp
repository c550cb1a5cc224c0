#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

namespace quorbin {

// Writes "Quorbin: " and the sentence to standard error, as one line in one write. Everything that
// the service reports there goes through here, except a message to the user on the console.
inline void Report(const std::string& sentence) {
  ::dprintf(STDERR_FILENO, "Quorbin: %s\n", sentence.c_str());
}

}  // namespace quorbin
