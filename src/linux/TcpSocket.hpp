#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <system_error>

#include "EventLoop.hpp"
#include "Fd.hpp"
#include "MappedBuffer.hpp"
#include "SendQueue.hpp"
#include "Winsock.hpp"

namespace quorbin {

// Winsock over the system's TCP sockets, dual-stack where the system has IPv6.
//
// The listener's descriptor lives from the first Listen to the end of the program, so the port
// stays ours during a connection, when nothing listens: shutting it down for reading resets the
// waiting peers and refuses new ones, and listen() works on it again afterwards.
class TcpSocket : public Winsock {
 public:
  // The loop must outlive the socket.
  explicit TcpSocket(EventLoop& loop);
  ~TcpSocket() override;

  // To be called before Listen.
  void SetEvents(Events events) { events_ = std::move(events); }

  int State() const override { return static_cast<int>(state_); }
  std::int32_t LocalPort() const override { return port_; }
  void SetLocalPort(std::int32_t port) override { port_ = port; }
  void Close() override;
  [[nodiscard]] std::error_code Listen() override;
  void Accept(int requestID) override;
  std::string_view GetData() override { return chunk_; }
  void SendData(std::string_view bytes) override;
  std::string RemoteHostIP() const override { return remoteHostIP_; }
  std::string RemoteHost() const override { return {}; }

 private:
  enum class SocketState { Closed = 0, Listening = 2, Connected = 7 };

  // A connection that the program has closed: its last replies still go out, then the writing
  // side is shut down and what the peer still sends is read away, since unread bytes at close()
  // would turn into a reset that can overtake the reply.
  struct Lingering {
    Fd Connection;
    SendQueue Replies;
    std::size_t Budget;  // bytes still read away before the connection is cut
    bool PeerHasClosed;  // its side; replies still go out
  };

  std::error_code Bind();
  std::error_code BindAnyPort();
  void RequestReady();
  void ConnectionReady(unsigned readiness);
  void ReceiveWaiting();
  void WatchConnection();
  void RaiseError(int number);
  void Linger();
  void WatchLingering(std::list<Lingering>::iterator lingering);
  void LingeringReady(std::list<Lingering>::iterator lingering);
  void Forget(std::list<Lingering>::iterator lingering);

  EventLoop& loop_;
  Events events_;
  SocketState state_ = SocketState::Closed;
  std::int32_t port_ = 0;
  Fd listener_;
  Fd requested_;   // peer of the running ConnectionRequest
  Fd connection_;  // peer of the present connection
  std::uint64_t connectionNumber_ = 0;
  SendQueue replies_;
  bool sendFailed_ = false;
  std::string remoteHostIP_;
  std::list<Lingering> lingering_;  // oldest first

  // Receive buffer, reused from chunk to chunk; it grows to what one chunk needed.
  MappedBuffer buffer_;
  std::string_view chunk_;
};

}  // namespace quorbin
