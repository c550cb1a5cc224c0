#include "ConsoleDisplay.hpp"

#include "Printable.hpp"

namespace quorbin {

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
  const auto addLine = [&lines](Field field, std::string_view text) {
    lines.append(FieldNames[static_cast<std::size_t>(field)]).append(": ");
    lines.append(Printable(text)).append("\n");
  };
  for (const Field field : written_) {
    if (field == Field::Satz) {
      for (const std::string& line : appended_) addLine(field, line);
      continue;
    }
    const std::string& text = texts_.Text(field);
    std::string& shown = shown_[static_cast<std::size_t>(field)];
    if (text == shown) continue;
    addLine(field, text);
    shown = text;
  }
  written_.clear();
  appended_.clear();
  if (!lines.empty()) print_(lines);
}

}  // namespace quorbin
