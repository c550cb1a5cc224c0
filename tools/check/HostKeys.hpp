#pragma once

#include <string>
#include <string_view>

namespace quorbin::check {

// True if the key of section Hosts is a single address in any numeric form.
bool IsAddress(std::string_view key);

// Why a key of section Hosts can't match a peer; empty if it can. Peers are seen by their numeric
// address in its shortest form, an IPv4 peer always in the dotted one, by their host name, or as
// "*local".
std::string WhyNoHost(std::string_view key);

}  // namespace quorbin::check
