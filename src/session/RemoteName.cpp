#include "RemoteName.hpp"

#include <algorithm>

#include "Lifecycle.hpp"
#include "Protocol.hpp"
#include "ResolveExtension.hpp"
#include "Text.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

constexpr std::string_view HostRoot = "/BS2/";
constexpr std::string_view Posix = "*POSIX";
constexpr std::size_t ExtLength = 4;  // characters, dot included

// What stands behind the last of the separators, or all of it if there is none.
std::string_view Behind(std::string_view name, std::string_view separators) {
  return name.substr(name.find_last_of(separators) + 1);
}

}  // namespace

std::string ReduceName(std::string_view value) {
  std::string_view name = value;
  if (name.starts_with(HostRoot)) name.remove_prefix(HostRoot.size());
  if (name.starts_with('/')) name = Behind(name, "/");
  if (name.starts_with(Posix)) {
    if (name.ends_with(')')) name.remove_suffix(1);
    name = Behind(name, "/(");
  }
  return std::string(RTrim(name));
}

std::string DeriveExt(std::string_view FileName) {
  return std::string(FileName.substr(FileName.size() - std::min(FileName.size(), ExtLength)));
}

void FileBranch(Form1& form, std::string_view value) {
  TransferSession& session = form.Session;
  session.FileName = ReduceName(value);
  if (session.Ext.empty()) {
    session.Ext = DeriveExt(session.FileName);
    form.FControl.Write(Field::fext, std::string(AutomaticExt) + session.Ext);
    // A refusal shows at $DATA$, through the empty ViewerCmd.
    session.ExtAllowed = ResolveExtension(form, session.Ext, session.ViewerCmd);
  }
  form.FControl.Write(Field::kdo, session.ViewerCmd);
  form.Winsock1.SendData(Reply::Ok);
}

void ExtBranch(Form1& form, std::string_view value) {
  TransferSession& session = form.Session;
  session.Ext = value;
  form.FControl.Write(Field::fext, session.Ext);
  session.ExtAllowed = ResolveExtension(form, session.Ext, session.ViewerCmd);
  if (!session.ExtAllowed) {
    form.Winsock1.SendData(Reply::Ext);
    form.Winsock1.Close();
    Listen(form);
    return;
  }
  form.FControl.Write(Field::kdo, session.ViewerCmd);
  form.Winsock1.SendData(Reply::Ok);
}

}  // namespace quorbin
