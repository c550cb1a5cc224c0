#pragma once

#include <poll.h>

#include <functional>
#include <memory>
#include <vector>

#include "EventLoop.hpp"

namespace quorbin {

// The event loop of a program without windows. Sleeps in poll() while nothing happens.
class PollLoop : public EventLoop {
 public:
  void Watch(int descriptor, unsigned readiness, std::function<void(unsigned)> ready) override;
  void Unwatch(int descriptor) override;
  void Defer(std::function<void()> task) override { deferred_.push_back(std::move(task)); }
  void Run() override;
  void Quit() override { quit_ = true; }

 private:
  // Shared, so that a callback may unwatch its own descriptor while it runs.
  using Callback = std::shared_ptr<std::function<void(unsigned)>>;

  struct ReadyOne {
    unsigned Readiness;
    Callback Ready;
  };

  void RunDeferred();
  bool IsWatched(const ReadyOne& ready) const;

  std::vector<pollfd> polled_;
  std::vector<Callback> callbacks_;  // one for each of polled_
  std::vector<ReadyOne> ready_;
  std::vector<std::function<void()>> deferred_;
  bool quit_ = false;
};

}  // namespace quorbin
