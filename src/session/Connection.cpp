#include "Connection.hpp"

#include "Allgemein.hpp"
#include "CheckHost.hpp"
#include "Dispatcher.hpp"
#include "FileReception.hpp"
#include "Lifecycle.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

void CloseSocket(Form1& form) {
  if (form.Winsock1.State() != 0) form.Winsock1.Close();
}

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

void ClearSession(TransferSession& session) {
  session.BlockCount = 0;
  session.TotalBytes = 0;
  session.BufLenLeft = 0;
  for (std::string* text : {&session.Ext, &session.FileName, &session.KdoExt, &session.KdoPrf,
                            &session.ViewerCmd, &session.PeerVersion}) {
    text->clear();
  }
  session.AnyMessage = false;
  session.InDataPhase = false;
  session.IsBinary = false;
  session.FileIsOpen = false;
}

}  // namespace

void ConnectionRequest(Form1& form, int requestID) {
  CloseSocket(form);
  const std::string address = form.Winsock1.RemoteHostIP();
  form.Session.HostAllowed = CheckHost(form, address);
  const std::string name = form.Winsock1.RemoteHost();
  form.FControl.Write(Field::partner, name.empty() ? address : name);
  form.Winsock1.Accept(requestID);
  ClearStatusFields(form);
  ClearSession(form.Session);
}

void DataArrival(Form1& form, std::int64_t ChunkLen) {
  form.Session.RecvBuf = form.Winsock1.GetData();
  if (!form.Session.HostAllowed) {
    form.Winsock1.Close();
    form.FControl.Write(Field::aktion, Aktion::Listening);
    Listen(form);
    form.FControl.Write(Field::resu, Resu::HostDenied);
    return;
  }
  form.FControl.Write(Field::resu, Resu::Ok);
  if (form.Session.InDataPhase) {
    ReceiveChunk(form, ChunkLen);
  } else {
    Dispatch(form);
  }
}

void PeerClosed(Form1& form) {
  CloseSocket(form);
  form.FControl.Write(Field::aktion, Aktion::Listening);
  if (form.Session.FileIsOpen) {
    form.Files.Close();
    form.Files.KillPrefix(TempFilePrefix(form));
  }
  Listen(form);
}

void Error(Form1& form, int Number, const std::string& Description, bool& CancelDisplay) {
  LogError(form, Number, Description);
  CancelDisplay = true;
  PeerClosed(form);
}

void LogError(Form1& form, int Number, const std::string& Description) {
  form.FControl.AppendLine(std::string(LogLine::Error) + NumberText(Number) + " " + Description);
}

}  // namespace quorbin
