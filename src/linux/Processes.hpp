#pragma once

#include <functional>
#include <optional>
#include <string>

#include "ProcessStarter.hpp"

namespace quorbin {

// Starts programs in a session of their own, with standard input empty, standard output and error
// those of the service, no other descriptor, and every signal at its default. The system reaps
// them: no end of a viewer is ever heard of.
class Processes : public ProcessStarter {
 public:
  // The open command of the user's text editor, with "%1" for the file; empty if there is none.
  explicit Processes(std::function<std::string()> editorCommand);

  std::optional<int> Shell(const std::string& commandLine) override;
  void OpenInEditor(const std::string& path) override;

 private:
  std::function<std::string()> editorCommand_;
};

}  // namespace quorbin
