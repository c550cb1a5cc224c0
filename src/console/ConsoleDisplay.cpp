#include "ConsoleDisplay.hpp"

#include <cstddef>

#include "Printable.hpp"

namespace quorbin {

namespace {

// Bytes of a text that are shown. A peer may send a megabyte as one parameter, again and again, and
// showing all of it would fill the disk that the output goes to.
constexpr std::size_t ShownBytes = 4096;

std::string Line(Field field, std::string_view text) {
  std::string line(NameOf(field));
  line.append(": ").append(Printable(text.substr(0, ShownBytes)));
  if (text.size() > ShownBytes) line += " ... (" + std::to_string(text.size()) + " bytes)";
  return line + "\n";
}

}  // namespace

void ConsoleDisplay::Touch(Field field) {
  if (!written_.empty() && written_.back() == field) return;
  std::erase(written_, field);
  written_.push_back(field);
}

void ConsoleDisplay::Write(Field field, std::string_view text) {
  texts_.Write(field, text);
  if (field == Field::Satz) appended_.clear();
  Touch(field);
}

void ConsoleDisplay::AppendLine(std::string_view line) {
  texts_.AppendLine(line);
  appended_.emplace_back(line);
  Touch(Field::Satz);
}

void ConsoleDisplay::EndOfEvent() {
  std::string lines;
  for (const Field field : written_) {
    if (field == Field::Satz) {
      for (const std::string& line : appended_) lines += Line(field, line);
      continue;
    }
    const std::string& text = texts_.Text(field);
    std::string& shown = shown_[IndexOf(field)];
    if (text == shown) continue;
    lines += Line(field, text);
    shown = text;
  }
  written_.clear();
  appended_.clear();
  if (!lines.empty()) print_(lines);
}

}  // namespace quorbin
