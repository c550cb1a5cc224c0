#pragma once

// Small things that several modules share.

#include <cstdint>
#include <string>

namespace quorbin {

// The separator of paths. A leading backslash in the setting Prefix counts as one.
inline constexpr char PathSeparator = '/';

// Decimal digits after one blank, or after a minus sign if the number is negative.
inline std::string NumberText(std::int64_t number) {
  std::string digits = std::to_string(number);
  if (number >= 0) digits.insert(0, 1, ' ');
  return digits;
}

}  // namespace quorbin
