#include "Printable.hpp"

#include <cstddef>
#include <cstdint>

namespace quorbin {

namespace {

// Length of the well-formed UTF-8 sequence at the start of the bytes, its code point in point; 0
// if there is none.
std::size_t SequenceLength(std::string_view bytes, std::uint32_t& point) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned char lead = byte(0);
  std::size_t length = 0;
  std::uint32_t least = 0;  // a longer form of a smaller number is not well-formed
  if (lead < 0x80) {
    length = 1;
    point = lead;
  } else if (lead >= 0xC2 && lead < 0xE0) {
    length = 2;
    least = 0x80;
    point = lead & 0x1FU;
  } else if (lead >= 0xE0 && lead < 0xF0) {
    length = 3;
    least = 0x800;
    point = lead & 0x0FU;
  } else if (lead >= 0xF0 && lead < 0xF5) {
    length = 4;
    least = 0x10000;
    point = lead & 0x07U;
  }
  if (length == 0 || length > bytes.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
    point = point << 6U | (byte(i) & 0x3FU);
  }
  const bool surrogate = point >= 0xD800 && point < 0xE000;
  return point < least || surrogate || point > 0x10FFFF ? 0 : length;
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

std::string Printable(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    std::uint32_t point = 0;
    std::size_t length = SequenceLength(bytes, point);
    const bool control = point < 0x20 || (point >= 0x7F && point < 0xA0) || point == '\\';
    if (length > 0 && !control) {
      text.append(bytes.substr(0, length));
    } else {
      if (length == 0) length = 1;
      for (const char c : bytes.substr(0, length)) AppendEscape(text, c);
    }
    bytes.remove_prefix(length);
  }
  return text;
}

}  // namespace quorbin
