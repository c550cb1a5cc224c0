#include "PrivateProfile.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "ReadFile.hpp"
#include "Text.hpp"

namespace quorbin {

namespace {

constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";

std::string_view Strip(std::string_view text) { return Trim(text, " \t"); }

// Gives take the key and the value of each entry of the section, until it returns true.
template <typename Take>
void ForEachEntry(std::string_view file, std::string_view section, Take take) {
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
      inSection = EqualsNoCase(Strip(line.substr(1, line.find(']') - 1)), section);
      continue;
    }
    if (!inSection) continue;
    const std::size_t equals = line.find('=');
    if (equals == line.npos) continue;
    if (take(Strip(line.substr(0, equals)), Strip(line.substr(equals + 1)))) return;
  }
}

}  // namespace

std::optional<std::string_view> FindSetting(std::string_view file, std::string_view section,
                                            std::string_view key) {
  std::optional<std::string_view> found;
  if (key.empty()) return found;
  ForEachEntry(file, section, [&](std::string_view entryKey, std::string_view value) {
    if (!EqualsNoCase(entryKey, key)) return false;
    found = value;
    return true;
  });
  return found;
}

std::vector<std::string> FindKeys(std::string_view file, std::string_view section) {
  std::vector<std::string> keys;
  ForEachEntry(file, section, [&keys](std::string_view key, std::string_view /*value*/) {
    keys.emplace_back(key);
    return false;
  });
  return keys;
}

const std::string& PrivateProfile::Read(const std::string& path) {
  if (path == path_) return bytes_;
  if (std::optional<std::string> file = ReadFile(path)) bytes_ = std::move(*file);
  if (path_.empty()) loop_.Defer([this] { path_.clear(); });
  path_ = path;
  return bytes_;
}

std::uint32_t PrivateProfile::GetPrivateProfileString(std::string_view section,
                                                      std::string_view key,
                                                      std::string_view defaultText,
                                                      std::span<char> buffer,
                                                      const std::string& path) {
  if (buffer.empty()) return 0;
  const std::string_view value = FindSetting(Read(path), section, key).value_or(defaultText);
  const std::size_t count = std::min(value.size(), buffer.size() - 1);
  std::copy_n(value.begin(), count, buffer.begin());
  return static_cast<std::uint32_t>(count);
}

std::vector<std::string> PrivateProfile::Keys(std::string_view section, const std::string& path) {
  return FindKeys(Read(path), section);
}

}  // namespace quorbin
