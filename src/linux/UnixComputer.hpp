#pragma once

#include <functional>
#include <string>

#include "Computer.hpp"
#include "InstanceDir.hpp"

namespace quorbin {

// The full path of the running executable, links resolved.
std::string ExecutablePath();

class UnixComputer final : public Computer {
 public:
  using MessageBox = std::function<void(const std::string& text, const std::string& title)>;

  // Shows messages through messageBox; the directory must outlive the object.
  UnixComputer(const std::string& executablePath, InstanceDir& instance, MessageBox messageBox);

  bool PrevInstance() override { return !instance_.Claim(); }
  std::string EXEName() const override { return exeName_; }
  std::string AppPath() const override { return appPath_; }
  std::string Environ(const std::string& name) const override;
  void MsgBox(const std::string& text, const std::string& title) override;
  [[noreturn]] void End(int status) override;

 private:
  std::string exeName_;
  std::string appPath_;
  InstanceDir& instance_;
  MessageBox messageBox_;
};

}  // namespace quorbin
