#include "Printable.hpp"

#include <glib.h>

#include <cstddef>

namespace quorbin {

namespace {

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
    // Beyond the last code point where no valid one begins.
    const gunichar point =
        g_utf8_get_char_validated(bytes.data(), static_cast<gssize>(bytes.size()));
    const std::size_t length =
        point > 0x10FFFF ? 1 : static_cast<std::size_t>(g_unichar_to_utf8(point, nullptr));
    if (point > 0x10FFFF || point < 0x20 || (point >= 0x7F && point < 0xA0) || point == '\\') {
      for (const char c : bytes.substr(0, length)) AppendEscape(text, c);
    } else {
      text.append(bytes.substr(0, length));
    }
    bytes.remove_prefix(length);
  }
  return text;
}

}  // namespace quorbin
