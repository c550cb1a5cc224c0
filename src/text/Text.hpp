#pragma once

// Trimming and letter case, the same for settings, registry and wire.

#include <algorithm>
#include <string>
#include <string_view>

namespace quorbin {

// The text without the blanks at its end, or at both ends. A blank is byte 32 alone unless others
// are named.
constexpr std::string_view RTrim(std::string_view text, std::string_view blanks = " ") {
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}
constexpr std::string_view Trim(std::string_view text, std::string_view blanks = " ") {
  const std::string_view right = RTrim(text, blanks);
  return right.substr(right.empty() ? 0 : right.find_first_not_of(blanks));
}

// The letters A to Z in lower case, every other byte as it is.
constexpr char LowerLetter(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
inline std::string LCase(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), LowerLetter);
  return lower;
}

// Equal, ignoring the case of the letters A to Z.
constexpr bool EqualsNoCase(std::string_view one, std::string_view other) {
  return std::ranges::equal(one, other, {}, LowerLetter, LowerLetter);
}

}  // namespace quorbin
