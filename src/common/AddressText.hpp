#pragma once

// The one text of a network address, by which a peer is admitted, refused and shown.

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

namespace quorbin {

// The address in numeric form, an IPv6 one with its interface where it needs one. An IPv4 peer's is
// always the dotted form. Empty if it has none.
inline std::string AddressText(const sockaddr* address, socklen_t length) {
  std::array<char, NI_MAXHOST> text{};
  if (address->sa_family == AF_INET6) {
    in6_addr v6{};
    std::memcpy(&v6, reinterpret_cast<const char*>(address) + offsetof(sockaddr_in6, sin6_addr),
                sizeof v6);
    if (IN6_IS_ADDR_V4MAPPED(&v6)) {
      return ::inet_ntop(AF_INET, &v6.s6_addr[12], text.data(), text.size());
    }
  }
  if (::getnameinfo(address, length, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) != 0) {
    return {};
  }
  return text.data();
}

// The same of an address that somebody has written, in old forms too: fewer than four numbers,
// octal and hexadecimal ones. Empty if the text is no numeric address of this machine's interfaces.
inline std::string AddressText(const std::string& written) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(written.c_str(), nullptr, &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, ::freeaddrinfo);
  return AddressText(found->ai_addr, found->ai_addrlen);
}

}  // namespace quorbin
