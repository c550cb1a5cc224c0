#pragma once

#include <cstdint>
#include <string>
#include <system_error>

#include "Fd.hpp"

namespace quorbin {

// A peer that has arrived.
struct Arrival {
  Fd Connection;        // non-blocking; none if the peer has gone or the system lacks the means
  std::string Address;  // of the peer, as Winsock::RemoteHostIP gives it; empty if it has none
};

// The TCP port that peers connect to. Its descriptor lives from the first Listen to the end of the
// program, and at no moment after that Listen can a process of another user bind the port, whatever
// options it sets:
//
// - SO_REUSEADDR lets any two sockets bind one port while neither listens. It is set only up to the
//   first Listen, which needs it to start over connections that an earlier run has left behind.
// - SO_REUSEPORT shares a port among sockets of one user that all set it. It is set after the bind,
//   so that a later Listen goes past connections of our own that are not quite over. A second copy
//   of the program binds without it and fails.
class TcpListener {
 public:
  std::int32_t Port() const { return port_; }
  // To be called before Listen. 0: the system picks one at the first Listen, which is then kept.
  void SetPort(std::int32_t port) { port_ = port; }

  // Listens; the error code says why that is not possible. A system without IPv6 listens on IPv4.
  [[nodiscard]] std::error_code Listen();

  // Resets the peers that wait and refuses all others until the next Listen.
  void Stop();

  // Readable when a peer waits; it must not be watched between Stop and Listen, when it reports a
  // hang-up without end.
  int Descriptor() const { return socket_.Get(); }

  // Takes the first peer that waits. Without a connection errno is what went wrong.
  Arrival Accept();

 private:
  std::error_code Open();
  std::error_code Bind();
  std::error_code BindAnyPort();

  std::int32_t port_ = 0;
  Fd socket_;
};

}  // namespace quorbin
