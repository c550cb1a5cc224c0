// The least that can receive a transfer: it writes what blocking calls on one connection give. It
// answers a sender as the service would but understands only "$DATA$" and the end marker, and
// leaves the same file.
//
// BareLoop stream|text|buffers <LISTENING SOCKET >FILE
// BareLoop short <LISTENING SOCKET                      one connection after the other, without end

#include <sys/socket.h>

#include <array>
#include <cstring>
#include <memory>

#include "BenchEnd.hpp"
#include "Fd.hpp"
#include "Protocol.hpp"

namespace quorbin {

namespace {

constexpr std::size_t ReceiveSize = std::size_t{2} << 20U;
constexpr std::string_view LineEnd = "\r\n";

void Receive(std::string_view kind, int connection) {
  const auto buffer = std::make_unique_for_overwrite<char[]>(ReceiveSize + LineEnd.size());
  const auto receive = [&] {
    const std::size_t count = Check(::recv(connection, buffer.get(), ReceiveSize, 0), "recv");
    Require(count > 0, "The sender closed before the end.");
    return std::string_view(buffer.get(), count);
  };
  for (bool data = false; !data;) {
    data = receive() == Token::Data;
    WriteAll(connection, Reply::Ok);
  }
  std::size_t left = 0;  // of the present buffer
  for (bool last = false; !last;) {
    std::string_view chunk = receive();
    const std::size_t received = chunk.size();
    last = chunk.ends_with(Token::Eof);
    if (last) chunk.remove_suffix(Token::Eof.size());
    if (kind == "text" && !chunk.empty()) {
      std::memcpy(buffer.get() + chunk.size(), LineEnd.data(), LineEnd.size());
      chunk = {buffer.get(), chunk.size() + LineEnd.size()};
    } else if (kind == "buffers" && !last) {
      if (left == 0) {
        left = BenchBuffer;
        chunk.remove_prefix(BufferHeader::Size);
      }
      left -= received;
    }
    WriteAll(STDOUT_FILENO, chunk);
    if (last || (kind != "stream" && left == 0)) WriteAll(connection, Reply::Ok);
  }
}

// One message, its reply, and the peer's close.
void Greet(int connection) {
  std::array<char, 65536> buffer;
  while (Check(::recv(connection, buffer.data(), buffer.size(), 0), "recv") > 0) {
    WriteAll(connection, Reply::Ok);
  }
}

}  // namespace

}  // namespace quorbin

int main(int argc, char** argv) {
  using namespace quorbin;
  Require(argc == 2, "usage: BareLoop stream|text|buffers|short <LISTENING SOCKET >FILE");
  const std::string_view kind = argv[1];
  do {
    const Fd connection(::accept(STDIN_FILENO, nullptr, nullptr));
    Check(connection.Get(), "accept");
    if (kind == "short") {
      Greet(connection.Get());
    } else {
      Receive(kind, connection.Get());
    }
  } while (kind == "short");
}
