#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ProcessStarter.hpp"

namespace quorbin {

// Starts programs in a session of their own, with standard input empty, standard output and error
// those of the service, no other descriptor, and every signal at its default. The system reaps
// them: the end of a viewer is not reported.
class Processes final : public ProcessStarter {
 public:
  // The open command of the user's text editor, with "%1" for the file; empty if there is none.
  explicit Processes(std::function<std::string()> editorCommand);

  std::optional<int> Shell(const std::string& commandLine, const std::string& file) override;
  void OpenInEditor(const std::string& path) override;

  // To be called before a received file is deleted. A viewer that was given it and has only just
  // started may want to open it, or to move it out of the way: waits until the file is gone, the
  // viewer has ended, or half a second has passed since its start.
  void LetViewerTake(const std::string& path);

 private:
  struct Started {
    std::string file;
    pid_t task;
    std::chrono::steady_clock::time_point when;
  };
  void ForgetOld();

  std::vector<Started> started_;  // within the last half second
  std::function<std::string()> editorCommand_;
};

}  // namespace quorbin
