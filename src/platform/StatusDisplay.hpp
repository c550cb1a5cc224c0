#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "PlatformInterface.hpp"

namespace quorbin {

// The text fields of the control window, in their order on the screen.
enum class Field {
  aktion,     // what the service is doing
  partner,    // the peer: its address, then the versions it sent
  dateiname,  // path of the output file
  kdo,        // the viewer's command line, before its start the open command
  resu,       // result of the last message
  ftp,        // file type: binary or text
  fext,       // file extension that chooses the viewer
  kprf,       // the sender's text before the file name on the command line
  kext,       // the sender's text after it
  Satz,       // the log of one connection, many lines
};

// In the order of Field.
inline constexpr std::array<std::string_view, 10> FieldNames = {
    "aktion", "partner", "dateiname", "kdo", "resu", "ftp", "fext", "kprf", "kext", "Satz"};

// Place of the field in arrays that hold something for each field.
constexpr std::size_t IndexOf(Field field) { return static_cast<std::size_t>(field); }
constexpr std::string_view NameOf(Field field) { return FieldNames[IndexOf(field)]; }

static_assert(FieldNames.size() == IndexOf(Field::Satz) + 1);
static_assert(NameOf(Field::aktion) == "aktion" && NameOf(Field::Satz) == "Satz");

// The control window FControl as the logic sees it. A write never fails and never waits for the
// user, and works whether the window is on the screen or not.
class StatusDisplay : public PlatformInterface {
 public:
  // The field holds these bytes from now on, whatever it held before.
  virtual void Write(Field field, std::string_view text) = 0;

  // Appends the line and CR LF to Satz. The cost does not depend on the length of Satz: beyond 16
  // MiB the oldest lines are dropped until at most 8 MiB are left.
  virtual void AppendLine(std::string_view line) = 0;

  // What was last written.
  virtual std::string Text(Field field) const = 0;

  // Brings the control window on the screen, or takes it away; neither blocks.
  virtual void Show() = 0;
  virtual void CloseWindow() = 0;

  // Called once after each event of the program, when the texts may be brought to the user.
  virtual void EndOfEvent() = 0;
};

}  // namespace quorbin
