#include "UnixComputer.hpp"

#include <cstdlib>
#include <filesystem>
#include <utility>

namespace quorbin {

std::string ExecutablePath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored).string();
}

UnixComputer::UnixComputer(const std::string& executablePath, InstanceDir& instance,
                           MessageBox messageBox)
    : exeName_(std::filesystem::path(executablePath).stem().string()),
      appPath_(std::filesystem::path(executablePath).parent_path().string()),
      instance_(instance),
      messageBox_(std::move(messageBox)) {}

std::string UnixComputer::Environ(const std::string& name) const {
  const char* text = std::getenv(name.c_str());
  return text != nullptr ? text : "";
}

void UnixComputer::MsgBox(const std::string& text, const std::string& title) {
  messageBox_(text, title);
}

void UnixComputer::End(int status) { std::_Exit(status); }

}  // namespace quorbin
