#include "PrivateProfile.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "ReadFile.hpp"

namespace quorbin {

namespace {

constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view Blanks = " \t";

std::string_view Strip(std::string_view text) {
  const std::size_t first = text.find_first_not_of(Blanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameName(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, Lower, Lower);
}

}  // namespace

std::optional<std::string_view> FindSetting(std::string_view file, std::string_view section,
                                            std::string_view key) {
  if (key.empty()) return {};
  if (file.starts_with(Utf8Mark)) file.remove_prefix(Utf8Mark.size());
  bool inSection = false;
  while (!file.empty()) {
    const std::size_t lineEnd = std::min(file.find('\n'), file.size());
    std::string_view line = file.substr(0, lineEnd);
    file.remove_prefix(std::min(lineEnd + 1, file.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    line = Strip(line);
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[') {
      inSection = SameName(Strip(line.substr(1, line.find(']') - 1)), section);
      continue;
    }
    if (!inSection) continue;
    const std::size_t equals = line.find('=');
    if (equals == line.npos || !SameName(Strip(line.substr(0, equals)), key)) continue;
    return Strip(line.substr(equals + 1));
  }
  return {};
}

std::uint32_t PrivateProfile::GetPrivateProfileString(std::string_view section,
                                                      std::string_view key,
                                                      std::string_view defaultText,
                                                      std::span<char> buffer,
                                                      const std::string& path) {
  if (buffer.empty()) return 0;
  if (std::optional<std::string> file = ReadFile(path)) lastRead_ = std::move(*file);
  const std::string_view value = FindSetting(lastRead_, section, key).value_or(defaultText);
  const std::size_t count = std::min(value.size(), buffer.size() - 1);
  std::copy_n(value.begin(), count, buffer.begin());
  return static_cast<std::uint32_t>(count);
}

}  // namespace quorbin
