#include "HostKeys.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>

#include "AddressText.hpp"
#include "Protocol.hpp"
#include "Text.hpp"

namespace quorbin::check {

namespace {

constexpr std::string_view NameBytes =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";

// The form in which a peer of this address is seen, empty if it is none. One of an interface that
// this machine does not have stays as it is.
std::string AddressAsSeen(const std::string& key) {
  std::string seen = AddressText(key);
  const std::size_t scope = key.find('%');
  if (!seen.empty() || scope == key.npos) return seen;
  const std::string address = AddressText(key.substr(0, scope));
  return address.empty() ? address : address + key.substr(scope);
}

bool IsLinkLocal(const std::string& key) {
  in6_addr v6;
  return ::inet_pton(AF_INET6, key.c_str(), &v6) == 1 && IN6_IS_ADDR_LINKLOCAL(&v6);
}

}  // namespace

bool IsAddress(std::string_view key) { return !AddressAsSeen(std::string(key)).empty(); }

std::string WhyNoHost(std::string_view key) {
  if (EqualsNoCase(key, LocalPeer)) return {};
  const std::string text(key);
  if (const std::string seen = AddressAsSeen(text); !seen.empty()) {
    if (LCase(text) != LCase(seen)) return "write " + seen;
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
