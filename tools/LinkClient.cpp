#include "LinkClient.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "Fd.hpp"
#include "LastError.hpp"
#include "LinkPlace.hpp"
#include "LinkProtocol.hpp"

namespace quorbin {

namespace {

constexpr std::size_t MaxAnswer = std::size_t{64} * 1024;  // bytes
constexpr timeval AnswerTime{5, 0};                        // for each step

std::string UserName() {
  const passwd* const entry = getpwuid(geteuid());
  return entry != nullptr ? entry->pw_name : std::to_string(geteuid());
}

LinkAnswer NotRunning(const std::string& directory, const std::string& why) {
  return {.Line = {},
          .Failure = "no service of " + UserName() + " at " + directory + "/" +
                     std::string(LinkProtocol::SocketName) + ": " + why};
}

}  // namespace

LinkAnswer AskService(const std::string& program, const std::string& line) {
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
      return {.Line = answer.substr(0, lf), .Failure = {}};
    }
    if (answer.size() > MaxAnswer) return NotRunning(directory, "its answer does not end");
  }
}

}  // namespace quorbin
