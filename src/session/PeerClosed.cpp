#include "PeerClosed.hpp"

#include "Allgemein.hpp"
#include "ConnectionRecord.hpp"
#include "Lifecycle.hpp"
#include "Words.hpp"

namespace quorbin {

void PeerClosed(Form1& form) {
  const bool brokenOff = form.Session.FileIsOpen;
  if (form.Winsock1.State() != 0) form.Winsock1.Close();
  form.FControl.Write(Field::aktion, Aktion::Listening);
  if (brokenOff) {
    form.Files.Close();
    form.Files.KillPrefix(TempFilePrefix(form.Session));
  }
  Listen(form);
  RecordConnection(form, brokenOff ? Outcome::BrokenOff : Outcome::PeerClosed,
                   brokenOff ? Ending::Bad : Ending::Good);
}

std::string ErrorText(int Number, const std::string& Description) {
  return std::to_string(Number) + " " + Description;
}

void LogError(Form1& form, int Number, const std::string& Description) {
  form.FControl.AppendLine(std::string(LogLine::Error) + NumberText(Number) + " " + Description);
  form.Session.LastError = ErrorText(Number, Description);
}

}  // namespace quorbin
