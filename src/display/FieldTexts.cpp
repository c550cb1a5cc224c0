#include "FieldTexts.hpp"

namespace quorbin {

void FieldTexts::Write(Field field, std::string_view text) {
  std::string& held = texts_[IndexOf(field)];
  if (text.empty() && held.capacity() > SatzKept) held = std::string();  // frees a long log
  held.assign(text);
}

std::size_t FieldTexts::AppendLine(std::string_view line) {
  std::string& satz = texts_[IndexOf(Field::Satz)];
  satz.append(line).append("\r\n");
  if (satz.size() <= SatzLimit) return 0;
  // The first line entirely within the part to be kept becomes the oldest.
  const std::size_t lineEnd = satz.find("\r\n", satz.size() - SatzKept - 2);
  const std::size_t dropped = lineEnd + 2;
  satz.erase(0, dropped);
  return dropped;
}

}  // namespace quorbin
