#pragma once

#include <functional>

#include "PlatformInterface.hpp"

namespace quorbin {

// The program's one event loop. Events are handled one at a time, each to its end, and the tasks
// that one has deferred are run before the next.
class EventLoop : public PlatformInterface {
 public:
  // What a descriptor is watched for; or'ed together. A hang-up or an error counts as both.
  static constexpr unsigned Readable = 1;
  static constexpr unsigned Writable = 2;

  // Calls ready with what the descriptor is ready for, each time, until Unwatch. Watching a
  // descriptor again replaces its callback and readiness. The descriptor stays the caller's, who
  // must unwatch it before closing it. Ends the process if the system can't watch it: a service
  // that receives nothing is of no use.
  virtual void Watch(int descriptor, unsigned readiness, std::function<void(unsigned)> ready) = 0;
  // From here on the descriptor's callback is not called, not even for what it was ready for
  // before. A descriptor that is not watched is no error.
  virtual void Unwatch(int descriptor) = 0;

  // Runs the task after the event that is being handled, before the next one.
  virtual void Defer(std::function<void()> task) = 0;

  // Handles an event from another source, such as a window. Within another event it is part of that
  // one.
  virtual void Raise(const std::function<void()>& event) = 0;

  // Waits for the next event, at most this long (-1: forever), and handles it. False if none came
  // or Quit was called. Not to be called within an event.
  virtual bool ServeNext(int milliseconds) = 0;
  // Readable while an event waits: for a toolkit whose own loop calls ServeNext.
  virtual int Descriptor() const = 0;

  // Handles events until Quit. Quit before Run makes it return at once.
  virtual void Run() = 0;
  virtual void Quit() = 0;
};

}  // namespace quorbin
