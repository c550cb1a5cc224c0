// Command lines: the input is an Exec line, the sender's two parameters, and after these three
// lines the name of the file.

#include <algorithm>
#include <vector>

#include "CommandLine.hpp"
#include "ExecLine.hpp"
#include "Require.hpp"
#include "StartViewer.hpp"

using namespace quorbin;

namespace {

// The text as one argument.
std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '\\';
    quoted += c;
  }
  // A backslash at the end would make the closing quote an ordinary character.
  const std::size_t end = quoted.find_last_not_of('\\') + 1;
  return quoted.substr(0, end) + '"' + quoted.substr(end);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest = fuzz::Input(data, size);
  const std::string exec(fuzz::TakeLine(rest));
  const std::string prefix(fuzz::TakeLine(rest));
  const std::string suffix = Unescape(fuzz::TakeLine(rest));
  fuzz::Require(suffix.find("\\\"") == suffix.npos, "no escaped quote is left", suffix);

  std::size_t length = 0;
  for (const std::string& argument : SplitCommandLine(rest)) length += argument.size();
  fuzz::Require(length <= rest.size(), "nothing is invented", rest);
  const std::vector<std::string> back = SplitCommandLine("view " + Quoted(rest) + " end");
  fuzz::Require(back == std::vector<std::string>{"view", std::string(rest), "end"},
                "quotes keep together", rest);

  const std::string command =
      exec.find('\0') == exec.npos ? OpenCommandOfExec(exec, {"a name", "an icon", "/a/k"}) : "";
  std::string path = "/t/f$~.";
  std::ranges::copy_if(rest, std::back_inserter(path), [](char c) { return c != '"'; });
  const std::string line = AssembleLine({.ViewerCmd = command,
                                         .Ext = ".txt",
                                         .KdoPrf = prefix,
                                         .KdoExt = suffix,
                                         .OutputPath = path,
                                         .SystemRootDir = "%SystemRoot%"});
  fuzz::Require(line.find(path) != line.npos, "the file is on the line", line);
  // An open command from the desktop keeps the file in one argument and the program its own.
  if (!command.empty() && prefix.empty() && !path.ends_with('\\')) {
    const std::vector<std::string> arguments = SplitCommandLine(line);
    fuzz::Require(
        std::ranges::any_of(arguments, [&](const auto& a) { return a.find(path) != a.npos; }),
        "the file is one argument", line);
    fuzz::Require(arguments.front() == SplitCommandLine(command).front(),
                  "the program stays the desktop's", line);
  }
  return 0;
}
