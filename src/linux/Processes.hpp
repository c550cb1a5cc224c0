#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ProcessStarter.hpp"

namespace quorbin {

// Starts programs in a session of their own, with standard input empty, standard output and error
// those of the service, no other descriptor, every signal at its default, and the core limit that
// the service was started with. The system reaps them: the end of a viewer is not reported.
class Processes final : public ProcessStarter {
 public:
  // To be made before the service gives up its rights. The open command of the user's text editor,
  // with "%1" for the file; empty if there is none.
  explicit Processes(std::function<std::string()> editorCommand);

  std::optional<int> Shell(const std::string& commandLine, const std::string& file) override;
  void OpenInEditor(const std::string& path) override;
  void LetViewerTake(const std::string& path) override;

 private:
  struct Started {
    std::string file;
    pid_t task;
    std::chrono::steady_clock::time_point when;
  };
  // Task number; nullopt if the program can't be started.
  std::optional<pid_t> Start(const std::string& commandLine) const;
  void ForgetOld();

  std::vector<Started> started_;  // within the last half second
  std::function<std::string()> editorCommand_;
  rlimit coreLimit_{};  // that of the program before it gave up its own
};

}  // namespace quorbin
