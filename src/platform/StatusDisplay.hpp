#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace quorbin {

// The text fields of the control window, in their order on the screen.
enum class Field { aktion, partner, dateiname, kdo, resu, ftp, fext, kprf, kext, Satz };

inline constexpr std::array<std::string_view, 10> FieldNames = {
    "aktion", "partner", "dateiname", "kdo", "resu", "ftp", "fext", "kprf", "kext", "Satz"};

// The control window FControl as the logic sees it. A write never fails and never waits for the
// user, and works whether the window is on the screen or not.
class StatusDisplay {
 public:
  StatusDisplay() = default;
  StatusDisplay(const StatusDisplay&) = delete;
  StatusDisplay& operator=(const StatusDisplay&) = delete;
  virtual ~StatusDisplay() = default;

  // The field holds these bytes from now on, whatever it held before.
  virtual void Write(Field field, std::string_view text) = 0;

  // Puts the line and CR LF behind the text of Satz. Costs the same however long that is: beyond
  // 16 MiB the oldest whole lines go until 8 MiB are left.
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
