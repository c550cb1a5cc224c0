#include "CheckHost.hpp"

#include <algorithm>

#include "Allgemein.hpp"
#include "Configuration.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

bool InLinkTable(const Form1& form, std::string_view address) {
  // A peer without an address is like no entry, not like the free slots.
  if (form.LinkHostCount < 0 || Trim(address).empty()) return false;
  return std::ranges::any_of(
      form.LinkHosts, [address](const std::string& slot) { return Trim(slot) == Trim(address); });
}

}  // namespace

bool CheckHost(Form1& form, const std::string& PeerAddress) {
  if (form.HostMode == HostModeLink) return InLinkTable(form, PeerAddress);

  const std::string_view builtIn = form.HostMode == DenyByDefault ? Keyword::Deny : Keyword::Allow;
  const std::string hostDefault = ReadDefault(form, Section::Hosts, builtIn, LongValue);
  const auto entry = [&](std::string_view key) {
    return ReadSetting(form, Section::Hosts, key, hostDefault, LongValue);
  };
  // An entry that says the same as the default settles nothing: the name decides.
  std::string value = entry(Trim(PeerAddress));
  if (value == hostDefault) value = entry(form.Socket1.ResolverName(PeerAddress));
  return value != Keyword::Deny;
}

}  // namespace quorbin
