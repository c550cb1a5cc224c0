#pragma once

// The tray icon and the subclass of the main window that hears it.

#include <cstdint>

#include "Form1.hpp"

namespace quorbin {

// Puts the program's icon into the desktop's tray. A failure goes unnoticed.
void AddTrayIcon(Form1& form);

// Puts TrayWindowProc in front of the window's procedure, or takes it away again. A second
// installation and a removal without an installation have no effect.
void SetSubclass(Form1& form, WindowHandle hWnd, bool Enable);

// The window's procedure while the subclass stands: passes each message on, and toggles the main
// window on a right-button press on the icon. Gives what the replaced procedure gave.
std::intptr_t TrayWindowProc(Form1& form, WindowHandle hWnd, std::uint32_t Msg,
                             std::uintptr_t wParam, std::intptr_t lParam);

// Closes the socket, then removes icon and subclass, where they exist.
void ShutdownTray(Form1& form, WindowHandle hWnd);

}  // namespace quorbin
