#pragma once

// The tray icon.

#include "Form1.hpp"

namespace quorbin {

// Puts the program's icon into the desktop's tray. A failure is not reported.
void AddTrayIcon(Form1& form);

// A press of the right mouse button on the icon: hides the main window, or puts it back at its
// normal size and raises it.
void TrayIcon_RightPress(Form1& form);

// There is no tray for the icon: shows the main window minimised, as the program could neither be
// seen nor ended otherwise.
void TrayIcon_Missing(Form1& form);

// Closes the socket, then removes the icon, where there is one.
void ShutdownTray(Form1& form);

}  // namespace quorbin
