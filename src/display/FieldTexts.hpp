#pragma once

#include <array>
#include <string>
#include <string_view>

#include "StatusDisplay.hpp"

namespace quorbin {

// What a display shows: the bytes of each field.
class FieldTexts {
 public:
  // In bytes. If a line makes Satz longer than SatzLimit, the oldest lines are dropped, so that at
  // most SatzKept is left; nothing if that line alone is longer.
  static constexpr std::size_t SatzLimit = std::size_t{16} << 20U;
  static constexpr std::size_t SatzKept = std::size_t{8} << 20U;

  void Write(Field field, std::string_view text);
  // Appends the line and CR LF to Satz. Returns how many of the oldest bytes were dropped for it.
  std::size_t AppendLine(std::string_view line);
  const std::string& Text(Field field) const { return texts_[IndexOf(field)]; }

 private:
  std::array<std::string, FieldNames.size()> texts_;
};

}  // namespace quorbin
