#include "DisplayProbe.hpp"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QGuiApplication>
#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace quorbin {

namespace {

constexpr unsigned PatienceSeconds = 10;  // for a display that accepts and does not answer

void LeaveOnFatal(QtMsgType type, const QMessageLogContext&, const QString&) {
  if (type == QtFatalMsg) _exit(EXIT_FAILURE);
}

ssize_t ReadByte(int socket, char* byte) {
  ssize_t got = 0;
  do got = read(socket, byte, 1);
  while (got < 0 && errno == EINTR);
  return got;
}

[[noreturn]] void OpenAndHold(int socket) {
  std::signal(SIGALRM, SIG_DFL);
  alarm(PatienceSeconds);
  qInstallMessageHandler(LeaveOnFatal);
  int count = 1;
  char name[] = "Quorbin";
  char* arguments[] = {name, nullptr};
  const QGuiApplication application(count, arguments);
  alarm(0);
  char byte = 1;
  if (send(socket, &byte, 1, MSG_NOSIGNAL) == 1) ReadByte(socket, &byte);
  _exit(EXIT_SUCCESS);  // no destructor: the parent's state is not ours
}

}  // namespace

DisplayProbe::DisplayProbe() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
  socket_.Reset(ends[0]);
  child_ = fork();
  if (child_ == 0) {
    close(ends[0]);
    OpenAndHold(ends[1]);
  }
  close(ends[1]);
  char byte = 0;
  opened_ = child_ > 0 && ReadByte(socket_.Get(), &byte) == 1;
}

DisplayProbe::~DisplayProbe() {
  socket_.Reset();
  if (child_ <= 0) return;
  while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace quorbin
