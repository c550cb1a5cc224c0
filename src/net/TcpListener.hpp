#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <system_error>

#include "Fd.hpp"
#include "Listener.hpp"

namespace quorbin {

// The TCP port that peers connect to. Its descriptor lives from the first Listen to the end of the
// program, and at no moment after that Listen can a process of another user bind the port, whatever
// options it sets:
//
// - SO_REUSEADDR lets any two sockets bind one port while neither listens. It is set only up to the
//   first Listen, which must succeed in spite of connections left by an earlier run.
// - SO_REUSEPORT shares a port among sockets of one user that all set it. It is set after the bind,
//   so that a later Listen succeeds while connections of our own are still closing. A second copy
//   of the program binds without it and fails.
// - With one address the others of that port stay free, and from them a socket of both families
//   gets at ours too. So a second socket holds them.
class TcpListener final : public Listener {
 public:
  std::int32_t Port() const { return port_; }
  // To be called before Listen. 0: the system picks one at the first Listen, which is then kept.
  void SetPort(std::int32_t port) { port_ = port; }

  // Listens on one address of the machine, in numeric form, or on all of them for an empty text. To
  // be called before Listen. False, and nothing changes, for any other text.
  bool SetAddress(const std::string& address);

  // A system without IPv6 listens on IPv4 alone.
  [[nodiscard]] std::error_code Listen() override;
  void Stop() override;
  // Reports a hang-up endlessly between Stop and Listen.
  int Descriptor() const override { return socket_.Get(); }
  Arrival Accept() override;

 private:
  std::error_code Open();
  bool OneAddress() const { return address_.ss_family != AF_UNSPEC; }
  std::error_code Bind();
  // Each leaves the bound socket in owner, and nothing on failure.
  std::error_code BindTo(Fd& owner, sockaddr_storage address, bool v4Too) const;
  std::error_code BindToAll(Fd& owner) const;
  std::error_code BindAnyPort();

  std::int32_t port_ = 0;
  sockaddr_storage address_{};  // the one to listen on; of no family: all
  Fd socket_;
  Fd guard_;  // with one address: holds the port of all others, and never listens
};

}  // namespace quorbin
