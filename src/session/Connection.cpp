#include "Connection.hpp"

#include <utility>

#include "CheckHost.hpp"
#include "ConnectionRecord.hpp"
#include "Dispatcher.hpp"
#include "ErrorLog.hpp"
#include "FileReception.hpp"
#include "Lifecycle.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

void ClearStatusFields(Form1& form) {
  StatusDisplay& show = form.FControl;
  show.Write(Field::dateiname, "");
  show.Write(Field::aktion, Aktion::Connected);
  show.Write(Field::kdo, "");
  show.Write(Field::resu, Resu::Ok);
  for (const Field field : {Field::fext, Field::kext, Field::kprf, Field::ftp, Field::Satz}) {
    show.Write(field, "");
  }
}

}  // namespace

void ConnectionRequest(Form1& form, int requestID) {
  if (form.Winsock1.State() != 0) form.Winsock1.Close();
  const std::string address = form.Winsock1.RemoteHostIP();
  HostDecision decision = CheckHost(form, address);
  const std::string name = form.Winsock1.RemoteHost();  // as the socket has it, without a lookup
  form.FControl.Write(Field::partner, name.empty() ? address : name);
  form.Winsock1.Accept(requestID);
  ClearStatusFields(form);
  form.Session = TransferSession(SessionSettings(std::move(form.Session)));
  form.Session.HostAllowed = decision.Allowed;
  form.Session.Unrecorded = true;
  form.Session.PeerAddress = address;
  form.Session.DecidedBy = std::move(decision.By);
}

void DataArrival(Form1& form, std::int64_t ChunkLen) {
  form.Session.RecvBuf = form.Winsock1.GetData();
  if (!form.Session.HostAllowed) {
    form.Winsock1.Close();
    form.FControl.Write(Field::aktion, Aktion::Listening);
    Listen(form);
    form.FControl.Write(Field::resu, Resu::HostDenied);
    RecordConnection(form, Resu::HostDenied, Ending::Bad);
    return;
  }
  form.FControl.Write(Field::resu, Resu::Ok);
  if (form.Session.InDataPhase) {
    ReceiveChunk(form, ChunkLen);
  } else {
    Dispatch(form);
  }
}

void Error(Form1& form, int Number, const std::string& Description, bool& CancelDisplay) {
  LogError(form, Number, Description);
  CancelDisplay = true;
  PeerClosed(form);
}

}  // namespace quorbin
