#pragma once

// A sender's connection to the service: whole sends, one receive for one reply, bounded times.

#include <string>
#include <string_view>

#include "Fd.hpp"

struct addrinfo;

namespace quorbin {

// Thrown when a file did not get through.
struct Failure {
  std::string sentence;    // for the user
  std::string reply = {};  // of the service, if the failure is one
  bool busy = false;       // nothing has been told to the service yet; trying again may help
  bool lost = false;       // there is no connection, or no longer: the same may get through later
};

// All routines throw Failure.
class ServiceConnection {
 public:
  // Tries each address of the host. No later step waits longer than timeout (seconds).
  ServiceConnection(const std::string& host, int port, int timeout);

  // Sends all of it.
  void Send(std::string_view bytes);

  // One receive, which is one reply. A close is a failure.
  std::string Receive();

  // Waits until all that was sent has left the machine, so that the next message travels in a
  // segment of its own.
  void Flush() const;

  // Waits a short time for the service's close; false if another reply comes instead.
  bool ClosesSilently();

 private:
  bool Connect(const addrinfo& address);
  void LimitTime(int seconds) const;
  bool Spoke() const;  // a reply, or the close, is there to be received

  Fd socket_;
  int timeout_;
  bool heard_ = false;  // a reply has come
};

}  // namespace quorbin
