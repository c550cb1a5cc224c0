#include "PollLoop.hpp"

#include <algorithm>
#include <utility>

namespace quorbin {

namespace {

unsigned ReadinessOf(short revents) {
  unsigned readiness = 0;
  if ((revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)) != 0) readiness |= EventLoop::Readable;
  if ((revents & (POLLOUT | POLLHUP | POLLERR | POLLNVAL)) != 0) readiness |= EventLoop::Writable;
  return readiness;
}

}  // namespace

void PollLoop::Watch(int descriptor, unsigned readiness, std::function<void(unsigned)> ready) {
  Unwatch(descriptor);
  const int events =
      ((readiness & Readable) != 0 ? POLLIN : 0) | ((readiness & Writable) != 0 ? POLLOUT : 0);
  polled_.push_back({.fd = descriptor, .events = static_cast<short>(events), .revents = 0});
  callbacks_.push_back(std::make_shared<std::function<void(unsigned)>>(std::move(ready)));
}

void PollLoop::Unwatch(int descriptor) {
  const auto found = std::ranges::find(polled_, descriptor, &pollfd::fd);
  if (found == polled_.end()) return;
  callbacks_.erase(callbacks_.begin() + (found - polled_.begin()));
  polled_.erase(found);
}

bool PollLoop::IsWatched(const ReadyOne& ready) const {
  return std::ranges::find(callbacks_, ready.Ready) != callbacks_.end();
}

void PollLoop::RunDeferred() {
  // A task may defer another one.
  while (!deferred_.empty() && !quit_) {
    const auto tasks = std::exchange(deferred_, {});
    for (const auto& task : tasks) task();
  }
}

void PollLoop::Run() {
  RunDeferred();
  while (!quit_) {
    // The only failures are an interruption and a lack of memory; both pass.
    if (::poll(polled_.data(), polled_.size(), -1) <= 0) continue;
    ready_.clear();
    for (std::size_t i = 0; i < polled_.size(); ++i) {
      if (polled_[i].revents == 0) continue;
      ready_.push_back({ReadinessOf(polled_[i].revents), callbacks_[i]});
    }
    for (const ReadyOne& ready : ready_) {
      if (quit_) break;
      // An earlier callback may have unwatched it.
      if (!IsWatched(ready)) continue;
      (*ready.Ready)(ready.Readiness);
      RunDeferred();
    }
  }
}

}  // namespace quorbin
