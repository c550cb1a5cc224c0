#pragma once

#include <csignal>
#include <functional>

#include "EventLoop.hpp"
#include "Fd.hpp"

namespace quorbin {

// The signals that the program handles, as events of its loop. To be constructed before any thread,
// which would receive them otherwise.
class Signals {
 public:
  // What a signal asks for.
  struct Handlers {
    std::function<void()> Close;   // SIGTERM, SIGINT, SIGHUP
    std::function<void()> Toggle;  // SIGUSR1
  };

  Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  ~Signals() = default;

  void Watch(EventLoop& loop, Handlers handlers);

  // From here on the signals that close end the process at once, with status 1: for a last message
  // that nobody may dismiss.
  void Release();

 private:
  sigset_t handled_;
  Fd descriptor_;
};

}  // namespace quorbin
