#include "Printable.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace quorbin {

namespace {

struct Character {
  char32_t Point;
  std::size_t Length;  // in bytes
};

// The character that the bytes, at least one, begin with; nullopt if it is not valid UTF-8.
std::optional<Character> FirstCharacter(std::string_view bytes) {
  constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by length
  const auto lead = static_cast<unsigned char>(bytes[0]);
  if (lead < 0x80) return Character{lead, 1};
  if (lead < 0xC0 || lead > 0xF4) return std::nullopt;
  std::size_t length = 2;
  if (lead >= 0xE0) length = 3;
  if (lead >= 0xF0) length = 4;
  if (bytes.size() < length) return std::nullopt;
  char32_t point = lead & (0x7FU >> length);
  for (const char c : bytes.substr(1, length - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0U) != 0x80) return std::nullopt;
    point = (point << 6U) | (byte & 0x3FU);
  }
  const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
  if (point < smallest[length] || point > 0x10FFFF || surrogate) return std::nullopt;
  return Character{point, length};
}

void AppendEscape(std::string& text, char c) {
  switch (c) {
    case '\r':
      text += "\\r";
      return;
    case '\n':
      text += "\\n";
      return;
    case '\t':
      text += "\\t";
      return;
    case '\\':
      text += "\\\\";
      return;
    default:
      break;
  }
  constexpr std::string_view digits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  text += "\\x";
  text += digits[byte >> 4U];
  text += digits[byte & 0x0FU];
}

}  // namespace

bool Steers(char32_t point) {
  struct Range {
    char32_t First, Last;
  };
  constexpr std::array ranges = {
      Range{0, 0x1F},        Range{0x7F, 0x9F},      // control characters
      Range{0x061C, 0x061C}, Range{0x200B, 0x200F},  // directions, joiners, no width
      Range{0x2028, 0x202E},                         // line ends, directions
      Range{0x2060, 0x2069}, Range{0xFEFF, 0xFEFF},  // no width, directions
  };
  return std::ranges::any_of(
      ranges, [point](const Range& range) { return range.First <= point && point <= range.Last; });
}

std::string Printable(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const std::optional<Character> first = FirstCharacter(bytes);
    const std::string_view sequence = bytes.substr(0, first ? first->Length : 1);
    if (!first || Steers(first->Point) || first->Point == '\\') {
      for (const char c : sequence) AppendEscape(text, c);
    } else {
      text += sequence;
    }
    bytes.remove_prefix(sequence.size());
  }
  return text;
}

}  // namespace quorbin
