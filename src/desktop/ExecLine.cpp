#include "ExecLine.hpp"

#include <glib.h>

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace quorbin {

namespace {

constexpr std::string_view FilePlace = R"("%1")";

bool IsFileCode(std::string_view word) {
  return word.size() == 2 && word[0] == '%' &&
         std::string_view("fFuU").find(word[1]) != std::string_view::npos;
}

std::vector<std::string> SplitExec(const std::string& exec) {
  char** words = nullptr;
  if (!g_shell_parse_argv(exec.c_str(), nullptr, &words, nullptr)) return {};
  std::vector<std::string> split;
  for (char** word = words; *word != nullptr; ++word) split.emplace_back(*word);
  g_strfreev(words);
  return split;
}

// The word with its field codes resolved; deprecated and unknown ones are dropped. Nullopt if a
// file code is part of it: a name must be an argument by itself. In sh -c "cat %f" it would be text
// of a script.
std::optional<std::string> Resolve(std::string_view word, const ExecFields& fields) {
  std::string text;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word[i] != '%') {
      text += word[i];
      continue;
    }
    if (++i == word.size()) break;
    if (IsFileCode(word.substr(i - 1, 2))) return {};
    if (word[i] == '%') text += '%';
    if (word[i] == 'c') text += fields.Name;
    if (word[i] == 'k') text += fields.DesktopFile;
  }
  return text;
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

// Backslashes at the end of the text would escape the closing quote, so they come after it.
std::string Quoted(std::string_view text) {
  if (!text.empty() && text.find_first_of(" \t\r\n") == std::string_view::npos) {
    return Escaped(text);
  }
  const std::size_t end = text.find_last_not_of('\\') + 1;
  return '"' + Escaped(text.substr(0, end)) + '"' + std::string(text.substr(end));
}

}  // namespace

std::string OpenCommandOfExec(const std::string& exec, const ExecFields& fields) {
  std::vector<std::string> arguments;
  bool fileSeen = false;
  for (const std::string& word : SplitExec(exec)) {
    if (word == "%i" && !fields.Icon.empty()) {
      arguments.insert(arguments.end(), {"--icon", Quoted(fields.Icon)});
    } else if (IsFileCode(word)) {
      // Only the first one counts. A sandboxed application expects a URI after the mark @@u, and a
      // path after @@.
      if (std::exchange(fileSeen, true)) continue;
      if (!arguments.empty() && arguments.back() == "@@u") arguments.back() = "@@";
      arguments.emplace_back(FilePlace);
    } else {
      const std::optional<std::string> text = Resolve(word, fields);
      if (!text) return {};
      if (word.empty() || !text->empty()) arguments.push_back(Quoted(*text));
    }
  }
  if (!fileSeen) arguments.emplace_back(FilePlace);
  if (arguments.front() == FilePlace) return {};
  std::string command;
  for (const std::string& argument : arguments) command += (command.empty() ? "" : " ") + argument;
  return command;
}

}  // namespace quorbin
