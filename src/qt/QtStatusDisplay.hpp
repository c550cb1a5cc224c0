#pragma once

#include <QTimer>
#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "ControlForm.hpp"
#include "FieldTexts.hpp"
#include "Front.hpp"
#include "StatusDisplay.hpp"

namespace quorbin {

// FControl: the texts in memory, and the control window that shows them while it is on the screen.
// The window follows the texts at most 30 times per second, so that a fast transfer costs it no
// more than a slow one.
class QtStatusDisplay final : public StatusDisplay {
 public:
  explicit QtStatusDisplay(const Front::Events& events);  // the events outlive the display

  void Write(Field field, std::string_view text) override;
  void AppendLine(std::string_view line) override;
  std::string Text(Field field) const override { return texts_.Text(field); }
  void Show() override;
  void CloseWindow() override;
  void EndOfEvent() override {}  // the timer is enough

 private:
  bool OnScreen() const { return form_ && form_->isVisible(); }
  void Changed(Field field);
  void Refresh();
  void RefreshSatz();
  void Forget();

  const Front::Events& events_;
  FieldTexts texts_;
  std::unique_ptr<ControlForm> form_;  // made when it is first shown
  QTimer refresh_;
  std::array<bool, FieldNames.size()> changed_{};  // since the last refresh
  bool satzRewritten_ = false;
  bool satzDropped_ = false;
  std::size_t satzShown_ = 0;  // bytes at the start of Satz that the window shows
};

}  // namespace quorbin
