// Preloaded into the service: the n-th call of one kind fails, counted from the first accept4 on.
// QUORBIN_FAULT has the call, n (negative: all later ones as well), the number of the error (0 for
// half of the bytes), and the file that is made when the call fails.

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

struct Plan {
  Plan() {
    if (const char* text = std::getenv("QUORBIN_FAULT")) {
      std::istringstream(text) >> Call >> Turn >> Error >> Fired;
    }
    for (const char* name : {"QUORBIN_FAULT", "LD_PRELOAD"}) ::unsetenv(name);  // not for viewers
  }
  std::string Call, Fired;
  int Turn = 0;
  int Error = 0;
  int Count = 0;
} plan;
bool armed = false;

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

// The error that this call is to fail with, 0 for half of the bytes, -1 for none.
int Fault(const char* call) {
  armed = armed || std::string(call) == "accept4";
  if (!armed || plan.Call != call) return -1;
  ++plan.Count;
  if (plan.Turn > 0 ? plan.Count != plan.Turn : plan.Count < -plan.Turn) return -1;
  ::close(::creat(plan.Fired.c_str(), 0600));
  if (plan.Error > 0) errno = plan.Error;
  return plan.Error;
}

// Half of the bytes where that is the fault.
size_t Cut(int fault, size_t count) { return fault == 0 ? (count + 1) / 2 : count; }

}  // namespace

// A call that counts under the condition, and returns failed if it is the one to fail.
#define FAULTY(call, condition, failed, result, parameters, arguments) \
  result call parameters {                                             \
    const int fault = condition ? Fault(#call) : -1;                   \
    return fault > 0 ? failed : Next<decltype(call)>(#call) arguments; \
  }

extern "C" {

FAULTY(accept4, true, -1, int, (int from, sockaddr* peer, socklen_t* length, int flags),
       (from, peer, length, flags))
FAULTY(listen, true, -1, int, (int listener, int backlog) noexcept, (listener, backlog))
FAULTY(epoll_wait, true, -1, int, (int epoll, epoll_event* events, int count, int wait),
       (epoll, events, count, wait))
FAULTY(fchmod, true, -1, int, (int file, mode_t mode) noexcept, (file, mode))
FAULTY(ftruncate, true, -1, int, (int file, off_t length) noexcept, (file, length))
FAULTY(recv, true, -1, ssize_t, (int peer, void* to, size_t count, int flags),
       (peer, to, count, flags))
FAULTY(send, peer > STDERR_FILENO, -1, ssize_t,
       (int peer, const void* from, size_t count, int flags),
       (peer, from, Cut(fault, count), flags))
// These two return the error itself; that of getnameinfo is one of its own, below 0.
FAULTY(posix_spawnp, true, fault, int,
       (pid_t * task, const char* file, const posix_spawn_file_actions_t* actions,
        const posix_spawnattr_t* attributes, char* const* argv, char* const* variables),
       (task, file, actions, attributes, argv, variables))
FAULTY(getnameinfo, true, -fault, int,
       (const sockaddr* address, socklen_t length, char* host, socklen_t hostLength, char* service,
        socklen_t serviceLength, int flags),
       (address, length, host, hostLength, service, serviceLength, flags))

ssize_t writev(int file, const iovec* parts, int count) {
  const int fault = Fault("writev");
  if (fault == 0) return ::write(file, parts->iov_base, Cut(fault, parts->iov_len));
  return fault > 0 ? -1 : Next<decltype(writev)>("writev")(file, parts, count);
}
int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return Fault("open") > 0 ? -1 : Next<decltype(open)>("open")(path, flags, mode);
}
}
