#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "EventLoop.hpp"
#include "Fd.hpp"
#include "InstanceDir.hpp"
#include "Lingering.hpp"
#include "LocalListener.hpp"
#include "MappedBuffer.hpp"
#include "SendQueue.hpp"
#include "TcpListener.hpp"
#include "Winsock.hpp"

namespace quorbin {

// Winsock over the system's stream sockets: TCP, dual-stack where the system has IPv6, or the Unix
// socket in the run-time directory.
class StreamSocket final : public Winsock {
 public:
  // Loop and directory must outlive the socket.
  StreamSocket(EventLoop& loop, const InstanceDir& directory);
  ~StreamSocket() override;

  // To be called before Listen.
  void SetEvents(Events events) { events_ = std::move(events); }

  int State() const override { return static_cast<int>(state_); }
  std::int32_t LocalPort() const override { return tcp_.Port(); }
  void SetLocalPort(std::int32_t port) override { tcp_.SetPort(port); }
  bool SetLocalAddress(const std::string& address) override;
  void Close() override;
  [[nodiscard]] std::error_code Listen() override;
  void Accept(int requestID) override;
  std::string_view GetData() override { return chunk_; }
  void SendData(std::string_view bytes) override;
  std::string RemoteHostIP() const override { return remoteHostIP_; }
  std::string RemoteHost() const override { return {}; }

 private:
  enum class SocketState { Closed = 0, Listening = 2, Connected = 7 };

  void RequestReady();
  void ConnectionReady(unsigned readiness);
  void ReceiveWaiting();
  void WatchConnection();
  void RaiseError(int number);

  EventLoop& loop_;
  Events events_;
  SocketState state_ = SocketState::Closed;
  TcpListener tcp_;
  LocalListener local_;
  Listener* listener_ = &tcp_;  // the one of the two that is in use
  Fd requested_;                // peer of the running ConnectionRequest
  Fd connection_;               // peer of the present connection
  std::uint64_t connectionNumber_ = 0;
  SendQueue replies_;
  bool sendFailed_ = false;
  bool peerHasClosed_ = false;  // its end of file has been read
  std::string remoteHostIP_;
  Lingering lingering_;

  // Receive buffer, reused from chunk to chunk; it grows to what one chunk needed.
  MappedBuffer buffer_;
  std::string_view chunk_;
};

}  // namespace quorbin
