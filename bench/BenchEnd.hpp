#pragma once

// What both ends of a measured transfer share. Every failure ends the program: the figures of a
// run with a fault in it would be wrong.

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace quorbin {

// Length of a buffer of the paced binary transfer in bytes, header included.
inline constexpr std::size_t BenchBuffer = std::size_t{32} << 10U;

// The result of a system call as a count.
inline std::size_t Check(ssize_t result, const char* call) {
  if (result < 0) {
    std::perror(call);
    std::exit(EXIT_FAILURE);
  }
  return static_cast<std::size_t>(result);
}

inline void Require(bool holds, const char* fault) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", fault);
  std::exit(EXIT_FAILURE);
}

// To a socket or a file.
inline void WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    bytes.remove_prefix(Check(::write(descriptor, bytes.data(), bytes.size()), "write"));
  }
}

}  // namespace quorbin
