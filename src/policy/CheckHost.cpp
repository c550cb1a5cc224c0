#include "CheckHost.hpp"

#include <algorithm>
#include <string_view>

#include "Configuration.hpp"
#include "Protocol.hpp"
#include "Text.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

bool InLinkTable(const Form1& form, std::string_view address) {
  // A peer without an address matches no entry, and no free slot either.
  if (form.LinkHostCount < 0 || Trim(address).empty()) return false;
  return std::ranges::any_of(
      form.LinkHosts, [address](const std::string& slot) { return Trim(slot) == Trim(address); });
}

// True for a key of the section that could be a host name: neither a setting nor an address, nor
// the entry of the peers without a port. A peer whose name is none of these has no entry by it.
bool MayBeHostName(std::string_view key) {
  if (key.find_first_not_of("0123456789.") == key.npos || key.find(':') != key.npos) return false;
  return !EqualsNoCase(key, Key::HostAllow) && !EqualsNoCase(key, Key::Default) &&
         !EqualsNoCase(key, LocalPeer);
}

// The peer's host name, which takes a lookup; empty where no entry could match one.
std::string PeerName(Form1& form, const std::string& address) {
  bool anyName = false;
  form.Profile.ForEachKey(Section::Hosts, SettingsPath(form), [&anyName](std::string_view key) {
    anyName = anyName || MayBeHostName(key);
  });
  const std::string name = anyName ? form.Socket1.ResolverName(address) : "";
  return MayBeHostName(name) ? name : "";
}

}  // namespace

HostDecision CheckHost(Form1& form, const std::string& PeerAddress) {
  if (form.HostMode == HostModeLink) return {InLinkTable(form, PeerAddress), "link table"};

  const std::string_view builtIn = form.HostMode == DenyByDefault ? Keyword::Deny : Keyword::Allow;
  const std::string hostDefault = ReadDefault(form, Section::Hosts, builtIn, LongValue);
  const auto entry = [&](std::string_view key) {
    return ReadSetting(form, Section::Hosts, key, hostDefault, LongValue);
  };
  const auto decision = [](const std::string& key, const std::string& value) {
    return HostDecision{value != Keyword::Deny, key + "=" + value};
  };
  const std::string address(Trim(PeerAddress));
  std::string value = entry(address);
  if (value != hostDefault) return decision(address, value);
  // An entry that equals the default reads like none, so it does not decide: the name does.
  const std::string name = PeerName(form, PeerAddress);
  value = entry(name);
  return decision(value != hostDefault ? name : std::string(Key::Default), value);
}

}  // namespace quorbin
