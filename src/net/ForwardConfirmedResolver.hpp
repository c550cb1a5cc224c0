#pragma once

#include <string>

#include "AddressResolver.hpp"

namespace quorbin {

// The system's name service. Whoever owns an address controls its reverse name, so a name counts
// only if it resolves back to the address. Two queries are made, for the name and for its addresses
// of the peer's family; each waits for at most two servers, one second each and without a retry.
class ForwardConfirmedResolver final : public AddressResolver {
 public:
  std::string ResolverName(const std::string& ResolverAddress) override;
};

}  // namespace quorbin
