#pragma once

// A sender's connection to the service: complete sends, one receive per reply, bounded waits.

#include <netdb.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <string_view>

#include "Fd.hpp"

namespace quorbin {

// Thrown when a file did not get through.
struct Failure {
  std::string sentence;     // for the user
  std::string reply = {};   // of the service, if the failure is one
  bool busy = false;        // the service has not read anything yet; trying again may help
  bool lost = false;        // no connection, or it broke: the same file may get through later
  bool unreadable = false;  // the file itself can't be read
};

// Where a service listens.
struct ServiceAddress {
  std::string name;                     // host, or path of a Unix socket
  std::shared_ptr<addrinfo> addresses;  // of the host; none for a Unix socket
};

// Looks the host up, once for all connections to it. Throws Failure.
ServiceAddress FindHost(const std::string& host, int port);

// All routines throw Failure.
class ServiceConnection {
 public:
  // Tries each address for at most connectTime; no later step waits longer than timeout (both in
  // seconds). A Unix socket's server must be of the same user or root.
  ServiceConnection(const ServiceAddress& address, int connectTime, int timeout);

  // Sends all bytes.
  void Send(std::string_view bytes);

  // One receive, which is one reply. A close is a failure.
  std::string Receive();

  // Sends one message and waits for its "+OK". Any other reply is a failure.
  void Ask(std::string_view message);

  // Waits until all that was sent has left the machine, so that the next message travels in a
  // segment of its own.
  void Flush() const;

  // Waits a short time for the service's close; false if another reply comes instead.
  bool ClosesSilently();

 private:
  bool ConnectHost(const addrinfo& address);
  bool ConnectLocal(const std::string& path);
  void CheckOwner(const std::string& path) const;
  bool Open(int family, int type, int protocol);
  void LimitTime(int seconds) const;
  bool Spoke() const;  // a reply, or the close, is there to be received

  Fd socket_;
  int timeout_;
  int connectTime_;
  bool heard_ = false;  // a reply has come
};

// The failure that a reply other than "+OK" means.
Failure Refusal(const std::string& reply);

}  // namespace quorbin
