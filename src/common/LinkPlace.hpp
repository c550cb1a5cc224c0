#pragma once

// Where the service and its clients on this machine meet.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "LinkProtocol.hpp"

namespace quorbin {

// The run-time directory: <program name> in $XDG_RUNTIME_DIR, or /tmp/<program name>-<uid> without
// that variable.
inline std::string RunTimeDirectory(const std::string& programName) {
  const char* const base = std::getenv("XDG_RUNTIME_DIR");
  if (base != nullptr && *base != '\0') return std::string(base) + "/" + programName;
  return "/tmp/" + programName + "-" + std::to_string(::geteuid());
}

// Name in the run-time directory of the socket that receives files when Listen is LocalPeer.
inline constexpr std::string_view LocalSocketName = "in";

// Address of a socket in the run-time directory, through the open directory: its path may be too
// long for a socket's address, and nobody can replace a directory that is open.
inline sockaddr_un SocketAddress(int directory, std::string_view name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%.*s", directory,
                static_cast<int>(name.size()), name.data());
  return address;
}

// The socket of the link channel.
inline sockaddr_un LinkAddress(int directory) {
  return SocketAddress(directory, LinkProtocol::SocketName);
}

}  // namespace quorbin
