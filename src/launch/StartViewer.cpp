#include "StartViewer.hpp"

#include <optional>
#include <vector>

#include "Allgemein.hpp"
#include "CommandLine.hpp"
#include "Text.hpp"
#include "Words.hpp"

namespace quorbin {

namespace {

constexpr std::string_view Placeholder = "%1";
constexpr std::string_view SystemRoot = "%SystemRoot%";

bool IsProgram(std::string_view Ext) { return Ext == ".EXE" || Ext == ".exe"; }

// Without an open command in front of it the received file is the program itself.
bool RunsReceivedFile(std::string_view line, const std::string& path) {
  const std::vector<std::string> arguments = SplitCommandLine(line);
  return !arguments.empty() && arguments.front() == path;
}

}  // namespace

std::string AssembleLine(const ViewerLine& parts) {
  std::string line;
  std::string_view quote;
  std::string_view tail;
  if (!IsProgram(parts.Ext)) {
    const std::string_view command = parts.ViewerCmd;
    const std::size_t place = command.find(Placeholder);
    if (place == command.npos) {
      line.append(command).append(" ");
    } else {
      if (place > 0 && command[place - 1] == '"') quote = command.substr(place - 1, 1);
      line = command.substr(0, place - quote.size());
      tail = command.substr(place + Placeholder.size());
    }
  }
  line.append(parts.KdoPrf).append(quote).append(parts.OutputPath).append(tail);
  if (!parts.KdoExt.empty()) {
    // A sender that gives both texts writes its own blank.
    if (parts.KdoPrf.empty()) line += ' ';
    line += parts.KdoExt;
  }
  if (line.starts_with(SystemRoot)) line.replace(0, SystemRoot.size(), parts.SystemRootDir);
  return line;
}

std::string Unescape(std::string_view KdoExt) {
  // A backslash is removed exactly if only backslashes separate it from a double quote.
  std::string text;
  for (const char c : KdoExt) {
    if (c == '"') text.resize(text.find_last_not_of('\\') + 1);
    text += c;
  }
  return text;
}

void StartViewer(Form1& form) {
  TransferSession& session = form.Session;
  session.ViewerCmd = Trim(session.ViewerCmd);
  if (IsProgram(session.Ext)) session.ViewerCmd.clear();
  session.KdoExt = Unescape(session.KdoExt);
  const std::string path = OutputPath(session);
  const std::string line = AssembleLine({.ViewerCmd = session.ViewerCmd,
                                         .Ext = session.Ext,
                                         .KdoPrf = session.KdoPrf,
                                         .KdoExt = session.KdoExt,
                                         .OutputPath = path,
                                         .SystemRootDir = session.SystemRootDir});

  form.FControl.Write(Field::kdo, line);
  form.FControl.AppendLine(std::string(LogLine::FileWritten) + NumberText(session.TotalBytes) +
                           std::string(LogLine::Bytes));
  if (RunsReceivedFile(line, path)) form.Files.MakeExecutable(path);
  std::string result(Resu::StartedTask);
  session.CommandLine = line;
  session.Task = form.Process.Shell(std::string(RTrim(line)), path);
  if (session.Task) result += std::to_string(*session.Task);
  form.FControl.Write(Field::resu, result);
}

}  // namespace quorbin
