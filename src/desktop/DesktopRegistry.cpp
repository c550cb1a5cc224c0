#include "DesktopRegistry.hpp"

#include <filesystem>
#include <sstream>
#include <string_view>
#include <utility>

#include "Associations.hpp"
#include "ClassesFile.hpp"
#include "ReadFile.hpp"
#include "Text.hpp"

namespace quorbin {

namespace {

// Bytes; more than the full export of a computer has.
constexpr off_t LongestClassesFile = off_t{64} << 20U;

constexpr std::string_view CommandKey = "\\shell\\open\\command";

// The default value of a key as the desktop has it; empty if it has none.
std::string DesktopAnswer(const std::string& keyPath) {
  if (keyPath.size() > CommandKey.size()) {
    const std::size_t classLength = keyPath.size() - CommandKey.size();
    if (EqualsNoCase(std::string_view(keyPath).substr(classLength), CommandKey)) {
      return OpenCommandOfClass(keyPath.substr(0, classLength));
    }
  }
  return ClassOfExtension(keyPath);
}

}  // namespace

std::vector<std::string> ClassesFilePaths(
    const std::function<std::string(const std::string&)>& environ) {
  std::vector<std::string> paths;
  const auto add = [&paths](const std::filesystem::path& directory) {
    if (directory.is_absolute()) paths.push_back(directory / "quorbin" / "classes.reg");
    return directory.is_absolute();
  };
  if (!add(environ("XDG_CONFIG_HOME"))) add(std::filesystem::path(environ("HOME")) / ".config");
  std::string directories = environ("XDG_CONFIG_DIRS");
  if (directories.empty()) directories = "/etc/xdg";
  std::istringstream list(std::move(directories));
  for (std::string directory; std::getline(list, directory, ':');) add(directory);
  return paths;
}

std::optional<RegValue> DesktopRegistry::QueryValue(std::uint32_t RootKey,
                                                    const std::string& KeyPath,
                                                    const std::string& ValueName) {
  if (RootKey != HKEY_CLASSES_ROOT) return std::nullopt;
  for (const std::string& path : classesFiles_) {
    const std::optional<std::string> bytes = ReadFile(path, LongestClassesFile);
    if (!bytes) continue;
    if (std::optional<RegValue> value = FindValue(*bytes, KeyPath, ValueName)) {
      answeringFile_ = path;
      return value;
    }
  }
  answeringFile_.clear();
  if (!ValueName.empty()) return std::nullopt;
  std::string answer = DesktopAnswer(KeyPath);
  if (answer.empty()) return std::nullopt;
  return RegValue{RegType::REG_SZ, std::move(answer) + '\0'};
}

}  // namespace quorbin
