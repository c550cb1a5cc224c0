#include "ExecLine.hpp"

#include <glib.h>

#include <string_view>
#include <utility>
#include <vector>

namespace quorbin {

namespace {

constexpr std::string_view FileCodes = "fFuU";

// One argument: the text before the place of the file, and the text after it if the argument has
// that place.
struct Argument {
  std::string Before;
  bool HasFile = false;
  std::string After;
};

std::vector<std::string> SplitExec(const std::string& exec) {
  char** words = nullptr;
  if (!g_shell_parse_argv(exec.c_str(), nullptr, &words, nullptr)) return {};
  std::vector<std::string> split;
  for (char** word = words; *word != nullptr; ++word) split.emplace_back(*word);
  g_strfreev(words);
  return split;
}

// Resolves the field codes of a word; deprecated and unknown ones are dropped, and so is a file
// code if fileSeen, since only the first one of the line counts.
Argument Resolve(std::string_view word, const ExecFields& fields, bool& fileSeen) {
  Argument argument;
  for (std::size_t i = 0; i < word.size(); ++i) {
    std::string& text = argument.HasFile ? argument.After : argument.Before;
    if (word[i] != '%') {
      text += word[i];
      continue;
    }
    if (++i == word.size()) break;
    if (word[i] == '%') text += '%';
    if (word[i] == 'c') text += fields.Name;
    if (word[i] == 'k') text += fields.DesktopFile;
    if (FileCodes.find(word[i]) != std::string_view::npos && !fileSeen) {
      argument.HasFile = fileSeen = true;
    }
  }
  return argument;
}

std::vector<Argument> Arguments(const std::string& exec, const ExecFields& fields) {
  std::vector<Argument> arguments;
  bool fileSeen = false;
  for (const std::string& word : SplitExec(exec)) {
    if (word == "%i" && !fields.Icon.empty()) {
      arguments.push_back({"--icon", false, {}});
      arguments.push_back({fields.Icon, false, {}});
      continue;
    }
    Argument argument = Resolve(word, fields, fileSeen);
    // A sandboxed application expects a URI after the mark @@u, and a path after @@.
    if (argument.HasFile && !arguments.empty() && arguments.back().Before == "@@u") {
      arguments.back().Before = "@@";
    }
    const bool vanished = !word.empty() && !argument.HasFile && argument.Before.empty();
    if (!vanished) arguments.push_back(std::move(argument));
  }
  if (!fileSeen) arguments.push_back({{}, true, {}});
  return arguments;
}

// The text in a form that reads back inside double quotes and outside of them. A pair of quotes
// splits "%1", which would be taken for the placeholder; it adds no text in either place.
std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '"') escaped += '\\';
    if (c == '1' && escaped.ends_with('%')) escaped += "\"\"";
    escaped += c;
  }
  return escaped;
}

// What follows an opening quote: the text and the closing quote. Backslashes at the end of the text
// would escape that quote, so they come after it.
std::string Closed(std::string_view text) {
  const std::size_t end = text.find_last_not_of('\\') + 1;
  return Escaped(text.substr(0, end)) + '"' + std::string(text.substr(end));
}

std::string Quoted(std::string_view text) {
  if (!text.empty() && text.find_first_of(" \t\r\n") == std::string_view::npos) {
    return Escaped(text);
  }
  return '"' + Closed(text);
}

std::string Written(const Argument& argument) {
  if (!argument.HasFile) return Quoted(argument.Before);
  const std::string place = "%1" + Closed(argument.After);
  // A backslash can't precede the placeholder's quote, so the quote opens earlier.
  if (argument.Before.ends_with('\\')) return '"' + Escaped(argument.Before) + place;
  return (argument.Before.empty() ? std::string() : Quoted(argument.Before)) + '"' + place;
}

}  // namespace

std::string OpenCommandOfExec(const std::string& exec, const ExecFields& fields) {
  const std::vector<Argument> arguments = Arguments(exec, fields);
  if (arguments.front().HasFile) return {};
  std::string command;
  for (const Argument& argument : arguments) {
    if (!command.empty()) command += ' ';
    command += Written(argument);
  }
  return command;
}

}  // namespace quorbin
