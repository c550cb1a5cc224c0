#pragma once

#include <optional>
#include <string>

#include "PlatformInterface.hpp"

namespace quorbin {

class ProcessStarter : public PlatformInterface {
 public:
  // Starts the command line, which opens the file, as a new process in a normal window with the
  // focus and does not wait for it. Returns its task number, nullopt if it could not be started.
  // Blanks and tabs separate the arguments, double quotes group, a backslash is itself except
  // before a double quote; no shell is involved.
  virtual std::optional<int> Shell(const std::string& commandLine, const std::string& file) = 0;

  // To be called before a received file is deleted. A viewer that was started on it less than half
  // a second ago may still want to open it, or to move it out of the way: waits until the file has
  // gone, the viewer has ended, or that half second is over. An empty path means every such file.
  virtual void LetViewerTake(const std::string& path) = 0;

  // Opens the file, or the one that the link leads to, in the user's editor for plain text; a
  // failure has no effect.
  virtual void OpenInEditor(const std::string& path) = 0;
};

}  // namespace quorbin
