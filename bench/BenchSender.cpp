// Sends COUNT equal messages of content and the end marker, and prints in nanoseconds how long it
// took from the first message to the receiver's close, then the median cost of a message in the
// first and in the last tenth of them.
//
// BenchSender stream COUNT <CONNECTION    binary blocks of 1 MiB, not answered
// BenchSender raw COUNT <CONNECTION       the same, ended by a close in place of the marker
// BenchSender buffers COUNT <CONNECTION   binary buffers of BenchBuffer bytes, each answered
// BenchSender text COUNT <CONNECTION      lines, each answered
//
// BenchSender short COUNT <CONNECTION     as many connections to the same peer, of one message
//                                         each; prints how long they took

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "BenchEnd.hpp"
#include "Fd.hpp"
#include "Protocol.hpp"

namespace quorbin {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Connection = STDIN_FILENO;
constexpr std::size_t BlockSize = std::size_t{1} << 20U;
constexpr std::size_t LineLength = 60;
constexpr useconds_t DrainPause = 100;  // microseconds between two looks

std::int64_t Since(Clock::time_point start) {
  return std::chrono::nanoseconds(Clock::now() - start).count();
}

// Bytes without a "$", of a period that no block or buffer is a multiple of.
std::string Content(std::size_t length) {
  std::string content(length, '\0');
  for (std::size_t i = 0; i < length; ++i) content[i] = static_cast<char>('A' + i % 251 % 26);
  return content;
}

std::string Message(std::string_view kind) {
  if (kind == "text") return Content(LineLength);
  if (kind != "buffers") return Content(BlockSize);
  const std::string length = std::to_string(BenchBuffer);
  return std::string(BufferHeader::Token) + std::string(BufferHeader::Digits - length.size(), '0') +
         length + Content(BenchBuffer - BufferHeader::Size);
}

// Sends the end marker in a segment of its own, since it must not be split.
void SendEnd() {
  for (int waiting = 1; waiting > 0; ::usleep(DrainPause)) {
    Check(::ioctl(Connection, SIOCOUTQ, &waiting), "ioctl");
  }
  WriteAll(Connection, Token::Eof);
}

std::int64_t Median(std::vector<std::int64_t> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

// As quorbin-send does. A TCP connection finds its size itself.
void EnlargeLocalQueue() {
  int domain = 0;
  socklen_t length = sizeof domain;
  Check(::getsockopt(Connection, SOL_SOCKET, SO_DOMAIN, &domain, &length), "getsockopt");
  const int size = 1 << 20;
  if (domain != AF_UNIX) return;
  Check(::setsockopt(Connection, SOL_SOCKET, SO_SNDBUF, &size, sizeof size), "setsockopt");
}

void Transfer(std::string_view kind, std::size_t count) {
  const bool raw = kind == "raw";
  EnlargeLocalQueue();
  const bool paced = kind == "text" || kind == "buffers";
  const std::string message = Message(kind);
  // One answer; empty if the receiver has closed.
  auto receive = [answer = std::array<char, 256>{}]() mutable {
    return std::string_view(answer.data(),
                            Check(::recv(Connection, answer.data(), answer.size(), 0), "recv"));
  };
  std::vector<std::int64_t> costs(count);

  const auto start = Clock::now();
  for (std::int64_t& cost : costs) {
    const auto begun = Clock::now();
    WriteAll(Connection, message);
    Require(!paced || receive() == Reply::Ok, "A message was refused.");
    cost = Since(begun);
  }
  if (raw) {
    Check(::shutdown(Connection, SHUT_WR), "shutdown");
  } else {
    SendEnd();
  }
  Require(raw || !receive().empty(), "Closed without an answer.");
  Require(receive().empty(), "More than one answer.");
  const std::int64_t total = Since(start);

  const auto tenth = static_cast<std::ptrdiff_t>((count + 9) / 10);
  std::cout << total << ' ' << Median({costs.begin(), costs.begin() + tenth}) << ' '
            << Median({costs.end() - tenth, costs.end()}) << '\n';
}

// A connection as soon as the receiver listens again.
Fd Connect(const sockaddr_storage& address, socklen_t length) {
  for (;;) {
    Fd peer(::socket(address.ss_family, SOCK_STREAM, 0));
    Check(peer.Get(), "socket");
    if (::connect(peer.Get(), reinterpret_cast<const sockaddr*>(&address), length) == 0)
      return peer;
    Require(errno == ECONNREFUSED, "The receiver has gone.");
  }
}

void ShortConnections(std::size_t count) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  Check(::getpeername(Connection, reinterpret_cast<sockaddr*>(&address), &length), "getpeername");
  // The receiver takes one at a time.
  Check(::shutdown(Connection, SHUT_WR), "shutdown");
  std::array<char, 256> answer{};
  Require(Check(::recv(Connection, answer.data(), answer.size(), 0), "recv") == 0, "It talks.");
  const auto start = Clock::now();
  for (std::size_t i = 0; i < count; ++i) {
    const Fd peer = Connect(address, length);
    WriteAll(peer.Get(), Token::Version);
    Require(Check(::recv(peer.Get(), answer.data(), answer.size(), 0), "recv") > 0, "No answer.");
    Check(::shutdown(peer.Get(), SHUT_WR), "shutdown");
    Require(Check(::recv(peer.Get(), answer.data(), answer.size(), 0), "recv") == 0, "No end.");
  }
  std::cout << Since(start) << '\n';
}

}  // namespace

}  // namespace quorbin

int main(int argc, char** argv) {
  using namespace quorbin;
  Require(argc == 3 && std::atoi(argv[2]) > 0, "usage: BenchSender KIND COUNT <CONNECTION");
  const auto count = static_cast<std::size_t>(std::atoi(argv[2]));
  if (std::string_view(argv[1]) == "short") {
    ShortConnections(count);
  } else {
    Transfer(argv[1], count);
  }
}
