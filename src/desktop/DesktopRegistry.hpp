#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "RegistryReader.hpp"

namespace quorbin {

// The places of classes.reg, the first to be asked first: quorbin/ under $XDG_CONFIG_HOME (default
// $HOME/.config), then under each of $XDG_CONFIG_DIRS (default /etc/xdg). A directory that is not
// absolute does not count. environ gives the text of an environment variable, empty if not set.
std::vector<std::string> ClassesFilePaths(
    const std::function<std::string(const std::string&)>& environ);

// Answers from the first of the files that holds the value, read afresh each time; if none does,
// class and open command come from the user's file associations.
class DesktopRegistry final : public RegistryReader {
 public:
  explicit DesktopRegistry(std::vector<std::string> classesFiles)
      : classesFiles_(std::move(classesFiles)) {}

  std::optional<RegValue> QueryValue(std::uint32_t RootKey, const std::string& KeyPath,
                                     const std::string& ValueName) override;

  // The file that gave the last answer; empty if it came from the file associations.
  const std::string& AnsweringFile() const { return answeringFile_; }

 private:
  std::vector<std::string> classesFiles_;
  std::string answeringFile_;
};

}  // namespace quorbin
