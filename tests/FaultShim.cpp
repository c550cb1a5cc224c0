// Preloaded under the service: the n-th call of one kind fails, counted from the first accept4 on.
// QUORBIN_FAULT holds the call, n (with a plus: all later ones too) and the number of the error,
// or 0 for half of the bytes. That it has come to it stands in the file $QUORBIN_FAULT_FIRED.

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <spawn.h>
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

constexpr int None = -1;
constexpr int Half = 0;

struct Plan {
  std::string Call;
  std::string Fired;
  int Turn = 0;
  int Error = None;
  bool Stays = false;
  bool Armed = false;
};

Plan& ThePlan() {
  static Plan plan = [] {
    Plan read;
    const char* text = std::getenv("QUORBIN_FAULT");
    std::istringstream words(text == nullptr ? "" : text);
    std::string turn;
    words >> read.Call >> turn >> read.Error;
    read.Turn = std::atoi(turn.c_str());
    read.Stays = turn.ends_with('+');
    if (text != nullptr) read.Fired = std::getenv("QUORBIN_FAULT_FIRED");
    // Viewers run undisturbed.
    for (const char* name : {"QUORBIN_FAULT", "LD_PRELOAD"}) ::unsetenv(name);
    return read;
  }();
  return plan;
}
[[gnu::constructor]] void ReadPlan() { ThePlan(); }

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

// The error that this call is to fail with.
int Fault(const std::string& call) {
  Plan& plan = ThePlan();
  if (call == "accept4") plan.Armed = true;
  if (!plan.Armed || plan.Call != call || plan.Turn < 1) return None;
  if (--plan.Turn > 0) return None;
  if (plan.Stays) plan.Turn = 1;
  ::close(::creat(plan.Fired.c_str(), 0600));
  if (plan.Error > 0) errno = plan.Error;
  return plan.Error;
}

// Half of the bytes where that is the fault.
size_t Cut(int fault, size_t count) { return fault == Half ? (count + 1) / 2 : count; }

}  // namespace

#define FAULTY(result, call, parameters, arguments)  \
  result call parameters {                           \
    if (Fault(#call) > 0) return -1;                 \
    return Next<result parameters>(#call) arguments; \
  }

extern "C" {

FAULTY(ssize_t, recv, (int peer, void* bytes, size_t count, int flags), (peer, bytes, count, flags))
FAULTY(int, accept4, (int listener, sockaddr* address, socklen_t* length, int flags),
       (listener, address, length, flags))
FAULTY(int, listen, (int listener, int backlog) noexcept, (listener, backlog))
FAULTY(int, poll, (pollfd * polled, nfds_t count, int wait), (polled, count, wait))
FAULTY(int, fchmod, (int file, mode_t mode) noexcept, (file, mode))
FAULTY(int, ftruncate, (int file, off_t length) noexcept, (file, length))

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return Fault("open") > 0 ? -1 : Next<decltype(open)>("open")(path, flags, mode);
}
ssize_t write(int file, const void* bytes, size_t count) {
  const int fault = file > 2 ? Fault("write") : None;
  return fault > 0 ? -1 : Next<decltype(write)>("write")(file, bytes, Cut(fault, count));
}
ssize_t writev(int file, const iovec* parts, int count) {
  const int fault = Fault("writev");
  if (fault == Half) return ::write(file, parts->iov_base, Cut(fault, parts->iov_len));
  return fault > 0 ? -1 : Next<decltype(writev)>("writev")(file, parts, count);
}
ssize_t send(int peer, const void* bytes, size_t count, int flags) {
  const int fault = peer > 2 ? Fault("send") : None;
  return fault > 0 ? -1 : Next<decltype(send)>("send")(peer, bytes, Cut(fault, count), flags);
}
// These two give the error itself back; that of getnameinfo is its own, below 0.
int posix_spawnp(pid_t* task, const char* file, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* argv, char* const* variables) {
  const int fault = Fault("posix_spawnp");
  return fault > 0 ? fault
                   : Next<decltype(posix_spawnp)>("posix_spawnp")(task, file, actions, attributes,
                                                                  argv, variables);
}
int getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostLength,
                char* service, socklen_t serviceLength, int flags) {
  const int fault = Fault("getnameinfo");
  return fault > 0 ? -fault
                   : Next<decltype(getnameinfo)>("getnameinfo")(address, length, host, hostLength,
                                                                service, serviceLength, flags);
}
}
