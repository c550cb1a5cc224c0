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

}  // namespace

SettingsLines::SettingsLines(std::string_view file) : rest_(file) {
  if (rest_.starts_with(Utf8Mark)) rest_.remove_prefix(Utf8Mark.size());
}

std::optional<SettingsLine> SettingsLines::Next() {
  while (!rest_.empty()) {
    const std::size_t lineEnd = std::min(rest_.find('\n'), rest_.size());
    std::string_view text = rest_.substr(0, lineEnd);
    rest_.remove_prefix(std::min(lineEnd + 1, rest_.size()));
    ++number_;
    if (text.ends_with('\r')) text.remove_suffix(1);
    text = Strip(text);
    if (text.empty() || text.front() == ';' || text.front() == '#') continue;
    if (text.front() == '[') {
      section_ = Strip(text.substr(1, text.find(']') - 1));
      return SettingsLine{LineKind::Section, number_, text, *section_, {}, {}};
    }
    const std::size_t equals = text.find('=');
    const std::string_view key = Strip(text.substr(0, equals));
    if (!section_ || equals == text.npos || key.empty()) {
      return SettingsLine{LineKind::Ignored, number_, text, section_.value_or(""), {}, {}};
    }
    return SettingsLine{LineKind::Entry, number_, text,
                        *section_,       key,     Strip(text.substr(equals + 1))};
  }
  return {};
}

std::optional<SettingsLine> FindEntry(std::string_view file, std::string_view section,
                                      std::string_view key) {
  if (key.empty()) return {};
  SettingsLines lines(file);
  while (const std::optional<SettingsLine> line = lines.Next()) {
    // The key first: most lines differ in it, and few in the section.
    if (line->Kind == LineKind::Entry && EqualsNoCase(line->Key, key) &&
        EqualsNoCase(line->Section, section)) {
      return line;
    }
  }
  return {};
}

std::optional<std::string_view> FindSetting(std::string_view file, std::string_view section,
                                            std::string_view key) {
  const std::optional<SettingsLine> line = FindEntry(file, section, key);
  if (!line) return {};
  return line->Value;
}

void VisitKeys(std::string_view file, std::string_view section, const KeyVisitor& visit) {
  SettingsLines lines(file);
  while (const std::optional<SettingsLine> line = lines.Next()) {
    if (line->Kind == LineKind::Entry && EqualsNoCase(line->Section, section)) visit(line->Key);
  }
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

void PrivateProfile::ForEachKey(std::string_view section, const std::string& path,
                                const KeyVisitor& visit) {
  VisitKeys(Read(path), section, visit);
}

}  // namespace quorbin
