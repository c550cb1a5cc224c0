#pragma once

#include <system_error>

#include "Fd.hpp"
#include "InstanceDir.hpp"
#include "Listener.hpp"

namespace quorbin {

// The Unix stream socket "in" in the run-time directory, for peers of the same user. Such a socket
// can't stop listening and begin again, so Stop closes it, which resets the peers that wait and
// leaves a name that refuses all others, and Listen puts a new one in its place. That one is made
// by Stop, with the descriptor of the old one: as with a port, listening again takes no descriptor.
class LocalListener final : public Listener {
 public:
  // The directory must outlive the listener and be claimed before Listen.
  explicit LocalListener(const InstanceDir& directory) : directory_(directory) {}
  ~LocalListener() override;

  [[nodiscard]] std::error_code Listen() override;
  void Stop() override;
  int Descriptor() const override { return socket_.Get(); }
  // A peer of another user has no address.
  Arrival Accept() override;

 private:
  const InstanceDir& directory_;
  Fd socket_;
  Fd next_;                 // between Stop and Listen
  bool published_ = false;  // the name in the directory is ours
};

}  // namespace quorbin
