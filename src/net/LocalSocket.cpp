#include "LocalSocket.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "LastError.hpp"
#include "LinkPlace.hpp"

namespace quorbin {

namespace {

// Of a socket that has not taken its place yet.
std::string NextName(std::string_view name) { return std::string(name) + ".new"; }

Fd UnixSocket() { return Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)); }

// Whether the name is free, or the socket under it is one that nobody listens on.
bool MayTake(int directory, const std::string& name) {
  struct stat status;
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT;
  }
  if (!S_ISSOCK(status.st_mode)) return false;
  const sockaddr_un address = SocketAddress(directory, name);
  const Fd probe = UnixSocket();
  return probe &&
         ::connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
         errno == ECONNREFUSED;
}

}  // namespace

std::error_code BindNext(int directory, std::string_view name, Fd& next) {
  const std::string fresh = NextName(name);
  Fd opened = UnixSocket();
  if (!opened) return LastError();
  ::unlinkat(directory, fresh.c_str(), 0);  // of a run that was killed before the rename
  const sockaddr_un address = SocketAddress(directory, fresh);
  const mode_t mask = ::umask(S_IXUSR | S_IRWXG | S_IRWXO);  // leaves mode 0600
  const int bound =
      ::bind(opened.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const std::error_code error = LastError();
  ::umask(mask);
  if (bound != 0) return error;
  next = std::move(opened);
  return {};
}

std::error_code ListenOnNext(int directory, std::string_view name, int backlog, const Fd& next) {
  const std::string final(name);
  if (::listen(next.Get(), backlog) != 0 ||
      ::renameat(directory, NextName(name).c_str(), directory, final.c_str()) != 0) {
    return LastError();
  }
  return {};
}

std::error_code ListenInDirectory(int directory, std::string_view name, int backlog, Fd& listener) {
  const std::string final(name);
  if (!MayTake(directory, final)) return std::make_error_code(std::errc::address_in_use);
  Fd next;
  std::error_code error = BindNext(directory, name, next);
  if (!error) error = ListenOnNext(directory, name, backlog, next);
  if (error) {
    ::unlinkat(directory, NextName(name).c_str(), 0);
  } else {
    listener = std::move(next);
  }
  return error;
}

void RemoveFromDirectory(int directory, std::string_view name) {
  ::unlinkat(directory, std::string(name).c_str(), 0);
  ::unlinkat(directory, NextName(name).c_str(), 0);
}

bool IsSameUser(int peer) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  return ::getsockopt(peer, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0 &&
         credentials.uid == ::geteuid();
}

}  // namespace quorbin
