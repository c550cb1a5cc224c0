#pragma once

#include <array>
#include <string>
#include <string_view>

#include "StatusDisplay.hpp"

namespace quorbin {

// The memory behind a display: the bytes of each field.
class FieldTexts {
 public:
  // Length of Satz that is never exceeded, and what is left of it then, in bytes.
  static constexpr std::size_t SatzLimit = std::size_t{16} << 20U;
  static constexpr std::size_t SatzKept = std::size_t{8} << 20U;

  void Write(Field field, std::string_view text);
  // The line and CR LF behind Satz. Returns how many of the oldest bytes were dropped for it.
  std::size_t AppendLine(std::string_view line);
  const std::string& Text(Field field) const { return texts_[static_cast<std::size_t>(field)]; }

 private:
  std::array<std::string, FieldNames.size()> texts_;
};

}  // namespace quorbin
