#pragma once

#include <cstdint>
#include <string>

#include "PlatformInterface.hpp"

namespace quorbin {

enum class FormState : std::int16_t { Normal = 0, Minimised = 1 };

// Controls of the main window that are centred at start-up.
enum class FormControl { Image2, Label1, Label2 };

// The window of Form1. Without a window system the properties live in memory.
class MainWindow : public PlatformInterface {
 public:
  virtual FormState WindowState() const = 0;
  virtual void SetWindowState(FormState state) = 0;
  // False takes the window off the screen. Before the first event the window is not on the screen
  // yet, and true only says that it will be. A window that comes back is where the user left it.
  virtual bool Visible() const = 0;
  virtual void SetVisible(bool visible) = 0;
  // Raises the window that was just put back on the screen and gives it the focus.
  virtual void BringToUser() = 0;

  // Texts and places set once at start-up. Widths and places are in twips, 1440 to the inch.
  virtual void SetCaption(const std::string& caption) = 0;
  virtual void SetLabel2(const std::string& caption) = 0;
  virtual double OuterWidth() const = 0;
  virtual double ControlWidth(FormControl control) const = 0;
  virtual void SetLeft(FormControl control, double left) = 0;

  // Closes the main window: runs QueryUnload and, since that never refuses, ends the event loop.
  // A second call has no effect.
  virtual void Close() = 0;
};

}  // namespace quorbin
