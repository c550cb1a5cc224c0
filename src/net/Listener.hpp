#pragma once

#include <string>
#include <system_error>

#include "Fd.hpp"

namespace quorbin {

// A peer that has arrived.
struct Arrival {
  Fd Connection;        // non-blocking; none if the peer has gone or resources are short
  std::string Address;  // of the peer, as Winsock::RemoteHostIP gives it; empty: not to be served
};

// The place that peers connect to. Only one process can listen there, and from the first Listen to
// the end of the program no process of another user can take it.
class Listener {
 public:
  Listener() = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  virtual ~Listener() = default;

  // Listens; the error code says why it failed.
  [[nodiscard]] virtual std::error_code Listen() = 0;

  // Resets the peers that wait and refuses all others until the next Listen.
  virtual void Stop() = 0;

  // Readable when a peer waits. Not to be watched between Stop and Listen.
  virtual int Descriptor() const = 0;

  // Takes the first peer that waits. Without a connection errno is the reason.
  virtual Arrival Accept() = 0;
};

}  // namespace quorbin
