#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <optional>
#include <string>

#include "Fd.hpp"

namespace quorbin {

// The bytes of a plain file; empty if there is none that we may read, or if it is longer than
// longest. nullopt if the read failed for a reason that may pass, such as a lack of descriptors.
// Never waits for a FIFO or a device.
inline std::optional<std::string> ReadFile(const std::string& path,
                                           off_t longest = std::numeric_limits<off_t>::max()) {
  const Fd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file && errno != EMFILE && errno != ENFILE && errno != ENOMEM && errno != EINTR) {
    return std::string();
  }
  struct stat status;
  if (!file || ::fstat(file.Get(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode) || status.st_size > longest) return std::string();
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t count = ::read(file.Get(), bytes.data() + length, bytes.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {};
    if (count == 0) break;  // it was truncated meanwhile
    length += static_cast<std::size_t>(count);
  }
  bytes.resize(length);
  return bytes;
}

}  // namespace quorbin
