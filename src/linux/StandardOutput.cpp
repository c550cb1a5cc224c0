#include "StandardOutput.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>

namespace quorbin {

StandardOutput::StandardOutput() {
  struct stat status;
  if (::fstat(STDOUT_FILENO, &status) != 0) return;
  isSocket_ = S_ISSOCK(status.st_mode);
  // O_NONBLOCK on the descriptor itself would also affect those that share it, such as the shell.
  if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
    mayWait_ = true;
    own_.Reset(::open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  }
}

// For a pipe or terminal that can't be opened again, such as another user's. Those that share it
// are affected only during the write.
ssize_t StandardOutput::WriteShared(std::string_view text) const {
  const int flags = ::fcntl(STDOUT_FILENO, F_GETFL);
  ::fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK);
  const ssize_t taken = ::write(STDOUT_FILENO, text.data(), text.size());
  ::fcntl(STDOUT_FILENO, F_SETFL, flags);
  return taken;
}

ssize_t StandardOutput::WriteSome(std::string_view text) const {
  if (isSocket_) {
    return ::send(STDOUT_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  }
  if (mayWait_ && !own_) return WriteShared(text);
  return ::write(own_ ? own_.Get() : STDOUT_FILENO, text.data(), text.size());
}

void StandardOutput::Print(std::string_view lines) {
  std::string text(cut_ ? 1 : 0, '\n');
  text += lines;
  const ssize_t taken = WriteSome(text);
  if (taken > 0) cut_ = static_cast<std::size_t>(taken) < text.size();
}

}  // namespace quorbin
