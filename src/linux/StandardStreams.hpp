#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace quorbin {

// Opens those of the descriptors 0, 1 and 2 that the parent left closed. Otherwise the next socket
// or file would get such a number, and a message meant for the terminal would go to a peer. To be
// called before anything is opened.
inline void SecureStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    // The lowest free number is the one that is missing.
    if (::fcntl(stream, F_GETFD) < 0) ::open("/dev/null", O_RDWR);
  }
}

}  // namespace quorbin
