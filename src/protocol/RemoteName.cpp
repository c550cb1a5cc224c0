#include "RemoteName.hpp"

#include <algorithm>

#include "Text.hpp"

namespace quorbin {

namespace {

constexpr std::string_view HostRoot = "/BS2/";
constexpr std::string_view Posix = "*POSIX";
constexpr std::size_t ExtLength = 4;  // characters, dot included

// What follows the last of the separators; all of the name if there is none.
std::string_view After(std::string_view name, std::string_view separators) {
  return name.substr(name.find_last_of(separators) + 1);
}

}  // namespace

std::string ReduceName(std::string_view value) {
  std::string_view name = value;
  if (name.starts_with(HostRoot)) name.remove_prefix(HostRoot.size());
  if (name.starts_with('/')) name = After(name, "/");
  if (name.starts_with(Posix)) {
    if (name.ends_with(')')) name.remove_suffix(1);
    name = After(name, "/(");
  }
  return std::string(RTrim(name));
}

bool IsUsableName(std::string_view name) {
  constexpr std::string_view never("/\0\"", 3);
  return !name.empty() && name.find_first_of(never) == name.npos && !name.ends_with('\\');
}

std::string DeriveExt(std::string_view FileName) {
  return std::string(FileName.substr(FileName.size() - std::min(FileName.size(), ExtLength)));
}

}  // namespace quorbin
