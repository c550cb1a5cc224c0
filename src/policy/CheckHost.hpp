#pragma once

#include <string>

#include "Form1.hpp"

namespace quorbin {

struct HostDecision {
  bool Allowed = false;
  std::string By;  // the entry or default that decided, for the journal and quorbin-check
};

// Whether the peer may use the service: by the link channel's table in link mode, else by the
// section Hosts, first under the address and then under its host name. May wait for the name
// service if the address alone does not decide.
HostDecision CheckHost(Form1& form, const std::string& PeerAddress);

}  // namespace quorbin
