#include "ConnectionRecord.hpp"

#include <chrono>
#include <string>
#include <utility>

namespace quorbin {

void RecordConnection(Form1& form, std::string_view outcome, Ending ending) {
  TransferSession& session = form.Session;
  if (!std::exchange(session.Unrecorded, false)) return;
  const std::string_view verdict = session.HostAllowed ? "admitted" : "refused";
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(
                                std::chrono::steady_clock::now() - session.Begin)
                                .count();
  JournalEntry entry;
  entry.Warning = ending == Ending::Bad || !session.LastError.empty() || !session.MovedBy.empty();
  const auto add = [&entry](std::string_view name, std::string_view value) {
    if (!value.empty()) entry.Fields.push_back({name, std::string(value)});
  };
  add("PEER", session.PeerAddress);
  add("VERDICT", verdict);
  add("DECIDED_BY", session.DecidedBy);
  add("PEER_VERSION", session.PeerVersion);
  add("FILE", session.FileName);
  add("MOVED_FROM", session.MovedFrom);
  add("MOVED_BY", session.MovedBy);
  add("EXTENSION", session.Ext);
  if (session.InDataPhase) add("BYTES", std::to_string(session.TotalBytes));
  add("COMMAND", session.CommandLine);
  if (session.Task) add("TASK", std::to_string(*session.Task));
  add("RESULT", outcome);
  add("ERROR", session.LastError);
  add("DURATION_MS", std::to_string(milliseconds));

  std::string& line = entry.Message;
  line = session.PeerAddress + " " + std::string(verdict) + " by " + session.DecidedBy + ": ";
  if (!session.FileName.empty()) line += session.FileName + ", ";
  if (!session.MovedBy.empty()) line += "moved there by error " + session.MovedBy + ", ";
  if (session.InDataPhase) line += std::to_string(session.TotalBytes) + " bytes, ";
  line += outcome;
  if (session.Task) line += " (task " + std::to_string(*session.Task) + ")";
  if (!session.LastError.empty()) line += ", error " + session.LastError;
  line += ", " + std::to_string(milliseconds) + " ms";
  form.Audit.Write(entry);
}

}  // namespace quorbin
