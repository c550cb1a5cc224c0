// The link channel over its real socket. The input is what a client sends; the byte 0
// separates the pieces it comes in. However it is cut, the answers are those to the whole lines.

#include <sys/socket.h>

#include <vector>

#include "EpollLoop.hpp"
#include "LinkPlace.hpp"
#include "LinkProtocol.hpp"
#include "LinkServer.hpp"
#include "Require.hpp"

using namespace quorbin;

namespace {

// A command that begins with "a" is accepted, "stop" withdraws the topic.
std::string Expected(std::string_view lines) {
  std::string answers;
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    const std::string_view line = lines.substr(0, end);
    if (line.size() > LinkProtocol::MaxLine) return answers + "refused\n";
    if (end == lines.npos) break;
    lines.remove_prefix(end + 1);
    if (line == "execute stop") return answers + "accepted\n";
    if (line.starts_with("execute a") || line == "notify a") {
      answers += "accepted\n";
    } else if (line == "request a") {
      answers += "value A\n";
    } else {
      answers += "refused\n";
    }
  }
  return answers;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const InstanceDir* const directory = [] {
    static std::string place = "/tmp/quorbin-fuzz-XXXXXX";
    fuzz::Require(::mkdtemp(place.data()) != nullptr, "a directory");
    ::setenv("XDG_RUNTIME_DIR", place.c_str(), 1);
    std::atexit([] { std::system(("rm -rf " + place).c_str()); });
    auto* made = new InstanceDir("fuzz");
    fuzz::Require(made->Claim(), "the place of the instance");
    return made;
  }();

  std::vector<std::string> pieces(1);
  std::string lines;
  for (const char c : fuzz::Input(data, size)) {
    if (c == '\0') {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
      lines += c;
    }
  }

  EpollLoop loop;
  LinkServer server(loop, *directory);
  server.SetEvents({.LinkExecute =
                        [&](const std::string& CmdStr, std::int16_t& Cancel) {
                          if (CmdStr == "stop") server.SetLinkMode(0);
                          Cancel = CmdStr.starts_with('a') || CmdStr == "stop" ? 0 : 1;
                        },
                    .LinkRequest = [](const std::string& item) -> std::optional<std::string> {
                      if (item != "a") return std::nullopt;
                      return "A";
                    },
                    .LinkNotify = [](const std::string& item) { return item == "a"; }});
  server.SetLinkMode(1);

  const Fd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un place = LinkAddress(directory->Descriptor());
  const auto* general = reinterpret_cast<const sockaddr*>(&place);
  fuzz::Require(::connect(client.Get(), general, sizeof place) == 0, "the topic is published");
  std::string answers;
  std::size_t piece = 0;
  loop.Watch(client.Get(), EventLoop::Readable | EventLoop::Writable, [&](unsigned) {
    std::string bytes(65536, '\0');
    const ssize_t count = ::recv(client.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count > 0) answers.append(bytes, 0, static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EAGAIN)) {
      loop.Quit();
      return;
    }
    if (piece < pieces.size()) {
      ::send(client.Get(), pieces[piece].data(), pieces[piece].size(), MSG_NOSIGNAL);
      if (++piece == pieces.size()) ::shutdown(client.Get(), SHUT_WR);
    }
  });
  loop.Run();
  loop.Unwatch(client.Get());
  fuzz::Require(answers == Expected(lines), "the answers to the whole lines", answers);
  return 0;
}
