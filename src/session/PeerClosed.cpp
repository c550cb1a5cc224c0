#include "PeerClosed.hpp"

#include "Allgemein.hpp"
#include "Lifecycle.hpp"
#include "Words.hpp"

namespace quorbin {

void PeerClosed(Form1& form) {
  if (form.Winsock1.State() != 0) form.Winsock1.Close();
  form.FControl.Write(Field::aktion, Aktion::Listening);
  if (form.Session.FileIsOpen) {
    form.Files.Close();
    form.Files.KillPrefix(TempFilePrefix(form.Session));
  }
  Listen(form);
}

void LogError(Form1& form, int Number, const std::string& Description) {
  form.FControl.AppendLine(std::string(LogLine::Error) + NumberText(Number) + " " + Description);
}

}  // namespace quorbin
