#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "MainWindow.hpp"
#include "PlatformInterface.hpp"
#include "ShellTray.hpp"
#include "StatusDisplay.hpp"

namespace quorbin {

// Where the program meets its user: in windows, or on the console. It outlives everything that uses
// it.
class Front : public PlatformInterface {
 public:
  // What the user and the desktop do to it. An empty function ignores its event.
  struct Events {
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

  virtual StatusDisplay& FControl() = 0;
  virtual MainWindow& Window() = 0;
  virtual ShellTray& Tray() = 0;

  // To be set once, before the first event.
  virtual void SetEvents(Events events) = 0;

  // Shows the last message of a program that has failed as a warning, and returns when the user has
  // dismissed it. No descriptor's callback runs meanwhile. The loss of the display ends the process
  // with status 1.
  virtual void ShowMessage(const std::string& text, const std::string& title) = 0;

  // SIGUSR1 has come: a click on CheckLog where there is no mouse, ignored elsewhere.
  virtual void UserSignal() = 0;

  // Start-up is over: puts the main window on the screen unless it was made invisible, and runs the
  // event loop until the main window has closed.
  virtual void Run() = 0;
};

}  // namespace quorbin
