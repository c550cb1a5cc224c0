#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "EventLoop.hpp"
#include "Fd.hpp"

namespace quorbin {

// The event loop over epoll. Sleeps while nothing happens.
class EpollLoop final : public EventLoop {
 public:
  // Ends the process if the system gives no descriptor.
  EpollLoop();

  void Watch(int descriptor, unsigned readiness, std::function<void(unsigned)> ready) override;
  void Unwatch(int descriptor) override;
  void Defer(std::function<void()> task) override { deferred_.push_back(std::move(task)); }
  void Raise(const std::function<void()>& event) override;
  bool ServeNext(int milliseconds) override;
  int Descriptor() const override { return epoll_.Get(); }
  void Run() override;
  void Quit() override { quit_ = true; }

 private:
  // Shared, so that a callback may unwatch its own descriptor while it runs.
  using Callback = std::shared_ptr<const std::function<void(unsigned)>>;

  Fd epoll_;
  std::map<int, Callback> watched_;
  std::vector<std::function<void()>> deferred_;
  bool handling_ = false;  // an event is being handled
  bool quit_ = false;
};

}  // namespace quorbin
