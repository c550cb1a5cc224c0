#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "PlatformInterface.hpp"

namespace quorbin {

// One entry of the system's journal. Texts are raw bytes, some of them from peers.
struct JournalEntry {
  struct Field {
    std::string_view Name;  // capitals, digits and underscores, as the journal requires
    std::string Value;
  };

  bool Warning = false;  // a refusal or a failure: somebody may ask why
  std::string Message;   // all of it in one line
  std::vector<Field> Fields;
};

// Where the administrator reads afterwards what has happened.
class Journal : public PlatformInterface {
 public:
  // Never waits and never fails: an entry that nobody takes at once is lost, and the next one that
  // is taken says how many were. Texts are written so that they can't steer a terminal or forge a
  // field.
  virtual void Write(const JournalEntry& entry) = 0;
};

}  // namespace quorbin
