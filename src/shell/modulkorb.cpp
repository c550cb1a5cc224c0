#include "modulkorb.hpp"

#include "AsEvent.hpp"

namespace quorbin {

namespace {
constexpr const char* Tip = "Quorbin      ";  // filled up to 13 characters
}

void AddTrayIcon(Form1& form) { form.Tray.AddIcon(Tip, AsEvent(form, TrayIcon_RightPress)); }

void TrayIcon_RightPress(Form1& form) {
  if (form.Window.Visible()) {
    // Raises Resize, whose handler hides the window as well with this IconMode.
    form.Window.SetWindowState(FormState::Minimised);
    form.Window.SetVisible(false);
  } else {
    form.Window.SetWindowState(FormState::Normal);
    form.Window.SetVisible(true);
    form.Window.BringToUser();
  }
}

void ShutdownTray(Form1& form) {
  form.Winsock1.Close();
  form.Tray.RemoveIcon();
}

}  // namespace quorbin
