#pragma once

#include <sys/types.h>

#include <string_view>

#include "Fd.hpp"

namespace quorbin {

// Standard output that never blocks the program: what a closed, full or stopped output does not
// take at once is lost.
class StandardOutput {
 public:
  StandardOutput();

  // Writes the lines in one call. If only a part was taken, the next call starts on a new line.
  void Print(std::string_view lines);

 private:
  ssize_t WriteSome(std::string_view text) const;
  ssize_t WriteShared(std::string_view text) const;

  Fd own_;  // a description of its own of the same pipe or terminal, so that only it never waits
  bool isSocket_ = false;
  bool mayWait_ = false;  // writing to the shared description could
  bool cut_ = false;
};

}  // namespace quorbin
