#include "PeerClosed.hpp"

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
    form.Process.LetViewerTake({});
    form.Files.KillPrefix(TempFilePrefix(form.Session));
  }
  Listen(form);
  RecordConnection(form, brokenOff ? Outcome::BrokenOff : Outcome::PeerClosed,
                   brokenOff ? Ending::Bad : Ending::Good);
}

}  // namespace quorbin
