// quorbin-link: sends one line to the link channel of the running service and tells its answer.

#include <fcntl.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Fd.hpp"
#include "LastError.hpp"
#include "LinkPlace.hpp"
#include "LinkProtocol.hpp"
#include "Usage.hpp"

namespace quorbin {
namespace {

enum ExitStatus { Accepted = 0, Refused = 1, NoService = 2 };

constexpr std::size_t MaxAnswer = std::size_t{64} * 1024;  // bytes
constexpr timeval AnswerTime{5, 0};                        // for each step

int Complain(int status, const std::string& sentence) {
  std::cerr << "quorbin-link: " << sentence << '\n';
  return status;
}

std::string UserName() {
  const passwd* const entry = getpwuid(geteuid());
  return entry != nullptr ? entry->pw_name : std::to_string(geteuid());
}

int NotRunning(const std::string& directory, const std::string& why) {
  return Complain(NoService, "no service of " + UserName() + " at " + directory + "/" +
                                 std::string(LinkProtocol::SocketName) + ": " + why);
}

// Prints the answer and returns the exit status.
int Report(const std::string& answer) {
  if (answer.starts_with(LinkProtocol::Value)) {
    std::cout << answer.substr(LinkProtocol::Value.size()) << '\n';
    return Accepted;
  }
  if (answer != LinkProtocol::Accepted && answer != LinkProtocol::Refused) {
    return Complain(NoService, "the service gave an answer that is none");
  }
  std::cout << answer << '\n';
  return answer == LinkProtocol::Accepted ? Accepted : Refused;
}

// Sends the line and returns the exit status.
int Ask(const std::string& line, const std::string& program) {
  const std::string directory = RunTimeDirectory(program);
  const Fd folder(open(directory.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (folder.Get() < 0 || fstat(folder.Get(), &status) != 0) {
    return NotRunning(directory, LastError().message());
  }
  if (status.st_uid != geteuid()) return NotRunning(directory, "the directory is another user's");

  const sockaddr_un address = LinkAddress(folder.Get());
  const Fd channel(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  setsockopt(channel.Get(), SOL_SOCKET, SO_SNDTIMEO, &AnswerTime, sizeof AnswerTime);
  setsockopt(channel.Get(), SOL_SOCKET, SO_RCVTIMEO, &AnswerTime, sizeof AnswerTime);
  ucred peer{};
  socklen_t size = sizeof peer;
  if (connect(channel.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      getsockopt(channel.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return NotRunning(directory, LastError().message());
  }
  if (peer.uid != geteuid()) return NotRunning(directory, "the service is another user's");

  const std::string bytes = line + '\n';
  // A fresh socket takes 4 KiB at once.
  if (send(channel.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(bytes.size())) {
    return NotRunning(directory, "it takes no command");
  }
  std::string answer;
  std::array<char, 4096> piece{};
  for (;;) {
    const ssize_t n = recv(channel.Get(), piece.data(), piece.size(), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == EAGAIN) return NotRunning(directory, "it does not answer");
    if (n <= 0) return NotRunning(directory, "it closed the channel without an answer");
    answer.append(piece.data(), static_cast<std::size_t>(n));
    if (const std::size_t lf = answer.find('\n'); lf != answer.npos) {
      return Report(answer.substr(0, lf));
    }
    if (answer.size() > MaxAnswer) return NotRunning(directory, "its answer does not end");
  }
}

// ---- Admitting nobody

// The address as the service writes it; empty for what is no numeric address.
std::string AddressText(const std::string& text) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(text.c_str(), nullptr, &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  std::array<char, NI_MAXHOST> name{};
  if (getnameinfo(found->ai_addr, found->ai_addrlen, name.data(), name.size(), nullptr, 0,
                  NI_NUMERICHOST) != 0) {
    return {};
  }
  const std::string written = name.data();
  // An IPv4 peer's address is always the dotted form.
  constexpr std::string_view mapped = "::ffff:";
  const bool dotted = written.starts_with(mapped) && written.find('.') != written.npos;
  return dotted ? written.substr(mapped.size()) : written;
}

// The service accepts any text with "con", and compares it with the peers' addresses byte by byte.
void WarnIfNobody(const std::string& command) {
  constexpr std::string_view con = "con ";
  constexpr std::string_view local = "*local";  // peers over the service's own socket
  if (!std::ranges::equal(command.substr(0, con.size()), con,
                          [](unsigned char a, char b) { return std::tolower(a) == b; })) {
    return;
  }
  const std::size_t first = command.find_first_not_of(' ', con.size());
  if (first == command.npos) return;
  const std::string peer = command.substr(first, command.find_last_not_of(' ') + 1 - first);
  const std::string address = AddressText(peer);
  if (peer == local || peer == address) return;
  std::cerr << "quorbin-link: warning: '" << peer << "' "
            << (address.empty() ? "is no address and matches nobody"
                                : "matches nobody; the service writes it " + address)
            << '\n';
}

// A name of a program is one part of a path.
std::string CheckProgram(const std::string& name) {
  const bool usable = !name.empty() && name != "." && name != ".." && name.find('/') == name.npos;
  return usable ? "" : "'" + name + "' is no program name";
}

}  // namespace
}  // namespace quorbin

int main(int argc, char** argv) try {
  using namespace quorbin;
  std::string verb;
  std::vector<std::string> words;
  std::string program = "Quorbin";
  CLI::App app("Controls the running Quorbin service of the same user.", "quorbin-link");
  NameInUsageErrors(app);
  app.set_version_flag("--version", QUORBIN_TOOL_VERSION);
  app.add_option("VERB", verb, "execute a command, request an item's value, or notify an item")
      ->required()
      ->check(CLI::IsMember(std::vector<std::string>{std::string(LinkProtocol::Execute),
                                                     std::string(LinkProtocol::Request),
                                                     std::string(LinkProtocol::Notify)}));
  app.add_option("TEXT", words, "The command or the item; several words count as one text")
      ->required();
  app.add_option("--name", program, "Name of the service's program")
      ->check(CheckProgram)
      ->capture_default_str();
  app.footer(R"(Exit status: 0 accepted, 1 refused, 2 no service; above that for wrong usage.

Examples:
  quorbin-link execute con 10.0.0.7    admit a host (Control=1)
  quorbin-link execute dis 10.0.0.7    dismiss it; two "con" need two "dis"
  quorbin-link execute stopsrv         stop the service
  quorbin-link request stopsrv         show the last command)");
  CLI11_PARSE(app, argc, argv);

  std::string text = words.front();
  for (std::size_t i = 1; i < words.size(); ++i) text += " " + words[i];
  const std::string line = verb + " " + text;
  if (text.find('\n') != text.npos) return Complain(Refused, "refused: the text holds a line end");
  if (line.size() > LinkProtocol::MaxLine)
    return Complain(Refused, "refused: the text is too long");
  if (verb == LinkProtocol::Execute) WarnIfNobody(text);
  return Ask(line, program);
} catch (const std::exception& error) {
  std::fprintf(stderr, "quorbin-link: %s\n", error.what());
  return 2;
}
