#pragma once

#include <string>

#include "PlatformInterface.hpp"

namespace quorbin {

// What the program asks of the computer it runs on.
class Computer : public PlatformInterface {
 public:
  // True if an earlier instance of this program runs for the same user. The first call claims the
  // place of the running instance, which is free again when the process ends, however it ends.
  virtual bool PrevInstance() = 0;

  // Name of the executable without directory and extension.
  virtual std::string EXEName() const = 0;
  // Directory of the executable, without a closing separator.
  virtual std::string AppPath() const = 0;

  // Text of an environment variable; empty if it is not set.
  virtual std::string Environ(const std::string& name) const = 0;

  // Shows the message with an exclamation mark and one button, and returns when the user has
  // dismissed it.
  virtual void MsgBox(const std::string& text, const std::string& title) = 0;

  // Ends the process without raising any further event.
  [[noreturn]] virtual void End(int status) = 0;
};

}  // namespace quorbin
