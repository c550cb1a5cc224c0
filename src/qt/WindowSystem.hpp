#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "EventLoop.hpp"
#include "MainWindow.hpp"
#include "ShellTray.hpp"
#include "StatusDisplay.hpp"

namespace quorbin {

// What the user and the desktop do to the windows. An empty function ignores its event.
struct WindowEvents {
  std::function<void()> Command1Click;
  std::function<void()> CommandParamClick;
  // A press on the bare main window. Button: 1 left, 2 right, 4 middle. Shift: 1 Shift, 2 Ctrl,
  // 4 Alt, or'ed.
  std::function<void(std::int16_t Button, std::int16_t Shift)> MouseDown;
  std::function<void()> Resize;
  std::function<void(bool ticked)> CheckLogClick;
  // The main window is about to close; comes once.
  std::function<void()> QueryUnload;
};

// The toolkit with everything it offers the program. One object per process; it outlives all that
// uses its parts.
class WindowSystem {
 public:
  // Opens the display that DISPLAY or WAYLAND_DISPLAY names, by the platform plugin that
  // QT_QPA_PLATFORM may choose. Null if neither is set, or if the display can't be opened: then
  // one line on standard error has said so.
  static std::unique_ptr<WindowSystem> Open();
  ~WindowSystem();
  WindowSystem(const WindowSystem&) = delete;
  WindowSystem& operator=(const WindowSystem&) = delete;

  EventLoop& Loop();
  StatusDisplay& FControl();
  MainWindow& Window();
  ShellTray& Tray();

  // To be set once, before the first event.
  void SetEvents(WindowEvents events);

  // Start-up is over: puts the main window on the screen unless it was made invisible.
  void ShowMainWindow();

 private:
  struct Parts;
  explicit WindowSystem(std::unique_ptr<Parts> parts);
  std::unique_ptr<Parts> parts_;
};

// Shows the message with the exclamation icon and an OK button, and returns when the user has
// dismissed it. Needs an open WindowSystem. No descriptor's callback runs meanwhile.
void ShowMessageBox(const std::string& text, const std::string& title);

}  // namespace quorbin
