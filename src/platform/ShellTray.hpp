#pragma once

#include <functional>
#include <string>

#include "PlatformInterface.hpp"

namespace quorbin {

// The notification area of the desktop.
class ShellTray : public PlatformInterface {
 public:
  struct Events {
    // A press of the right mouse button on the icon, or of what the desktop reports in its place.
    std::function<void()> RightPress;
    // No tray has come up in the time that a desktop needs for one. Comes once at most.
    std::function<void()> NoTray;
  };

  // Shows the program's icon with this tip, as soon as there is a tray. A failure is not reported.
  virtual void AddIcon(const std::string& tip, Events events) = 0;

  // Has no effect without an icon.
  virtual void RemoveIcon() = 0;
};

}  // namespace quorbin
