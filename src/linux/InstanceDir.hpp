#pragma once

#include <string>

#include "Fd.hpp"

namespace quorbin {

// The program's run-time directory: <program name>/ in $XDG_RUNTIME_DIR, or
// /tmp/<program name>-<uid>/ without that variable. Holds the lock of the running instance and
// the socket of the link channel.
class InstanceDir {
 public:
  // Makes the directory if there is none. One that belongs to another user is not used; that, and
  // any other failure, is reported on standard error, and the directory counts as missing.
  explicit InstanceDir(const std::string& programName);

  // Claims the place of the running instance until the process ends. False only if another process
  // holds it: without a directory there is nothing to hold.
  bool Claim();

  // True if this process holds the claim, and so owns what is in the directory.
  bool Claimed() const { return static_cast<bool>(lock_); }

  // The open directory; -1 if it is missing.
  int Descriptor() const { return directory_.Get(); }

 private:
  Fd directory_;
  Fd lock_;
};

}  // namespace quorbin
