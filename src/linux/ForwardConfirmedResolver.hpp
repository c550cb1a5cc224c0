#pragma once

#include <string>

#include "AddressResolver.hpp"

namespace quorbin {

// The system's name service. A reverse name alone is in the hands of whoever owns the address, so
// it counts only if it leads back to that address. Two questions are asked, for the name and for
// its addresses of the peer's family; each waits for at most two servers, one second each and
// without a retry.
class ForwardConfirmedResolver : public AddressResolver {
 public:
  std::string ResolverName(const std::string& ResolverAddress) override;
};

}  // namespace quorbin
