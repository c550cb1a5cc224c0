#pragma once

// Small things that several modules share.

#include <cstdint>
#include <string>
#include <string_view>

namespace quorbin {

// The separator of paths. A leading backslash in the setting Prefix counts as one.
inline constexpr char PathSeparator = '/';

// Decimal digits behind one blank, or behind a minus sign if the number is negative.
inline std::string NumberText(std::int64_t number) {
  std::string digits = std::to_string(number);
  if (number >= 0) digits.insert(0, 1, ' ');
  return digits;
}

// The text without the blanks (byte 32, no other) at its end, or at both ends.
constexpr std::string_view RTrim(std::string_view text) {
  return text.substr(0, text.find_last_not_of(' ') + 1);
}
constexpr std::string_view Trim(std::string_view text) {
  const std::string_view right = RTrim(text);
  return right.substr(right.empty() ? 0 : right.find_first_not_of(' '));
}

// The letters A to Z in lower case, every other byte as it is.
inline std::string LCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

}  // namespace quorbin
