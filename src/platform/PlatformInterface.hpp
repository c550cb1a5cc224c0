#pragma once

namespace quorbin {

// Base of every interface of the platform: its objects are not copied, and may be destroyed through
// a pointer to the interface.
class PlatformInterface {
 public:
  PlatformInterface() = default;
  PlatformInterface(const PlatformInterface&) = delete;
  PlatformInterface& operator=(const PlatformInterface&) = delete;
  virtual ~PlatformInterface() = default;
};

}  // namespace quorbin
