#pragma once

#include "Fd.hpp"

namespace quorbin {

// Tries in a child process whether the toolkit can open its display, since it aborts if it can't.
// To be constructed before the process has a second thread.
class DisplayProbe {
 public:
  DisplayProbe();
  ~DisplayProbe();  // the child lets the display go
  DisplayProbe(const DisplayProbe&) = delete;
  DisplayProbe& operator=(const DisplayProbe&) = delete;

  bool Opened() const { return opened_; }

 private:
  int child_ = -1;
  Fd socket_;
  bool opened_ = false;
};

}  // namespace quorbin
