#pragma once

#include <QSocketNotifier>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "EventLoop.hpp"
#include "Fd.hpp"

namespace quorbin {

// The toolkit's event loop. All descriptors stand in one epoll set of our own, which is the one
// descriptor that the toolkit watches: a burst of events costs one turn of its loop, and a message
// box, which runs that loop within a callback, can't raise a second event.
class QtLoop final : public EventLoop {
 public:
  // Throws std::system_error if the system gives no descriptor.
  QtLoop();

  void Watch(int descriptor, unsigned readiness, std::function<void(unsigned)> ready) override;
  void Unwatch(int descriptor) override;
  void Defer(std::function<void()> task) override;
  void Run() override;
  void Quit() override;

  // Runs the callback as one event, the tasks deferred by it included.
  void Dispatch(const std::function<void()>& callback);

 private:
  struct Watcher {
    unsigned readiness;
    std::function<void(unsigned)> ready;
  };

  void DispatchReady();
  bool DispatchOne();
  void RunDeferred();

  Fd epoll_;  // outlives its notifier
  std::unique_ptr<QSocketNotifier> notifier_;
  std::map<int, std::shared_ptr<Watcher>> watchers_;
  std::vector<std::function<void()>> deferred_;
  int depth_ = 0;  // callbacks running, one within the other
  bool running_ = false;
  bool quit_ = false;
};

}  // namespace quorbin
