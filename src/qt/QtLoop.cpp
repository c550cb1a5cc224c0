#include "QtLoop.hpp"

#include <sys/epoll.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

namespace quorbin {

namespace {

constexpr std::int64_t TurnMilliseconds = 10;  // then the windows have their turn
// A peer that waits for each reply sends its next chunk within this time, and to wait for it here
// costs a fraction of a turn of the toolkit's loop. It is longer than the kernel's tick of 4 ms: a
// wait within the tick has a timer programmed each time, a tenth of all that a text line costs.
constexpr int NextEventMilliseconds = 8;

std::uint32_t PollMask(unsigned readiness) {
  std::uint32_t mask = 0;
  if ((readiness & EventLoop::Readable) != 0) mask |= EPOLLIN;
  if ((readiness & EventLoop::Writable) != 0) mask |= EPOLLOUT;
  return mask;
}

}  // namespace

QtLoop::QtLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) throw std::system_error(errno, std::generic_category(), "epoll_create1");
  notifier_ = std::make_unique<QSocketNotifier>(epoll_.Get(), QSocketNotifier::Read);
  notifier_->setEnabled(false);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] { DispatchReady(); });
}

void QtLoop::Watch(int descriptor, unsigned readiness, std::function<void(unsigned)> ready) {
  epoll_event interest{};
  interest.events = PollMask(readiness);
  interest.data.fd = descriptor;
  const int operation = watchers_.contains(descriptor) ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
  if (epoll_ctl(epoll_.Get(), operation, descriptor, &interest) != 0) {
    std::fprintf(stderr, "Quorbin: can't watch descriptor %d: %s\n", descriptor,
                 std::strerror(errno));
    return;
  }
  watchers_[descriptor] = std::make_shared<Watcher>(Watcher{readiness, std::move(ready)});
}

void QtLoop::Unwatch(int descriptor) {
  if (watchers_.erase(descriptor) != 0) epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

// All of the program runs within Dispatch or before Run, and both see to the tasks.
void QtLoop::Defer(std::function<void()> task) { deferred_.push_back(std::move(task)); }

void QtLoop::Run() {
  running_ = true;
  notifier_->setEnabled(true);
  RunDeferred();
  if (!quit_) QCoreApplication::exec();
  running_ = false;
  notifier_->setEnabled(false);
}

void QtLoop::Quit() {
  quit_ = true;
  QCoreApplication::exit(0);
}

void QtLoop::Dispatch(const std::function<void()>& callback) {
  ++depth_;
  callback();
  if (depth_ == 1) RunDeferred();
  --depth_;
  if (depth_ == 0 && running_) notifier_->setEnabled(true);
}

void QtLoop::DispatchReady() {
  if (depth_ > 0) {  // a message box within a callback; Dispatch goes on after it
    notifier_->setEnabled(false);
    return;
  }
  QElapsedTimer turn;
  turn.start();
  Dispatch([this, &turn] {
    while (!quit_ && DispatchOne() && turn.elapsed() < TurnMilliseconds) {
    }
  });
}

// One event at a time, so that what a callback unwatches is never called on an old report.
bool QtLoop::DispatchOne() {
  epoll_event event{};
  if (epoll_wait(epoll_.Get(), &event, 1, NextEventMilliseconds) != 1) return false;
  const auto found = watchers_.find(event.data.fd);
  if (found == watchers_.end()) return true;
  const std::shared_ptr<Watcher> watcher = found->second;  // kept while it runs
  unsigned readiness = 0;
  if ((event.events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) readiness |= Readable;
  if ((event.events & (EPOLLOUT | EPOLLHUP | EPOLLERR)) != 0) readiness |= Writable;
  watcher->ready(readiness & watcher->readiness);
  RunDeferred();
  return true;
}

void QtLoop::RunDeferred() {
  while (!deferred_.empty() && !quit_) {
    const std::vector<std::function<void()>> tasks = std::exchange(deferred_, {});
    for (const std::function<void()>& task : tasks) task();
  }
}

}  // namespace quorbin
