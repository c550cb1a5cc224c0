#include "modulkorb.hpp"

namespace quorbin {

namespace {

constexpr std::uint32_t RecordSize = 37;  // bytes of the record with its short tip
constexpr std::uint32_t IconId = 42;
// Also the number of a system message: all three values of the callback are tested.
constexpr std::uint32_t CallbackMessage = 28;
constexpr const char* Tip = "Quorbin      ";  // a field of 13 characters

}  // namespace

void AddTrayIcon(Form1& form) {
  form.Tray.Shell_NotifyIcon(NotifyOperation::NIM_ADD, {.cbSize = RecordSize,
                                                        .hWnd = form.Window.Handle(),
                                                        .uID = IconId,
                                                        .uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP,
                                                        .uCallbackMessage = CallbackMessage,
                                                        .hIcon = form.Window.Icon(),
                                                        .szTip = Tip});
}

void SetSubclass(Form1& form, WindowHandle hWnd, bool Enable) {
  if (Enable && !form.OldWndProc) {
    form.OldWndProc =
        form.Tray.SetWindowProc(hWnd, [&form](WindowHandle window, std::uint32_t Msg,
                                              std::uintptr_t wParam, std::intptr_t lParam) {
          return TrayWindowProc(form, window, Msg, wParam, lParam);
        });
  } else if (!Enable && form.OldWndProc) {
    form.Tray.SetWindowProc(hWnd, form.OldWndProc);
    form.OldWndProc = nullptr;
  }
}

std::intptr_t TrayWindowProc(Form1& form, WindowHandle hWnd, std::uint32_t Msg,
                             std::uintptr_t wParam, std::intptr_t lParam) {
  const std::intptr_t result = form.OldWndProc(hWnd, Msg, wParam, lParam);
  if (Msg != CallbackMessage || wParam != IconId || lParam != WM_RBUTTONDOWN) return result;
  if (form.Window.Visible()) {
    form.Window.SetWindowState(FormState::Minimised);
    form.Window.SetVisible(false);
  } else {
    form.Window.SetWindowState(FormState::Normal);
    form.Window.SetVisible(true);
    form.Window.BringToUser();
  }
  return result;
}

void ShutdownTray(Form1& form, WindowHandle hWnd) {
  form.Winsock1.Close();
  form.Tray.Shell_NotifyIcon(NotifyOperation::NIM_DELETE,
                             {.cbSize = RecordSize, .hWnd = hWnd, .uID = IconId, .szTip = {}});
  SetSubclass(form, hWnd, false);
}

}  // namespace quorbin
