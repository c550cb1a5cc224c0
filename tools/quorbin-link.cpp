// quorbin-link: sends one line to the link channel of the running service and tells its answer.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "Fd.hpp"
#include "LastError.hpp"
#include "LinkPlace.hpp"
#include "LinkProtocol.hpp"

namespace quorbin {
namespace {

enum ExitStatus { Accepted = 0, Refused = 1, NoService = 2 };

constexpr std::size_t MaxAnswer = std::size_t{64} * 1024;  // bytes
constexpr timeval AnswerTime{5, 0};                        // for each step

int Complain(int status, const std::string& sentence) {
  std::cerr << "quorbin-link: " << sentence << '\n';
  return status;
}

int NotRunning(const std::string& directory, const std::string& why) {
  return Complain(NoService, "no service at " + directory + "/" +
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
  struct stat status {};
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
  std::string text;
  std::string program = "Quorbin";
  CLI::App app("Controls the running Quorbin service of the same user.", "quorbin-link");
  app.set_version_flag("--version", QUORBIN_TOOL_VERSION);
  app.add_option("VERB", verb, "execute a command, request an item's value, or notify an item")
      ->required()
      ->check(CLI::IsMember(std::vector<std::string>{std::string(LinkProtocol::Execute),
                                                     std::string(LinkProtocol::Request),
                                                     std::string(LinkProtocol::Notify)}));
  app.add_option("TEXT", text, "The command or the item")->required();
  app.add_option("--name", program, "Name of the service's program")
      ->check(CheckProgram)
      ->capture_default_str();
  app.footer(R"(Exit status: 0 accepted, 1 refused, 2 no service; above that for wrong usage.

Examples:
  quorbin-link execute "con 10.0.0.7"    admit a host (Control=1)
  quorbin-link execute "dis 10.0.0.7"    dismiss it
  quorbin-link execute stopsrv           stop the service
  quorbin-link request stopsrv           show the last command)");
  CLI11_PARSE(app, argc, argv);

  const std::string line = verb + " " + text;
  if (text.find('\n') != text.npos) return Complain(Refused, "refused: the text holds a line end");
  if (line.size() > LinkProtocol::MaxLine)
    return Complain(Refused, "refused: the text is too long");
  return Ask(line, program);
} catch (const std::exception& error) {
  std::fprintf(stderr, "quorbin-link: %s\n", error.what());
  return 2;
}
