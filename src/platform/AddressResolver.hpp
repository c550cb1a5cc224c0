#pragma once

#include <string>

#include "PlatformInterface.hpp"

namespace quorbin {

class AddressResolver : public PlatformInterface {
 public:
  // The host name of the address, or an empty text. Only a name that resolves back to the same
  // address counts, and a name that reads as an address does not, so an access list may trust it.
  // Waits for the name service: a few seconds at most for DNS, and as long as the system allows for
  // other sources.
  virtual std::string ResolverName(const std::string& ResolverAddress) = 0;
};

}  // namespace quorbin
