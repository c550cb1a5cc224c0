#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "MainWindow.hpp"

namespace quorbin {

// Operations of Shell_NotifyIcon.
enum class NotifyOperation : std::uint32_t { NIM_ADD = 0, NIM_DELETE = 2 };

// Which fields of the record count.
inline constexpr std::uint32_t NIF_MESSAGE = 1;
inline constexpr std::uint32_t NIF_ICON = 2;
inline constexpr std::uint32_t NIF_TIP = 4;

// The mouse message of a press of the right button.
inline constexpr std::intptr_t WM_RBUTTONDOWN = 0x204;

struct NotifyRecord {
  std::uint32_t cbSize = 0;
  WindowHandle hWnd = 0;
  std::uint32_t uID = 0;
  std::uint32_t uFlags = 0;
  std::uint32_t uCallbackMessage = 0;
  WindowHandle hIcon = 0;
  std::string szTip;
};

using WindowProc = std::function<std::intptr_t(WindowHandle hWnd, std::uint32_t Msg,
                                               std::uintptr_t wParam, std::intptr_t lParam)>;

// The notification area of the desktop, and the place where its messages arrive.
class ShellTray {
 public:
  ShellTray() = default;
  ShellTray(const ShellTray&) = delete;
  ShellTray& operator=(const ShellTray&) = delete;
  virtual ~ShellTray() = default;

  // Shows the icon or removes it. A failure goes unnoticed; removing an icon that does not exist
  // does no harm. While the icon is shown, a mouse action on it reaches the window's procedure
  // with Msg the record's uCallbackMessage, wParam its uID and lParam the mouse message.
  virtual void Shell_NotifyIcon(NotifyOperation operation, const NotifyRecord& record) = 0;

  // Installs the window's procedure and gives the replaced one back, which is never empty.
  virtual WindowProc SetWindowProc(WindowHandle hWnd, WindowProc procedure) = 0;
};

}  // namespace quorbin
