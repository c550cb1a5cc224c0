#include "HostKeys.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <optional>

#include "Protocol.hpp"
#include "Text.hpp"

namespace quorbin::check {

namespace {

constexpr std::string_view NameBytes =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";

// The form in which a peer of this address is seen.
std::optional<std::string> AddressAsSeen(const std::string& key) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  in_addr v4;
  // The old forms too: fewer than four numbers, octal and hexadecimal ones.
  if (::inet_aton(key.c_str(), &v4) != 0) {
    return ::inet_ntop(AF_INET, &v4, text.data(), text.size());
  }
  const std::size_t scope = key.find('%');
  in6_addr v6;
  if (::inet_pton(AF_INET6, key.substr(0, scope).c_str(), &v6) != 1) return {};
  if (IN6_IS_ADDR_V4MAPPED(&v6)) {
    return ::inet_ntop(AF_INET, &v6.s6_addr[12], text.data(), text.size());
  }
  std::string seen = ::inet_ntop(AF_INET6, &v6, text.data(), text.size());
  if (scope != key.npos) seen += key.substr(scope);
  return seen;
}

bool IsLinkLocal(const std::string& key) {
  in6_addr v6;
  return ::inet_pton(AF_INET6, key.c_str(), &v6) == 1 && IN6_IS_ADDR_LINKLOCAL(&v6);
}

}  // namespace

bool IsAddress(std::string_view key) { return AddressAsSeen(std::string(key)).has_value(); }

std::string WhyNoHost(std::string_view key) {
  if (EqualsNoCase(key, LocalPeer)) return {};
  const std::string text(key);
  if (const std::optional<std::string> seen = AddressAsSeen(text)) {
    if (LCase(text) != LCase(*seen)) return "write " + *seen;
    if (IsLinkLocal(text))
      return "a link-local peer is seen with its interface, as in " + text + "%eth0";
    return {};
  }
  if (key.find_first_of("/*") != key.npos) return "networks are not known, only single addresses";
  if (key.find_first_not_of(NameBytes) != key.npos) return "it is neither an address nor a name";
  if (key.find_first_not_of("0123456789.") == key.npos) return "it is no whole address";
  if (key.starts_with('.') || key.ends_with('.')) return "a name has no dot at its ends";
  return {};
}

}  // namespace quorbin::check
