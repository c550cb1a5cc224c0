#pragma once

#include <string>

#include "Form1.hpp"

namespace quorbin {

struct HostDecision {
  bool Allowed = false;
  std::string By;  // the entry or default that decided, for the journal and quorbin-check
};

// Whether the peer may use the service: by the link channel's table if HostMode is 3, which
// Control=1 implies; else by the section Hosts, first under the address and then, where that has no
// entry or one that equals the default, under its host name. May wait for the name service if the
// address alone does not decide.
HostDecision CheckHost(Form1& form, const std::string& PeerAddress);

}  // namespace quorbin
