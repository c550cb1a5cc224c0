#pragma once

#include <functional>
#include <string>

#include "PlatformInterface.hpp"

namespace quorbin {

// The notification area of the desktop.
class ShellTray : public PlatformInterface {
 public:
  // Shows the program's icon with this tip. From then on each press of the right mouse button on
  // it, or of what the desktop reports in its place, is an event that calls rightPress. A failure
  // is not reported.
  virtual void AddIcon(const std::string& tip, std::function<void()> rightPress) = 0;

  // Has no effect without an icon.
  virtual void RemoveIcon() = 0;
};

}  // namespace quorbin
