#include "LocalListener.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include "LinkPlace.hpp"
#include "LocalSocket.hpp"
#include "Protocol.hpp"

namespace quorbin {

namespace {

// Peers that may wait while the program is busy; any more wait in connect().
constexpr int Backlog = 128;

}  // namespace

LocalListener::~LocalListener() {
  if (published_) ::unlinkat(directory_.Descriptor(), LocalSocketName.data(), 0);
}

std::error_code LocalListener::Listen() {
  if (!directory_.Claimed()) return std::make_error_code(std::errc::no_such_file_or_directory);
  const std::error_code error =
      ListenInDirectory(directory_.Descriptor(), LocalSocketName, Backlog, socket_);
  published_ = published_ || !error;
  return error;
}

Arrival LocalListener::Accept() {
  Arrival peer;
  peer.Connection.Reset(::accept4(socket_.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (peer.Connection && IsSameUser(peer.Connection.Get())) peer.Address = LocalPeer;
  return peer;
}

}  // namespace quorbin
