#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "FieldTexts.hpp"
#include "StatusDisplay.hpp"

namespace quorbin {

// The status fields on standard output: at the end of each event a line "field: text" for every
// field that has changed since it was last shown, in the order of the last writes, and one for
// every line appended to Satz. Of a long text only the beginning is shown, with its length.
class ConsoleDisplay final : public StatusDisplay {
 public:
  // print takes all lines of one event at once.
  explicit ConsoleDisplay(std::function<void(std::string_view)> print) : print_(std::move(print)) {}

  void Write(Field field, std::string_view text) override;
  void AppendLine(std::string_view line) override;
  std::string Text(Field field) const override { return texts_.Text(field); }
  void Show() override {}
  void CloseWindow() override {}
  void EndOfEvent() override;

 private:
  void Touch(Field field);

  std::function<void(std::string_view)> print_;
  FieldTexts texts_;
  std::array<std::string, FieldNames.size()> shown_;  // Satz is never in it
  std::vector<Field> written_;         // in this event, in the order of the last writes
  std::vector<std::string> appended_;  // to Satz in this event
};

}  // namespace quorbin
