#include "ForwardConfirmedResolver.hpp"

#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

namespace quorbin {

namespace {

constexpr int Timeout = 1;   // seconds for one server
constexpr int Attempts = 1;  // rounds through the servers
constexpr int Servers = 2;   // asked at most

using AddressList = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

AddressList AddressesOf(const char* name, int family, int flags) {
  addrinfo hints{};
  hints.ai_family = family;
  hints.ai_flags = flags;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (::getaddrinfo(name, nullptr, &hints, &list) != 0) list = nullptr;
  return {list, ::freeaddrinfo};
}

// The bytes of the address in network byte order: four for IPv4, sixteen for IPv6.
std::string Bytes(const sockaddr* address) {
  if (address->sa_family == AF_INET6) {
    sockaddr_in6 v6{};
    std::memcpy(&v6, address, sizeof v6);
    return {reinterpret_cast<const char*>(&v6.sin6_addr), sizeof v6.sin6_addr};
  }
  sockaddr_in v4{};
  std::memcpy(&v4, address, sizeof v4);
  return {reinterpret_cast<const char*>(&v4.sin_addr), sizeof v4.sin_addr};
}

// Bounds the time that the name service may take, for this thread.
void BoundResolver() {
  if (::res_init() != 0) return;
  _res.retrans = Timeout;
  _res.retry = Attempts;
  _res.nscount = std::min(_res.nscount, Servers);
  // A reverse name is complete; a search through the local domains would only multiply the wait.
  _res.options &= ~static_cast<unsigned long>(RES_DNSRCH | RES_DEFNAMES);
  // A truncated answer is not asked for again over TCP: nothing bounds that wait.
  _res.options |= RES_IGNTC;
}

}  // namespace

std::string ForwardConfirmedResolver::ResolverName(const std::string& ResolverAddress) {
  const AddressList peer = AddressesOf(ResolverAddress.c_str(), AF_UNSPEC, AI_NUMERICHOST);
  if (!peer) return {};
  BoundResolver();
  std::array<char, NI_MAXHOST> name{};
  if (::getnameinfo(peer->ai_addr, peer->ai_addrlen, name.data(), name.size(), nullptr, 0,
                    NI_NAMEREQD) != 0) {
    return {};
  }
  // A name that reads as an address would be taken for an entry of that address.
  if (AddressesOf(name.data(), AF_UNSPEC, AI_NUMERICHOST)) return {};
  const AddressList back = AddressesOf(name.data(), peer->ai_family, 0);
  for (const addrinfo* entry = back.get(); entry != nullptr; entry = entry->ai_next) {
    if (Bytes(entry->ai_addr) == Bytes(peer->ai_addr)) return name.data();
  }
  return {};
}

}  // namespace quorbin
