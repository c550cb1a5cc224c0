#pragma once

#include <functional>

namespace quorbin {

// The program's one event loop. Callbacks run one at a time, each to its end.
class EventLoop {
 public:
  // What a descriptor is watched for; or'ed together. A hang-up or an error counts as both.
  static constexpr unsigned Readable = 1;
  static constexpr unsigned Writable = 2;

  EventLoop() = default;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  virtual ~EventLoop() = default;

  // Calls ready with what the descriptor is ready for, each time, until Unwatch. Watching a
  // descriptor anew replaces what was said of it. The descriptor stays the caller's, who must
  // unwatch it before closing it.
  virtual void Watch(int descriptor, unsigned readiness, std::function<void(unsigned)> ready) = 0;
  // A descriptor that is not watched is no fault. From here on its callback is not called.
  virtual void Unwatch(int descriptor) = 0;

  // Runs the task after the running callback has returned, before the next event.
  virtual void Defer(std::function<void()> task) = 0;

  // Runs until Quit. Quit before Run makes it return at once.
  virtual void Run() = 0;
  virtual void Quit() = 0;
};

}  // namespace quorbin
