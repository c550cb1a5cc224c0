#include "Dispatcher.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "ConnectionRecord.hpp"
#include "FileReception.hpp"
#include "Lifecycle.hpp"
#include "Protocol.hpp"
#include "RemoteName.hpp"
#include "ResolveExtension.hpp"
#include "Text.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

// The chunk without a closing NAK and without the blanks at its end, which only $KDOPRF$: keeps.
std::string_view Normalise(std::string_view chunk) {
  if (chunk.ends_with(Nak)) chunk.remove_suffix(1);
  return chunk.starts_with(Token::KdoPrf) ? chunk : RTrim(chunk);
}

// True for what begins like an HTTP request, which any web page can make a browser send to any
// port. The page chooses method and target as it likes, and its body could be the messages of a
// sender.
bool IsWebRequest(std::string_view chunk) {
  const std::string_view head = chunk.substr(0, Http::LongestMethod + 1);
  const std::size_t method = std::min(head.find_first_not_of(Http::MethodLetters), head.size());
  if (method > Http::LongestMethod) return true;
  if (method == 0 || !chunk.substr(method).starts_with(' ')) return false;
  const std::string_view target = chunk.substr(method + 1);
  if (target.starts_with('/') || target.starts_with('*')) return true;
  const std::size_t scheme = target.find_first_not_of(Http::SchemeLetters);
  return scheme != 0 && scheme != target.npos && target.substr(scheme).starts_with(Http::SchemeEnd);
}

// Bytes of partner beyond which no further version is appended: a sender that repeats its version
// endlessly must fill neither the memory nor, as the text is shown again each time, the disk that
// the output goes to.
constexpr std::size_t PartnerLimit = 4096;

void Version(Form1& form, std::string_view value) {
  form.Session.PeerVersion = value;
  const std::string partner = form.FControl.Text(Field::partner);
  if (partner.size() < PartnerLimit) {
    form.FControl.Write(Field::partner,
                        partner + std::string(PartnerVersion) + form.Session.PeerVersion + ")");
  }
  form.Winsock1.SendData(std::string(Reply::Ok) + form.Session.ProgramVersion);
}

void GiveUp(Form1& form, std::string_view /*value*/) {
  form.Winsock1.Close();
  Listen(form);
  form.FControl.Write(Field::aktion, Aktion::Listening);
  form.FControl.Write(Field::partner, "");
  RecordConnection(form, Outcome::GivenUp, Ending::Good);
}

void Data(Form1& form, std::string_view /*value*/) { AcceptData(form); }

// Decides on Ext and finds its viewer.
void LookUpViewer(Form1& form) {
  TransferSession& session = form.Session;
  session.ExtAllowed = ResolveExtension(form, session.Ext, session.ViewerCmd);
  session.ExtRefusal = session.ExtAllowed ? "" : form.FControl.Text(Field::resu);
}

void File(Form1& form, std::string_view value) {
  TransferSession& session = form.Session;
  session.FileName = ReduceName(value);
  if (session.Ext.empty()) {
    session.Ext = DeriveExt(session.FileName);
    form.FControl.Write(Field::fext, std::string(AutomaticExt) + session.Ext);
    // A refusal takes effect at $DATA$, through the empty ViewerCmd.
    LookUpViewer(form);
  }
  form.FControl.Write(Field::kdo, session.ViewerCmd);
  form.Winsock1.SendData(Reply::Ok);
}

void Ext(Form1& form, std::string_view value) {
  TransferSession& session = form.Session;
  session.Ext = value;
  form.FControl.Write(Field::fext, session.Ext);
  LookUpViewer(form);
  if (!session.ExtAllowed) {
    form.Winsock1.SendData(Reply::Ext);
    form.Winsock1.Close();
    Listen(form);
    RecordConnection(form, session.ExtRefusal, Ending::Bad);
    return;
  }
  form.FControl.Write(Field::kdo, session.ViewerCmd);
  form.Winsock1.SendData(Reply::Ok);
}

void Binary(Form1& form, std::string_view /*value*/) {
  form.Session.IsBinary = true;
  form.FControl.Write(Field::ftp, Ftp::Binary);
  form.Winsock1.SendData(Reply::Ok);
}

void Text(Form1& form, std::string_view /*value*/) {
  form.Session.IsBinary = false;
  form.FControl.Write(Field::ftp, Ftp::Text);
  form.Winsock1.SendData(Reply::Ok);
}

void Unknown(Form1& form) {
  form.FControl.Write(Field::resu, Resu::WrongParam);
  form.Winsock1.SendData(Reply::Param);
}

// An empty value leaves the parameter as it was.
void Parameter(Form1& form, std::string& parameter, Field field, std::string_view value) {
  if (!form.ParametersAllowed) {
    Unknown(form);
    return;
  }
  if (!value.empty()) parameter = value;
  form.FControl.Write(field, parameter);
  form.Winsock1.SendData(Reply::Ok);
}

void Suffix(Form1& form, std::string_view value) {
  Parameter(form, form.Session.KdoExt, Field::kext, value);
}

void Prefix(Form1& form, std::string_view value) {
  Parameter(form, form.Session.KdoPrf, Field::kprf, value);
}

struct Branch {
  std::string_view Token;
  void (*Run)(Form1& form, std::string_view value);
};

// The first token that the message begins with decides.
constexpr std::array<Branch, 10> Branches = {{
    {Token::Version, Version},
    {Token::Eof, GiveUp},
    {Token::DataHdr, Data},  // counts as $DATA$; what follows either is ignored
    {Token::Data, Data},
    {Token::File, File},
    {Token::Ext, Ext},
    {Token::FileTypeBinary, Binary},
    {Token::FileTypeText, Text},
    {Token::KdoExt, Suffix},
    {Token::KdoPrf, Prefix},
}};

}  // namespace

void Dispatch(Form1& form) {
  std::string_view& message = form.Session.RecvBuf;
  const bool first = !std::exchange(form.Session.AnyMessage, true);
  const bool webRequest = first && IsWebRequest(message);
  message = Normalise(message);
  if (form.Session.LogLevel == LogAllMessages) form.FControl.AppendLine(message);
  for (const Branch& branch : Branches) {
    if (message.starts_with(branch.Token)) {
      branch.Run(form, message.substr(branch.Token.size()));
      return;
    }
  }
  Unknown(form);
  if (webRequest) {
    form.FControl.Write(Field::aktion, Aktion::Listening);
    form.Winsock1.Close();
    Listen(form);
    RecordConnection(form, Outcome::WebRequest, Ending::Bad);
  }
}

}  // namespace quorbin
