#include "modulkorb.hpp"

#include <utility>

#include "AsEvent.hpp"

namespace quorbin {

namespace {
constexpr const char* Tip = "Quorbin      ";  // filled up to 13 characters
}

void AddTrayIcon(Form1& form) {
  form.Tray.AddIcon(Tip, {.RightPress = AsEvent(form, TrayIcon_RightPress),
                          .NoTray = AsEvent(form, TrayIcon_Missing)});
}

void TrayIcon_RightPress(Form1& form) {
  // A window that was minimised for want of a tray is brought, not hidden.
  const bool wasMissing = std::exchange(form.TrayIsMissing, false);
  if (form.Window.Visible() && !wasMissing) {
    // Raises Resize, whose handler hides the window as well with this IconMode.
    form.Window.SetWindowState(FormState::Minimised);
    form.Window.SetVisible(false);
  } else {
    form.Window.SetWindowState(FormState::Normal);
    form.Window.SetVisible(true);
    form.Window.BringToUser();
  }
}

void TrayIcon_Missing(Form1& form) {
  form.TrayIsMissing = true;
  form.Window.SetWindowState(FormState::Minimised);
  form.Window.SetVisible(true);
}

void ShutdownTray(Form1& form) {
  form.Winsock1.Close();
  form.Tray.RemoveIcon();
}

}  // namespace quorbin
