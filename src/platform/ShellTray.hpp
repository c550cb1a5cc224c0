#pragma once

#include <functional>
#include <string>

namespace quorbin {

// The notification area of the desktop.
class ShellTray {
 public:
  ShellTray() = default;
  ShellTray(const ShellTray&) = delete;
  ShellTray& operator=(const ShellTray&) = delete;
  virtual ~ShellTray() = default;

  // Shows the program's icon with this tip. From then on each press of the right mouse button on it
  // is an event that calls rightPress. A failure goes unnoticed.
  virtual void AddIcon(const std::string& tip, std::function<void()> rightPress) = 0;

  // An icon that does not exist is no fault.
  virtual void RemoveIcon() = 0;
};

}  // namespace quorbin
