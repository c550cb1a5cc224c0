#include "EpollLoop.hpp"

#include <sys/epoll.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

#include "LastError.hpp"
#include "Report.hpp"

namespace quorbin {

namespace {

[[noreturn]] void EndProcess(const std::string& call) {
  Report(call + ": " + LastError().message());
  std::_Exit(EXIT_FAILURE);
}

unsigned ReadinessOf(std::uint32_t events) {
  unsigned readiness = 0;
  if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) readiness |= EventLoop::Readable;
  if ((events & (EPOLLOUT | EPOLLHUP | EPOLLERR)) != 0) readiness |= EventLoop::Writable;
  return readiness;
}

}  // namespace

EpollLoop::EpollLoop() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) EndProcess("epoll_create1");
}

void EpollLoop::Watch(int descriptor, unsigned readiness, std::function<void(unsigned)> ready) {
  Callback& callback = watched_[descriptor];
  epoll_event interest{};
  if ((readiness & Readable) != 0) interest.events |= EPOLLIN;
  if ((readiness & Writable) != 0) interest.events |= EPOLLOUT;
  interest.data.fd = descriptor;
  const int operation = callback ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
  if (::epoll_ctl(epoll_.Get(), operation, descriptor, &interest) != 0) {
    EndProcess("epoll_ctl");
  }
  callback = std::make_shared<const std::function<void(unsigned)>>(std::move(ready));
}

void EpollLoop::Unwatch(int descriptor) {
  if (watched_.erase(descriptor) != 0) {
    ::epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, descriptor, nullptr);
  }
}

void EpollLoop::Raise(const std::function<void()>& event) {
  if (std::exchange(handling_, true)) {
    event();
    return;
  }
  event();
  // A task may defer another one.
  while (!deferred_.empty() && !quit_) {
    for (const auto& task : std::exchange(deferred_, {})) task();
  }
  handling_ = false;
}

// Takes one event at a time: of two taken together, handling the first may unwatch the descriptor
// of the second.
bool EpollLoop::ServeNext(int milliseconds) {
  epoll_event event{};
  // An interrupted wait counts as one without an event.
  if (quit_ || ::epoll_wait(epoll_.Get(), &event, 1, milliseconds) != 1) return false;
  const auto found = watched_.find(event.data.fd);
  if (found != watched_.end()) {
    const Callback callback = found->second;  // kept while it runs
    Raise([&callback, &event] { (*callback)(ReadinessOf(event.events)); });
  }
  return !quit_;
}

void EpollLoop::Run() {
  while (!quit_) ServeNext(-1);
}

}  // namespace quorbin
