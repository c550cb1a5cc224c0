#pragma once

// What every fuzzer needs: a claim that ends the run when it does not hold, and its input in
// readable form.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace quorbin::fuzz {

inline void Require(bool holds, const char* claim, std::string_view detail = {}) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s: %.*s\n", claim, static_cast<int>(detail.size()),
               detail.data());
  std::abort();
}

inline std::string_view Input(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Takes the first line off the text, without its LF.
inline std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == text.npos ? text.size() : end + 1);
  return line;
}

}  // namespace quorbin::fuzz
