#include "Signals.hpp"

#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace quorbin {

namespace {

constexpr std::array Closing = {SIGTERM, SIGINT, SIGHUP};

}  // namespace

Signals::Signals() {
  sigemptyset(&handled_);
  for (const int number : Closing) sigaddset(&handled_, number);
  sigaddset(&handled_, SIGUSR1);
  sigprocmask(SIG_BLOCK, &handled_, nullptr);
  descriptor_.Reset(::signalfd(-1, &handled_, SFD_CLOEXEC | SFD_NONBLOCK));
  // A pipe without a reader and a file beyond its size limit are reported by the failed write.
  for (const int number : {SIGPIPE, SIGXFSZ}) std::signal(number, SIG_IGN);
}

void Signals::Watch(EventLoop& loop, Handlers handlers) {
  loop.Watch(descriptor_.Get(), EventLoop::Readable,
             [this, handlers = std::move(handlers)](unsigned) {
               signalfd_siginfo signal{};
               while (::read(descriptor_.Get(), &signal, sizeof signal) == sizeof signal) {
                 (signal.ssi_signo == SIGUSR1 ? handlers.Toggle : handlers.Close)();
               }
             });
}

void Signals::Release() {
  for (const int number : Closing) std::signal(number, [](int) { std::_Exit(EXIT_FAILURE); });
  std::signal(SIGUSR1, SIG_IGN);
  sigprocmask(SIG_UNBLOCK, &handled_, nullptr);
}

}  // namespace quorbin
