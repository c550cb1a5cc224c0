#include "Windows.hpp"

#include "Configuration.hpp"

namespace quorbin {

namespace {
constexpr std::int16_t LeftButton = 1;
constexpr std::int16_t CtrlMask = 2;
constexpr std::int16_t IconModeStaysMinimised = 2;
}  // namespace

void Command1_Click(Form1& form) { form.FControl.Show(); }

void CommandParam_Click(Form1& form) { form.Process.OpenInEditor(SettingsPath(form)); }

void CheckLog_Click(Form1& form, bool ticked) {
  form.Session.LogLevel = ticked ? LogAllMessages : LogNormal;
}

void Form_MouseDown(Form1& form, std::int16_t Button, std::int16_t Shift) {
  if (Button == LeftButton && Shift == CtrlMask) form.FControl.Show();
}

void Form_Resize(Form1& form) {
  if (form.IconMode != IconModeStaysMinimised && !form.TrayIsMissing &&
      form.Window.WindowState() == FormState::Minimised) {
    form.Window.SetVisible(false);
  }
}

}  // namespace quorbin
