#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>

#include "PlatformInterface.hpp"

namespace quorbin {

// The one stream socket object: the listener between connections and the connected
// socket during one. It never does both at a time.
class Winsock : public PlatformInterface {
 public:
  // Raised one at a time on the program's only thread.
  struct Events {
    // A peer asks for a connection; requestID is good for one Accept within the handler.
    // A request that is not accepted by then is closed.
    std::function<void(int requestID)> ConnectionRequest;
    // ChunkLen received bytes are waiting; the handler takes them with GetData.
    std::function<void(std::int64_t ChunkLen)> DataArrival;
    // The peer has closed, or nothing can be sent to it any more.
    std::function<void()> Close;
    // The system reported an error on the listening or connected socket. If the handler leaves
    // CancelDisplay false, the socket object reports the error on standard error.
    std::function<void(int Number, const std::string& Description, bool& CancelDisplay)> Error;
  };

  // 0 means closed; any other value means listening or connected.
  virtual int State() const = 0;

  // Port to listen on. 0 lets the system pick one at the first Listen, which is then kept.
  virtual std::int32_t LocalPort() const = 0;
  virtual void SetLocalPort(std::int32_t port) = 0;

  // Where to listen, to be called before Listen: one address of the machine in numeric form,
  // LocalPeer, which has no port, or all addresses if empty. False for any other text.
  virtual bool SetLocalAddress(const std::string& address) = 0;

  // Stops listening (waiting peers are reset, the port stays ours) or ends the connection. Replies
  // handed to SendData before still reach the peer. Raises no event.
  virtual void Close() = 0;

  // Listens on LocalPort; the socket must be closed. The error code says why it failed.
  [[nodiscard]] virtual std::error_code Listen() = 0;

  // Connects this object, which must be closed, to the peer that requested it.
  virtual void Accept(int requestID) = 0;

  // The bytes of the present DataArrival. They belong to the socket object, and the view is good
  // until the next DataArrival or Close.
  virtual std::string_view GetData() = 0;

  // Sends the bytes as they are and never waits. What the system does not take at once is kept
  // and sent later; if the send fails or too much is kept, Close is raised once, after the
  // running event.
  virtual void SendData(std::string_view bytes) = 0;

  // The peer that requests or holds the connection, as text: dotted form for IPv4,
  // LocalPeer for the Unix socket. Still readable after Close has stopped the listener.
  virtual std::string RemoteHostIP() const = 0;

  // That peer's host name; empty, since no lookup is made for display.
  virtual std::string RemoteHost() const = 0;
};

}  // namespace quorbin
