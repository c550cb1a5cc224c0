#include "Lifecycle.hpp"

#include <system_error>

#include "Configuration.hpp"
#include "Protocol.hpp"
#include "Words.hpp"
#include "modulkorb.hpp"

namespace quorbin {

namespace {

// Shown below the program's name in its window. Whoever distributes the program may put maker,
// address, telephone and mail here.
constexpr const char* MakersNotice =
    "The Quorbin developers\r\n"
    "Free software, MIT licence\r\n"
    "Help: man quorbin\r\n"
    "Settings: man quorbin.ini";

void EndWithMessage(Form1& form, const std::string& text, const std::string& title) {
  form.App.MsgBox(text, title);
  form.App.End(ExitFailure);
}

std::string ListeningPlace(const Form1& form) {
  if (form.ListenAddress == LocalPeer) return form.ListenAddress;
  const std::string port = "port " + std::to_string(form.Winsock1.LocalPort());
  return form.ListenAddress.empty() ? port : port + " of " + form.ListenAddress;
}

void ListenOrEnd(Form1& form, const std::string& title) {
  if (const std::error_code error = form.Winsock1.Listen()) {
    EndWithMessage(form, "Can't listen on " + ListeningPlace(form) + ": " + error.message(), title);
  }
}

void CentreControls(Form1& form) {
  for (const FormControl control :
       {FormControl::Image2, FormControl::Label1, FormControl::Label2}) {
    form.Window.SetLeft(control,
                        (form.Window.OuterWidth() - form.Window.ControlWidth(control)) / 2);
  }
}

void ApplyIconMode(Form1& form) {
  if (form.IconMode >= 2) return;
  form.Window.SetWindowState(FormState::Normal);
  form.Window.SetVisible(false);
  if (form.IconMode == 0) AddTrayIcon(form);
}

}  // namespace

void Load(Form1& form) {
  const std::string title = "Error while loading" + form.App.EXEName();
  if (form.App.PrevInstance()) {
    EndWithMessage(form, form.App.EXEName() + " already running", title);
  }
  form.Session.ProgramVersion = "1.1.03";
  form.Session.LogLevel = LogNormal;
  form.Window.SetCaption("Quorbin Version " + form.Session.ProgramVersion);
  CentreControls(form);
  form.Window.SetLabel2(MakersNotice);
  ReadModes(form);
  ApplyIconMode(form);
  SetDirectories(form);
  SetListeningPort(form);
  if (const std::string wrong = SetListenAndParameters(form); !wrong.empty()) {
    EndWithMessage(form, wrong, title);
  }
  ListenOrEnd(form, title);
  SetNamePrefix(form);
  form.Files.KillPrefix(TempFilePrefix(form.Session));  // left by an earlier run
  form.FControl.Write(Field::aktion, Aktion::Listening);
  form.Started = true;
}

void QueryUnload(Form1& form, std::int16_t& Cancel) {
  Cancel = 0;
  if (!form.Started) return;
  form.FControl.CloseWindow();
  form.Files.KillPrefix(TempFilePrefix(form.Session));
  ShutdownTray(form);
}

void Listen(Form1& form) { ListenOrEnd(form, form.App.EXEName() + " has ended"); }

}  // namespace quorbin
